#pragma once

#include <ostream>
#include <vector>

#include <opencv2/core.hpp>

#include "bench/refocus/engine.h"
#include "bench/refocus/report.h"
#include "bench/refocus/scene.h"

namespace quality {

// Photos of a synthetic scene: the engine's input, and the picture of a thin lens that its
// rendering is compared to.
struct ScenePhoto {
    std::string name;
    StereoPair pair;   // all in focus, with a sensor's noise
    cv::Mat disparity; // exact, main image pixels, CV_32FC1
    cv::Point focus;
    host::Image traced; // through the lens, without noise
};

// The lens' discs have the radii that the engine uses at full blur level.
ScenePhoto Photograph(const Scene& scene, cv::Size size);

// The engine's rendering with a disparity map, at full blur level.
host::Image RenderedBy(const ScenePhoto& photo, const cv::Mat& disparity);

// The reference method: each pixel of the code values blurred by a Gaussian of half the radius of
// the engine's disc, which has the disc's standard deviation.
host::Image GaussianBlend(const ScenePhoto& photo, const cv::Mat& disparity);

// Pixels that must keep their bytes (CV_8UC1, 255): in focus by the exact disparity, at a margin
// from what is out of focus, and from nearer objects also at the distance of their largest disc.
cv::Mat InFocusCore(const ScenePhoto& photo);

// How close a picture is to the traced one.
struct Fidelity {
    double luma = 0.0;       // PSNR, dB
    double edges = 0.0;      // PSNR of luma along depth edges, dB
    double chroma = 0.0;     // PSNR of U and V, dB
    double ssim = 0.0;       // of luma (Wang et al., "Image Quality Assessment", 2004)
    double brightness = 0.0; // mean luma minus that of the traced picture, code values
};

Fidelity Compare(const host::Image& picture, const ScenePhoto& photo);

// 255 within a hundredth of the width of a disparity edge, which is a step of more than a twentieth
// of the scene's range.
cv::Mat AlongDepthEdges(const cv::Mat& disparity);

// `count` random scenes from seed `first` on, in pictures of `width` columns. A line for each scene
// goes to `out`, then their mean and the worst of each figure.
std::vector<Row> RenderingRows(std::uint32_t first, int count, int width, std::ostream& out,
                               const PictureFolder& pictures);

} // namespace quality

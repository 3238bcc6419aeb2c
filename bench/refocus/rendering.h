#pragma once

#include <ostream>
#include <vector>

#include <opencv2/core.hpp>

#include "bench/refocus/estimation.h"
#include "bench/refocus/photograph.h"
#include "bench/refocus/report.h"
#include "bench/refocus/scene.h"

namespace quality {

// A made-up scene photographed: what the engine is given and what a thin lens would have made of
// it.
struct ScenePhoto {
    std::string name;
    StereoPair pair;   // all in focus, with a sensor's noise
    cv::Mat disparity; // exact, main image pixels, CV_32FC1
    cv::Point focus;
    host::Image traced; // seen through a lens, without noise
};

// The lens' radius follows the engine's own relation of disparity to radius at full blur level.
ScenePhoto Photograph(const Scene& scene, cv::Size size);

// The engine's rendering with the disparity given, at full blur level.
host::Image RenderedBy(const ScenePhoto& photo, const cv::Mat& disparity);

// What the engine is held against: each pixel's mean over its surroundings, as the values are
// coded, by a Gaussian with the deviation of the disc that the engine would use (half its radius).
host::Image GaussianBlend(const ScenePhoto& photo, const cv::Mat& disparity);

// Of luma, in dB; where `mask` (CV_8UC1) isn't 0, or everywhere if it is empty.
double Psnr(const host::Image& a, const host::Image& b, const cv::Mat& mask = {});

// 255 within a hundredth of the width of a step in disparity of a twentieth of the scene's depth.
cv::Mat AlongDepthEdges(const cv::Mat& disparity);

// All six scenes at a width. A line for each scene goes to `out`.
std::vector<Row> RenderingRows(int width, std::ostream& out, const PictureFolder& pictures);

} // namespace quality

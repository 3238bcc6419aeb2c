#pragma once

#include <array>

#include "host/refocus/disparity_map.h"

namespace refocus {

// Radius in main image pixels of the disc of a point, per pixel of disparity between it and the
// focus.
//
// A thin lens focused at distance zf images a point at z as a disc of diameter
// aperture * focal length * |1/z - 1/zf| (zf much larger than the focal length), and disparity is
// baseline * focal length / z: the disc grows in proportion to |disparity - focus disparity|.
//
// intensity: 0 to 100, the aperture. At 100 a disparity as far from the focus as the scale is long
// gets the largest radius, a fixed share of the image's width.
double RadiusPerDisparity(const DisparityScale& scale, int intensity, int imageWidth);

// For each value of a disparity map: how a pixel there is blurred.
struct BlurTable {
    // Main image pixels, 0 in focus; positive: nearer than the focus.
    std::array<float, 256> radius{};
    // Share, 0 to 1, that the blurred far (near) field has in such a pixel; the rest is the sharp
    // image. Both 0 in focus.
    std::array<float, 256> far{};
    std::array<float, 256> near{};
    float maxRadius = 0.0f;
};

// Radii grow from the ends of the focus range. Discs too small for the eye to tell from points
// count as sharp. `cell`: main image pixels per cell of the blurred image, over which the sharp
// image fades into the blurred one.
BlurTable MakeBlurTable(const DisparityScale& scale, FocusRange focus, int intensity,
                        cv::Size imageSize, int cell);

} // namespace refocus

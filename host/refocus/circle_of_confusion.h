#pragma once

#include <array>

#include "host/refocus/disparity_map.h"

namespace refocus {

// Radius of a point's disc, in main image pixels, per pixel of disparity between the point and the
// focus.
//
// A thin lens focused at distance zf images a point at z as a disc of diameter
// aperture * focal length * |1/z - 1/zf| (zf much larger than the focal length). Disparity is
// baseline * focal length / z, so the disc grows in proportion to |disparity - focus disparity|.
//
// `intensity`, 0 to 100, is the aperture. At 100, a disparity as far from the focus as the whole
// scale is wide gets the largest radius, 2.2 % of the image's longer side, whichever way the image
// is turned.
double RadiusPerDisparity(const DisparityScale& scale, int intensity, int longerSide);

// How a pixel is blurred, by its value in the disparity map.
struct BlurTable {
    // Main image pixels; 0 in focus, positive if nearer than the focus.
    std::array<float, 256> radius{};
    // Share, 0 to 1, of the blurred far or near field in the pixel; the rest is the sharp image.
    // Both are 0 in focus.
    std::array<float, 256> far{};
    std::array<float, 256> near{};
    float maxRadius = 0.0f;
};

// Radii grow from the ends of the focus range. Discs that the eye cannot tell from points count as
// sharp. From there on, the sharp image fades into the blurred one, the sooner the smaller `cell`
// is, the main image pixels of one cell of the blurred image.
BlurTable MakeBlurTable(const DisparityScale& scale, FocusRange focus, int intensity,
                        cv::Size imageSize, int cell);

} // namespace refocus

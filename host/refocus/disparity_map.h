#pragma once

#include <opencv2/core.hpp>

#include "engine/refocus_engine.h"

namespace refocus {

// The meaning of the 8-bit values of a disparity map: disparity = offset + step * value, in pixels
// of the main image. Larger values are nearer.
struct DisparityScale {
    double offset = 0.0;
    double step = 0.0;
};

// The scale that spreads the map's own range over 0 to 255, but for the half percent at each end,
// where mismatches gather. `disparity` is CV_32FC1 in reduced pixels, `factor` main image pixels
// each. A step is at least 1/64 of a reduced pixel, so that a map without depth isn't blown up into
// noise.
DisparityScale ScaleFor(const cv::Mat& disparity, int factor);

// disparity as values on the scale, CV_32FC1, 0 to 255, clipped, not rounded.
cv::Mat ToValues(const cv::Mat& disparity, int factor, const DisparityScale& scale);

// The pixels that tell what is in focus: the middle of the face in which the focus point lies, else
// a small square around the point. A point outside the image counts as the nearest one inside. Not
// empty. `size` is the main image's, at least 16x16.
cv::Rect FocusWindow(const TSL_DCR_FOCUSPARAM& focus, cv::Size size);

// Median of a CV_8UC1 map in a window that lies within it.
int MedianValue(const cv::Mat& map, cv::Rect window);

} // namespace refocus

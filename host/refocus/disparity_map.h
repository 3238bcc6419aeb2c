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

// The scale that maps the range of the values to 0 to 255. The lowest and the highest half percent,
// where mismatches gather, are left out. `disparity` is CV_32FC1 in reduced pixels of `factor` main
// image pixels. A step is at least 1/64 of a reduced pixel, so that the noise of a map without
// depth is not amplified.
DisparityScale ScaleFor(const cv::Mat& disparity, int factor);

// The disparities as values on the scale, CV_32FC1, clipped to 0 to 255, not rounded.
cv::Mat ToValues(const cv::Mat& disparity, int factor, const DisparityScale& scale);

// The pixels whose disparity is in focus.
struct FocusWindow {
    cv::Rect pixels; // never empty
    bool isFace = false;
};

// The central half, each way, of the face that contains the focus point; else a small square around
// the point. A point outside the image counts as the nearest one inside. `size` is the main
// image's, at least 16x16.
FocusWindow FocusWindowOf(const TSL_DCR_FOCUSPARAM& focus, cv::Size size);

// The values of a disparity map that are in focus: low to high, both included.
struct FocusRange {
    int low = 0;
    int high = 0;
};

// The values in focus in `map` (CV_8UC1): the window's median, which ignores noise and a few pixels
// of another object; within a face its 10th to 90th percentile, so that all of it is sharp.
FocusRange FocusRangeOf(const cv::Mat& map, const TSL_DCR_FOCUSPARAM& focus);

} // namespace refocus

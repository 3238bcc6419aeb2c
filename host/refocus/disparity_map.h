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

// The pixels that tell what is in focus.
struct FocusWindow {
    cv::Rect pixels; // never empty
    bool isFace = false;
};

// The middle of the face in which the focus point lies, else a small square around the point. A
// point outside the image counts as the nearest one inside. `size` is the main image's, at least
// 16x16.
FocusWindow FocusWindowOf(const TSL_DCR_FOCUSPARAM& focus, cv::Size size);

// Values low to high of a disparity map are in focus.
struct FocusRange {
    int low = 0;
    int high = 0;
};

// What is in focus in `map` (CV_8UC1): the window's median, so that neither noise nor a few pixels
// of something else matter; in a face all its depth but for the outermost values.
FocusRange FocusRangeOf(const cv::Mat& map, const TSL_DCR_FOCUSPARAM& focus);

} // namespace refocus

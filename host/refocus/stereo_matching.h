#pragma once

#include <opencv2/core.hpp>

// Dense matching of a rectified pair by semi-global matching (Hirschmueller, "Stereo Processing by
// Semiglobal Matching and Mutual Information", 2008), with a second match from the right image's
// view to tell which disparities both views agree on.
namespace refocus {

// Disparities searched, in pixels of the rectified images: minimum to minimum + count - 1.
struct SearchRange {
    int minimum = 0;
    int count = 0; // a multiple of 16
};

// Range for images of `width`, up to `nearestDisparity` (0 if unknown: a sixth of the width), at
// most a quarter of the width. Begins a little below 0: no pair is rectified perfectly.
SearchRange SearchRangeFor(int width, double nearestDisparity);

struct Matches {
    cv::Mat disparity;  // CV_32FC1, pixels; meaningless where not consistent
    cv::Mat consistent; // CV_8UC1, 255 where left and right match agree
    cv::Mat occluded;   // CV_8UC1, 255 where they don't and the right image shows nothing of it
};

// left and right: CV_8UC1 of one size. The same bytes whatever the number of threads.
Matches MatchBothWays(const cv::Mat& left, const cv::Mat& right, const SearchRange& range);

} // namespace refocus

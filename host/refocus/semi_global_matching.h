#pragma once

#include <opencv2/core.hpp>

namespace refocus {

// Disparities searched, in pixels of the rectified images: minimum to minimum + count - 1.
struct SearchRange {
    int minimum = 0;
    int count = 0; // a multiple of 16
};

// Disparities of a rectified pair, CV_32FC1, pixels: of each pixel of the left image and of each
// pixel of the right one. A right pixel that has no candidate within the left image has
// kUnmatched.
struct ViewDisparities {
    cv::Mat left;
    cv::Mat right;
};

constexpr float kUnmatched = -1e6f;

// Semi-global matching (Hirschmueller, "Stereo Processing by Semiglobal Matching and Mutual
// Information", 2008) along eight paths. The cost of a match is the Hamming distance of census
// transforms (Zabih and Woodfill, "Non-parametric Local Transforms for Computing Visual
// Correspondence", 1994), which ignores brightness and contrast, and a share of the difference in
// brightness. left and right: CV_8UC1 of one size. The same bytes for any number of threads.
ViewDisparities MatchSemiGlobally(const cv::Mat& left, const cv::Mat& right,
                                  const SearchRange& range);

} // namespace refocus

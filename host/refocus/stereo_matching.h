#pragma once

#include <opencv2/core.hpp>

#include "host/refocus/error.h"
#include "host/refocus/semi_global_matching.h"

// Dense matching of a rectified pair by semi-global matching (Hirschmueller, "Stereo Processing by
// Semiglobal Matching and Mutual Information", 2008), once from each image's view, and the decision
// whether the result is depth at all.
namespace refocus {

// Range for images of `width`, up to `nearestDisparity` (0 if unknown: a sixth of the width), at
// most a quarter of the width. Begins a little below 0, because no pair is rectified perfectly.
SearchRange SearchRangeFor(int width, double nearestDisparity);

// The part of `range` that contains the pair's disparities, by matching at a quarter of the size,
// which takes a fiftieth of the time. All of `range` where little matches. left and right: CV_8UC1
// of one size.
SearchRange NarrowedRange(const cv::Mat& left, const cv::Mat& right, const SearchRange& range);

struct Matches {
    cv::Mat disparity;  // CV_32FC1, pixels; meaningless where not consistent
    cv::Mat consistent; // CV_8UC1, 255 where the matches from left and right agree
    cv::Mat occluded;   // CV_8UC1, 255 where they disagree and no right pixel matches this one
};

// left and right: CV_8UC1 of one size. The same bytes for any number of threads.
Matches MatchBothWays(const cv::Mat& left, const cv::Mat& right, const SearchRange& range);

// What a match shows of depth.
struct DepthPresence {
    double texturedShare = 0.0;   // of all pixels: those with enough structure to be matched
    double consistentShare = 0.0; // of the textured pixels: those that both views agree on
    double range = 0.0; // pixels, between the 1st and 99th percentile of their disparities
};

// `left` is the image that was matched, CV_8UC1.
DepthPresence MeasureDepthPresence(const cv::Mat& left, const Matches& matches);

// False for a pair to refuse: flat or black (no structure), unrelated (no agreement), or identical
// or of a plane parallel to the image (no range).
bool HasDepth(const DepthPresence& presence);

// Why a pair that was matched within `range` has no depth. Tries what a wrong setup would need: the
// pair mirrored, rotated by 90 degrees, or searched from a quarter of the width below 0 to half of
// it above. kNoDepth where no reason is found.
Error ReasonForNoDepth(const cv::Mat& left, const cv::Mat& right, const Matches& matches,
                       const SearchRange& range);

} // namespace refocus

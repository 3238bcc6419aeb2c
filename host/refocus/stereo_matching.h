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
};

// left and right: CV_8UC1 of one size. The same bytes for any number of threads.
Matches MatchBothWays(const cv::Mat& left, const cv::Mat& right, const SearchRange& range);

// The right image, and what the alignment made of it, which holds for the given setup alone.
struct AlignedImage {
    const cv::Mat& seen;
    const cv::Mat& aligned;
};

// kNone for a pair with depth. Else why it has none: tries what a wrong setup would need, which is
// the pair mirrored, rotated by 90 degrees, or searched from a quarter of the width below 0 to half
// of it above; kNoDepth where no reason is found. `matches` are those within `range`. A pair with
// depth of which little agrees is refused, too, if it agrees better mirrored or rotated.
Error CheckDepth(const cv::Mat& left, const AlignedImage& right, const Matches& matches,
                 const SearchRange& range);

} // namespace refocus

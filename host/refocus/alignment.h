#pragma once

#include <opencv2/core.hpp>

#include "host/refocus/stereo_matching.h"

// What calibration leaves between a rectified pair: lenses move when they focus and when they warm
// up, and each camera meters for itself. Dense matching searches along rows and compares light, so
// both are set right before it.
namespace refocus {

// Takes the right image's points to where the left one's rows are: scaled and turned about the
// image's middle, then moved down. Across the rows only, for along them it is depth that moves
// points.
struct Alignment {
    double offset = 0.0; // pixels down
    double scale = 1.0;
    double roll = 0.0; // radians, clockwise
    double gain = 1.0; // of the right image's light
    int matches = 0;   // that agree on it
};

// Corners of the left image (Shi and Tomasi, "Good Features to Track", 1994) are found in the right
// one by normalised cross-correlation within `range` and a little above and below; the model most
// of them agree on comes from random samples (Fischler and Bolles, "Random Sample Consensus",
// 1981). The same result whatever the number of threads. Identity where too few agree.
Alignment EstimateAlignment(const cv::Mat& left, const cv::Mat& right, const SearchRange& range);

// The right image set right; itself, not resampled, where it is well already.
cv::Mat Align(const cv::Mat& right, const Alignment& alignment);

} // namespace refocus

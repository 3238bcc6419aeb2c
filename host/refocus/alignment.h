#pragma once

#include <opencv2/core.hpp>

#include "host/refocus/stereo_matching.h"

// Residual misalignment of a rectified pair. Focusing and temperature move the lenses after
// calibration, and each camera has its own exposure. Block matching searches along rows and
// compares brightness, so both are corrected first.
namespace refocus {

// Maps the right image's points onto the left image's rows: scaled and rotated about the image's
// centre, then moved down. Only vertical positions are modelled, because depth moves points along
// the rows.
struct Alignment {
    double offset = 0.0; // pixels down
    double scale = 1.0;
    double roll = 0.0; // radians, clockwise
    double gain = 1.0; // factor for the right image's brightness
    int matches = 0;   // corner matches that agree with the model
};

// Corners of the left image (Shi and Tomasi, "Good Features to Track", 1994) are found in the right
// one by normalised cross-correlation, within `range` along the rows and a sixteenth of the height
// across them. The model that most of them agree with comes from random samples (Fischler and
// Bolles, "Random Sample Consensus", 1981). left and right: CV_8UC1 of one size. The identity where
// too few matches agree. The same result for any number of threads.
Alignment EstimateAlignment(const cv::Mat& left, const cv::Mat& right, const SearchRange& range);

// Returns the right image resampled to the left one's rows and brightness, or the image itself if
// its misalignment is below a fifth of a pixel and its gain within 2 % of 1.
cv::Mat Align(const cv::Mat& right, const Alignment& alignment);

} // namespace refocus

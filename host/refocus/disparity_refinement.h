#pragma once

#include <opencv2/core.hpp>

// Refinement of a matched disparity map (CV_32FC1, pixels) at the size of matching. The same bytes
// for any number of threads.
namespace refocus {

// Grey levels at which the weight of a neighbour, by its difference in colour, falls to 1 / e.
constexpr float kColourContrast = 10.0f;

// Replaces the disparities that are not `consistent` (CV_8UC1, 0 or 255). Within a row the smaller
// of the two neighbouring consistent ones is taken where the gap's width fits their difference.
// Elsewhere the nearest consistent pixels in eight directions (Hirschmueller, "Stereo Processing by
// Semiglobal Matching and Mutual Information", 2008, 2.6) decide, of which those of a similar
// colour and near by weigh most (`guide`, CV_8UC3: Y, U, V): one of their lowest disparities is
// taken. All 0 where nothing is consistent.
void FillGaps(cv::Mat& disparity, const cv::Mat& consistent, const cv::Mat& guide);

struct WeightedMedianOptions {
    int radius = 12; // pixels; the window is 2 * radius + 1 square
    float contrast = kColourContrast;
    float step = 2.0f; // pixels; a larger disparity difference within the window is an edge
};

// Moves the edges of the map to the edges of its image (`guide`, CV_8UC3: Y, U, V). Near disparity
// edges, and where `weight` (CV_32FC1, above 0) is less than 1, each value is replaced by the
// median of its window, in which neighbours count by their own weight and by the similarity of
// their colour (Ma et al., "Constant Time Weighted Median Filtering for Stereo Matching and
// Beyond", 2013). Unlike a mean, a median yields no disparity between an object and its background.
cv::Mat WeightedMedian(const cv::Mat& disparity, const cv::Mat& weight, const cv::Mat& guide,
                       const WeightedMedianOptions& options = {});

} // namespace refocus

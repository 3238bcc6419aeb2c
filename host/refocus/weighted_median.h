#pragma once

#include <opencv2/core.hpp>

namespace refocus {

struct WeightedMedianOptions {
    int reach = 6;          // window is 2 * reach + 1 square, pixels
    float contrast = 10.0f; // levels of 255 at which a neighbour's weight falls to 1 / e
    float step = 2.0f;      // pixels: disparities further apart than this make an edge
};

// Moves the edges of a disparity map (CV_32FC1, pixels) to the edges of its image (`guide`,
// CV_8UC1): where disparities differ within the window, and where `weight` is small, each is
// replaced by the median of those around it, each counting by its own weight (CV_32FC1, above 0)
// and by how alike in brightness its pixel is (Ma et al., "Constant Time Weighted Median Filtering
// for Stereo Matching and Beyond", 2013). A median invents no disparity between an object and what
// lies behind it.
//
// The same bytes whatever the number of threads.
cv::Mat WeightedMedian(const cv::Mat& disparity, const cv::Mat& weight, const cv::Mat& guide,
                       const WeightedMedianOptions& options = {});

} // namespace refocus

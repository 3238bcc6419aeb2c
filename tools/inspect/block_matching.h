#pragma once

#include <opencv2/core.hpp>

#include <array>
#include <cstddef>

#include "host/picture/image.h"

// Block matching between the thumbnails of two images, to tell whether they show one scene.

// CV_8UC1, 160 pixels on the longer side.
cv::Mat LumaThumbnail(const host::Image& image);

// U and V, CV_32FC1 each, 64 pixels on the longer side.
std::array<cv::Mat, 2> ChromaThumbnails(const host::Image& image);

// Mean absolute difference; the second thumbnail is first scaled to the size of the first.
double MeanDifference(const cv::Mat& first, const cv::Mat& second);

// How well the best matches of the first thumbnail's blocks obey the epipolar constraint of a
// rectified pair: in one scene they are displaced along the line between the cameras only, in two
// scenes anywhere.
struct EpipolarConsistency {
    double inlierShare = 0;  // share of the matches with the usual offset across that line
    double offset = 0;       // that offset, as a share of the thumbnail's side
    std::size_t matches = 0; // blocks with structure, and so with a match
    // The direction in which the matches are displaced, and by how much in the median: right or
    // down in the second thumbnail, as a share of the side.
    bool alongColumns = false;
    double displacement = 0;
};

// The second thumbnail is first scaled to the size of the first.
EpipolarConsistency MeasureConsistency(const cv::Mat& first, const cv::Mat& second);

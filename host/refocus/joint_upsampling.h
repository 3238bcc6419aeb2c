#pragma once

#include <opencv2/core.hpp>

namespace refocus {

// Enlarges a map of a reduced image to the image's size by joint bilateral upsampling (Kopf et al.,
// "Joint Bilateral Upsampling", 2007): the four nearest values count by distance and by how similar
// the brightness of their reduced pixel is to that of the full-size pixel, so that the edges of the
// map follow those of the image.
//
//   reduced  CV_32FC1, values 0 to 255
//   reducedGuide  CV_8UC1 of the same size
//   guide    CV_8UC1, `factor` times the size, and up to factor - 1 columns and rows more
//   target   CV_8UC1 of guide's size, any pitch; receives the rounded values
void JointUpsample(const cv::Mat& reduced, const cv::Mat& reducedGuide, const cv::Mat& guide,
                   int factor, cv::Mat& target);

} // namespace refocus

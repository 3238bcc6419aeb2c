#pragma once

#include <opencv2/core.hpp>

namespace refocus {

// Brings a map of a reduced image to the image's own size by joint bilateral upsampling (Kopf et
// al., "Joint Bilateral Upsampling", 2007): of the four nearest values, those count whose pixel in
// the reduced image is as bright as the pixel asked for, so that edges lie where the image's do.
//
//   reduced  CV_32FC1, values 0 to 255
//   reducedGuide  CV_8UC1 of the same size
//   guide    CV_8UC1, `factor` times the size, and up to factor - 1 columns and rows more
//   target   CV_8UC1 of guide's size, rounded values; any pitch, only its pixels are written
void JointUpsample(const cv::Mat& reduced, const cv::Mat& reducedGuide, const cv::Mat& guide,
                   int factor, cv::Mat& target);

} // namespace refocus

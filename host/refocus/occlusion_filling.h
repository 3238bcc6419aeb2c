#pragma once

#include <opencv2/core.hpp>

namespace refocus {

// Fills a disparity map (CV_32FC1) where it is not `consistent` (CV_8UC1, 0 or 255) from the
// nearest consistent pixels in eight directions (Hirschmueller, "Stereo Processing by Semiglobal
// Matching and Mutual Information", 2008, 2.6): what is `occluded` (CV_8UC1) from the aux camera
// lies behind, and takes the second lowest of them, for the lowest may be a mismatch; what is not
// takes the median. 0 everywhere where nothing is consistent.
void FillOcclusions(cv::Mat& disparity, const cv::Mat& consistent, const cv::Mat& occluded);

} // namespace refocus

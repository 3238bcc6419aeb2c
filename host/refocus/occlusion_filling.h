#pragma once

#include <opencv2/core.hpp>

namespace refocus {

// Gives every pixel that `consistent` (CV_8UC1, 0: no) rules out a disparity. Between two valid
// pixels of its row it is the smaller of theirs: what only one camera sees is hidden by something
// nearer and belongs to the background. A gap that reaches the image's border has one such
// neighbour at most; there the nearest pixel along the row or the column decides. `disparity` is
// CV_32FC1; where nothing at all is valid, everything becomes 0.
void FillOcclusions(cv::Mat& disparity, const cv::Mat& consistent);

} // namespace refocus

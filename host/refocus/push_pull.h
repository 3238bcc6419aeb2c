#pragma once

#include <opencv2/core.hpp>

namespace refocus {

// Fills unknown values from known ones nearby: averages to ever coarser levels (push), then fills
// each level where it is unknown from the next coarser one (pull), after Gortler et al., "The
// Lumigraph", 1996. values: CV_32FC3; weight: CV_32FC1, 0 (unknown) to 1 (known). Known values are
// kept. All 0 where nothing is known.
cv::Mat PushPull(const cv::Mat& values, const cv::Mat& weight);

} // namespace refocus

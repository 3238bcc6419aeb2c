#pragma once

#include <ostream>

#include <opencv2/core.hpp>

#include "bench/refocus/report.h"

namespace quality {

// The time of one picture (disparity and rendering by the engine's functions, with OpenCV's current
// number of threads) divided by that of OpenCV's GaussianBlur, sigma 30, of a picture of that size
// in three channels: the median of runs made in turns.
Row TimeRow(cv::Size size);

// By how much one picture raises the process' resident memory at most, its caller's buffers left
// out. To be measured first: memory that earlier work leaves to the allocator would be used again.
Row MemoryRow(cv::Size size);

// The time of each of the engine's steps at 3, 12 and 48 megapixels with one and two threads.
// Leaves OpenCV's number of threads at two.
void PrintStepTimes(std::ostream& out);

} // namespace quality

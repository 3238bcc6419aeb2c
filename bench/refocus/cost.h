#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "bench/refocus/report.h"

namespace quality {

// Time of one picture (alignment, disparity and rendering by the engine's functions, with as many
// threads as OpenCV has now) as a share of OpenCV's GaussianBlur, sigma 30, of a picture of that
// size in three channels: the median of runs taken in turns. And the most memory it takes beyond
// its caller's buffers, measured in a process of its own, which is this program started again with
// kPeakMemoryOption.
std::vector<Row> CostRows(cv::Size size);

constexpr char kPeakMemoryOption[] = "--peak-memory";

// What that process does: by how much one picture raises the process' resident memory at most.
double PeakMemoryMegabytes(cv::Size size);

} // namespace quality

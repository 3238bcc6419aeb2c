#pragma once

#include <filesystem>

#include <opencv2/core.hpp>

namespace quality {

// The first array of a NumPy archive (.npz: a zip file of .npy files), which must be
// two-dimensional and hold little-endian 32-bit floats row by row. Throws UseError where the file
// is another.
cv::Mat ReadNumberArray(const std::filesystem::path& path); // CV_32FC1

} // namespace quality

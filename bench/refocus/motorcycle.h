#pragma once

#include <filesystem>
#include <vector>

#include <opencv2/core.hpp>

#include "bench/refocus/report.h"

namespace quality {

// Disparity of the photo "Motorcycle" against its measured ground truth (Scharstein et al.,
// "High-Resolution Stereo Datasets with Subpixel-Accurate Ground Truth", 2014), as taken and with
// the aux image degraded: darker, shifted down, enlarged about its centre.
//
// bad-2 is the share of pixels, of those with a ground truth, whose disparity differs from it by
// more than 2 pixels of the ground truth's resolution. A pixel is occluded where the ground truth,
// projected into the aux image, has a disparity larger by more than a pixel at the same position,
// or where it falls outside of that image.
//
// `folder` contains motorcycle_left.png, motorcycle_right.png and motorcycle_disp.npy.
std::vector<Row> MotorcycleRows(const std::filesystem::path& folder, const PictureFolder& pictures);

// A NumPy array file (.npy, format 1.0) of two dimensions that holds little-endian 32-bit floats
// row by row, as CV_32FC1. Throws UseError where the file is missing, different or too short.
cv::Mat ReadNumpyArray(const std::filesystem::path& path);

} // namespace quality

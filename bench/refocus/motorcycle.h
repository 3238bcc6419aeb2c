#pragma once

#include <filesystem>
#include <vector>

#include "bench/refocus/photograph.h"
#include "bench/refocus/report.h"

namespace quality {

// Disparity of the photo "Motorcycle" against its measured ground truth (Scharstein et al.,
// "High-Resolution Stereo Datasets with Subpixel-Accurate Ground Truth", 2014), as taken and with
// the aux image made worse: darker, shifted down, enlarged about its middle.
//
// bad-2 is the share of pixels, of those with a ground truth, whose disparity is off by more than
// 2 pixels at the ground truth's resolution. A pixel is occluded where the ground truth, carried
// over into the aux image, puts something nearer by more than a pixel at its place, or where it
// falls outside of that image.
//
// `folder` holds motorcycle_left.png, motorcycle_right.png and motorcycle_disp.npz.
std::vector<Row> MotorcycleRows(const std::filesystem::path& folder, const PictureFolder& pictures);

} // namespace quality

#pragma once

#include <string>

#include "host/picture/image.h"
#include "tools/report/report.h"

// Images as a report holds them.

// Longest side of a picture in a page.
constexpr int kReportSide = 1600;

// Adds an NV12 image.
void AddPicture(Report& report, const std::string& name, const host::Image& image);

// Adds the comparison of two NV12 images that were added under these names; nothing where they
// differ in size.
void AddComparison(Report& report, const std::string& before, const host::Image& a,
                   const std::string& after, const host::Image& b);

// Sets the disparity, of which the first `width` bytes of each row are places of the main image,
// and its value at the focus point, where the overlays have one.
void SetDisparity(Report& report, const host::Image& disparity, int width);

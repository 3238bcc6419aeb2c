#pragma once

#include <opencv2/core.hpp>

#include "host/refocus/circle_of_confusion.h"
#include "host/refocus/image.h"
#include "host/refocus/matte.h"

namespace refocus {

// The blurred picture in cells, linear RGB (CV_32FC3) without holes.
struct BlurredLayers {
    cv::Mat far;       // what lies behind the focus, and nothing else
    cv::Mat behind;    // everything but the near field: what shows through near objects
    cv::Mat near;      // what lies before the focus
    cv::Mat nearCover; // CV_32FC1, 0 to 1
};

// Writes each pixel of `output`: the pixel of `input`, or the far layer, or what lies behind near
// objects, by the blur table and on outlines by the matte; over it the near layer by its cover.
// Pixels in focus that no near object's blur reaches are not written: the caller has copied the
// image. Both views have the same size; they may be the same.
void Compose(const Nv12View& input, const cv::Mat& map, const BlurTable& table,
             const BlurredLayers& layers, const Matte& matte, int cell, Nv12View& output);

} // namespace refocus

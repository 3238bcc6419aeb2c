#pragma once

#include <opencv2/core.hpp>

#include "host/refocus/circle_of_confusion.h"
#include "host/refocus/image.h"
#include "host/refocus/matte.h"

namespace refocus {

// The blurred picture in cells, linear RGB (CV_32FC3), defined everywhere.
struct BlurredLayers {
    cv::Mat far;    // what lies behind the focus
    cv::Mat behind; // the picture without its near field, which is seen through blurred near edges
    cv::Mat near;   // what lies before the focus
    cv::Mat nearCover; // CV_32FC1, opacity of the near layer, 0 to 1
};

// Composites each pixel of `output` from the pixel of `input` and the layers: far or behind by the
// shares of the blur table, on outlines by the matte, and over them the near layer by its opacity.
// Pixels in focus that the near layer does not cover are left as they are: `output` must already
// contain a copy of the image. Both views have the same size; they may be the same.
void Compose(const Nv12View& input, const cv::Mat& map, const BlurTable& table,
             const BlurredLayers& layers, const Matte& matte, int cell, Nv12View& output);

} // namespace refocus

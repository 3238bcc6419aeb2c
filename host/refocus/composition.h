#pragma once

#include <opencv2/core.hpp>

#include "host/refocus/circle_of_confusion.h"
#include "host/refocus/image.h"

namespace refocus {

// The blurred picture in cells, as Y, U, V on the scale 0 to 255 (CV_32FC3) without holes.
struct BlurredLayers {
    cv::Mat far; // what lies behind the focus
    cv::Mat
        behind;   // everything but the near field: what shows beside near objects and through them
    cv::Mat near; // what lies before the focus
    cv::Mat nearCover; // CV_32FC1, 0 to 1
};

// Writes each pixel of `output` from the pixel of `input`, the far layer by the blur table's share,
// and the near layer by its cover. Pixels in focus that no near object's blur reaches are not
// written: the caller has copied the image. Both views have the same size; they may be the same.
void Compose(const Nv12View& input, const cv::Mat& map, const BlurTable& table,
             const BlurredLayers& layers, int cell, Nv12View& output);

} // namespace refocus

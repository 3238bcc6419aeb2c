#pragma once

#include <opencv2/core.hpp>

#include "host/refocus/disparity_map.h"
#include "host/refocus/image.h"

namespace refocus {

// Blurs the picture outside the focus range of its disparity map (CV_8UC1 of its size). `output`,
// of the same size, must already contain a copy of the picture. `intensity` is 0 to 100; 0 writes
// nothing. Pixels in focus keep their bytes unless the blur of a near object extends over them. The
// same bytes for any number of threads.
void RenderBokeh(
    const Nv12View& input, const cv::Mat& map, const DisparityScale& scale, FocusRange focus,
    int intensity, Nv12View& output, const StepListener& done = [](const char*) {});

} // namespace refocus

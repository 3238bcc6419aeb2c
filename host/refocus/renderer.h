#pragma once

#include <opencv2/core.hpp>

#include "host/refocus/disparity_map.h"
#include "host/refocus/image.h"

namespace refocus {

// Keeps what lies in the focus range of its disparity map sharp and blurs the rest; `output`, of
// the same size, must already hold a copy of the picture. intensity is 0 to 100; 0 writes nothing.
// Pixels in focus keep their bytes unless a near object's blur reaches over them.
void RenderBokeh(const Nv12View& input, const cv::Mat& map, const DisparityScale& scale,
                 FocusRange focus, int intensity, Nv12View& output);

} // namespace refocus

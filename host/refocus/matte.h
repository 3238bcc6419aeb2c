#pragma once

#include "host/refocus/defocus_fields.h"

namespace refocus {

// A matte for the outlines of a subject in focus before a blurred background, in cells. The
// disparity map places an outline no better than to a cell and assigns whole pixels; the luma of a
// pixel, compared to that of subject and background nearby, gives the share of each in it.
struct Matte {
    cv::Mat far;       // CV_32FC1, share of the background in the cell's neighbourhood, 0 to 1
    cv::Mat sharpLuma; // CV_32FC1, mean luma code of the subject nearby; 0 away from outlines
    cv::Mat farLuma;   // CV_32FC1, the same of the background
    cv::Mat onOutline; // CV_8UC1, 255 where the neighbourhood contains both
};

Matte MakeMatte(const DefocusFields& fields);

// Share of the blurred background in a pixel of this luma. `own` is the share by the pixel's
// disparity alone; far, sharpLuma and farLuma are the matte's at its position.
float MatteShare(float luma, float own, float far, float sharpLuma, float farLuma);

} // namespace refocus

#pragma once

#include "host/refocus/defocus_fields.h"

namespace refocus {

// What the outlines of things in focus before a blurred background look like, in cells. A disparity
// map knows an outline to a cell at best, and whole pixels only; the picture's own light tells
// where between subject and background a pixel lies.
struct Matte {
    cv::Mat far;       // CV_32FC1, share of the background over a cell's neighbourhood, 0 to 1
    cv::Mat sharpLuma; // CV_32FC1, mean code value of the subject nearby; 0 away from outlines
    cv::Mat farLuma;   // of the background
    cv::Mat onOutline; // CV_8UC1, 255 where both meet
};

Matte MakeMatte(const DefocusFields& fields);

// Share of the blurred background in a pixel whose disparity alone gives it `own`. far, sharpLuma
// and farLuma are the matte's at its place.
float MatteShare(float luma, float own, float far, float sharpLuma, float farLuma);

} // namespace refocus

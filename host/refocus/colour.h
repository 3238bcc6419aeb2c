#pragma once

#include <opencv2/core.hpp>

#include <cstdint>

namespace refocus {

// Light of code values 0 to 255 by the sRGB transfer curve (IEC 61966-2-1), 0 to 1. Blur mixes
// light, not code values; else bright points would go grey and dark edges wide.
const float* LightOfCodes();

// Code value, 0 to 255 and not rounded, of light; more than 1 clips.
float CodeOf(float light);

// Linear RGB of a full-range BT.601 pixel, whose parts may be means and need not be whole.
cv::Vec3f LightOf(float luma, float u, float v);

// Linear RGB to Y, U, V on the scale 0 to 255, not rounded.
cv::Vec3f YuvOf(cv::Vec3f light);

} // namespace refocus

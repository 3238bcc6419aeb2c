#pragma once

#include <opencv2/core.hpp>

#include <cstdint>

namespace refocus {

// The sRGB transfer curve (IEC 61966-2-1) between code values and linear light, both 0 to 1.
double LinearOfSrgb(double code);
double SrgbOfLinear(double light);

// Linear light, 0 to 1, of the code values 0 to 255. Blur averages light: an average of code values
// would turn bright points grey and widen dark edges.
const float* LightOfCodes();

// Code value, 0 to 255 and not rounded, of light; more than 1 clips.
float CodeOf(float light);

// Linear RGB of a full-range BT.601 pixel, whose components may be fractions.
cv::Vec3f LightOf(float luma, float u, float v);

// Linear RGB to Y, U, V on the scale 0 to 255, not rounded.
cv::Vec3f YuvOf(cv::Vec3f light);

} // namespace refocus

#pragma once

#include <opencv2/core.hpp>

#include <cstdint>

namespace refocus {

// Light of a full-range BT.601 pixel: linear RGB, 0 to 1 each, by the sRGB transfer curve. Blur
// mixes light, not code values; else bright points would go grey.
cv::Vec3f LightOf(std::uint8_t luma, std::uint8_t u, std::uint8_t v);

// CV_32FC3 linear RGB to CV_32FC3 Y, U, V on the scale 0 to 255, not rounded.
cv::Mat ToYuv(const cv::Mat& light);

} // namespace refocus

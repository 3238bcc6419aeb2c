#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "host/picture/image.h"
#include "host/picture/rgb_image.h"

// The colours of the scale, evenly apart from the lowest number to the highest.
std::vector<Colour> FalseColourSteps();

// The numbers (CV_8UC1 or CV_32FC1) in colours from blue (low) over green and yellow to red (high),
// grey where `known` (CV_8UC1) is 0, with the scale beside it: a bar of all colours, marked with
// round numbers and with `unit` over it.
RgbImage FalseColour(const cv::Mat& numbers, const cv::Mat& known, const std::string& unit);

// A depth output with room for the disparity data of a main image like this.
host::Image DepthImage(const host::Image& main);

// The engine's disparity data, of which `size` bytes are valid, in false colours: the values as
// they are, larger is nearer. Nothing where there is no data, or not one byte for each byte of the
// main image's rows.
std::optional<RgbImage> DisparityPicture(const host::Image& depth, std::int32_t size);

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/picture/image.h"
#include "host/picture/rgb_image.h"

// A map of numbers, row by row; NaN where there is none.
struct NumberMap {
    int width = 0;
    int height = 0;
    std::vector<float> values;
    std::string unit; // drawn over the scale
};

// The colours of the scale, evenly apart from the lowest number to the highest.
std::vector<Colour> FalseColourSteps();

// The map in colours from blue (low) over green and yellow to red (high), grey where there is no
// number, with the scale beside it: a bar of all colours, marked with round numbers.
RgbImage FalseColour(const NumberMap& map);

// A depth output with room for the disparity data of a main image like this.
host::Image DepthImage(const host::Image& main);

// The engine's disparity data, of which `size` bytes are valid, in false colours: the values as
// they are, larger is nearer. Nothing where there is no data, or not one byte for each byte of the
// main image's rows.
std::optional<RgbImage> DisparityPicture(const host::Image& depth, std::int32_t size);

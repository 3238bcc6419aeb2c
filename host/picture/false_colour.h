#pragma once

#include <string>
#include <vector>

#include "host/picture/rgb_image.h"

// A map of numbers, row by row; NaN where there is none.
struct NumberMap {
    int width = 0;
    int height = 0;
    std::vector<float> values;
    std::string unit; // drawn over the scale; lower-case letters, digits
};

// The colours of the scale, evenly apart from the lowest number to the highest.
std::vector<Colour> FalseColourSteps();

// The map in colours from blue (low) over green and yellow to red (high), grey where there is no
// number, with the scale beside it: a bar of all colours, marked with round numbers.
RgbImage FalseColour(const NumberMap& map);

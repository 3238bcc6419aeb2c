#pragma once

#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "host/picture/rgb_image.h"

// Text in pictures.

// Of a line of text without what stands below its baseline. `scale`: 1 for digits of 9 pixels.
cv::Size TextSize(const std::string& text, int scale);

// Black, with its lower left corner at x, y.
void DrawText(RgbImage& picture, int x, int y, const std::string& text, int scale);

// So that no side is longer.
RgbImage Reduced(const RgbImage& picture, int longestSide);

struct LabelledPicture {
    RgbImage picture; // may be empty
    std::string label;
};

// The pictures from left to right in rows of `columns`, each below its label.
RgbImage ContactSheet(const std::vector<LabelledPicture>& pictures, int columns);

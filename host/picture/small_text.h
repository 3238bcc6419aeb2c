#pragma once

#include <string_view>

#include "host/picture/rgb_image.h"

// Numbers and a few words drawn into pictures, in a font of our own: digits, lower-case letters,
// '.', '-', ' '. Other characters are left blank.

constexpr int kGlyphWidth = 5;
constexpr int kGlyphHeight = 7;
constexpr int kGlyphAdvance = kGlyphWidth + 1;

// Width in pixels with each dot of the font `scale` pixels wide.
int TextWidth(std::string_view text, int scale);

// The top left corner stands at x, y; what would fall outside the picture is left out.
void DrawText(RgbImage& picture, int x, int y, std::string_view text, Colour colour, int scale);

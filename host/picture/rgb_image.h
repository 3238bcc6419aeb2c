#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

using Colour = std::array<std::uint8_t, 3>; // red, green, blue

// Rows of red, green, blue bytes without padding.
struct RgbImage {
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> bytes;

    RgbImage() = default;
    RgbImage(int w, int h)
        : width(w), height(h),
          bytes(static_cast<std::size_t>(w) * static_cast<std::size_t>(h) * 3) {}

    int pitch() const { return width * 3; }

    void Set(int x, int y, Colour colour) {
        const std::size_t at = (static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                                static_cast<std::size_t>(x)) *
                               3;
        for (std::size_t i = 0; i < colour.size(); ++i) {
            bytes[at + i] = colour[i];
        }
    }
};

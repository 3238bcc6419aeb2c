#pragma once

#include <string>

// In pixels; x to the right, y down.

struct Point {
    int x = 0;
    int y = 0;
};

struct Size {
    int width = 0;
    int height = 0;

    bool operator==(const Size&) const = default;
};

// "640x480".
inline std::string InWords(Size size) {
    return std::to_string(size.width) + "x" + std::to_string(size.height);
}

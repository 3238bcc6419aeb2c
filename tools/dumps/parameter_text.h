#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// The parameters of a capture as the node dumps them, and the text that holds them.

// Edges are main image pixels and part of the face.
struct DumpedFace {
    std::int32_t left = 0;
    std::int32_t top = 0;
    std::int32_t right = 0;
    std::int32_t bottom = 0;
    std::int32_t orient = 1; // the engine's code: 1 upright, 3, 4, 2 for quarter turns

    bool operator==(const DumpedFace&) const = default;
};

struct DumpParameters {
    std::int32_t blur = 0;   // 0 to 100
    std::int32_t focusX = 0; // main image pixels
    std::int32_t focusY = 0;
    std::int32_t mainCropWidth = 0; // sensor pixels that the image shows
    std::int32_t mainCropHeight = 0;
    std::int32_t auxCropWidth = 0;
    std::int32_t auxCropHeight = 0;
    std::int32_t degree = 0; // 0, 90, 180, 270
    std::vector<DumpedFace> faces;

    bool operator==(const DumpParameters&) const = default;
};

struct ParameterText {
    DumpParameters values;             // of a text with problems as far as it could be read
    std::vector<std::string> problems; // lines that are not as the node writes them
};

ParameterText ParseParameterText(std::string_view text);

// As the node writes it.
std::string FormatParameterText(const DumpParameters& parameters);

// "name=value" of what differs, each as "name: old -> new"; faces are compared one by one.
std::vector<std::string> DifferencesOf(const DumpParameters& before, const DumpParameters& after);

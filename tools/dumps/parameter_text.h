#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "host/picture/file_bytes.h"

// The most bytes of a parameter text that are read. The node's have less than 1000.
constexpr std::size_t kLongestParameterText = 65536;

// The parameters of a capture as the node dumps them, and the text that holds them.

// The edges are pixels of the main image and belong to the face.
struct DumpedFace {
    std::int32_t left = 0;
    std::int32_t top = 0;
    std::int32_t right = 0;
    std::int32_t bottom = 0;
    std::int32_t orient =
        1; // the engine's code: 1 upright; 3, 4, 2: turned by 90, 180, 270 degrees

    bool operator==(const DumpedFace&) const = default;
};

struct DumpParameters {
    std::int32_t blur = 0;   // 0 to 100
    std::int32_t focusX = 0; // main image pixels
    std::int32_t focusY = 0;
    std::int32_t mainCropWidth = 0; // size of the sensor's part that the image shows
    std::int32_t mainCropHeight = 0;
    std::int32_t auxCropWidth = 0;
    std::int32_t auxCropHeight = 0;
    std::int32_t degree = 0; // 0, 90, 180, 270
    std::vector<DumpedFace> faces;

    bool operator==(const DumpParameters&) const = default;
};

struct ParameterText {
    DumpParameters values;             // if there are problems, as far as they could be read
    std::vector<std::string> problems; // where the text differs from what the node writes
};

ParameterText ParseParameterText(const Bytes& text);

// The text that the node writes for these parameters.
std::string FormatParameterText(const DumpParameters& parameters);

nlohmann::ordered_json ToJson(const DumpParameters& parameters);

// What differs, each as "name: old -> new"; faces are compared by their index.
std::vector<std::string> DifferencesOf(const DumpParameters& before, const DumpParameters& after);

#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/picture/geometry.h"
#include "platform/chi_metadata.h"

// What `bokehnode render` was asked for. Places are pixels of the main image as the node gets it.
struct RenderOptions {
    std::filesystem::path main;
    std::filesystem::path aux;
    std::filesystem::path output;
    std::filesystem::path report; // empty: none
    bool json = false;
    std::optional<Size> size;
    int pitch = 0; // 0: as wide as each image

    std::optional<Point> focus;
    std::optional<ChiWeightedRegion> afRegion;
    std::optional<std::int32_t> afMode;
    std::vector<ChiRect> faces;
    std::optional<std::int32_t> faceRotation;
    std::optional<std::uint32_t> selectedFace;
    std::uint32_t blur = 100;
    std::uint32_t rotation = 0;

    std::optional<int> debugView;
    bool dump = false;
    std::optional<int> logMask;
    std::vector<std::pair<std::string, std::string>> properties;

    std::filesystem::path deviceRoot;  // empty: none given
    std::filesystem::path calibration; // empty: a rectified pair's
    std::filesystem::path node;        // empty: beside the tool
    std::filesystem::path engine;      // empty: beside the tool
};

#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/picture/geometry.h"
#include "platform/chi_metadata.h"

// Sides of a camera's sensor that can be calibrated, in pixels.
constexpr int kShortestSensorSide = 16;
constexpr int kLongestSensorSide = 65535;

// Coordinates of a request are at most this far from 0, which leaves its arithmetic room.
constexpr std::int32_t kMostPixels = 1 << 20;

// What a request runs in.
struct RunOptions {
    std::optional<int> debugView;
    bool dump = false;
    std::optional<int> logMask;
    std::vector<std::pair<std::string, std::string>> properties;
    std::vector<std::string> failures; // of stand-ins' calls, each as host::Faults::Arm takes it

    std::filesystem::path trace;       // empty: none
    std::optional<int> timeout;        // seconds
    std::filesystem::path deviceRoot;  // empty: none given
    std::filesystem::path calibration; // empty: a rectified pair's
    std::filesystem::path node;        // empty: beside the stand-ins
    std::filesystem::path engine;      // empty: beside the stand-ins
};

// What can be asked of a request, be it a new or a dumped one. Places are pixels of the main image
// as the node gets it.
struct RequestOptions {
    int pitch = 0; // of all images, in bytes; 0: as wide as each image, or as dumped
    std::optional<Point> focus;
    std::vector<ChiRect> faces;
    std::optional<std::int32_t> faceRotation; // degrees
    std::optional<std::uint32_t> blur;
    std::optional<std::uint32_t> rotation; // degrees
    std::optional<Size> mainCrop;          // the part of the sensor that the image shows
    std::optional<Size> auxCrop;
    std::optional<Size> mainSensor;
    std::optional<Size> auxSensor;
};

// What `bokehnode render` was asked for.
struct RenderOptions : RunOptions, RequestOptions {
    std::filesystem::path main;
    std::filesystem::path aux;
    std::filesystem::path output;
    std::filesystem::path report; // empty: none
    bool json = false;
    bool asStored = false; // a JPEG's orientation is not honoured
    std::optional<Size> size;
    std::optional<ChiWeightedRegion> afRegion;
    std::optional<std::int32_t> afMode;
    std::optional<std::uint32_t> selectedFace;
};

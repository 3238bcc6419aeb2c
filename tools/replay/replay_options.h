#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <vector>

#include "tools/dumps/parameter_text.h"
#include "tools/run/run_options.h"

// Coordinates and sides are at most this far from 0.
inline constexpr std::int32_t kMostPixels = 1 << 20;

// What a replay changes against the dumped request, and what it runs on.
struct ReplayOptions {
    std::optional<std::int32_t> blur;
    std::optional<Point> focus;
    std::optional<Size> mainCrop;
    std::optional<Size> auxCrop;
    std::optional<std::int32_t> degree;
    std::optional<std::vector<DumpedFace>> faces;
    std::optional<std::int32_t> orientation; // of all faces
    bool skipBokeh = false;                  // the request asks for no rendering

    std::optional<int> mainWidth; // pixels in a row of the dumps
    std::optional<int> auxWidth;
    std::optional<Size> mainSensor; // default: as calibrated
    std::optional<Size> auxSensor;

    RenderOptions device; // calibration, libraries, properties; of the rest nothing is used
};

// The parameters that the replay is to have.
DumpParameters Changed(const DumpParameters& dumped, const ReplayOptions& options);

#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/picture/rgb_image.h"
#include "host/pipeline/pipeline.h"
#include "tests/tool/synthetic_scene.h"

// A dump set that the node wrote for a seeded request, with the calibration that it ran with.
struct SyntheticCapture {
    std::uint32_t seed = 0;
    std::filesystem::path folder;
    std::string stem;
    std::filesystem::path calibration;
    int width = 0; // of the main image
    int height = 0;
    int auxWidth = 0;
    int auxHeight = 0;
    std::optional<SyntheticScene> scene; // nothing if the capture shows a photo
};

// Makes dump sets with the build's node and engine. The seed decides the scene and the request:
// sizes, pitches, crops, focus, faces, blur and rotation. Only one may exist at a time, since it
// sets the process's device root and properties.
class CaptureMaker {
public:
    // `photoLeft`, `photoRight`: a stereo pair for some of the captures; empty: scenes only.
    CaptureMaker(const std::filesystem::path& node, const std::filesystem::path& engine,
                 RgbImage photoLeft = {}, RgbImage photoRight = {});

    // Makes `count` captures from ascending seeds.
    std::vector<SyntheticCapture> MakeAll(std::uint32_t firstSeed, int count,
                                          const std::filesystem::path& folder);

    // Each seed has its own stem in `folder`. Nothing if the engine found no depth in the scene.
    std::optional<SyntheticCapture> Make(std::uint32_t seed, const std::filesystem::path& folder);

private:
    struct Plan;

    bool RunOnDevice(const std::filesystem::path& root, const Plan& plan,
                     const host::UseCase& useCase, host::Request& request);
    void PaintPair(const Plan& plan, SyntheticCapture& capture, host::Image& main,
                   host::Image& aux);

    host::NodeLibrary library_;
    RgbImage photoLeft_;
    RgbImage photoRight_;
};

// "IMG_20240101_000000" and so on, one for each seed.
std::string StemOf(std::uint32_t seed);

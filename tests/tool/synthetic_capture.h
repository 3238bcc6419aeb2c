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
#include "tests/tool/made_scene.h"

// A dump set that the node wrote for a seeded request, with the calibration that it ran with.
struct MadeCapture {
    std::uint32_t seed = 0;
    std::filesystem::path folder;
    std::string stem;
    std::filesystem::path calibration;
    int width = 0; // of the main image
    int height = 0;
    int auxWidth = 0;
    int auxHeight = 0;
    std::optional<MadeScene> scene; // nothing where it shows a photo
};

// Makes dump sets: a scene, and a request with sizes, pitches, crops, focus, faces, blur and
// rotation, all drawn from the seed, through the node and the engine of the build. One at a time;
// it sets the process's device root and properties.
class CaptureMaker {
public:
    // `photo`: a stereo pair to show in part of the captures; empty: scenes alone.
    CaptureMaker(const std::filesystem::path& node, const std::filesystem::path& engine,
                 RgbImage photoLeft = {}, RgbImage photoRight = {});

    // As many captures as can be made from the seeds on from this one.
    std::vector<MadeCapture> MakeAll(std::uint32_t firstSeed, int count,
                                     const std::filesystem::path& folder);

    // The set lies in `folder`, under a stem of its own for each seed. Nothing where the engine
    // found no depth in what the seed shows.
    std::optional<MadeCapture> Make(std::uint32_t seed, const std::filesystem::path& folder);

private:
    struct Plan;

    bool RunOnDevice(const std::filesystem::path& root, const Plan& plan,
                     const host::UseCase& useCase, host::Request& request);
    void PaintPair(const Plan& plan, MadeCapture& capture, host::Image& main, host::Image& aux);

    host::NodeLibrary library_;
    RgbImage photoLeft_;
    RgbImage photoRight_;
};

// "IMG_20240101_000000" and so on, one for each seed.
std::string StemOf(std::uint32_t seed);

#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "host/control/faults.h"
#include "host/log/log_control.h"
#include "host/pipeline/pipeline.h"

namespace capture {

constexpr int kWidth = 320;
constexpr int kHeight = 240;

// A stereo pair of two planes, the aux image of half the size, a device root with its calibration,
// and the loaded libraries. Nothing of one test reaches the next.
class CaptureTest : public ::testing::Test {
protected:
    explicit CaptureTest(int width = kWidth, int height = kHeight);
    ~CaptureTest() override;

    static const host::NodeLibrary& Library();

    // One request on this node, focused on the near plane; the output is grey before it.
    host::RequestResult Capture(host::Node& node);
    bool OutputIsMain() const { return host::SamePixels(output_, main_); }
    // What a working engine makes of the pair.
    const host::Image& Rendered();

    std::vector<std::string> Errors(); // formats of the error lines since the last call

    host::UseCase useCase_;
    host::Image main_;
    host::Image aux_;
    host::Image output_;
    host::Image depth_;
    std::uint64_t frame_ = 0;
    std::filesystem::path root_;
    host::LogCollector log_;

private:
    std::optional<host::Image> rendered_;
};

} // namespace capture

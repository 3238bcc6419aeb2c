#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/tool/synthetic_capture.h"
#include "tests/tool/tool_runner.h"

using Names = std::vector<std::string>;

// Runs the tool in a temporary folder of the test's own.
class ToolTest : public testing::Test {
protected:
    ToolRun Run(Names arguments, const Names& more = {}) const {
        arguments.insert(arguments.end(), more.begin(), more.end());
        return RunTool(arguments, folder_);
    }
    void Write(const std::string& name, const std::string& text) const {
        WriteBytes(folder_ / name, {text.begin(), text.end()});
    }

    const TestFolder temporary_;
    const std::filesystem::path folder_ = temporary_.path();
};

class CaptureTest : public ToolTest {
protected:
    std::vector<SyntheticCapture> Make(std::uint32_t seed, int count,
                                       const std::string& folder = "camera") const {
        return CaptureMaker(NODE_LIBRARY, ENGINE_LIBRARY).MakeAll(seed, count, folder_ / folder);
    }
};

#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "tests/tool/made_capture.h"
#include "tools/inspect/inspection.h"

// Ways in which a dump set can be wrong, done to good ones.

struct Corrupted {
    std::string what;             // for a message
    Problem problem{};            // that an inspection has to name first
    std::optional<DumpRole> file; // of this file
};

constexpr int kCorruptionKinds = 13;

// Copies the capture's files into `folder`, which is emptied before, and corrupts them. `other` is
// another capture, for pictures of another scene.
Corrupted Corrupt(int kind, const MadeCapture& capture, const MadeCapture& other,
                  std::uint32_t seed, const std::filesystem::path& folder);

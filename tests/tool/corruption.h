#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "tests/tool/synthetic_capture.h"
#include "tools/inspect/inspection.h"

// Corrupts good dump sets in the ways in which one can be wrong.

struct Corrupted {
    std::string what;             // for messages
    Problem problem{};            // which an inspection must name first
    std::optional<DumpRole> file; // and the file that it must name
};

constexpr int kCorruptionKinds = 13;

// Copies the capture's files into `folder`, which is emptied before, and corrupts them. `other` is
// another capture, for pictures of another scene.
Corrupted Corrupt(int kind, const SyntheticCapture& capture, const SyntheticCapture& other,
                  std::uint32_t seed, const std::filesystem::path& folder);

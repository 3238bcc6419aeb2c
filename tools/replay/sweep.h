#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "host/picture/geometry.h"
#include "tools/dumps/dump_set.h"
#include "tools/replay/replay.h"

// One request with several values of an option.

struct SweepValue {
    std::optional<std::uint32_t> blur;
    std::optional<Point> focus;
};

// Replays the set with each value of the first sweep and, where there is a second one, of that with
// each of the first, each in a process of its own, `jobs` at once. Writes each output as PNG into
// the folder, and a contact sheet: the first sweep from left to right, the second down. `pages`,
// which may be null, shows the same. Prints a line for each, or all as JSON. Returns the command's
// exit code. To be called before the process has loaded a node.
int ReplaySweeps(const DumpSet& set, const std::filesystem::path& output,
                 const std::vector<std::vector<SweepValue>>& sweeps, int jobs, bool json,
                 const ReplayOptions& options, ReplayPages* pages);

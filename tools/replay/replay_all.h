#pragma once

#include <filesystem>

#include "tools/replay/replay_options.h"

// Replays every set below `place`, `jobs` processes at once, a line each and a summary at the end.
// The result of each is a JSON file in `output`, and its process's log a text file; a set whose
// result was made of the same files with the same options is not run again. Returns the command's
// exit code. To be called before the process has loaded a node.
int ReplayAll(const std::filesystem::path& place, const std::filesystem::path& output, int jobs,
              bool json, const ReplayOptions& options);

#pragma once

#include <filesystem>

#include "tools/replay/replay_options.h"

// Replays every set below `place`, `jobs` processes at once, a line each and a summary at the end.
// The result of each is a JSON file in `output`, and its process's log a text file; a set that
// came out equal or differing, of the same files with the same options, is not run again. Returns
// the command's exit code; throws UseError before any starts where the options suit no set. To be
// called before the process has loaded a node.
int ReplayAll(const std::filesystem::path& place, const std::filesystem::path& output, int jobs,
              bool json, const ReplayOptions& options);

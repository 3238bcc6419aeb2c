#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "tools/replay/replay.h"

// What `bokehnode view` was asked for. Of each list of files the page's user chooses one.
struct ViewOptions {
    std::filesystem::path place;  // of the sets
    bool rendered = false;        // the place holds one set, made for this view and whole
    std::filesystem::path output; // where the page may save what it shows; empty: nowhere
    std::filesystem::path trace;  // of all requests, one after another; empty: none
    std::vector<std::filesystem::path> calibrations;
    std::vector<std::filesystem::path> nodes;
    std::vector<std::filesystem::path> engines;
    std::vector<std::string> properties; // NAME=VALUE, of every run
    int timeout = 60;                    // seconds for a run
};

// The options of a replay from words as they stand behind `bokehnode replay SET`. Throws UseError.
using ParseReplay = std::function<ReplayOptions(const std::vector<std::string>& words)>;

// The first folder OUTPUT/STEM-1, OUTPUT/STEM-2 ... that there is not yet.
std::filesystem::path FreeFolder(const std::filesystem::path& output, const std::string& stem);

// Serves the live page of the sets in the place, and replays a set, changed as the page's user
// asks, in a process of its own. Prints the address. Returns once no page is open any more. To be
// called while the process has no threads but that of WatchForInterruption. Throws UseError where
// there is no set.
void ServeLiveView(const ViewOptions& options, const ParseReplay& parse);

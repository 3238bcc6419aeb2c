#pragma once

#include <filesystem>
#include <mutex>

// What has to go when the run is interrupted (Ctrl-C, kill, hang-up) and no destructor runs.
// Thread-safe.

// To be called first in main, before any thread starts.
void WatchForInterruption();

enum class Removal {
    kAlone,          // a file, or a folder while it is empty: others may have put something in
    kWithEverything, // a folder of this run alone
};

// Held while a path is made and registered: an interruption waits, so that none is made and missed.
[[nodiscard]] std::unique_lock<std::recursive_mutex> DelayInterruption();

// The path is removed on an interruption from now on.
void RemoveWhenInterrupted(const std::filesystem::path& path, Removal removal);

// Takes that back: the path is in its place for good, or gone already.
void KeepWhenInterrupted(const std::filesystem::path& path);

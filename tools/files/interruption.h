#pragma once

#include <filesystem>
#include <mutex>
#include <optional>

#include <sys/types.h>

// Removes files and folders when the run is interrupted (Ctrl-C, kill, hang-up), where no
// destructor runs. Thread-safe.

// To be called first in main, before any thread starts.
void WatchForInterruption();

// The same in a child process that goes on with what its parent has registered.
void WatchForInterruptionInChild();

enum class Removal {
    kAlone,          // a file, or a folder if it is empty: other programs may have used it
    kWithEverything, // a folder of this run alone
};

// Delays interruptions while the lock lives. To be held while a path is made and registered:
// otherwise an interruption between the two would leave the path behind.
[[nodiscard]] std::unique_lock<std::recursive_mutex> DelayInterruption();

// The path is removed on an interruption from now on.
void RemoveWhenInterrupted(const std::filesystem::path& path, Removal removal);

// Takes RemoveWhenInterrupted back: the path is to stay, or was removed already.
void KeepWhenInterrupted(const std::filesystem::path& path);

// Interrupts the child process, too, and waits for its end before anything is removed.
void EndWhenInterrupted(pid_t child);
void ForgetEnded(pid_t child);

// Waits for the end of a child process for so long, or without limit; does not reap it.
bool EndsWithin(pid_t child, std::optional<int> seconds);

// Ends a child process with SIGTERM or, if it is still there some seconds later, with SIGKILL.
void EndByForce(pid_t child);

#pragma once

#include <filesystem>
#include <mutex>
#include <optional>
#include <stdexcept>

#include <sys/types.h>

// Ends child processes and removes files and folders when the run is interrupted (Ctrl-C, kill,
// hang-up), where no destructor runs. Thread-safe.

// To be called first in main, before any thread starts.
void WatchForInterruption();

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

// Child processes are copies of this one, as fork(2) makes them. A copy has the forking thread
// alone, so that at a fork no other may run but that of WatchForInterruption.

// Returns 0 in the child, which is interrupted when this process ends and removes nothing that was
// registered here. Throws std::runtime_error.
pid_t ForkChild();

// Waits until this child or, with -1, any child has ended. Returns its id, and its status as of
// waitpid(2).
pid_t AwaitChild(pid_t child, int& status);

// How a child ended that did not exit: "crashed: signal 6 (Aborted)", "timed out after 30 s".
class ChildFailure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

std::string SignalInWords(int signal);

// Goes on in a child, so that a crash or a hang of what follows ends the child alone. Returns in
// the child, which also removes what was registered here. This process waits and exits with the
// child's code, without destructors, or throws a ChildFailure if it crashes, runs for longer than
// `seconds`, or ends otherwise than by main, exit(3) or LeaveChild.
void ContinueInChild(std::optional<int> seconds);

// Ends a child without the parent's destructors.
[[noreturn]] void LeaveChild(int code);

#pragma once

#include <optional>
#include <stdexcept>
#include <utility>

#include <sys/types.h>

// Child processes that are copies of this one, as fork(2) makes them. They are ended when this
// process is interrupted, and interrupted when it ends otherwise. At a fork no thread of the
// process may run but that of WatchForInterruption: the copy has the forking thread alone.

// Returns 0 in the child. Throws std::runtime_error.
pid_t ForkChild();

// Waits until this child or, with 0, any child has ended. Its id and its status as of waitpid(2).
std::pair<pid_t, int> AwaitChild(pid_t child);

// How a child ended that did not exit: "crashed: signal 6 (Aborted)", "timed out after 30 s".
class ChildFailure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

std::string SignalInWords(int signal);

// Goes on in a child, so that a crash or a hang of what follows ends the child alone. Returns in
// the child. The calling process waits for it and exits with its code, without destructors, or
// throws a ChildFailure, also if the child runs for longer than `seconds`.
void ContinueInChild(std::optional<int> seconds);

#pragma once

#include <stdexcept>

// What a run of the tool ends with.
enum ExitCode : int {
    kExitDone = 0,
    kExitFailed = 1,   // differs, or the node or the engine failed
    kExitWrongUse = 2, // wrong use, unreadable input, output that cannot be written
};

// The caller's mistake, worded for the caller: what is wrong, what was expected, what was found.
class UseError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

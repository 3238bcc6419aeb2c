#pragma once

#include <string>
#include <vector>

#include "host/log/log_control.h"

// Prints the log's messages on standard error, in the layout of `adb logcat -v brief`, and keeps
// them. One at a time.
class LogLines {
public:
    // `ownEngine`: the engine's results are those of host/refocus and can be put into words.
    explicit LogLines(bool ownEngine);
    ~LogLines();
    LogLines(const LogLines&) = delete;
    LogLines& operator=(const LogLines&) = delete;

    // What the errors so far say went wrong: "TSL_DCIR_Reset failed (-3)" and the like for an
    // engine function, the message itself for anything else. Each once.
    std::vector<std::string> Reasons() const;

    // The messages so far. To be called while nobody logs.
    const std::vector<host::LogRecord>& records() const { return records_; }

private:
    bool ownEngine_;
    std::vector<host::LogRecord> records_;
};

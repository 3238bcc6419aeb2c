#pragma once

#include <string>
#include <vector>

#include "host/log/log_control.h"

// The node logs that it has read the calibration at error priority, so that it always shows.
bool IsLoudSuccess(const host::LogRecord& record);

// Prints the log's messages on standard error, in the layout of `adb logcat -v brief`, and keeps
// them. One at a time.
class LogLines {
public:
    // `ownEngine`: the engine is the stand-in, whose result codes Reasons() can put into words.
    // `errorsAlone`: debug lines are kept, but not printed.
    LogLines(bool ownEngine, bool errorsAlone);
    ~LogLines();
    LogLines(const LogLines&) = delete;
    LogLines& operator=(const LogLines&) = delete;

    // The failures that were logged so far, in words and without repetitions or consequences:
    // "TSL_DCIR_Reset failed (-3)". A message that the node does not know is given as it stands.
    std::vector<std::string> Reasons() const;

    // The messages so far. To be called while nobody logs.
    const std::vector<host::LogRecord>& records() const { return records_; }

private:
    bool ownEngine_;
    std::vector<host::LogRecord> records_;
};

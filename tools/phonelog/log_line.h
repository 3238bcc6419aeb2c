#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>

// Lines of the node in what `adb logcat` prints: layouts brief, time and threadtime, each with or
// without colour, year, microseconds, time zone and user id, and with the time as a date or in
// seconds (epoch, monotonic).
namespace phonelog {

struct LogLine {
    std::optional<std::int64_t> micros; // since 1970 by the phone's clock, since its start, or,
                                        // where the layout has no year, since that of 1972
    std::string_view time;              // as it stands in the log, empty in the layout brief
    int process = 0;
    int thread = 0; // 0: the layout does not tell
    char priority = '?';
    std::string_view text; // the message, without a newline
};

// Calls `take` for each message of the node in one line of a file. Most lines have none; a line
// into which another one was written has several. The views are the line's.
void ForEachNodeMessage(std::string_view line, const std::function<void(const LogLine&)>& take);

// The name of the layout, if this line, in which no message is found, is of one that does not tell
// enough; else empty.
std::string_view UnreadLayout(std::string_view line);

} // namespace phonelog

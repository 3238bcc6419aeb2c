#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/log/log_control.h"

// How `logcat` shows and chooses messages.
namespace host {

enum class LogFormat { kBrief, kProcess, kTag, kThread, kRaw, kTime, kThreadTime, kLong };

// Of the names that `logcat -v` takes, but for its modifiers.
std::optional<LogFormat> ParseLogFormat(std::string_view name);

// What `logcat` prints for the message; times are the process's local ones.
std::string FormatLog(LogFormat format, const LogRecord& record);

// Which messages are shown: for a tag, those of at least a priority.
class LogFilter {
public:
    // Lets everything through that has a priority at all.
    LogFilter() = default;

    // Expressions such as "TSL_CTB:D *:S", between blanks or commas. Nothing where one of them is
    // none: logcat then does not start either.
    static std::optional<LogFilter> Parse(std::string_view expressions);

    bool Passes(std::string_view tag, int priority) const;

private:
    bool Add(std::string_view expression);

    struct Rule {
        std::string tag;
        int least;
    };

    std::vector<Rule> rules_;
    int leastOfOthers_ = 2; // verbose
};

} // namespace host

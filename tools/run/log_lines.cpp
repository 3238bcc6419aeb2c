#include "tools/run/log_lines.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <unistd.h>

#include "host/refocus/error.h"
#include "platform/log.h"

namespace {

constexpr std::string_view kEnginePrefix = "TSL_DCIR_";

void Print(const host::LogRecord& record) {
    // A progress line may stand on the terminal: it is cleared first.
    const char* clear = ::isatty(STDERR_FILENO) != 0 ? "\033[K" : "";
    if (const std::string lines = host::LogText(record); !lines.empty()) {
        std::fprintf(stderr, "%s%s", clear, lines.c_str());
    }
}

std::string WithoutNewlines(std::string text) {
    while (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    std::ranges::replace(text, '\n', ' ');
    return text;
}

std::string_view LastWord(std::string_view text) {
    while (text.ends_with(' ')) {
        text.remove_suffix(1);
    }
    const auto space = text.rfind(' ');
    return space == std::string_view::npos ? text : text.substr(space + 1);
}

std::string Words(const std::string& result) {
    const refocus::ErrorText text = refocus::Describe(std::strtoll(result.c_str(), nullptr, 10));
    return std::string_view(text.name) == "Unknown" ? "" : std::string(": ") + text.sentence;
}

// The node's messages of engine failures end in "NAME failed res = N" or "NAME res = N". Returns an
// empty text for any other message.
std::string EngineFailure(std::string_view message, bool ownEngine) {
    constexpr std::string_view kResult = "res = ";
    constexpr std::string_view kFailed = "failed ";
    const auto at = message.find(kResult);
    if (at == std::string_view::npos) {
        return {};
    }
    std::string_view before = message.substr(0, at);
    if (before.ends_with(kFailed)) {
        before.remove_suffix(kFailed.size());
    }
    std::string function(LastWord(before));
    if (function == "SetCaliData") { // the node leaves out the prefix of this one
        function.insert(0, kEnginePrefix);
    }
    if (!function.starts_with(kEnginePrefix)) {
        return {};
    }
    const std::string result(message.substr(at + kResult.size()));
    return function + " failed (" + result + (ownEngine ? Words(result) : "") + ")";
}

} // namespace

bool IsLoudSuccess(const host::LogRecord& record) {
    return record.priority >= ANDROID_LOG_ERROR &&
           record.text.find("cali data success") != std::string::npos;
}

LogLines::LogLines(bool ownEngine, bool errorsAlone) : ownEngine_(ownEngine) {
    host::SetLogSink([this, errorsAlone](const host::LogRecord& record) {
        if (!errorsAlone || record.priority >= ANDROID_LOG_ERROR) {
            Print(record);
        }
        records_.push_back(record);
    });
}

LogLines::~LogLines() {
    host::SetLogSink(nullptr);
}

std::vector<std::string> LogLines::Reasons() const {
    std::vector<std::string> reasons;
    for (const host::LogRecord& record : records_) {
        if (record.priority < ANDROID_LOG_ERROR || IsLoudSuccess(record)) {
            continue;
        }
        const std::string error = WithoutNewlines(record.text);
        const std::string failure = EngineFailure(error, ownEngine_);
        const std::string& reason = failure.empty() ? error : failure;
        if (std::ranges::find(reasons, reason) == reasons.end()) {
            reasons.push_back(reason);
        }
    }
    return reasons;
}

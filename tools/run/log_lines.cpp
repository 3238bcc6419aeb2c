#include "tools/run/log_lines.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

#include <unistd.h>

#include "host/refocus/error.h"
#include "platform/log.h"
#include "tools/files/console.h"
#include "tools/phonelog/node_messages.h"

namespace {

constexpr std::string_view kEnginePrefix = "TSL_DCIR_";

void Print(const host::LogRecord& record) {
    // A progress line may stand on the terminal: it is cleared first.
    const char* clear = ::isatty(STDERR_FILENO) != 0 ? "\033[K" : "";
    if (const std::string lines = Printable(host::LogText(record)); !lines.empty()) {
        std::fprintf(stderr, "%s%s", clear, lines.c_str());
    }
}

// Some of the node's texts end in a newline and others do not; a reason is one line.
std::string WithoutNewlines(std::string text) {
    while (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    std::ranges::replace(text, '\n', ' ');
    return text;
}

std::string Words(std::int64_t result) {
    const refocus::ErrorText text = refocus::Describe(result);
    return std::string_view(text.name) == "Unknown" ? "" : std::string(": ") + text.sentence;
}

// The reason that an error message tells, or an empty text where an earlier one has told the cause.
std::string Reason(const host::LogRecord& record, bool ownEngine, bool first) {
    std::string text = WithoutNewlines(record.text);
    const auto found = phonelog::Recognise(text);
    if (!found) {
        return text;
    }
    if (!first && phonelog::IsConsequence(*found)) {
        return {};
    }
    // The reason ends in a code, "TSL_DCIR_Process failed (-3)": its words go before the bracket.
    std::string reason = phonelog::Failure(*found);
    if (ownEngine && reason.starts_with(kEnginePrefix)) {
        reason.insert(reason.size() - 1, Words(found->Number(found->count - 1)));
    }
    return reason;
}

} // namespace

bool IsLoudSuccess(const host::LogRecord& record) {
    const auto found = phonelog::Recognise(WithoutNewlines(record.text));
    return record.priority >= ANDROID_LOG_ERROR && found &&
           found->message == phonelog::Message::CalibrationUsed;
}

LogLines::LogLines(bool ownEngine, bool errorsAlone) : ownEngine_(ownEngine) {
    // The log calls it for one message at a time, on any thread, so that no lock is needed here.
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
        const std::string reason = Reason(record, ownEngine_, reasons.empty());
        if (!reason.empty() && std::ranges::find(reasons, reason) == reasons.end()) {
            reasons.push_back(reason);
        }
    }
    return reasons;
}

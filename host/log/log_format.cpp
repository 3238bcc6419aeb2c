#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>

#include "host/log/log_text.h"

namespace host {
namespace {

// The device cuts what stands before and behind a line to such a buffer.
constexpr std::size_t kEdgeBuffer = 128;

constexpr std::array<std::string_view, 8> kNames = {"brief", "process", "tag",        "thread",
                                                    "raw",   "time",    "threadtime", "long"};

struct Edges {
    std::string before;
    std::string behind = "\n";
};

char PriorityLetter(int priority) {
    constexpr std::string_view kLetters = "??VDIWEFS";
    return priority >= 0 && static_cast<std::size_t>(priority) < kLetters.size()
               ? kLetters[static_cast<std::size_t>(priority)]
               : '?';
}

std::string TimeText(const timespec& time) {
    std::tm local = {};
    localtime_r(&time.tv_sec, &local);
    char seconds[32];
    std::strftime(seconds, sizeof(seconds), "%m-%d %H:%M:%S", &local);
    char text[48];
    std::snprintf(text, sizeof(text), "%s.%03ld", seconds, time.tv_nsec / 1'000'000);
    return text;
}

template <typename... Values>
std::string Text(const char* format, const Values&... values) {
    char text[kEdgeBuffer];
    std::snprintf(text, sizeof(text), format, values...);
    return text;
}

// Its newline stays where it is cut.
std::string CutFoot(std::string foot) {
    if (foot.size() >= kEdgeBuffer) {
        foot.resize(kEdgeBuffer - 2);
        foot += '\n';
    }
    return foot;
}

Edges EdgesOf(LogFormat format, const LogRecord& record) {
    const char letter = PriorityLetter(record.priority);
    const char* const tag = record.tag.c_str();
    const int pid = record.pid;
    const int tid = record.tid;
    switch (format) {
    case LogFormat::kBrief:
        return {Text("%c/%-8s(%5d): ", letter, tag, pid)};
    case LogFormat::kProcess:
        return {Text("%c(%5d) ", letter, pid), CutFoot("  (" + record.tag + ")\n")};
    case LogFormat::kTag:
        return {Text("%c/%-8s: ", letter, tag)};
    case LogFormat::kThread:
        return {Text("%c(%5d:%5d) ", letter, pid, tid)};
    case LogFormat::kRaw:
        return {};
    case LogFormat::kTime:
        return {Text("%s %c/%-8s(%5d): ", TimeText(record.time).c_str(), letter, tag, pid)};
    case LogFormat::kThreadTime:
        return {Text("%s %5d %5d %c %-8s: ", TimeText(record.time).c_str(), pid, tid, letter, tag)};
    case LogFormat::kLong:
        return {
            Text("[ %s %5d:%5d %c/%-8s ]\n", TimeText(record.time).c_str(), pid, tid, letter, tag),
            "\n\n"};
    }
    return {};
}

} // namespace

std::optional<LogFormat> ParseLogFormat(std::string_view name) {
    const auto found = std::ranges::find(kNames, name);
    if (found == kNames.end()) {
        return std::nullopt;
    }
    return static_cast<LogFormat>(found - kNames.begin());
}

std::string FormatLog(LogFormat format, const LogRecord& record) {
    const Edges edges = EdgesOf(format, record);
    if (format == LogFormat::kLong) {
        return edges.before + record.text + edges.behind;
    }
    // Every line of the message stands between the edges; the newline that ends a message opens no
    // further line.
    std::string lines;
    std::string_view rest = record.text;
    do {
        const std::size_t length = std::min(rest.find('\n'), rest.size());
        lines.append(edges.before).append(rest.substr(0, length)).append(edges.behind);
        rest.remove_prefix(std::min(length + 1, rest.size()));
    } while (!rest.empty());
    return lines;
}

} // namespace host

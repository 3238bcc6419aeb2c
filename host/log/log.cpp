#include "platform/log.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <string_view>
#include <utility>

#include <unistd.h>

#include "host/control/faults.h"
#include "host/log/log_control.h"

namespace host {
namespace {

// The device formats into a buffer of this size and cuts what does not fit.
constexpr std::size_t kMessageBuffer = 1024;

CallPoint androidLogPrint("__android_log_print");

struct Output {
    std::mutex mutex;
    LogSink sink;
};

// Never destroyed: other objects' destructors log.
Output& output() {
    static Output* const instance = new Output;
    return *instance;
}

char PriorityLetter(int priority) {
    constexpr std::string_view kLetters = "??VDIWEF";
    return priority >= 0 && static_cast<std::size_t>(priority) < kLetters.size()
               ? kLetters[static_cast<std::size_t>(priority)]
               : '?';
}

// Every line of the message bears the head; the newline that ends a message opens no further line.
std::string Brief(const LogRecord& record) {
    char head[128];
    std::snprintf(head, sizeof(head), "%c/%-8s(%5d): ", PriorityLetter(record.priority),
                  record.tag.c_str(), static_cast<int>(getpid()));
    std::string lines;
    std::string_view rest = record.text;
    while (!rest.empty()) {
        const std::size_t length = std::min(rest.find('\n'), rest.size());
        lines.append(head).append(rest.substr(0, length)).append("\n");
        rest.remove_prefix(std::min(length + 1, rest.size()));
    }
    return lines;
}

void Deliver(const LogRecord& record) {
    const std::lock_guard lock(output().mutex);
    if (output().sink) {
        output().sink(record);
        return;
    }
    const std::string lines = Brief(record);
    std::fwrite(lines.data(), 1, lines.size(), stderr);
}

} // namespace

void SetLogSink(LogSink sink) {
    const std::lock_guard lock(output().mutex);
    output().sink = std::move(sink);
}

LogCollector::LogCollector() {
    SetLogSink([this](const LogRecord& record) {
        const std::lock_guard lock(mutex_);
        records_.push_back(record);
    });
}

LogCollector::~LogCollector() { SetLogSink(nullptr); }

std::vector<LogRecord> LogCollector::Take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(records_, {});
}

} // namespace host

extern "C" int __android_log_print(int priority, const char* tag, const char* format, ...) {
    if (const auto failure = host::androidLogPrint.Enter()) {
        return static_cast<int>(*failure);
    }
    char text[host::kMessageBuffer];
    std::va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    if (length < 0) {
        return length;
    }
    host::Deliver({priority, tag != nullptr ? tag : "", format, text});
    return length;
}

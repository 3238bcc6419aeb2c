#include "platform/log.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include <unistd.h>

#include "host/control/faults.h"
#include "host/log/log_control.h"
#include "host/log/log_text.h"

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

// What `logcat` would be told on its command line or finds in its environment.
struct View {
    std::mutex mutex;
    LogFormat format = LogFormat::kBrief;
    LogFilter filter;
};

template <typename Value>
void TakeFromEnvironment(const char* variable, std::optional<Value> (&parse)(std::string_view),
                         Value& value) {
    const char* const text = std::getenv(variable);
    if (text == nullptr || *text == '\0') {
        return;
    }
    if (std::optional<Value> parsed = parse(text)) {
        value = std::move(*parsed);
    } else {
        std::fprintf(stderr, "liblog: cannot read %s=%s\n", variable, text);
    }
}

void ReadEnvironment(View& view) {
    view.format = LogFormat::kBrief;
    view.filter = LogFilter();
    TakeFromEnvironment("ANDROID_PRINTF_LOG", ParseLogFormat, view.format);
    TakeFromEnvironment("ANDROID_LOG_TAGS", LogFilter::Parse, view.filter);
}

View& view() {
    static View* const instance = [] {
        View* const made = new View;
        ReadEnvironment(*made);
        return made;
    }();
    return *instance;
}

void Deliver(const LogRecord& record) {
    const std::lock_guard lock(output().mutex);
    if (output().sink) {
        output().sink(record);
        return;
    }
    const std::string lines = LogText(record);
    std::fwrite(lines.data(), 1, lines.size(), stderr);
}

} // namespace

void SetLogSink(LogSink sink) {
    const std::lock_guard lock(output().mutex);
    output().sink = std::move(sink);
}

bool SetLogFormat(std::string_view name) {
    const auto format = ParseLogFormat(name);
    const std::lock_guard lock(view().mutex);
    view().format = format.value_or(view().format);
    return format.has_value();
}

bool SetLogFilter(std::string_view expressions) {
    auto filter = LogFilter::Parse(expressions);
    const std::lock_guard lock(view().mutex);
    if (filter) {
        view().filter = std::move(*filter);
    }
    return filter.has_value();
}

void ReadLogEnvironment() {
    const std::lock_guard lock(view().mutex);
    ReadEnvironment(view());
}

std::string LogText(const LogRecord& record) {
    const std::lock_guard lock(view().mutex);
    return view().filter.Passes(record.tag, record.priority) ? FormatLog(view().format, record)
                                                             : std::string();
}

LogCollector::LogCollector() {
    SetLogSink([this](const LogRecord& record) {
        const std::lock_guard lock(mutex_);
        records_.push_back(record);
    });
}

LogCollector::~LogCollector() {
    SetLogSink(nullptr);
}

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
    host::LogRecord record = {priority, tag != nullptr ? tag : "", format, text};
    record.pid = getpid();
    record.tid = gettid();
    clock_gettime(CLOCK_REALTIME, &record.time);
    host::Deliver(record);
    return length;
}

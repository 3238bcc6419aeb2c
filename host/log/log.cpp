#include "platform/log.h"

#include <cstdarg>
#include <cstdio>
#include <utility>

#include <unistd.h>

#include "host/control/faults.h"
#include "host/log/log_control.h"

namespace host {
namespace {

// The device formats into a buffer of this size and cuts what does not fit.
constexpr std::size_t kMessageBuffer = 1024;

CallPoint androidLogPrint("__android_log_print");

// One lock for the sink and for standard error, so that lines of several threads do not mix.
struct Output {
    std::mutex mutex;
    LogSink sink;
};

// Never destroyed: other objects' destructors log.
Output& output() {
    static Output* const instance = new Output;
    return *instance;
}

// The lock is held while the sink runs: a sink that logged would wait for itself.
void Deliver(const LogRecord& record) {
    const std::lock_guard lock(output().mutex);
    if (output().sink) {
        output().sink(record);
        return;
    }
    std::fputs(LogText(record).c_str(), stderr);
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

LogCollector::~LogCollector() {
    SetLogSink(nullptr);
}

std::vector<LogRecord> LogCollector::Take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(records_, {});
}

} // namespace host

extern "C" int __android_log_print(int priority, const char* tag, const char* format, ...) {
    host::Call call(host::androidLogPrint);
    if (call.failure()) {
        return static_cast<int>(*call.failure());
    }
    char text[host::kMessageBuffer];
    std::va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    if (length < 0) {
        return length;
    }
    call.Tell([&text] { return std::string(text); });
    host::LogRecord record = {priority, tag != nullptr ? tag : "", format, text};
    record.pid = getpid();
    clock_gettime(CLOCK_REALTIME, &record.time);
    host::Deliver(record);
    return length;
}

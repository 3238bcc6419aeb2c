#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <vector>

// Control of the log stand-in (liblog.so). Without a sink, messages go to standard error in the
// layout of `adb logcat -v brief`.
namespace host {

struct LogRecord {
    int priority = 0;   // AndroidLogPriority
    std::string tag;
    std::string format; // as the caller passed it
    std::string text;   // formatted, cut where the device's log cuts it
};

using LogSink = std::function<void(const LogRecord&)>;

// Hands every later message to `sink` instead of printing it; null prints again. Calls of the sink
// never overlap, and none is under way once this returns. A sink must not log.
void SetLogSink(LogSink sink);

// Collects all messages of all threads during its life. One at a time.
class LogCollector {
public:
    LogCollector();
    ~LogCollector();
    LogCollector(const LogCollector&) = delete;
    LogCollector& operator=(const LogCollector&) = delete;

    // What came since the last call, in order.
    std::vector<LogRecord> Take();

private:
    std::mutex mutex_;
    std::vector<LogRecord> records_;
};

} // namespace host

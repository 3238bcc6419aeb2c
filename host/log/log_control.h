#pragma once

#include <ctime>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include <sys/types.h>

// Control of the log stand-in (liblog.so). Messages go to standard error as LogText gives them,
// unless a sink takes them.
namespace host {

struct LogRecord {
    int priority = 0; // AndroidLogPriority
    std::string tag;
    std::string format; // as the caller passed it
    std::string text;   // formatted, cut where the device's log cuts it
    pid_t pid = 0;      // of the process that logged
    timespec time = {}; // since 1970, UTC
};

using LogSink = std::function<void(const LogRecord&)>;

// Hands every later message to `sink` instead of printing it; null prints again. Messages of all
// threads come one at a time, and no call of the old sink is under way once this returns. A sink
// must not log. Thread-safe.
void SetLogSink(LogSink sink);

// The message as `logcat -v brief` prints it: each of its lines with the head "D/TSL_CTB ( 1234): "
// and a newline at the end. Thread-safe; a sink may call it.
std::string LogText(const LogRecord& record);

// "V", "D", "I", "W", "E", "F" or "S" by AndroidLogPriority, else "?".
char PriorityLetter(int priority);

// Collects all messages of all threads during its life. It is the sink: only one may live at a
// time.
class LogCollector {
public:
    LogCollector();
    ~LogCollector();
    LogCollector(const LogCollector&) = delete;
    LogCollector& operator=(const LogCollector&) = delete;

    // The messages since the last call, in order. Thread-safe.
    std::vector<LogRecord> Take();

private:
    std::mutex mutex_;
    std::vector<LogRecord> records_;
};

} // namespace host

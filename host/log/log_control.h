#pragma once

#include <ctime>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

// Control of the log stand-in (liblog.so). Without a sink, messages go to standard error as
// `logcat` prints them: at start in the format that ANDROID_PRINTF_LOG names and through the filter
// that ANDROID_LOG_TAGS holds, without these in the brief format and all of them.
namespace host {

struct LogRecord {
    int priority = 0; // AndroidLogPriority
    std::string tag;
    std::string format; // as the caller passed it
    std::string text;   // formatted, cut where the device's log cuts it
    pid_t pid = 0;      // who logged, and when
    pid_t tid = 0;
    timespec time = {};
};

using LogSink = std::function<void(const LogRecord&)>;

// Hands every later message to `sink` instead of printing it; null prints again. Calls of the sink
// never overlap, and none is under way once this returns. A sink must not log.
void SetLogSink(LogSink sink);

// The format, by the names of `logcat -v`: brief, process, tag, thread, raw, time, threadtime,
// long. False for any other name; then nothing changes. Thread-safe, as all that follows.
bool SetLogFormat(std::string_view name);

// The filter, as logcat's command line takes it: "TSL_CTB:D *:S" shows TSL_CTB from debug on and
// nothing else. It chooses what is printed; a sink gets every message. Empty: everything. False
// where logcat would refuse; then nothing changes.
bool SetLogFilter(std::string_view expressions);

// Back to what the two variables say now.
void ReadLogEnvironment();

// What is printed for the message; empty where the filter withholds it. A sink may call this.
std::string LogText(const LogRecord& record);

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

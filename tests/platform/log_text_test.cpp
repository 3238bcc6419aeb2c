// The log's text against the device's own library, byte by byte. The stand-in itself stays out of
// this process: both export the same functions.

#include <array>
#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <log/logprint.h>

#include "host/log/log_control.h"

namespace host {
namespace {

constexpr int kPriorities[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 15};

class DeviceLog {
public:
    DeviceLog() { android_log_setPrintFormat(format_, FORMAT_BRIEF); }
    ~DeviceLog() { android_log_format_free(format_); }
    DeviceLog(const DeviceLog&) = delete;
    DeviceLog& operator=(const DeviceLog&) = delete;

    std::string Text(const LogRecord& record) const {
        AndroidLogEntry entry = {};
        entry.priority = static_cast<android_LogPriority>(record.priority);
        entry.uid = -1;
        entry.pid = record.pid;
        entry.tag = record.tag.c_str();
        entry.tagLen = record.tag.size();
        entry.message = record.text.c_str();
        entry.messageLen = record.text.size();
        std::array<char, 256> buffer;
        std::size_t length = 0;
        char* const line =
            android_log_formatLogLine(format_, buffer.data(), buffer.size(), &entry, &length);
        std::string text(line, length);
        if (line != buffer.data()) {
            std::free(line);
        }
        return text;
    }

private:
    AndroidLogFormat* const format_ = android_log_format_new();
};

std::vector<LogRecord> Records() {
    std::string allBytes;
    for (int byte = 1; byte < 256; ++byte) {
        allBytes += static_cast<char>(byte);
    }
    const std::string texts[] = {"",
                                 "\n",
                                 "one",
                                 "one\n",
                                 "a\nb",
                                 "a\nb\n",
                                 "\na",
                                 "a\n\nb",
                                 "a\n\n\n",
                                 " \t\r",
                                 "\xff\xc3(",
                                 "100 %s",
                                 allBytes,
                                 std::string(1023, 'x'),
                                 std::string(500, '\n'),
                                 "x\r\ny\r\n"};
    std::vector<std::string> tags = {
        "", "T", "TSL_CTB", "12345678", "123456789", "t\xc3\xa4g\xff", "100 %n"};
    // Around where the device's buffer for the head of a line ends.
    for (std::size_t length = 85; length < 132; ++length) {
        tags.emplace_back(length, 'g');
    }
    tags.emplace_back(1000, 'g');
    constexpr pid_t kPids[] = {1, 99999, 4194304};

    std::vector<LogRecord> records;
    std::size_t n = 0;
    const auto add = [&](int priority, const std::string& tag, const std::string& text) {
        records.push_back({priority, tag, "", text, kPids[n % 3], {}});
        ++n;
    };
    for (const std::string& text : texts) {
        for (const std::string& tag : tags) {
            add(3 + static_cast<int>(n % 4), tag, text);
        }
    }
    for (const int priority : kPriorities) {
        add(priority, "TSL_BTB", "text");
    }
    return records;
}

TEST(LogText, IsThatOfTheDevicesBriefFormat) {
    const DeviceLog device;
    for (const LogRecord& record : Records()) {
        ASSERT_EQ(LogText(record), device.Text(record))
            << "priority " << record.priority << ", tag of " << record.tag.size()
            << " bytes: " << record.tag;
    }
}

} // namespace
} // namespace host

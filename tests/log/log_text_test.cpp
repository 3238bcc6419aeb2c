// The device's log library decides: every byte of every format, and every choice of a filter.

#include <array>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <log/logprint.h>

#include "host/log/log_text.h"

namespace host {
namespace {

constexpr const char* kFormats[] = {"brief", "process", "tag",        "thread",
                                    "raw",   "time",    "threadtime", "long"};
constexpr int kPriorities[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 15};

class DeviceLog {
public:
    // Kept to the end: the library's way to free one loses the tags of its filter.
    DeviceLog() : format_(All().emplace_back(android_log_format_new())) {}

    void SetFormat(const char* name) {
        android_log_setPrintFormat(format_, android_log_formatFromString(name));
    }
    bool SetFilter(const char* text) { return android_log_addFilterString(format_, text) == 0; }
    bool Passes(const char* tag, int priority) {
        return android_log_shouldPrintLine(format_, tag,
                                           static_cast<android_LogPriority>(priority)) != 0;
    }

    std::string Text(const LogRecord& record) {
        AndroidLogEntry entry = {};
        entry.tv_sec = record.time.tv_sec;
        entry.tv_nsec = record.time.tv_nsec;
        entry.priority = static_cast<android_LogPriority>(record.priority);
        entry.uid = -1;
        entry.pid = record.pid;
        entry.tid = record.tid;
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
    static std::vector<AndroidLogFormat*>& All() {
        static auto* const all = new std::vector<AndroidLogFormat*>;
        return *all;
    }

    AndroidLogFormat* format_;
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
    // Around where the device's buffers for the head and the foot of a line end.
    for (std::size_t length = 85; length < 132; ++length) {
        tags.emplace_back(length, 'g');
    }
    tags.emplace_back(1000, 'g');
    constexpr pid_t kIds[][2] = {{1, 1}, {99999, 100000}, {4194304, 4194303}};
    constexpr timespec kTimes[] = {{0, 0}, {1706745599, 999'999'999}, {951827696, 1'000'000}};

    std::vector<LogRecord> records;
    std::size_t n = 0;
    const auto add = [&](int priority, const std::string& tag, const std::string& text) {
        const auto& ids = kIds[n % 3];
        records.push_back({priority, tag, "", text, ids[0], ids[1], kTimes[n / 3 % 3]});
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

TEST(LogText, IsTheDevicesInEveryFormat) {
    for (const char* zone : {"UTC", "Asia/Kolkata", "America/New_York"}) {
        setenv("TZ", zone, 1);
        tzset();
        for (const char* name : kFormats) {
            DeviceLog device;
            device.SetFormat(name);
            const auto format = ParseLogFormat(name);
            ASSERT_TRUE(format) << name;
            for (const LogRecord& record : Records()) {
                ASSERT_EQ(FormatLog(*format, record), device.Text(record))
                    << name << " in " << zone << ", priority " << record.priority << ", tag of "
                    << record.tag.size() << " bytes: " << record.tag;
            }
        }
    }
    unsetenv("TZ");
}

TEST(LogText, OnlyTheDevicesFormatsHaveNames) {
    for (const char* name : {"", "Brief", "brief ", "thread time", "off", "*"}) {
        // The library takes a name that it does not know for a time zone, one of the modifiers.
        const AndroidLogPrintFormat known = android_log_formatFromString(name);
        EXPECT_EQ(ParseLogFormat(name).has_value(), known > FORMAT_OFF && known <= FORMAT_LONG)
            << name;
    }
}

TEST(LogText, FiltersChooseAsTheDevices) {
    constexpr const char* kFilters[] = {"",
                                        "TSL_CTB:D *:S",
                                        "*:E",
                                        "*",
                                        "*:*",
                                        "*:S",
                                        "TSL_CTB",
                                        "TSL_CTB:*",
                                        "TSL_CTB:",
                                        "*:",
                                        "TSL_CTB:s",
                                        "*:v",
                                        "TSL_CTB:E TSL_CTB:V",
                                        "TSL_CTB:V,TSL_CTB:E\t*:F",
                                        " , *:W\t ",
                                        "*:E *:D",
                                        "TSL_CTB:error",
                                        "*:warning",
                                        "*:0",
                                        "*:1",
                                        "TSL_CTB:1",
                                        "*:2",
                                        "*:4",
                                        "*:8",
                                        "*:9",
                                        "TSL_CTB:7 *:S",
                                        "TSL_CTB:A",
                                        "*:x",
                                        ":D",
                                        ":",
                                        "TSL_CTB:D:E",
                                        "TSL_CTB::E",
                                        "**:E",
                                        "TSL*:E",
                                        "TSL_CTB:-1",
                                        "TSL_CTB:D bad:q *:S",
                                        "tsl_ctb:E",
                                        "TSL_CTB:D;*:S",
                                        "*:f TSL_BTB:w",
                                        "TSL_CTB:*:E *:i",
                                        "TSL_CTB:D\n*:S"};
    for (const char* text : kFilters) {
        DeviceLog device;
        const bool accepted = device.SetFilter(text);
        const auto filter = LogFilter::Parse(text);
        ASSERT_EQ(filter.has_value(), accepted) << text;
        if (!accepted) {
            continue;
        }
        for (const char* tag : {"TSL_CTB", "TSL_BTB", "tsl_ctb", "*", "TSL", ""}) {
            for (const int priority : kPriorities) {
                EXPECT_EQ(filter->Passes(tag, priority), device.Passes(tag, priority))
                    << "\"" << text << "\" for " << tag << " at priority " << priority;
            }
        }
    }
}

} // namespace
} // namespace host

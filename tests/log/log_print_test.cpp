// The log stand-in, from a call to standard error.

#include <cstdlib>
#include <ctime>
#include <regex>
#include <string>
#include <thread>

#include <unistd.h>

#include <gtest/gtest.h>

#include "host/log/log_control.h"
#include "platform/log.h"

namespace {

class LogPrint : public testing::Test {
protected:
    void SetUp() override { Forget(); }
    void TearDown() override { Forget(); }

    static void Forget() {
        unsetenv("ANDROID_LOG_TAGS");
        unsetenv("ANDROID_PRINTF_LOG");
        host::ReadLogEnvironment();
    }

    // "A3" for tag A at priority 3, of what gets through.
    static std::string Shown() {
        testing::internal::CaptureStderr();
        for (const char* tag : {"A", "B"}) {
            for (const int priority : {ANDROID_LOG_DEBUG, ANDROID_LOG_ERROR}) {
                __android_log_print(priority, tag, "%s%d\n", tag, priority);
            }
        }
        std::string text = testing::internal::GetCapturedStderr();
        std::erase(text, '\n');
        return text;
    }
};

TEST_F(LogPrint, EnvironmentChoosesUntilTheProgramDoes) {
    const struct {
        const char* environment;
        const char* set;
        const char* shown;
    } cases[] = {
        {"", nullptr, "A3A6B3B6"}, {"A:D *:S", nullptr, "A3A6"}, {"*:E", nullptr, "A6B6"},
        {"A:S", "B:E", "A3A6B6"},  {"*:S", "", "A3A6B3B6"},
    };
    for (const auto& [environment, set, shown] : cases) {
        setenv("ANDROID_LOG_TAGS", environment, 1);
        setenv("ANDROID_PRINTF_LOG", "raw", 1);
        host::ReadLogEnvironment();
        if (set != nullptr) {
            EXPECT_TRUE(host::SetLogFilter(set));
        }
        EXPECT_EQ(Shown(), shown) << environment;
    }
}

TEST_F(LogPrint, WhatCannotBeReadChangesNothingAndIsNamed) {
    setenv("ANDROID_LOG_TAGS", "A:q", 1);
    setenv("ANDROID_PRINTF_LOG", "raw", 1);
    testing::internal::CaptureStderr();
    host::ReadLogEnvironment();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "liblog: cannot read ANDROID_LOG_TAGS=A:q\n");
    EXPECT_EQ(Shown(), "A3A6B3B6");

    EXPECT_TRUE(host::SetLogFilter("A:E *:S"));
    EXPECT_FALSE(host::SetLogFilter("*:D :"));
    EXPECT_FALSE(host::SetLogFormat("tidy"));
    EXPECT_EQ(Shown(), "A6");
}

TEST_F(LogPrint, FilterLeavesSinksAlone) {
    EXPECT_TRUE(host::SetLogFilter("*:S"));
    host::LogCollector log;
    EXPECT_EQ(Shown(), "");
    EXPECT_EQ(log.Take().size(), 4u);
}

TEST_F(LogPrint, TellsWhenAndWhichThread) {
    EXPECT_TRUE(host::SetLogFormat("threadtime"));
    testing::internal::CaptureStderr();
    const std::time_t before = std::time(nullptr);
    pid_t tid = 0;
    std::thread([&tid] {
        tid = gettid();
        __android_log_print(ANDROID_LOG_ERROR, "A", "text");
    }).join();
    const std::time_t after = std::time(nullptr);
    const std::string line = testing::internal::GetCapturedStderr();

    std::smatch parts;
    ASSERT_TRUE(std::regex_match(line, parts,
                                 std::regex(R"((.{14})\.\d{3} +(\d+) +(\d+) E A       : text\n)")))
        << line;
    EXPECT_EQ(parts[2], std::to_string(getpid()));
    EXPECT_EQ(parts[3], std::to_string(tid));
    bool inTime = false;
    for (std::time_t second = before; second <= after; ++second) {
        char text[32];
        std::strftime(text, sizeof(text), "%m-%d %H:%M:%S", std::localtime(&second));
        inTime = inTime || parts[1] == text;
    }
    EXPECT_TRUE(inTime) << line;
}

} // namespace

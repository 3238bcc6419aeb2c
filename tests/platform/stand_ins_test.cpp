#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "host/control/faults.h"
#include "host/filesystem/device_root.h"
#include "host/log/log_control.h"
#include "host/properties/property_control.h"
#include "platform/log.h"

namespace {

namespace fs = std::filesystem;

class StandIns : public testing::Test {
protected:
    void SetUp() override {
        std::string name = testing::TempDir() + "stand_ins_XXXXXX";
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        root_ = name;
        host::ClearProperties();
    }
    void TearDown() override {
        host::Faults::Reset();
        host::SetDeviceRoot({});
        fs::remove_all(root_);
    }

    void Write(const std::string& path, const std::string& text) {
        fs::create_directories((root_ / path).parent_path());
        std::ofstream(root_ / path) << text;
    }

    fs::path root_;
};

TEST_F(StandIns, LogPrintsEachLineInBriefFormat) {
    char pid[16];
    std::snprintf(pid, sizeof(pid), "(%5d): ", static_cast<int>(getpid()));
    const std::string head = std::string("D/TSL_CTB ") + pid;
    const std::string longTag = std::string("E/longer than eight") + pid;
    const struct {
        int priority;
        const char* tag;
        const char* text;
        std::string printed;
    } cases[] = {
        {ANDROID_LOG_DEBUG, "TSL_CTB", "one\n", head + "one\n"},
        {ANDROID_LOG_DEBUG, "TSL_CTB", "no newline", head + "no newline\n"},
        {ANDROID_LOG_DEBUG, "TSL_CTB", "a\nb\n", head + "a\n" + head + "b\n"},
        {ANDROID_LOG_DEBUG, "TSL_CTB", "a\n\n", head + "a\n" + head + "\n"},
        {ANDROID_LOG_ERROR, "longer than eight", "x", longTag + "x\n"},
    };
    for (const auto& [priority, tag, text, printed] : cases) {
        testing::internal::CaptureStderr();
        __android_log_print(priority, tag, "%s", text);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), printed);
    }
}

TEST_F(StandIns, CollectorKeepsTheFormatOfEveryThread) {
    host::LogCollector log;
    std::thread other([] { __android_log_print(ANDROID_LOG_DEBUG, "B", "%d of %s\n", 2, "two"); });
    other.join();
    host::Faults::Fail("__android_log_print", 1, -1);
    __android_log_print(ANDROID_LOG_ERROR, "A", "lost");
    __android_log_print(ANDROID_LOG_ERROR, "A", "%s", std::string(5000, 'x').c_str());
    const auto records = log.Take();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].format, "%d of %s\n");
    EXPECT_EQ(records[0].text, "2 of two\n");
    EXPECT_EQ(records[1].text, std::string(1023, 'x')) << "the device's buffer cuts longer text";
}

TEST_F(StandIns, PropertiesKeepTheDevicesLimits) {
    const std::string longest(91, 'v');
    const std::string tooLong(92, 'v');
    const struct {
        const char* set;
        int result;
        std::string read; // with default "d", after "old" was set
    } cases[] = {
        {"new", 0, "new"}, {longest.c_str(), 0, longest}, {tooLong.c_str(), -1, "old"},
        {"", 0, "d"},      {nullptr, -1, "old"},
    };
    for (const auto& [set, result, read] : cases) {
        ASSERT_EQ(property_set("key", "old"), 0);
        EXPECT_EQ(property_set("key", set), result);
        char value[kPropertyValueMax];
        EXPECT_EQ(property_get("key", value, "d"), static_cast<int>(read.size()));
        EXPECT_EQ(value, read);
    }
    EXPECT_EQ(property_set("", "value"), -1);
    char value[kPropertyValueMax];
    EXPECT_EQ(property_get("unset", value, tooLong.c_str()), 91);
    EXPECT_EQ(property_get("unset", value, nullptr), 0);
    EXPECT_STREQ(value, "");
}

TEST_F(StandIns, DevicePathsLeadIntoTheRootAndNowhereElse) {
    Write("mnt/vendor/persist/camera/a", "persist");
    Write("vendor/etc/b", "etc");
    Write("outside", "outside");
    const std::string plain = (root_ / "outside").string();
    const std::string climbing = "/data/vendor/../.." + plain;
    const struct {
        std::string path;
        bool rooted;
        bool found;
    } cases[] = {
        {"/mnt/vendor/persist/camera/a", true, true},
        {"/vendor/etc/./b", true, true},
        {"/data/vendor/c", true, false},
        {"/data/vendor/../../vendor/etc/b", true, true},
        {climbing, true, false},
        {plain, true, true},
        {"/mnt/vendor/persist/camera/a", false, false},
        {climbing, false, false},
        {plain, false, true},
    };
    for (const auto& [path, rooted, found] : cases) {
        SCOPED_TRACE(path + (rooted ? "" : " without a device"));
        host::SetDeviceRoot(rooted ? root_ : fs::path());
        errno = 0;
        std::FILE* const stream = std::fopen(path.c_str(), "rb");
        EXPECT_EQ(stream != nullptr, found);
        EXPECT_EQ(errno, found ? 0 : ENOENT);
        if (stream != nullptr) {
            std::fclose(stream);
        }
        const int descriptor = open(path.c_str(), O_RDONLY);
        EXPECT_EQ(descriptor >= 0, found);
        if (descriptor >= 0) {
            close(descriptor);
        }
    }
    EXPECT_TRUE(host::OpenDeviceFiles().empty());
}

TEST_F(StandIns, FailuresAreArmedByText) {
    const auto read = [](const char* name) {
        char value[kPropertyValueMax];
        return property_get(name, value, nullptr);
    };
    property_set("key", "four");
    host::Faults::Arm("property_get:2:7");
    host::Faults::Arm("ChiNodeUtils::GetDataList:3");
    EXPECT_EQ(host::Faults::Pending(),
              (std::vector<std::string>{"property_get:2 (0 calls so far)",
                                        "ChiNodeUtils::GetDataList:3 (0 calls so far)"}));
    EXPECT_EQ(read("key"), 4);
    EXPECT_EQ(read("key"), 7);
    EXPECT_EQ(read("key"), 4);
    EXPECT_EQ(host::Faults::Pending().size(), 1u);
    host::Faults::Arm("property_get");
    EXPECT_EQ(read("key"), 0) << "the first call from now on, with the default";

    for (const char* wrong :
         {"", "property_ge", "property_get:", "property_get:0", "property_get:x", "property_get:-1",
          "property_get:1:", "property_get:1:2:3", "property_get:1:2x", "fopen:1:0",
          "property_get:99999999999999999999", "ChiNodeUtils::GetDataList"}) {
        EXPECT_THROW(host::Faults::Arm(wrong), std::invalid_argument) << wrong;
    }
    try {
        host::Faults::Arm("close_");
    } catch (const std::invalid_argument& error) {
        for (const host::CallDescription& call : host::Faults::List()) {
            EXPECT_NE(std::string_view(error.what()).find(call.name), std::string_view::npos);
        }
    }
}

TEST_F(StandIns, FileFaultsMeetOnlyDeviceFiles) {
    Write("vendor/etc/b", "0123456789");
    host::SetDeviceRoot(root_);
    std::FILE* const other = std::fopen((root_ / "vendor/etc/b").c_str(), "rb");
    std::FILE* const file = std::fopen("/vendor/etc/b", "rb");
    ASSERT_TRUE(other != nullptr && file != nullptr);
    EXPECT_EQ(host::OpenDeviceFiles(), std::vector<std::string>{"/vendor/etc/b"});

    host::Faults::Fail("fread", 1, 4);
    host::Faults::Fail("fclose", 1, EOF);
    char bytes[10];
    EXPECT_EQ(std::fread(bytes, 1, sizeof(bytes), other), 10u);
    EXPECT_EQ(std::fread(bytes, 1, sizeof(bytes), file), 4u);
    EXPECT_EQ(std::ftell(file), 4);
    EXPECT_EQ(std::fread(bytes, 1, sizeof(bytes), file), 6u);
    EXPECT_EQ(std::fclose(other), 0);
    EXPECT_EQ(std::fclose(file), EOF);
    EXPECT_EQ(host::Faults::Calls("fread"), 2u);
    EXPECT_TRUE(host::OpenDeviceFiles().empty()) << "a failing fclose closes all the same";

    fs::create_directories(root_ / "data/vendor");
    const int created = open("/data/vendor/new", O_RDWR | O_CREAT, 0600);
    ASSERT_GE(created, 0);
    host::Faults::Fail("write", 1, 3);
    EXPECT_EQ(write(created, "abcdef", 6), 3);
    EXPECT_EQ(close(created), 0);
    EXPECT_EQ(fs::file_size(root_ / "data/vendor/new"), 3u);
    EXPECT_EQ(fs::status(root_ / "data/vendor/new").permissions(), fs::perms(0600));
}

} // namespace

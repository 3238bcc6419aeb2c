// Whole lives of several nodes at once, for the thread sanitizer; it finds nothing where the nodes,
// the log, the properties and the dumps share no unguarded memory.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <thread>

#include <gtest/gtest.h>

#include "host/filesystem/device_root.h"
#include "host/log/log_control.h"
#include "host/pipeline/pipeline.h"
#include "host/properties/property_control.h"
#include "platform/device_names.h"

namespace {

constexpr int kThreads = 4;
constexpr int kLives = 6;
constexpr int kWidth = 64;
constexpr int kHeight = 48;

void Live(const host::NodeLibrary& library, int thread) {
    constexpr Size kSize{kWidth, kHeight};
    const host::UseCase useCase{kSize, kSize, kSize};
    host::Image main(host::Image::Format::Nv12, kWidth, kHeight, kWidth + 16 * thread);
    std::iota(main.bytes().begin(), main.bytes().end(), static_cast<std::uint8_t>(37 * thread));
    host::Image aux = main;
    host::Image output = main;
    host::Image expected = main;
    for (std::uint8_t& byte : expected.bytes()) {
        byte = static_cast<std::uint8_t>(~byte);
    }
    host::Node node(library, useCase);
    for (std::uint64_t frame = 1; frame <= 4; ++frame) {
        host::Request request = host::PlainRequest(useCase, frame);
        request.inputs = {&main, &aux};
        request.output = &output;
        const host::RequestResult result = node.Process(request);
        EXPECT_EQ(result.code, CDKResultSuccess);
        EXPECT_TRUE(result.complaints.empty());
        EXPECT_TRUE(host::SamePixels(output, expected));
    }
    EXPECT_TRUE(node.End().empty());
}

TEST(Threads, NodesLiveSideBySide) {
    // Without it the C library reads its zone anew at every dump, under a lock that the sanitizer
    // does not see.
    ASSERT_EQ(setenv("TZ", "UTC", 1), 0);
    std::string folder = testing::TempDir() + "threads_XXXXXX";
    ASSERT_NE(mkdtemp(folder.data()), nullptr);
    const std::filesystem::path root = folder;
    std::filesystem::create_directories(root / "data/vendor/camera");
    std::filesystem::create_directories(root / "vendor/etc/camera");
    std::ofstream(root / "vendor/etc/camera/dualcam_cali.bin") << std::string(2048, 'c');
    host::SetDeviceRoot(root);
    property_set(device::kDumpProperty, "1");
    const host::NodeLibrary library(NODE_LIBRARY, ENGINE_LIBRARY);
    host::LogCollector log;

    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&library, thread] {
            for (int life = 0; life < kLives; ++life) {
                // Another node's construction may read it at this moment.
                property_set(device::kLogMaskProperty, life % 2 == 0 ? "6" : "0");
                Live(library, thread);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_GT(log.Take().size(), 100u);
    EXPECT_TRUE(host::OpenDeviceFiles().empty());
    EXPECT_TRUE(host::TakeStrayComplaints().empty());
    host::SetDeviceRoot({});
    std::filesystem::remove_all(root);
}

} // namespace

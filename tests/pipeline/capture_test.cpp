// Whole requests: the picture that a working engine makes, and what the node publishes with it.

#include <thread>

#include "host/properties/property_control.h"
#include "host/settings/settings_control.h"
#include "tests/pipeline/capture_fixture.h"

namespace capture {
namespace {

// Mean absolute difference of horizontal neighbours in a window of the luma plane.
double Detail(const host::Image& image, int left, int top, int width, int height) {
    long sum = 0;
    for (int y = top; y < top + height; ++y) {
        const std::uint8_t* row = image.row(0, y);
        for (int x = left; x < left + width; ++x) {
            sum += std::abs(row[x + 1] - row[x]);
        }
    }
    return static_cast<double>(sum) / (width * height);
}

TEST_F(CaptureTest, BackgroundIsBlurredSubjectIsNot) {
    host::Node node(Library(), useCase_);
    const host::RequestResult result = Capture(node);
    ASSERT_EQ(result.code, CDKResultSuccess);
    EXPECT_TRUE(result.complaints.empty());
    ASSERT_TRUE(result.published);
    EXPECT_EQ(result.published->result.depthEffectInfo, 0u);
    EXPECT_EQ(result.published->result.activeMap, 3u);
    EXPECT_EQ(result.published->frameDimension, (std::array<std::uint32_t, 2>{kWidth, kHeight}));
    EXPECT_EQ(result.published->depthPictureSize, main_.pitch() * kHeight);
    EXPECT_EQ(result.published->focusPoint, (std::array<std::int32_t, 2>{kWidth / 2, kHeight / 2}));
    EXPECT_EQ(Errors(), std::vector<std::string>{});

    const auto ratio = [this](int left, int top) {
        return Detail(output_, left, top, 40, 40) / Detail(main_, left, top, 40, 40);
    };
    EXPECT_GT(ratio(kWidth / 2 - 20, kHeight / 2 - 20), 0.95);
    EXPECT_LT(ratio(8, 8), 0.5);
    EXPECT_LT(ratio(kWidth - 50, kHeight - 50), 0.5);
    EXPECT_GT(depth_.row(0, 120)[160], depth_.row(0, 20)[60])
        << "nearer is larger in the depth output";
}

TEST_F(CaptureTest, SameCaptureSameBytes) {
    const host::Image first = Rendered();
    host::Node node(Library(), useCase_);
    Capture(node);
    EXPECT_TRUE(host::SamePixels(output_, first));
    const std::vector<std::uint8_t> depth = depth_.bytes();
    Capture(node);
    EXPECT_TRUE(host::SamePixels(output_, first));
    EXPECT_TRUE(depth_.bytes() == depth);
}

TEST_F(CaptureTest, NodesOnSeveralThreads) {
    const host::Image expected = Rendered();
    std::vector<std::thread> threads;
    std::array<host::Image, 3> outputs;
    for (host::Image& output : outputs) {
        output = output_;
        threads.emplace_back([&] {
            host::Image main = main_;
            host::Image aux = aux_;
            for (std::uint64_t frame = 1; frame <= 3; ++frame) {
                host::Node node(Library(), useCase_);
                host::Request request = host::PlainRequest(useCase_, frame);
                request.inputs = {&main, &aux};
                request.output = &output;
                EXPECT_EQ(node.Process(request).code, CDKResultSuccess);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const host::Image& output : outputs) {
        EXPECT_TRUE(host::SamePixels(output, expected));
    }
}

TEST_F(CaptureTest, PairWithoutDepthFallsBackAndSaysSo) {
    std::fill(aux_.bytes().begin(), aux_.bytes().end(), std::uint8_t{128});
    host::Node node(Library(), useCase_);
    const host::RequestResult result = Capture(node);
    EXPECT_EQ(result.code, CDKResultSuccess);
    EXPECT_TRUE(OutputIsMain());
    ASSERT_TRUE(result.published);
    EXPECT_EQ(result.published->result.depthEffectInfo, 1u);
    EXPECT_FALSE(Errors().empty());
}

} // namespace
} // namespace capture

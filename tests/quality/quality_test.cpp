#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <string>

#include "bench/refocus/motorcycle.h"
#include "bench/refocus/rendering.h"
#include "bench/refocus/thin_lens.h"
#include "host/picture/errors.h"

namespace quality {
namespace {

// A small lamp at one disparity before a dark wall at another.
constexpr float kLampDisparity = 0.05f;
constexpr float kWallDisparity = 0.01f;
const cv::Size kSize(200, 150);
const cv::Point2f kLamp(0.502f, 0.402f); // the middle of pixel (100, 80)

Scene LampBeforeWall() {
    Scene scene;
    scene.surfaces.emplace_back(Plane{kWallDisparity}, cv::Rect2f(-0.2f, -0.2f, 1.4f, 1.2f), 400);
    scene.surfaces.back().Fill(
        [](float x, float) { return cv::Vec4f(x < 0.3f ? 0.0f : 0.1f, 0.0f, 0.0f, 1.0f); });
    scene.surfaces.emplace_back(Plane{kLampDisparity}, cv::Rect2f(0.4f, 0.3f, 0.2f, 0.2f), 2000);
    scene.surfaces.back().Fill([](float x, float y) {
        const bool lit = std::hypot(x - kLamp.x, y - kLamp.y) < 0.01f; // two pixels
        return lit ? cv::Vec4f(0.0f, 30.0f, 0.0f, 1.0f) : cv::Vec4f();
    });
    return scene;
}

int Value(const RgbImage& picture, int x, int y, int channel) {
    return picture.bytes.at(3UL * static_cast<unsigned>(y * picture.width + x) +
                            static_cast<unsigned>(channel));
}
int Red(const RgbImage& picture, int x, int y) {
    return Value(picture, x, y, 0);
}
int Green(const RgbImage& picture, int x, int y) {
    return Value(picture, x, y, 1);
}

TEST(ThinLens, SpreadsALampEvenlyOverItsDisc) {
    constexpr float kGain = 2.0f; // radius: 2 * (0.05 - 0.01) widths, 16 pixels
    const RgbImage picture = Trace(LampBeforeWall(), kSize, {kGain, kWallDisparity, 2000});
    // Light is kept: 30 times the lamp's area over the disc's, 30 * 2^2 / 16^2 = 0.47, in sRGB 181.
    double sum = 0.0;
    int count = 0;
    for (int y = 50; y < 110; ++y) {
        for (int x = 70; x < 130; ++x) {
            const double from = std::hypot(x - 100, y - 80);
            if (from < 13.0) {
                EXPECT_NEAR(Green(picture, x, y), 181, 40) << x << ", " << y;
                sum += Green(picture, x, y);
                ++count;
            } else if (from > 19.0) {
                EXPECT_EQ(Green(picture, x, y), 0) << x << ", " << y;
            }
        }
    }
    EXPECT_NEAR(sum / count, 181.0, 3.0);
    // The wall is in focus: its edge stays an edge.
    EXPECT_EQ(Red(picture, 59, 20), 0);
    EXPECT_EQ(Red(picture, 60, 20), Red(picture, 150, 20));
}

TEST(ThinLens, AuxCameraSeesEveryDisparityMoved) {
    const RgbImage aux = TraceAux(LampBeforeWall(), kSize, 64);
    EXPECT_EQ(Green(aux, 90, 80), 255); // the lamp, 0.05 widths to the left
    EXPECT_EQ(Green(aux, 100, 80), 0);
    EXPECT_EQ(Red(aux, 57, 20), 0); // the wall's edge, 0.01 widths to the left
    EXPECT_GT(Red(aux, 58, 20), 0);
    const cv::Mat disparity = ExactDisparity(LampBeforeWall(), kSize);
    EXPECT_FLOAT_EQ(disparity.at<float>(80, 100), 10.0f);
    EXPECT_FLOAT_EQ(disparity.at<float>(80, 120), 2.0f);
}

// On small pictures, too, the engine comes closer to the lens than the blend does, from the same
// disparity.
TEST(Rendering, BeatsTheGaussianBlendOnTheSameScenes) {
    const cv::Size size(240, 180);
    for (const std::uint32_t seed : {1u, 2u}) {
        const ScenePhoto photo = Photograph(RandomScene(seed, size.width), size);
        const Fidelity engine = Compare(RenderedBy(photo, photo.disparity), photo);
        const Fidelity blend = Compare(GaussianBlend(photo, photo.disparity), photo);
        EXPECT_GT(engine.luma, blend.luma + 2.0) << photo.name;
        EXPECT_GT(engine.ssim, blend.ssim) << photo.name;
        EXPECT_GT(Compare(photo.traced, photo).luma, 100.0) << photo.name;
        EXPECT_NEAR(Compare(photo.traced, photo).ssim, 1.0, 1e-6) << photo.name;
    }
}

TEST(Rendering, ScenesAreTheSameHoweverManyThreadsMakeThem) {
    const int threads = cv::getNumThreads();
    const cv::Size size(64, 48);
    for (std::uint32_t seed = 1; seed <= 12; ++seed) {
        cv::setNumThreads(2);
        const ScenePhoto photo = Photograph(RandomScene(seed, size.width), size);
        cv::setNumThreads(1);
        const ScenePhoto again = Photograph(RandomScene(seed, size.width), size);
        EXPECT_EQ(photo.pair.main.bytes(), again.pair.main.bytes()) << photo.name;
        EXPECT_EQ(photo.pair.aux.bytes(), again.pair.aux.bytes()) << photo.name;
        EXPECT_EQ(photo.traced.bytes(), again.traced.bytes()) << photo.name;
    }
    cv::setNumThreads(threads);
}

std::string NumpyArray(const std::string& header, std::initializer_list<float> values) {
    std::string bytes("\x93NUMPY\1\0", 8);
    bytes += {static_cast<char>(header.size()), '\0'};
    bytes += header;
    bytes.append(reinterpret_cast<const char*>(values.begin()), values.size() * sizeof(float));
    return bytes;
}

cv::Mat Read(const std::string& bytes) {
    const auto path = std::filesystem::path(testing::TempDir()) / "quality_test_array.npy";
    std::ofstream(path, std::ios::binary) << bytes;
    return ReadNumpyArray(path);
}

TEST(NumpyArray, ReadsWholeFilesAndRefusesOthers) {
    const std::string whole =
        NumpyArray("{'descr': '<f4', 'fortran_order': False, 'shape': (2, 3), }   \n",
                   {1, 2, 3, 4, 5.5f, INFINITY});
    const cv::Mat values = Read(whole);
    ASSERT_EQ(values.size(), cv::Size(3, 2));
    EXPECT_EQ(values.at<float>(0, 2), 3.0f);
    EXPECT_EQ(values.at<float>(1, 1), 5.5f);
    EXPECT_TRUE(std::isinf(values.at<float>(1, 2)));
    for (std::size_t size = 0; size < whole.size(); ++size) {
        EXPECT_THROW(Read(whole.substr(0, size)), UseError) << size << " of " << whole.size();
    }
    for (const char* other : {"{'descr': '<f8', 'fortran_order': False, 'shape': (2, 3), }",
                              "{'descr': '<f4', 'fortran_order': True, 'shape': (2, 3), }",
                              "{'descr': '<f4', 'fortran_order': False, 'shape': (6,), }",
                              "{'descr': '<f4', 'fortran_order': False, 'shape': (2, 4), }"}) {
        EXPECT_THROW(Read(NumpyArray(other, {1, 2, 3, 4, 5, 6})), UseError) << other;
    }
}

} // namespace
} // namespace quality

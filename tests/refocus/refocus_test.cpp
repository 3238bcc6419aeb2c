#include <gtest/gtest.h>

#include <opencv2/core.hpp>

#include <cmath>
#include <functional>
#include <vector>

#include "engine/refocus_engine.h"
#include "host/refocus/error.h"
#include "tests/refocus/engine_under_test.h"
#include "tests/refocus/stereo_scene.h"

namespace {

using refocus::Error;
using refocus::Result;
using stereo_scene::Engine;
using stereo_scene::GuardedImage;
using stereo_scene::Pair;
using stereo_scene::TwoPlanes;

constexpr TSL_POINT kOnForeground{160, 120};
constexpr TSL_POINT kOnBackground{20, 20};

std::vector<std::uint8_t> Refocus(Pair& pair, const TwoPlanes& scene, TSL_POINT focus,
                                  int intensity, GuardedImage& output) {
    Engine engine(scene);
    engine.focus.ptFocus = focus;
    EXPECT_EQ(engine.Calc(pair.main, pair.aux), 0);
    EXPECT_EQ(engine.Process(pair.main, engine.Disparity(), intensity, output), 0);
    return output.Pixels();
}

double Contrast(GuardedImage& image, int left, int top, int right, int bottom) {
    double sum = 0.0;
    double squares = 0.0;
    for (int y = top; y < bottom; ++y) {
        for (int x = left; x < right; ++x) {
            sum += image.luma(x, y);
            squares += image.luma(x, y) * image.luma(x, y);
        }
    }
    const double count = (right - left) * (bottom - top);
    return std::sqrt(squares / count - sum / count * (sum / count));
}

TEST(Refocus, SharpWhereFocusedAndSofterAwayFromIt) {
    const TwoPlanes scene;
    for (const bool front : {true, false}) {
        SCOPED_TRACE(front ? "focus on the foreground" : "focus on the background");
        Pair pair = stereo_scene::Render(scene);
        double before = 1e9;
        for (const int intensity : {0, 30, 60, 100}) {
            GuardedImage output = pair.main;
            output.Fill(0);
            Refocus(pair, scene, front ? kOnForeground : kOnBackground, intensity, output);
            int changedInFocus = 0;
            for (int y = 0; y < scene.height; ++y) {
                for (int x = 0; x < scene.width; ++x) {
                    // Away from the planes' border, which no matcher finds to the pixel.
                    const bool inside = x > 92 && x < 228 && y > 72 && y < 168;
                    const bool outside = x < 60 || x > 260 || y < 40 || y > 200;
                    if (front ? inside : outside) {
                        changedInFocus += output.luma(x, y) != pair.main.luma(x, y);
                        changedInFocus += output.chroma(x, y / 2) != pair.main.chroma(x, y / 2);
                    }
                }
            }
            EXPECT_EQ(changedInFocus, 0) << "intensity " << intensity;
            const double contrast =
                front ? Contrast(output, 10, 10, 310, 40) : Contrast(output, 100, 80, 220, 160);
            EXPECT_LT(contrast, before * (intensity == 0 ? 1.0 : 0.85)) << intensity;
            before = contrast;
        }
    }
}

// The foreground is red (V 160) on blue (V 100): were its colour spread over the background beside
// it, V would rise there; were planes swapped, everywhere.
TEST(Refocus, FocusedObjectGivesNoColourToTheBackground) {
    const TwoPlanes scene;
    Pair pair = stereo_scene::Render(scene);
    GuardedImage output = pair.main;
    Refocus(pair, scene, kOnForeground, 100, output);
    for (int y = 40; y < 80; ++y) {
        for (const int x : {66, 70, 74, 246, 250, 254}) {
            EXPECT_NEAR(output.chroma(x, y), 160, 4) << "U at " << x << "," << y;
            EXPECT_NEAR(output.chroma(x + 1, y), 100, 4) << "V at " << x << "," << y;
        }
    }
}

TEST(Refocus, BlurLevelZeroCopies) {
    const TwoPlanes scene{.width = 321, .height = 241};
    Pair pair = stereo_scene::Render(scene);
    GuardedImage output(scene.width, scene.height, 330, 340);
    EXPECT_EQ(Refocus(pair, scene, kOnForeground, 0, output), pair.main.Pixels());
    EXPECT_EQ(output.DisturbedGuards(), 0);
}

TEST(Refocus, PitchesChangeNothingAndNothingBeyondRowsIsWritten) {
    for (const auto& [width, height] : {std::pair{320, 240}, {333, 247}, {2001, 601}}) {
        SCOPED_TRACE(width);
        const TwoPlanes scene{width, height, 6, 22};
        Pair tight = stereo_scene::Render(scene);
        GuardedImage plain = tight.main;
        const auto expected = Refocus(tight, scene, kOnBackground, 80, plain);
        Pair padded = stereo_scene::Render(scene, 46);
        GuardedImage output(width, height, width + 7, width + 19);
        EXPECT_EQ(Refocus(padded, scene, kOnBackground, 80, output), expected);
        EXPECT_EQ(output.DisturbedGuards(), 0);
        EXPECT_NE(expected, tight.main.Pixels());
    }
}

TEST(Refocus, InputsAreOnlyReadHoweverTheyAreTurnedAndAligned) {
    // Square and too small to be reduced: every step could work in place.
    TwoPlanes scene{.width = 192, .height = 192};
    Pair pair = Render(scene);
    for (const int down : {0, 2}) {
        GuardedImage aux = pair.aux;
        for (int y = down; y < aux.height(); ++y) {
            for (int x = 0; x < aux.width(); ++x) {
                aux.luma(x, y) = pair.aux.luma(x, y - down);
            }
        }
        const std::vector<std::uint8_t> before[] = {pair.main.Pixels(), aux.Pixels()};
        for (const int degree : {0, 90, 180, 270}) {
            SCOPED_TRACE(testing::Message() << down << " rows down, turned by " << degree);
            Engine engine(scene);
            TSL_DCR_CAMERAIMAGEINFO info{.i32ImageDegree = degree};
            ASSERT_EQ(TSL_DCIR_SetCameraImageInfo(engine.handle, &info), 0);
            engine.Calc(pair.main, aux);
            EXPECT_TRUE(pair.main.Pixels() == before[0] && aux.Pixels() == before[1]);
        }
    }
}

TEST(Refocus, DisparityDataIsAnImageOfTheMainPitch) {
    const TwoPlanes scene;
    Pair pair = stereo_scene::Render(scene, 64);
    Engine engine;
    ASSERT_EQ(engine.Calc(pair.main, pair.aux), 0);
    const auto data = engine.Disparity();
    const std::size_t pitch = 384;
    ASSERT_EQ(data.size(), pitch * 240);
    EXPECT_GT(data[120 * pitch + 160], data[20 * pitch + 160] + 100);
    for (std::size_t y = 0; y < 240; ++y) {
        EXPECT_EQ(data[y * pitch + 320], 0) << "padding of row " << y;
    }
}

TEST(Refocus, SameBytesForAnyNumberOfThreads) {
    const TwoPlanes scene{1400, 300, 10, 60};
    Pair pair = stereo_scene::Render(scene);
    const int threads = cv::getNumThreads();
    std::vector<std::vector<std::uint8_t>> results;
    for (const int count : {1, 2, 5, 5}) {
        cv::setNumThreads(count);
        GuardedImage output = pair.main;
        results.push_back(Refocus(pair, scene, {20, 20}, 100, output));
    }
    cv::setNumThreads(threads);
    EXPECT_EQ(results[0], results[1]);
    EXPECT_EQ(results[0], results[2]);
    EXPECT_EQ(results[2], results[3]);
}

TEST(Refocus, APictureLeavesNoTraceInTheNext) {
    // Each step's images reuse the memory of the picture before, which is nearer or another size.
    const TwoPlanes scene;
    const TwoPlanes nearer{.background = 12, .foreground = 30};
    const TwoPlanes smaller{.width = 240, .height = 180, .background = 4, .foreground = 20};
    Engine engine(scene);
    std::vector<std::vector<std::uint8_t>> results;
    for (const TwoPlanes& one : {scene, nearer, scene, smaller, scene}) {
        Pair pair = stereo_scene::Render(one);
        GuardedImage output = pair.main;
        engine.focus.ptFocus = kOnBackground;
        ASSERT_EQ(engine.Calc(pair.main, pair.aux), 0);
        ASSERT_EQ(engine.Process(pair.main, engine.Disparity(), 100, output), 0);
        results.push_back(output.Pixels());
    }
    EXPECT_EQ(results[0], results[2]);
    EXPECT_EQ(results[0], results[4]);
}

// The image turned clockwise by a quarter; both sides must be even.
GuardedImage QuarterTurned(GuardedImage& image) {
    const int width = image.height();
    GuardedImage turned(width, image.width(), width, width);
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            turned.luma(width - 1 - y, x) = image.luma(x, y);
        }
    }
    for (int y = 0; y < image.height() / 2; ++y) {
        for (int x = 0; x < image.width(); ++x) {
            turned.chroma(width - 2 - 2 * y + x % 2, x / 2) = image.chroma(x, y);
        }
    }
    return turned;
}

TEST(Refocus, TurnedPairsRenderAsUprightOnes) {
    const TwoPlanes scene{.width = 720, .height = 480, .background = 8, .foreground = 40};
    Pair pair = stereo_scene::Render(scene);
    GuardedImage upright = pair.main;
    for (const int degree : {0, 90, 180, 270}) {
        SCOPED_TRACE(degree);
        Engine engine(scene);
        TSL_DCR_CAMERAIMAGEINFO info{.i32ImageDegree = degree};
        ASSERT_EQ(TSL_DCIR_SetCameraImageInfo(engine.handle, &info), 0);
        engine.focus.ptFocus = {pair.main.width() / 2, pair.main.height() / 2};
        ASSERT_EQ(engine.Calc(pair.main, pair.aux), 0);
        GuardedImage output = pair.main;
        ASSERT_EQ(engine.Process(pair.main, engine.Disparity(), 100, output), 0);
        if (degree == 0) {
            upright = output;
        }
        int different = 0;
        for (int y = 0; y < output.height(); ++y) {
            for (int x = 0; x < output.width(); ++x) {
                different += std::abs(output.luma(x, y) - upright.luma(x, y)) > 3;
            }
        }
        // Filling and layers are not symmetric; with other radii half of the picture would differ.
        EXPECT_LT(different, 0.01 * scene.width * scene.height);
        pair = {QuarterTurned(pair.main), QuarterTurned(pair.aux)};
        upright = QuarterTurned(upright);
    }
}

TEST(Refocus, PairsWithoutDepthAreRefusedWithTheReason) {
    const TwoPlanes scene{.width = 320, .height = 320, .background = 16, .foreground = 40};
    const stereo_scene::Texture other(9);
    const struct {
        const char* name;
        Error expected;
        std::function<void(Pair&)> change;
    } cases[] = {
        {"black", Error::kNoStructure, [](Pair& p) { p.main.Fill(0), p.aux.Fill(0); }},
        {"flat", Error::kNoStructure, [](Pair& p) { p.main.Fill(128), p.aux.Fill(131); }},
        {"covered aux camera", Error::kNoStructure, [](Pair& p) { p.aux.Fill(3); }},
        {"identical", Error::kNoParallax, [](Pair& p) { p.aux = p.main; }},
        {"swapped", Error::kReversedPair, [](Pair& p) { std::swap(p.main, p.aux); }},
        {"rotated", Error::kRotatedPair,
         [](Pair& p) {
             p = {QuarterTurned(p.main), QuarterTurned(p.aux)};
         }},
        {"too near", Error::kBeyondSearch,
         [](Pair& p) {
             p = stereo_scene::Render({320, 320, 80, 110});
         }},
        {"unrelated", Error::kNoDepth,
         [&](Pair& p) {
             for (int y = 0; y < p.aux.height(); ++y) {
                 for (int x = 0; x < p.aux.width(); ++x) {
                     p.aux.luma(x, y) = other.At(x, y);
                 }
             }
         }},
    };
    for (const auto& [name, expected, change] : cases) {
        Pair pair = stereo_scene::Render(scene);
        Engine engine(scene);
        ASSERT_EQ(engine.Calc(pair.main, pair.aux), 0);
        change(pair);
        EXPECT_EQ(engine.Calc(pair.main, pair.aux), Result(expected)) << name;
        std::int32_t size = 0;
        EXPECT_EQ(TSL_DCIR_GetDisparityDataSize(engine.handle, &size), Result(Error::kNoDisparity))
            << name << ": the last picture's disparity must be gone";
    }
}

} // namespace

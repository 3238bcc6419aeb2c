#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <string>
#include <vector>

#include "engine/refocus_engine.h"
#include "host/control/faults.h"
#include "host/refocus/error.h"
#include "tests/refocus/engine_under_test.h"
#include "tests/refocus/stereo_scene.h"

namespace {

using refocus::Error;
using refocus::Result;
using stereo_scene::Engine;
using stereo_scene::GuardedImage;
using stereo_scene::Pair;

// A call that must fail, and its code.
struct WrongCall {
    const char* name;
    Error expected;
    std::function<std::int64_t(Engine&)> call;
};

void ExpectCodes(const std::vector<WrongCall>& calls) {
    for (const WrongCall& wrong : calls) {
        Engine engine;
        EXPECT_EQ(wrong.call(engine), Result(wrong.expected)) << wrong.name;
    }
}

TEST(RefocusCalls, WrongImagesHaveTheirCodes) {
    Pair pair = stereo_scene::Render({});
    const auto with = [&](auto change) {
        return [&pair, change](Engine& e) {
            PLIM_OFFSCREEN main = pair.main.Descriptor();
            PLIM_OFFSCREEN aux = pair.aux.Descriptor();
            change(main);
            const std::int64_t asMain = TSL_DCIR_CalcDisparityData(e.handle, &main, &aux, &e.focus);
            EXPECT_EQ(TSL_DCIR_CalcDisparityData(e.handle, &aux, &main, &e.focus), asMain);
            return asMain;
        };
    };
    ExpectCodes({
        {"format", Error::kImageFormat, with([](auto& i) { i.u32Format = 0x802; })},
        {"15 wide", Error::kImageSize, with([](auto& i) { i.i32Width = 15; })},
        {"15 high", Error::kImageSize, with([](auto& i) { i.i32Height = 15; })},
        {"2x2", Error::kImageSize, with([](auto& i) { i.i32Width = i.i32Height = 2; })},
        {"4000x2", Error::kImageSize, with([](auto& i) {
             i.i32Width = 4000;
             i.i32Height = 2;
             i.i32Pitch[0] = i.i32Pitch[1] = 1 << 20;
         })},
        {"negative", Error::kImageSize, with([](auto& i) { i.i32Height = -240; })},
        {"huge", Error::kImageSize, with([](auto& i) { i.i32Width = 1 << 20; })},
        {"no luma", Error::kImagePlane, with([](auto& i) { i.pu8Plane[0] = nullptr; })},
        {"no chroma", Error::kImagePlane, with([](auto& i) { i.pu8Plane[1] = nullptr; })},
        {"pitch", Error::kImagePitch, with([](auto& i) { i.i32Pitch[0] = 319; })},
        {"chroma pitch", Error::kImagePitch, with([](auto& i) { i.i32Pitch[1] = 100; })},
        {"endless pitch", Error::kImagePitch, with([](auto& i) { i.i32Pitch[0] = 1 << 30; })},
    });
}

TEST(RefocusCalls, WrongModesAndImageInfoHaveTheirCodes) {
    Pair pair = stereo_scene::Render({});
    const auto with = [&](TSL_DCR_CAMERAIMAGEINFO info) {
        return [&pair, info](Engine& e) mutable {
            const std::int64_t set = TSL_DCIR_SetCameraImageInfo(e.handle, &info);
            return set != 0 ? set : e.Calc(pair.main, pair.aux);
        };
    };
    ExpectCodes({
        {"mode", Error::kUnknownMode,
         [](Engine&) {
             void* h;
             return TSL_DCIR_Init(&h, 2);
         }},
        {"init null", Error::kNullArgument, [](Engine&) { return TSL_DCIR_Init(nullptr, 1); }},
        {"no handle", Error::kNullArgument, [](Engine&) { return TSL_DCIR_Reset(nullptr); }},
        {"half a crop", Error::kImageInfoValues, with({320, 0, 320, 240, 0})},
        {"negative crop", Error::kImageInfoValues, with({320, 240, 320, -240, 0})},
        {"degree", Error::kImageInfoValues, with({0, 0, 0, 0, 45})},
        {"crop beyond sensor", Error::kImageInfoMismatch, with({320, 240, 640, 480, 0})},
    });
}

TEST(RefocusCalls, WrongUseOfDisparityHasItsCodes) {
    Pair pair = stereo_scene::Render({});
    const auto process = [&](int sizeChange, int intensity, int faces) {
        return [&pair, sizeChange, intensity, faces](Engine& e) {
            EXPECT_EQ(e.Calc(pair.main, pair.aux), 0);
            auto data = e.Disparity();
            data.resize(data.size() + static_cast<std::size_t>(sizeChange));
            e.focus.i32FaceNum = faces;
            GuardedImage output = pair.main;
            return e.Process(pair.main, data, intensity, output);
        };
    };
    ExpectCodes({
        {"no disparity", Error::kNoDisparity,
         [&](Engine& e) {
             return e.Process(pair.main, std::vector<std::uint8_t>(9), 50, pair.main);
         }},
        {"reset", Error::kNoDisparity,
         [&](Engine& e) {
             EXPECT_EQ(e.Calc(pair.main, pair.aux), 0);
             EXPECT_EQ(TSL_DCIR_Reset(e.handle), 0);
             std::int32_t size = 1 << 20;
             std::uint8_t data[1];
             return TSL_DCIR_GetDisparityData(e.handle, data, &size);
         }},
        {"little room", Error::kDisparitySize,
         [&](Engine& e) {
             EXPECT_EQ(e.Calc(pair.main, pair.aux), 0);
             std::int32_t size = 320 * 240 - 1;
             std::vector<std::uint8_t> data(320 * 240);
             return TSL_DCIR_GetDisparityData(e.handle, data.data(), &size);
         }},
        {"foreign disparity", Error::kDisparitySize, process(1, 50, 0)},
        {"intensity", Error::kBlurIntensity, process(0, 101, 0)},
        {"negative intensity", Error::kBlurIntensity, process(0, -1, 0)},
        {"faces without rectangles", Error::kFaceList, process(0, 50, 1)},
        {"eleven faces", Error::kFaceList, process(0, 50, 11)},
        {"other output size", Error::kImageMismatch,
         [&](Engine& e) {
             EXPECT_EQ(e.Calc(pair.main, pair.aux), 0);
             GuardedImage output(318, 240, 320, 320);
             const auto result = e.Process(pair.main, e.Disparity(), 50, output);
             EXPECT_EQ(output.luma(0, 0), stereo_scene::kGuard);
             return result;
         }},
    });
}

TEST(RefocusCalls, EveryPointerMayBeNull) {
    Pair pair = stereo_scene::Render({});
    Engine engine;
    ASSERT_EQ(engine.Calc(pair.main, pair.aux), 0);
    PLIM_OFFSCREEN image = pair.main.Descriptor();
    TSL_DCR_CAMERAIMAGEINFO info{};
    TSL_DCR_BLURPARAM blur{50};
    TSL_DCR_CALDATA noBytes{nullptr, 2048, 0};
    void* nobody = nullptr;
    std::int32_t n = 320 * 240;
    std::vector<std::uint8_t> data(static_cast<std::size_t>(n));
    void* h = engine.handle;
    auto* focus = &engine.focus;
    const std::vector<std::int64_t> results{
        TSL_DCIR_Uninit(nullptr),
        TSL_DCIR_Uninit(&nobody),
        TSL_DCIR_SetCameraImageInfo(h, nullptr),
        TSL_DCIR_SetCameraImageInfo(nullptr, &info),
        TSL_DCIR_SetCaliData(h, nullptr),
        TSL_DCIR_SetCaliData(h, &noBytes),
        TSL_DCIR_SetCaliData(nullptr, &engine.calibration),
        TSL_DCIR_GetImageSizeInCalibration(h, nullptr, &n, &n, &n),
        TSL_DCIR_GetImageSizeInCalibration(h, &n, &n, &n, nullptr),
        TSL_DCIR_GetDisparityDataSize(h, nullptr),
        TSL_DCIR_GetDisparityData(h, nullptr, &n),
        TSL_DCIR_GetDisparityData(h, data.data(), nullptr),
        TSL_DCIR_Process(h, nullptr, data.data(), n, &blur, focus, &image),
        TSL_DCIR_Process(h, &image, nullptr, n, &blur, focus, &image),
        TSL_DCIR_Process(h, &image, data.data(), n, nullptr, focus, &image),
        TSL_DCIR_Process(h, &image, data.data(), n, &blur, nullptr, &image),
        TSL_DCIR_Process(h, &image, data.data(), n, &blur, focus, nullptr),
        TSL_DCIR_CalcDisparityData(h, &image, &image, nullptr),
        TSL_DCIR_CalcDisparityData(h, nullptr, &image, focus),
        TSL_DCIR_CalcDisparityData(h, &image, nullptr, focus),
    };
    for (std::size_t i = 0; i < results.size(); ++i) {
        EXPECT_EQ(results[i], Result(Error::kNullArgument)) << "call " << i;
    }
}

// Depth or no depth, the smallest, slimmest and most widely spaced images are handled within their
// bounds.
TEST(RefocusCalls, ExtremeImagesStayWithinBounds) {
    constexpr int kMebi = 1 << 20;
    for (const auto& [width, height, padding] : {std::array{16, 16, 3},
                                                 {17, 19, 3},
                                                 {16, 900, 3},
                                                 {900, 16, 3},
                                                 {4000, 17, kMebi - 4000}}) {
        const stereo_scene::TwoPlanes scene{width, height, 0, 3};
        Pair pair = stereo_scene::Render(scene, padding == 3 ? 0 : padding);
        GuardedImage output(width, height, width + padding, width + padding);
        Engine engine(scene);
        engine.focus.ptFocus = {-5, 1 << 30};
        const std::int64_t result = engine.Calc(pair.main, pair.aux);
        if (result == 0) {
            EXPECT_EQ(engine.Process(pair.main, engine.Disparity(), 100, output), 0);
        } else {
            EXPECT_TRUE(result == Result(Error::kNoDepth) ||
                        result == Result(Error::kNoStructure) ||
                        result == Result(Error::kNoParallax))
                << width << "x" << height << ": " << result;
        }
        EXPECT_EQ(output.DisturbedGuards(), 0) << width << "x" << height;
    }
}

TEST(RefocusCalls, NeedsCalibrationAndKeepsItsOwnCopy) {
    Pair pair = stereo_scene::Render({});
    Engine engine;
    void* bare = nullptr;
    ASSERT_EQ(TSL_DCIR_Init(&bare, kEngineModeCapture), 0);
    PLIM_OFFSCREEN main = pair.main.Descriptor();
    PLIM_OFFSCREEN aux = pair.aux.Descriptor();
    EXPECT_EQ(TSL_DCIR_CalcDisparityData(bare, &main, &aux, &engine.focus),
              Result(Error::kNoCalibration));
    std::array<std::int32_t, 4> size{};
    const auto sizes = [&size](void* handle) {
        return TSL_DCIR_GetImageSizeInCalibration(handle, &size[0], &size[1], &size[2], &size[3]);
    };
    EXPECT_EQ(sizes(bare), Result(Error::kNoCalibration));
    TSL_DCIR_Uninit(&bare);
    EXPECT_EQ(bare, nullptr);

    engine.bytes.fill(0xFF);
    EXPECT_EQ(sizes(engine.handle), 0);
    EXPECT_EQ(size, (std::array{32000, 24000, 32000, 24000}));
    EXPECT_EQ(engine.Calc(pair.main, pair.aux), 0);
    EXPECT_EQ(TSL_DCIR_SetCaliData(engine.handle, &engine.calibration),
              Result(Error::kCalibrationMagic));
    EXPECT_EQ(engine.Calc(pair.main, pair.aux), 0) << "a refused calibration replaces none";
}

TEST(RefocusCalls, ArmedFaultsReplaceTheCall) {
    Pair pair = stereo_scene::Render({});
    Engine engine;
    ASSERT_EQ(engine.Calc(pair.main, pair.aux), 0);
    host::Faults::Fail("TSL_DCIR_Reset", 1, 77);
    EXPECT_EQ(TSL_DCIR_Reset(engine.handle), 77);
    EXPECT_EQ(engine.Disparity().size(), 320u * 240u) << "the armed reset must do nothing";
    host::Faults::Fail("TSL_DCIR_GetVersion", 1, 1);
    EXPECT_EQ(TSL_DCIR_GetVersion(), nullptr);
    ASSERT_NE(TSL_DCIR_GetVersion(), nullptr);
    EXPECT_STRNE(TSL_DCIR_GetVersion()->pVersion, "");
    host::Faults::Fail("TSL_DCIR_Uninit", 1, 78);
    EXPECT_EQ(TSL_DCIR_Uninit(&engine.handle), 78);
    EXPECT_EQ(engine.handle, nullptr);
    // The failure goes before the check of the arguments.
    const struct {
        const char* name;
        std::int64_t (*call)();
    } others[] = {
        {"Init", [] { return TSL_DCIR_Init(nullptr, 1); }},
        {"SetCameraImageInfo", [] { return TSL_DCIR_SetCameraImageInfo(nullptr, nullptr); }},
        {"SetCaliData", [] { return TSL_DCIR_SetCaliData(nullptr, nullptr); }},
        {"GetImageSizeInCalibration",
         [] {
             return TSL_DCIR_GetImageSizeInCalibration(nullptr, nullptr, nullptr, nullptr, nullptr);
         }},
        {"CalcDisparityData",
         [] { return TSL_DCIR_CalcDisparityData(nullptr, nullptr, nullptr, nullptr); }},
        {"GetDisparityDataSize", [] { return TSL_DCIR_GetDisparityDataSize(nullptr, nullptr); }},
        {"GetDisparityData", [] { return TSL_DCIR_GetDisparityData(nullptr, nullptr, nullptr); }},
        {"Process",
         [] { return TSL_DCIR_Process(nullptr, nullptr, nullptr, 0, nullptr, nullptr, nullptr); }},
    };
    for (const auto& [name, call] : others) {
        host::Faults::Fail(std::string("TSL_DCIR_") + name, 1, 79);
        EXPECT_EQ(call(), 79) << name;
    }
    host::Faults::Reset();
}

} // namespace

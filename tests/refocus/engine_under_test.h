#pragma once

#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "engine/refocus_engine.h"
#include "host/refocus/calibration.h"
#include "tests/refocus/stereo_scene.h"

namespace stereo_scene {

inline refocus::Calibration CalibrationFor(int width, int height) {
    return refocus::CalibrationOfRectifiedPair({width, height, width, height, 400.0, 60.0, 0.0});
}

// One instance, calibrated unless told otherwise, and the calls in the node's order.
class Engine {
public:
    explicit Engine(const TwoPlanes& scene = {}) {
        EXPECT_EQ(TSL_DCIR_Init(&handle, kEngineModeCapture), 0);
        bytes = refocus::WriteCalibration(CalibrationFor(scene.width, scene.height));
        EXPECT_EQ(TSL_DCIR_SetCaliData(handle, &calibration), 0);
    }
    ~Engine() {
        if (handle != nullptr) {
            TSL_DCIR_Uninit(&handle);
        }
    }

    std::int64_t Calc(GuardedImage& main, GuardedImage& aux) {
        PLIM_OFFSCREEN mainImage = main.Descriptor();
        PLIM_OFFSCREEN auxImage = aux.Descriptor();
        return TSL_DCIR_CalcDisparityData(handle, &mainImage, &auxImage, &focus);
    }
    std::vector<std::uint8_t> Disparity() {
        std::int32_t size = 0;
        EXPECT_EQ(TSL_DCIR_GetDisparityDataSize(handle, &size), 0);
        std::vector<std::uint8_t> data(static_cast<std::size_t>(size));
        EXPECT_EQ(TSL_DCIR_GetDisparityData(handle, data.data(), &size), 0);
        EXPECT_EQ(size, static_cast<std::int32_t>(data.size()));
        return data;
    }
    std::int64_t Process(GuardedImage& main, std::vector<std::uint8_t> disparity, int intensity,
                         GuardedImage& output) {
        PLIM_OFFSCREEN mainImage = main.Descriptor();
        PLIM_OFFSCREEN outputImage = output.Descriptor();
        TSL_DCR_BLURPARAM blur{intensity};
        return TSL_DCIR_Process(handle, &mainImage, disparity.data(),
                                static_cast<std::int32_t>(disparity.size()), &blur, &focus,
                                &outputImage);
    }

    void* handle = nullptr;
    std::array<std::uint8_t, refocus::kCalibrationBytes> bytes{};
    TSL_DCR_CALDATA calibration{bytes.data(), static_cast<std::int32_t>(bytes.size()), 0};
    TSL_DCR_FOCUSPARAM focus{};
};

} // namespace stereo_scene

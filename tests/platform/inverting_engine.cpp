// An engine that keeps the interface's contract with a few rows of arithmetic: the disparity is the
// main luma, the picture the inverted main image. Instances share nothing.

#include <algorithm>
#include <cstring>
#include <vector>

#include "engine/refocus_engine.h"

namespace {

struct Instance {
    std::vector<std::uint8_t> disparity;
};

Instance& From(void* handle) {
    return *static_cast<Instance*>(handle);
}

} // namespace

extern "C" {

const TSL_DCR_VERSION* TSL_DCIR_GetVersion() {
    return nullptr;
}

std::int64_t TSL_DCIR_Init(void** handle, std::int32_t) {
    *handle = new Instance;
    return 0;
}

std::int64_t TSL_DCIR_Uninit(void** handle) {
    delete static_cast<Instance*>(*handle);
    return 0;
}

std::int64_t TSL_DCIR_Reset(void* handle) {
    From(handle).disparity.clear();
    return 0;
}

std::int64_t TSL_DCIR_SetCameraImageInfo(void*, TSL_DCR_CAMERAIMAGEINFO*) {
    return 0;
}

std::int64_t TSL_DCIR_SetCaliData(void*, TSL_DCR_CALDATA*) {
    return 0;
}

std::int64_t TSL_DCIR_GetImageSizeInCalibration(void*, std::int32_t* mainWidth,
                                                std::int32_t* mainHeight, std::int32_t* auxWidth,
                                                std::int32_t* auxHeight) {
    *mainWidth = *auxWidth = 6400;
    *mainHeight = *auxHeight = 4800;
    return 0;
}

std::int64_t TSL_DCIR_CalcDisparityData(void* handle, PLIM_OFFSCREEN* mainImage, PLIM_OFFSCREEN*,
                                        TSL_DCR_FOCUSPARAM*) {
    const std::uint8_t* luma = mainImage->pu8Plane[0];
    From(handle).disparity.assign(luma, luma + mainImage->i32Pitch[0] * mainImage->i32Height);
    return 0;
}

std::int64_t TSL_DCIR_GetDisparityDataSize(void* handle, std::int32_t* size) {
    *size = static_cast<std::int32_t>(From(handle).disparity.size());
    return 0;
}

std::int64_t TSL_DCIR_GetDisparityData(void* handle, void* data, std::int32_t*) {
    std::memcpy(data, From(handle).disparity.data(), From(handle).disparity.size());
    return 0;
}

std::int64_t TSL_DCIR_Process(void*, PLIM_OFFSCREEN* mainImage, void*, std::int32_t,
                              TSL_DCR_BLURPARAM*, TSL_DCR_FOCUSPARAM*, PLIM_OFFSCREEN* output) {
    for (int plane = 0; plane < 2; ++plane) {
        for (std::int32_t row = 0; row < mainImage->i32Height / (plane + 1); ++row) {
            const std::uint8_t* from =
                mainImage->pu8Plane[plane] + row * mainImage->i32Pitch[plane];
            std::transform(from, from + mainImage->i32Width,
                           output->pu8Plane[plane] + row * output->i32Pitch[plane],
                           [](std::uint8_t value) { return static_cast<std::uint8_t>(~value); });
        }
    }
    return 0;
}

} // extern "C"

// Only the engine's functions are visible outside of this library.
#pragma GCC visibility push(default)
#include "engine/refocus_engine.h"
#pragma GCC visibility pop

#include <memory>
#include <new>
#include <optional>

#include "host/control/faults.h"
#include "host/refocus/error.h"
#include "host/refocus/instance.h"

namespace {

using refocus::Error;
using refocus::Instance;

// Shared by all instances.
const TSL_DCR_VERSION kVersion{{}, "refocus stand-in 1.0"};

host::CallPoint getVersionCalls("TSL_DCIR_GetVersion");
host::CallPoint initCalls("TSL_DCIR_Init");
host::CallPoint uninitCalls("TSL_DCIR_Uninit");
host::CallPoint resetCalls("TSL_DCIR_Reset");
host::CallPoint setCameraImageInfoCalls("TSL_DCIR_SetCameraImageInfo");
host::CallPoint setCaliDataCalls("TSL_DCIR_SetCaliData");
host::CallPoint getImageSizeCalls("TSL_DCIR_GetImageSizeInCalibration");
host::CallPoint calcDisparityCalls("TSL_DCIR_CalcDisparityData");
host::CallPoint getDisparitySizeCalls("TSL_DCIR_GetDisparityDataSize");
host::CallPoint getDisparityCalls("TSL_DCIR_GetDisparityData");
host::CallPoint processCalls("TSL_DCIR_Process");

// No exception leaves the library.
template <typename Operation>
std::int64_t ResultOf(const Operation& operation) noexcept {
    try {
        return refocus::Result(operation());
    } catch (const std::bad_alloc&) {
        return refocus::Result(Error::kOutOfMemory);
    } catch (const cv::Exception& error) {
        const bool memory = error.code == cv::Error::StsNoMem;
        return refocus::Result(memory ? Error::kOutOfMemory : Error::kInternal);
    } catch (...) {
        return refocus::Result(Error::kInternal);
    }
}

// Runs one exported function: an armed fault takes precedence.
template <typename Operation>
std::int64_t Run(host::CallPoint& point, const Operation& operation) noexcept {
    host::Call call(point);
    const std::int64_t result = call.failure() ? *call.failure() : ResultOf(operation);
    call.Tell([result] { return std::to_string(result); });
    return result;
}

// The same for an operation on the instance behind a handle.
template <typename Operation>
std::int64_t RunOn(void* handle, host::CallPoint& point, const Operation& operation) noexcept {
    return Run(point, [&] {
        return handle == nullptr ? Error::kNullArgument
                                 : operation(*static_cast<Instance*>(handle));
    });
}

} // namespace

extern "C" {

const TSL_DCR_VERSION* TSL_DCIR_GetVersion() {
    return host::Call(getVersionCalls).failure() ? nullptr : &kVersion;
}

std::int64_t TSL_DCIR_Init(void** handle, std::int32_t mode) {
    return Run(initCalls, [&] {
        if (handle == nullptr) {
            return Error::kNullArgument;
        }
        if (mode != kEngineModeCapture) {
            return Error::kUnknownMode;
        }
        *handle = std::make_unique<Instance>().release();
        return Error::kNone;
    });
}

std::int64_t TSL_DCIR_Uninit(void** handle) {
    // A caller does not repeat a failed Uninit, so the instance is freed even if the call is to
    // fail.
    const bool known = handle != nullptr && *handle != nullptr;
    if (known) {
        delete static_cast<Instance*>(*handle);
        *handle = nullptr;
    }
    return Run(uninitCalls, [known] { return known ? Error::kNone : Error::kNullArgument; });
}

std::int64_t TSL_DCIR_Reset(void* handle) {
    return RunOn(handle, resetCalls, [](Instance& instance) {
        instance.Reset();
        return Error::kNone;
    });
}

std::int64_t TSL_DCIR_SetCameraImageInfo(void* handle, TSL_DCR_CAMERAIMAGEINFO* info) {
    return RunOn(handle, setCameraImageInfoCalls,
                 [=](Instance& instance) { return instance.SetImageInfo(info); });
}

std::int64_t TSL_DCIR_SetCaliData(void* handle, TSL_DCR_CALDATA* data) {
    return RunOn(handle, setCaliDataCalls,
                 [=](Instance& instance) { return instance.SetCalibration(data); });
}

std::int64_t TSL_DCIR_GetImageSizeInCalibration(void* handle, std::int32_t* mainWidth,
                                                std::int32_t* mainHeight, std::int32_t* auxWidth,
                                                std::int32_t* auxHeight) {
    return RunOn(handle, getImageSizeCalls, [=](Instance& instance) {
        if (mainWidth == nullptr || mainHeight == nullptr || auxWidth == nullptr ||
            auxHeight == nullptr) {
            return Error::kNullArgument;
        }
        const Error error = instance.RequireCalibration();
        if (error == Error::kNone) {
            *mainWidth = instance.calibration().main.width;
            *mainHeight = instance.calibration().main.height;
            *auxWidth = instance.calibration().aux.width;
            *auxHeight = instance.calibration().aux.height;
        }
        return error;
    });
}

std::int64_t TSL_DCIR_CalcDisparityData(void* handle, PLIM_OFFSCREEN* mainImage,
                                        PLIM_OFFSCREEN* auxImage, TSL_DCR_FOCUSPARAM* focus) {
    return RunOn(handle, calcDisparityCalls, [=](Instance& instance) {
        return instance.CalcDisparity(mainImage, auxImage, focus);
    });
}

std::int64_t TSL_DCIR_GetDisparityDataSize(void* handle, std::int32_t* size) {
    return RunOn(handle, getDisparitySizeCalls,
                 [=](Instance& instance) { return instance.DisparitySize(size); });
}

std::int64_t TSL_DCIR_GetDisparityData(void* handle, void* data, std::int32_t* size) {
    return RunOn(handle, getDisparityCalls,
                 [=](Instance& instance) { return instance.Disparity(data, size); });
}

std::int64_t TSL_DCIR_Process(void* handle, PLIM_OFFSCREEN* mainImage, void* disparity,
                              std::int32_t disparitySize, TSL_DCR_BLURPARAM* blur,
                              TSL_DCR_FOCUSPARAM* focus, PLIM_OFFSCREEN* outputImage) {
    return RunOn(handle, processCalls, [=](Instance& instance) {
        return instance.Process(mainImage, disparity, disparitySize, blur, focus, outputImage);
    });
}

} // extern "C"

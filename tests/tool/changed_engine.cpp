// Stands before the built engine and changes what it renders: by as many rows of luma as the blur
// level says, or, at level 7, by an error. All else is the built engine's, which it is linked to.

#include <dlfcn.h>

#include "engine/refocus_engine.h"

extern "C" __attribute__((visibility("default"))) std::int64_t
TSL_DCIR_Process(void* handle, PLIM_OFFSCREEN* mainImage, void* disparity,
                 std::int32_t disparitySize, TSL_DCR_BLURPARAM* blur, TSL_DCR_FOCUSPARAM* focus,
                 PLIM_OFFSCREEN* outputImage) {
    constexpr std::int64_t kFailure = 5;
    if (blur->i32BlurIntensity == 7) {
        return kFailure;
    }
    const auto built =
        reinterpret_cast<decltype(&TSL_DCIR_Process)>(::dlsym(RTLD_NEXT, "TSL_DCIR_Process"));
    const std::int64_t result =
        built(handle, mainImage, disparity, disparitySize, blur, focus, outputImage);
    for (std::int32_t y = 0; y < blur->i32BlurIntensity; ++y) {
        std::uint8_t* const row = outputImage->pu8Plane[0] + y * outputImage->i32Pitch[0];
        for (std::int32_t x = 0; x < outputImage->i32Width; ++x) {
            row[x] ^= 8;
        }
    }
    return result;
}

#pragma once

#include <cstddef>
#include <cstdint>

#include "engine/refocus_engine.h"

// True when the image can be read or written: both planes are there and every row lies within the
// pitch, which all planes share. A descriptor that this request did not fill is all zero and not
// usable.
inline bool IsUsable(const PLIM_OFFSCREEN& image) {
    return image.pu8Plane[0] != nullptr && image.pu8Plane[1] != nullptr && image.i32Width > 0 &&
           image.i32Height > 0 && image.i32Pitch[0] >= image.i32Width;
}

inline std::uint8_t* RowOf(const PLIM_OFFSCREEN& image, int plane, std::int64_t row) {
    return image.pu8Plane[plane] + row * static_cast<std::ptrdiff_t>(image.i32Pitch[plane]);
}

#include "bokehbase/image.h"

#include <algorithm>
#include <cstring>

#include "bokehbase/bokeh_base.h"
#include "bokehbase/log.h"

void ChiNodeBokehBase::PrepareImage(ChiImageList* pNodeBuff, PLIM_OFFSCREEN& stImage) {
    BASE_DEBUG(kTextColonIn);
    BASE_DEBUG("TSL_CTB: %s: %d:  pNodeBuff = %p\n", static_cast<void*>(pNodeBuff));
    if (pNodeBuff == nullptr) {
        return;
    }
    const ChiImageFormat& format = pNodeBuff->format;
    if (format.format != kChiFormatNV12 && format.format != kChiFormatNV12Alt) {
        BASE_ERROR("TSL_CTB: %s: %d:  format is not supported!\n");
        return;
    }
    stImage.i32Width = static_cast<std::int32_t>(format.width);
    stImage.i32Height = static_cast<std::int32_t>(format.height);
    BASE_DEBUG("TSL_CTB: %s: %d:  stImage(%dx%d)\n", stImage.i32Width, stImage.i32Height);
    stImage.u32Format = PLIM_PAF_NV12;
    BASE_DEBUG("TSL_CTB: %s: %d:  stImage(PLIM_PAF_NV12)\n");
    BASE_DEBUG("TSL_CTB: %s: %d:  numberOfPlanes = %d\n", format.numberOfPlanes);

    // The descriptor has room for four planes; a list that claims more gives its first four.
    const std::uint32_t planes = std::min(format.numberOfPlanes, kChiMaxPlanes);
    for (std::uint32_t i = 0; i < planes; ++i) {
        stImage.i32Pitch[i] = static_cast<std::int32_t>(format.plane[0].stride);
        stImage.pu8Plane[i] = pNodeBuff->planeAddress[i];
    }
    BASE_DEBUG(kTextColonOut);
}

namespace {

std::int32_t CeilDivide(std::int32_t value, std::int32_t divisor) {
    return value / divisor + (value % divisor > 0 ? 1 : 0);
}

// Copies every `scale`-th item (of `itemBytes`) of every `scale`-th row, `columns` by `rows` of
// them.
void ReducePlane(const PLIM_OFFSCREEN& destination, const PLIM_OFFSCREEN& source, int plane,
                 int scale, std::size_t itemBytes, std::int32_t columns, std::int32_t rows) {
    if (columns <= 0) {
        return;
    }
    const std::size_t step = itemBytes * static_cast<std::size_t>(scale);
    for (std::int32_t k = 0; k < rows; ++k) {
        std::uint8_t* to = RowOf(destination, plane, k);
        const std::uint8_t* from = RowOf(source, plane, static_cast<std::int64_t>(k) * scale);
        for (std::size_t column = 0; column < static_cast<std::size_t>(columns); ++column) {
            std::memcpy(to + column * itemBytes, from + column * step, itemBytes);
        }
    }
}

} // namespace

void ChiNodeBokehBase::MergeImage(PLIM_OFFSCREEN* destination, PLIM_OFFSCREEN* source, int scale) {
    if (destination == nullptr || source == nullptr || scale < 1) {
        return;
    }
    // Clipped: a source more than `scale` times as large as its destination must not run over it.
    ReducePlane(*destination, *source, 0, scale, 1,
                std::min(CeilDivide(source->i32Width, scale), destination->i32Width),
                std::min(CeilDivide(source->i32Height, scale), destination->i32Height));
    ReducePlane(*destination, *source, 1, scale, 2,
                std::min(CeilDivide(source->i32Width / 2, scale), destination->i32Width / 2),
                std::min(CeilDivide(source->i32Height / 2, scale), destination->i32Height / 2));
}

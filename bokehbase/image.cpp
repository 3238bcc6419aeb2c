#include "bokehbase/image.h"

#include <algorithm>
#include <cstring>
#include <type_traits>

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

    // The descriptor has room for four planes; a list that claims more gives its first four. Chroma
    // rows of NV12 take as many bytes as luma rows, so the first plane's stride is that of all.
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

// Copies every `scale`-th item of every `scale`-th row. Item size and, where the type says it, the
// scale are constants to the compiler, which then takes many items at a time: about five times as
// fast as a loop that learns the scale when it runs.
template <int kPlane, typename Scale>
void ReducePlane(const PLIM_OFFSCREEN& destination, const PLIM_OFFSCREEN& source, Scale scale) {
    // Chroma has half the columns and half the rows, and two bytes an item.
    constexpr std::int32_t kPart = kPlane + 1;
    constexpr std::size_t kItemBytes = kPlane + 1;
    // Clipped: a source more than `scale` times as large as its destination must not run over it.
    const std::int32_t columns =
        std::min(CeilDivide(source.i32Width / kPart, scale), destination.i32Width / kPart);
    const std::int32_t rows =
        std::min(CeilDivide(source.i32Height / kPart, scale), destination.i32Height / kPart);
    for (std::int32_t k = 0; k < rows; ++k) {
        std::uint8_t* to = RowOf(destination, kPlane, k);
        const std::uint8_t* from = RowOf(source, kPlane, std::int64_t{k} * scale);
        for (std::int32_t column = 0; column < columns; ++column) {
            const auto item = static_cast<std::size_t>(column) * kItemBytes;
            std::memcpy(to + item, from + item * static_cast<std::size_t>(scale), kItemBytes);
        }
    }
}

template <typename Scale>
void Reduce(const PLIM_OFFSCREEN& destination, const PLIM_OFFSCREEN& source, Scale scale) {
    ReducePlane<0>(destination, source, scale);
    ReducePlane<1>(destination, source, scale);
}

} // namespace

void ChiNodeBokehBase::MergeImage(PLIM_OFFSCREEN* destination, PLIM_OFFSCREEN* source, int scale) {
    if (destination == nullptr || source == nullptr || scale < 1) {
        return;
    }
    if (scale == 2) { // the only scale of the debug views
        Reduce(*destination, *source, std::integral_constant<int, 2>());
    } else {
        Reduce(*destination, *source, scale);
    }
}

#pragma once

#include <cstdint>

#include "platform/chi_image.h"
#include "tests/fuzz/byte_reader.h"
#include "tests/fuzz/guarded_memory.h"

namespace fuzz {

// An image list with memory of its own: exactly as much as the list promises, each plane up to a
// guard page. Planes that the list does not make usable are addresses that must not be touched.
class Image {
public:
    // From now on it is an input, which nobody can write to.
    void FillWithNoise(std::uint32_t seed);

    // `wholeRows`: the last row has its padding too, as dumps need it.
    void Choose(ByteReader& in, std::uint32_t port, bool wholeRows);

    ChiImageList* list() const { return list_; }
    bool IsY8() const { return list_->format.format == kChiFormatY8; }
    bool usable() const { return usable_; }
    std::int32_t width() const { return width_; }
    std::int32_t Rows(int plane) const { return plane == 0 ? height_ : height_ / 2; }
    const std::uint8_t* Row(int plane, std::int32_t row) const {
        return planes_[plane].Last(bytes_[plane]) + row * pitch_;
    }

    // Of memory that was blank after Choose: nothing was written at all, or not outside the rows.
    bool IsBlank() const;
    bool PaddingIsBlank() const;
    bool IsFilledWith(std::uint8_t value) const;
    // The first plane starts with so many bytes of `value` and is blank behind them.
    bool Holds(std::size_t bytes, std::uint8_t value) const;

private:
    static constexpr std::size_t kMargin = 64; // watched in front of each plane
    static constexpr std::size_t kPlane = (1 << 14) - kMargin;

    GuardedMemory listMemory_{sizeof(ChiImageList)};
    GuardedMemory planes_[2] = {GuardedMemory(kMargin + kPlane), GuardedMemory(kMargin + kPlane)};
    ChiImageList* list_ = nullptr;
    bool frozen_ = false;
    bool usable_ = false;
    std::int32_t width_ = 0;
    std::int32_t height_ = 0;
    std::int32_t pitch_ = 0;
    std::size_t bytes_[2] = {};
};

// Whether both hold the same in their common area.
bool SamePixels(const Image& one, const Image& other);

// Whether `output` is `main` with every second pixel of `aux` in its top-left corner.
bool IsMerged(const Image& output, const Image& main, const Image& aux);

} // namespace fuzz

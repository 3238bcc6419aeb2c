#include "tests/fuzz/images.h"

#include <algorithm>

#include "tests/fuzz/hostile_platform.h"

namespace fuzz {
namespace {

bool AllAre(std::uint8_t value, const std::uint8_t* bytes, std::size_t count) {
    return count == 0 || (*bytes == value && std::memcmp(bytes, bytes + 1, count - 1) == 0);
}

bool AllBlank(const std::uint8_t* bytes, std::size_t count) {
    return AllAre(kBlank, bytes, count);
}

} // namespace

void Image::FillWithNoise(std::uint32_t seed) {
    frozen_ = true;
    planes_[0].FreezeNoise(seed);
    planes_[1].FreezeNoise(seed + 1);
}

void Image::Choose(ByteReader& in, std::uint32_t port, bool wholeRows) {
    ChiImageList list = {.size = sizeof(list)};
    ChiImageFormat& format = list.format;
    format.width = in.Word(64);
    format.height = in.Word(48);
    format.plane[0].stride = in.Word(format.width);
    format.plane[1].stride = 0xFFFFFFFF; // every plane has the first one's
    format.format = in.Word(kChiFormatNV12);
    format.numberOfPlanes = in.Word(2);
    format.planeSize[0] = in.Word(1000);
    list.portIndex = in.Word(port);
    const std::uint8_t missing = in.Byte();

    width_ = static_cast<std::int32_t>(format.width);
    height_ = static_cast<std::int32_t>(format.height);
    pitch_ = static_cast<std::int32_t>(format.plane[0].stride);
    usable_ = (format.format == kChiFormatNV12 || format.format == kChiFormatNV12Alt) &&
              format.numberOfPlanes >= 2 && (missing & 3) == 0 && width_ > 0 && height_ > 0 &&
              pitch_ >= width_;
    if (usable_ && static_cast<std::int64_t>(height_) * pitch_ > std::int64_t{kPlane}) {
        // What is promised must be there, so it cannot be that much.
        format.width = static_cast<std::uint32_t>(width_ = 1 + width_ % 64);
        format.height = static_cast<std::uint32_t>(height_ = 1 + height_ % 64);
        format.plane[0].stride = static_cast<std::uint32_t>(pitch_ = width_ + pitch_ % 64);
    }
    for (int plane = 0; plane < 2; ++plane) {
        const std::int32_t rows = usable_ ? Rows(plane) : 0;
        const std::int32_t lastRow = wholeRows ? pitch_ : width_;
        bytes_[plane] = rows > 0 ? static_cast<std::size_t>((rows - 1) * pitch_ + lastRow) : 0;
    }
    if (format.format == kChiFormatY8 && (missing & 1) == 0) {
        bytes_[0] = format.planeSize[0] %= kPlane;
    }
    for (int plane = 0; plane < 4; ++plane) {
        const GuardedMemory& memory = planes_[plane % 2];
        const std::size_t bytes = plane < 2 ? bytes_[plane] : 0;
        list.planeAddress[plane] = (missing >> plane & 1) != 0 ? nullptr : memory.Last(bytes);
        if (plane < 2 && !frozen_) {
            std::memset(memory.Last(bytes + kMargin), kBlank, bytes + kMargin);
        }
    }
    list_ = listMemory_.Place(list, sizeof(list));
}

bool Image::IsBlank() const {
    return AllBlank(planes_[0].Last(bytes_[0] + kMargin), bytes_[0] + kMargin) &&
           AllBlank(planes_[1].Last(bytes_[1] + kMargin), bytes_[1] + kMargin);
}

bool Image::PaddingIsBlank() const {
    bool blank = true;
    for (int plane = 0; plane < 2; ++plane) {
        blank = blank && AllBlank(planes_[plane].Last(bytes_[plane] + kMargin), kMargin);
        for (std::int32_t row = 0; row < Rows(plane); ++row) {
            const std::uint8_t* padding = Row(plane, row) + width_;
            const std::ptrdiff_t bytes =
                std::min<std::ptrdiff_t>(pitch_ - width_, planes_[plane].Forbidden() - padding);
            blank = blank && AllBlank(padding, static_cast<std::size_t>(bytes));
        }
    }
    return blank;
}

bool Image::IsFilledWith(std::uint8_t value) const {
    bool filled = true;
    for (int plane = 0; plane < 2; ++plane) {
        for (std::int32_t row = 0; row < Rows(plane); ++row) {
            filled = filled && AllAre(value, Row(plane, row), static_cast<std::size_t>(width_));
        }
    }
    return filled;
}

bool Image::Holds(std::size_t bytes, std::uint8_t value) const {
    const std::uint8_t* start = planes_[0].Last(bytes_[0]);
    return bytes <= bytes_[0] && AllAre(value, start, bytes) &&
           AllBlank(start + bytes, bytes_[0] - bytes) && AllBlank(start - kMargin, kMargin);
}

bool SamePixels(const Image& one, const Image& other) {
    const auto width = static_cast<std::size_t>(std::min(one.width(), other.width()));
    for (int plane = 0; plane < 2; ++plane) {
        for (std::int32_t row = 0; row < std::min(one.Rows(plane), other.Rows(plane)); ++row) {
            if (std::memcmp(one.Row(plane, row), other.Row(plane, row), width) != 0) {
                return false;
            }
        }
    }
    return true;
}

bool IsMerged(const Image& output, const Image& main, const Image& aux) {
    for (int plane = 0; plane < 2; ++plane) {
        const std::int32_t item = plane + 1; // bytes: chroma goes in pairs
        const std::int32_t columns = std::min((aux.width() / item + 1) / 2, output.width() / item);
        const std::int32_t width = std::min(output.width(), main.width());
        for (std::int32_t row = 0; row < std::min(output.Rows(plane), main.Rows(plane)); ++row) {
            const bool inset = row < (aux.Rows(plane) + 1) / 2;
            for (std::int32_t x = 0; x < width; ++x) {
                const std::uint8_t wanted =
                    inset && x < columns * item
                        ? aux.Row(plane, 2 * row)[x / item * 2 * item + x % item]
                        : main.Row(plane, row)[x];
                if (output.Row(plane, row)[x] != wanted) {
                    return false;
                }
            }
        }
    }
    return true;
}

} // namespace fuzz

#include "bench/node/pictures.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace bench {
namespace {

constexpr std::size_t kPage = 4096;

} // namespace

std::size_t Shape::Bytes() const {
    return static_cast<std::size_t>(pitch) * static_cast<std::size_t>(height + height / 2);
}

std::string Shape::Name() const {
    return std::to_string(width) + "x" + std::to_string(height) + "/pitch" + std::to_string(pitch);
}

Pictures::Pictures(const Shape& shape, std::size_t count) : shape_(shape) {
    // The buffer starts on a page, so that runs do not differ by what the allocator returns.
    const std::size_t bytes = (shape.Bytes() * count + kPage - 1) / kPage * kPage;
    bytes_.reset(static_cast<std::uint8_t*>(std::aligned_alloc(kPage, bytes)));
    if (bytes_ == nullptr) {
        throw std::bad_alloc();
    }
    // Xorshift (Marsaglia, 2003): fast, and the same in every run.
    std::uint64_t noise = 0x9E3779B97F4A7C15;
    for (std::size_t i = 0; i < bytes; i += sizeof(noise)) {
        noise ^= noise << 13;
        noise ^= noise >> 7;
        noise ^= noise << 17;
        std::memcpy(bytes_.get() + i, &noise, sizeof(noise));
    }
}

void Pictures::Release::operator()(std::uint8_t* bytes) const {
    std::free(bytes);
}

PLIM_OFFSCREEN Pictures::Image(std::size_t index) const {
    std::uint8_t* luma = bytes_.get() + index * shape_.Bytes();
    PLIM_OFFSCREEN image = {
        .u32Format = PLIM_PAF_NV12, .i32Width = shape_.width, .i32Height = shape_.height};
    image.pu8Plane[0] = luma;
    image.pu8Plane[1] =
        luma + static_cast<std::size_t>(shape_.pitch) * static_cast<std::size_t>(shape_.height);
    image.i32Pitch[0] = image.i32Pitch[1] = shape_.pitch;
    return image;
}

ChiImageList Pictures::List(std::size_t index, std::uint32_t portIndex) const {
    const PLIM_OFFSCREEN image = Image(index);
    ChiImageList list = {};
    list.size = sizeof(list);
    list.format.width = static_cast<std::uint32_t>(shape_.width);
    list.format.height = static_cast<std::uint32_t>(shape_.height);
    list.format.format = kChiFormatNV12;
    list.format.numberOfPlanes = 2;
    for (std::uint32_t plane = 0; plane < 2; ++plane) {
        ChiPlaneFormat& format = list.format.plane[plane];
        format.width = list.format.width;
        format.height = list.format.height / (plane + 1);
        format.stride = static_cast<std::uint32_t>(shape_.pitch);
        list.format.planeSize[plane] = std::uint64_t{format.stride} * format.height;
        list.planeAddress[plane] = image.pu8Plane[plane];
    }
    list.portIndex = portIndex;
    return list;
}

std::string Pictures::OutcomeOf(std::size_t index, const std::function<void()>& run) const {
    std::uint8_t* bytes = Image(index).pu8Plane[0];
    std::memset(bytes, 0, shape_.Bytes());
    run();
    return {reinterpret_cast<const char*>(bytes), shape_.Bytes()};
}

Pairs::Pairs(const Shape& shape, std::size_t count) : pictures_(shape, 2 * count) {
    for (std::size_t i = 0; i < count; ++i) {
        pairs_.push_back({pictures_.Image(2 * i), pictures_.Image(2 * i + 1)});
    }
}

const Pair& Pairs::Next() {
    next_ = (next_ + 1) % pairs_.size();
    return pairs_[next_];
}

} // namespace bench

#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "host/picture/geometry.h"

namespace host {

// An image in the pipeline's memory: NV12 (height rows of luma, then height / 2 rows of U,V pairs)
// or Y8 (luma alone). Both planes have the same pitch, in bytes.
class Image {
public:
    enum class Format { Nv12, Y8 };

    Image() = default;

    // Zero-filled. Throws std::invalid_argument unless width and height are positive and pitch is
    // at least what a row holds (for NV12 an odd width's chroma row holds one byte more).
    Image(Format format, int width, int height, int pitch);

    Format format() const { return format_; }
    int width() const { return width_; }
    int height() const { return height_; }
    Size size() const { return {width_, height_}; }
    int pitch() const { return pitch_; }

    // 0 for luma, 1 for chroma.
    std::uint8_t* plane(int index) { return row(index, 0); }
    const std::uint8_t* plane(int index) const { return row(index, 0); }
    std::uint8_t* row(int plane, int y) { return bytes_.data() + RowOffset(plane, y); }
    const std::uint8_t* row(int plane, int y) const { return bytes_.data() + RowOffset(plane, y); }
    int planeRows(int index) const { return index == 0 ? height_ : height_ / 2; }
    int rowBytes(int index) const; // bytes of image data in each row
    int planeCount() const { return format_ == Format::Nv12 ? 2 : 1; }
    std::size_t planeSize(int index) const {
        return static_cast<std::size_t>(pitch_) * static_cast<std::size_t>(planeRows(index));
    }

    // All planes, padding included.
    std::vector<std::uint8_t>& bytes() { return bytes_; }
    const std::vector<std::uint8_t>& bytes() const { return bytes_; }

private:
    std::size_t RowOffset(int plane, int y) const {
        return (plane == 0 ? 0 : planeSize(0)) +
               static_cast<std::size_t>(y) * static_cast<std::size_t>(pitch_);
    }

    Format format_ = Format::Nv12;
    int width_ = 0;
    int height_ = 0;
    int pitch_ = 0;
    std::vector<std::uint8_t> bytes_;
};

// True when every pixel is the same; padding is not compared.
bool SamePixels(const Image& a, const Image& b);

} // namespace host

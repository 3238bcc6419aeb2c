#include "host/picture/image.h"

#include <cstring>
#include <stdexcept>
#include <string>

namespace host {
namespace {

// Bytes of image data in a row; a chroma row of an odd width ends with a whole pair.
int RowBytes(Image::Format format, int width, int plane) {
    return format == Image::Format::Nv12 && plane == 1 ? (width + 1) / 2 * 2 : width;
}

} // namespace

Image::Image(Format format, int width, int height, int pitch)
    : format_(format), width_(width), height_(height), pitch_(pitch) {
    if (width <= 0 || height <= 0 || pitch < RowBytes(format, width, planeCount() - 1)) {
        throw std::invalid_argument("no image of " + std::to_string(width) + "x" +
                                    std::to_string(height) + " with a pitch of " +
                                    std::to_string(pitch));
    }
    bytes_.resize(planeSize(0) + (format == Format::Nv12 ? planeSize(1) : 0));
}

int Image::rowBytes(int index) const {
    return RowBytes(format_, width_, index);
}

bool SamePixels(const Image& a, const Image& b) {
    if (a.format() != b.format() || a.size() != b.size()) {
        return false;
    }
    for (int plane = 0; plane < a.planeCount(); ++plane) {
        for (int row = 0; row < a.planeRows(plane); ++row) {
            // The last byte of a chroma row of odd width belongs to no pixel.
            if (std::memcmp(a.row(plane, row), b.row(plane, row),
                            static_cast<std::size_t>(a.width())) != 0) {
                return false;
            }
        }
    }
    return true;
}

} // namespace host

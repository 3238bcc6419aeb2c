#include "host/picture/nv12.h"

#include <cstdint>
#include <vector>

#include <libyuv/convert.h>
#include <libyuv/convert_argb.h>
#include <libyuv/planar_functions.h>
#include <libyuv/scale.h>

host::Image RgbToNv12(const RgbImage& picture, int pitch) {
    const int width = picture.width / 2 * 2;
    const int height = picture.height / 2 * 2;
    host::Image image(host::Image::Format::Nv12, width, height, pitch > 0 ? pitch : width);
    const int pairs = width / 2;
    const auto chromaSize = static_cast<std::size_t>(pairs) * static_cast<std::size_t>(height / 2);
    std::vector<std::uint8_t> u(chromaSize);
    std::vector<std::uint8_t> v(chromaSize);
    libyuv::RAWToJ420(picture.bytes.data(), picture.pitch(), image.plane(0), image.pitch(),
                      u.data(), pairs, v.data(), pairs, width, height);
    libyuv::MergeUVPlane(u.data(), pairs, v.data(), pairs, image.plane(1), image.pitch(), pairs,
                         height / 2);
    return image;
}

RgbImage Nv12ToRgb(const host::Image& image) {
    RgbImage picture(image.width(), image.height());
    // libyuv names colours from the highest byte down: its RAW is red, green, blue in memory.
    libyuv::NV12ToRAWMatrix(image.plane(0), image.pitch(), image.plane(1), image.pitch(),
                            picture.bytes.data(), picture.pitch(), &libyuv::kYuvJPEGConstants,
                            picture.width, picture.height);
    return picture;
}

host::Image ScaleNv12(const host::Image& image, int width, int height, int pitch) {
    host::Image scaled(host::Image::Format::Nv12, width, height, pitch > 0 ? pitch : width);
    libyuv::NV12Scale(image.plane(0), image.pitch(), image.plane(1), image.pitch(), image.width(),
                      image.height(), scaled.plane(0), scaled.pitch(), scaled.plane(1),
                      scaled.pitch(), width, height, libyuv::kFilterBox);
    return scaled;
}

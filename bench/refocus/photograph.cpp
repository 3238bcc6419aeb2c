#include "bench/refocus/photograph.h"

#include <cmath>
#include <fstream>
#include <limits>
#include <utility>

#include "host/picture/false_colour.h"
#include "host/picture/image_file.h"
#include "host/picture/nv12.h"

namespace quality {

PLIM_OFFSCREEN DescriptorOf(host::Image& image) {
    PLIM_OFFSCREEN descriptor{};
    descriptor.u32Format = PLIM_PAF_NV12;
    descriptor.i32Width = image.width();
    descriptor.i32Height = image.height();
    for (int plane = 0; plane < 2; ++plane) {
        descriptor.pu8Plane[plane] = image.plane(plane);
        descriptor.i32Pitch[plane] = image.pitch();
    }
    return descriptor;
}

cv::Mat LumaOf(const host::Image& image) {
    return {image.height(), image.width(), CV_8UC1, const_cast<std::uint8_t*>(image.plane(0)),
            static_cast<std::size_t>(image.pitch())};
}

PictureFolder::PictureFolder(std::filesystem::path folder) : folder_(std::move(folder)) {
    if (!folder_.empty()) {
        std::filesystem::create_directories(folder_);
    }
}

void PictureFolder::Write(const std::string& name, const host::Image& image) const {
    if (!folder_.empty()) {
        Write(name, Nv12ToRgb(image));
    }
}

void PictureFolder::Write(const std::string& name, const RgbImage& picture) const {
    if (folder_.empty()) {
        return;
    }
    const Bytes bytes = EncodePng(picture);
    std::ofstream file(folder_ / (name + ".png"), std::ios::binary);
    file.exceptions(std::ios::badbit | std::ios::failbit);
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
}

void PictureFolder::Write(const std::string& name, const cv::Mat& numbers,
                          const std::string& unit) const {
    if (folder_.empty()) {
        return;
    }
    NumberMap map{numbers.cols, numbers.rows, {}, unit};
    map.values.assign(numbers.begin<float>(), numbers.end<float>());
    for (float& value : map.values) {
        if (!std::isfinite(value)) {
            value = std::numeric_limits<float>::quiet_NaN();
        }
    }
    Write(name, FalseColour(map));
}

} // namespace quality

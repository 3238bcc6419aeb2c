#include "host/picture/disparity_picture.h"

#include "host/picture/false_colour.h"

host::Image DepthImage(const host::Image& main) {
    return {host::Image::Format::Y8, main.width(), main.height(), main.pitch()};
}

std::optional<RgbImage> DisparityPicture(const host::Image& depth, std::int32_t size) {
    if (size <= 0 || static_cast<std::size_t>(size) != depth.planeSize(0)) {
        return std::nullopt;
    }
    NumberMap map;
    map.width = depth.width();
    map.height = depth.height();
    map.unit = "disparity";
    map.values.reserve(static_cast<std::size_t>(map.width) * static_cast<std::size_t>(map.height));
    for (int y = 0; y < map.height; ++y) {
        const std::uint8_t* row = depth.plane(0) + static_cast<std::ptrdiff_t>(y) * depth.pitch();
        map.values.insert(map.values.end(), row, row + map.width);
    }
    return FalseColour(map);
}

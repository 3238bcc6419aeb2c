#pragma once

#include <opencv2/core.hpp>

#include <cstddef>
#include <cstdint>

#include "host/picture/image.h"
#include "host/picture/rgb_image.h"

// OpenCV's view of pictures. The matrix shares the picture's memory and is not to be written:
// OpenCV has no type for a matrix of constant elements.

// CV_8UC1 for luma, CV_8UC2 for NV12's chroma; padding is not part of it.
inline cv::Mat MatrixOf(const host::Image& image, int plane) {
    const int channels = plane + 1;
    return {image.planeRows(plane), image.rowBytes(plane) / channels, CV_8UC(channels),
            const_cast<std::uint8_t*>(image.plane(plane)), static_cast<std::size_t>(image.pitch())};
}

// CV_8UC3 in the order red, green, blue.
inline cv::Mat MatrixOf(const RgbImage& picture) {
    return {picture.height, picture.width, CV_8UC3,
            const_cast<std::uint8_t*>(picture.bytes.data())};
}

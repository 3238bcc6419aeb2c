#pragma once

#include <cstdint>

#include "platform/layout.h"

// The platform's image buffers. A ChiImageList and the planes behind it belong to the pipeline and
// are valid only while the request that names them is being processed.

// Format codes of ChiImageFormat::format that the node tells apart.
constexpr std::uint32_t kChiFormatY8 = 1;      // one plane, 8 bits a pixel
constexpr std::uint32_t kChiFormatNV12 = 3;    // luma plane, then interleaved chroma, U first
constexpr std::uint32_t kChiFormatNV12Alt = 4; // taken as NV12 as well

constexpr std::uint32_t kChiMaxPlanes = 4;

struct ChiPlaneFormat {
    std::uint32_t width;  // bytes of image data in a row
    std::uint32_t height; // rows
    std::uint32_t stride; // bytes from one row to the next
    std::uint32_t reserved[10];
};
PIN_BINARY_RECORD(ChiPlaneFormat);
PIN_SIZE(ChiPlaneFormat, 52);

struct ChiImageFormat {
    std::uint32_t width;  // pixels
    std::uint32_t height; // rows
    std::uint32_t format; // kChiFormat…
    std::uint32_t reserved;
    ChiPlaneFormat plane[kChiMaxPlanes];
    std::uint32_t numberOfPlanes;
    std::uint32_t padding;
    std::uint64_t planeSize[kChiMaxPlanes]; // bytes
};
PIN_BINARY_RECORD(ChiImageFormat);
PIN_OFFSET(ChiImageFormat, width, 0);
PIN_OFFSET(ChiImageFormat, height, 4);

// Fixed by the platform: format code at 16, first plane's size at 240, first plane's address at
// 336, port index at 824. The rest is the arrangement that those four leave: four plane formats of
// 13 words fill the room from the format code to the plane count, which stands before the plane
// sizes as in every record of this platform that counts an array.
struct ChiImageList {
    std::uint32_t size;
    std::uint32_t reserved;
    ChiImageFormat format;
    std::uint8_t reservedImageHead[64];
    std::uint8_t* planeAddress[kChiMaxPlanes]; // of the list's first image
    std::uint8_t reservedImages[456];
    std::uint32_t portIndex; // index of the node's port that the buffer belongs to
    std::uint32_t reservedTail;
};
PIN_BINARY_RECORD(ChiImageList);
PIN_OFFSET(ChiImageList, format.width, 8);
PIN_OFFSET(ChiImageList, format.height, 12);
PIN_OFFSET(ChiImageList, format.format, 16);
PIN_OFFSET(ChiImageList, format.plane, 24);
PIN_OFFSET(ChiImageList, format.numberOfPlanes, 232);
PIN_OFFSET(ChiImageList, format.planeSize, 240);
PIN_OFFSET(ChiImageList, planeAddress, 336);
PIN_OFFSET(ChiImageList, portIndex, 824);
PIN_SIZE(ChiImageList, 832);

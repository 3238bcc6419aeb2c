#pragma once

#include <cstdint>

// The platform's image buffers. A ChiImageList and the planes behind it belong to the pipeline and
// are valid only while the request that names them is being processed.

// Format codes of ChiImageFormat::format that the node tells apart.
constexpr std::uint32_t kChiFormatY8 = 1;      // one plane, 8 bits a pixel
constexpr std::uint32_t kChiFormatNV12 = 3;    // luma plane, then interleaved chroma, U first
constexpr std::uint32_t kChiFormatNV12Alt = 4; // taken as NV12 as well

constexpr std::uint32_t kChiMaxPlanes = 4;

// What is known of ChiImageList is where the platform puts four things: the format code at byte 16,
// the first plane's size at 240, the first plane's address at 336 and the port index at 824. All
// else is our arrangement, one of several that leave those four in place: image width and height
// before the format code, the stride and size of a plane's rows, the plane count, and the addresses
// of further planes after the first. Where a device's own headers say otherwise, they replace this
// file (PLATFORM_HEADERS, docs/device.md).

struct ChiPlaneFormat {
    std::uint32_t width;  // bytes of image data in a row
    std::uint32_t height; // rows
    std::uint32_t stride; // bytes from one row to the next
    std::uint32_t reserved[10];
};

// The format that a node's output was given comes as this record alone, width and height first.
struct ChiImageFormat {
    std::uint32_t width;  // pixels
    std::uint32_t height; // rows
    std::uint32_t format; // kChiFormat...
    std::uint32_t reserved;
    // Thirteen words a plane fill the room from the format code to the plane count.
    ChiPlaneFormat plane[kChiMaxPlanes];
    // Before the sizes, as in every record of this platform that counts an array.
    std::uint32_t numberOfPlanes;
    std::uint32_t padding;
    std::uint64_t planeSize[kChiMaxPlanes]; // bytes
};

struct ChiImageList {
    std::uint32_t size;
    std::uint32_t reserved;
    ChiImageFormat format;
    std::uint8_t reservedImageHead[64];
    std::uint8_t* planeAddress[kChiMaxPlanes]; // of the list's first image; null: no such plane
    std::uint8_t reservedImages[456];
    std::uint32_t portIndex; // index of the node's port that the buffer belongs to
    std::uint32_t reservedTail;
};

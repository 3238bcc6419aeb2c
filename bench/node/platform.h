#pragma once

#include <cstdint>
#include <string>

#include "platform/chi_node.h"

namespace bench {

// Where the functions of `Platform`'s metadata table stand.
enum Tag : std::uint32_t {
    kInputMetadataBokeh,
    kPhysicalCameraConfigs,
    kPhysicalCameraInputConfig,
    kOEMFDResults,
    kSelectFaceIndex,
    kOtherTags, // without data
};

// What the platform's functions answer; they look nothing up and allocate nothing.
struct Platform {
    void* metadata[kOtherTags + 1] = {};
    bool engineStarts = true;
    std::int32_t calibrationSize[2] = {}; // of both cameras, in hundredths of a pixel
    std::int32_t disparityBytes = 0;
    std::uint64_t rendered = 0; // pictures, by the engine
    std::uint64_t logged = 0;   // lines
    char folder[128] = {};      // stands for the device's root folder
};

Platform& platform();
ChiNodeInterface& Interface();

// A path of the device, as it is on this machine.
std::string DevicePath(const std::string& path);

// Makes the device's folders and the calibration file; removes them at its end.
class DeviceFolder {
public:
    DeviceFolder();
    ~DeviceFolder();
    DeviceFolder(const DeviceFolder&) = delete;
    DeviceFolder& operator=(const DeviceFolder&) = delete;
};

} // namespace bench

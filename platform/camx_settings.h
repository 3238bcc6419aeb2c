#pragma once

#include <cstdint>

namespace CamX {

// The platform's static settings, up to the only word the node reads. They do not change while a
// camera is open.
struct StaticSettings {
    std::uint8_t reserved[25756];
    std::uint32_t imageDegree; // rotation of the images that reach the node, in degrees
};

// The call is resolved through the virtual table: the settings record is its third slot, after the
// two of the destructor, so no virtual function may stand before it.
class SettingsManager {
public:
    // The process-wide manager, owned by the platform and never destroyed by the node. May be null.
    // Thread-safe.
    static SettingsManager* GetInstance();

    virtual ~SettingsManager();

    // Owned by the manager, valid as long as the process. May be null.
    virtual const StaticSettings* GetStaticSettings() = 0;
};

} // namespace CamX

#pragma once

#include <cstdint>

#include "platform/layout.h"

namespace CamX {

// The platform's static settings, up to the only word the node reads.
struct StaticSettings {
    std::uint8_t reserved[25756];
    std::uint32_t imageDegree; // rotation of the images that reach the node, in degrees
};
PIN_BINARY_RECORD(StaticSettings);
PIN_OFFSET(StaticSettings, imageDegree, 25756);

// The settings record is the third slot of the virtual table, the destructor's two slots counted.
class SettingsManager {
public:
    // The process-wide manager, owned by the platform.
    static SettingsManager* GetInstance();

    virtual ~SettingsManager();

    // May be null.
    virtual const StaticSettings* GetStaticSettings() = 0;
};

} // namespace CamX

#pragma once

#include <cstdint>

namespace host {

// Holds the platform's rotation setting while a node is created. The setting is one for the whole
// process: creations that want the same value run side by side, others wait for one another.
class RotationSetting {
public:
    explicit RotationSetting(std::uint32_t degrees);
    ~RotationSetting();
    RotationSetting(const RotationSetting&) = delete;
    RotationSetting& operator=(const RotationSetting&) = delete;
};

} // namespace host

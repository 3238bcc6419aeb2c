#pragma once

#include <cstdint>

// Control of the settings stand-in (camera.qcom.so). To take the manager or the settings record
// away, let the calls "CamX::SettingsManager::GetInstance" or
// "CamX::SettingsManager::GetStaticSettings" fail (host/control/faults.h).
namespace host {

// Rotation of the images, in degrees; 0 at start. One value for the whole process. Not to be called
// while a node is being created.
void SetImageDegree(std::uint32_t degrees);

} // namespace host

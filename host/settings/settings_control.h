#pragma once

#include <cstdint>

// Control of the settings stand-in (camera.qcom.so). A missing manager or settings record is made
// with the call points "CamX::SettingsManager::GetInstance" and
// "CamX::SettingsManager::GetStaticSettings".
namespace host {

// Rotation of the images, in degrees; 0 at start. One value for the whole process. Not to be called
// while a node is being created.
void SetImageDegree(std::uint32_t degrees);

} // namespace host

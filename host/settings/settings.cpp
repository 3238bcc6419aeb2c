#include "platform/camx_settings.h"

#include "host/control/faults.h"
#include "host/settings/settings_control.h"

namespace {

host::CallPoint getInstance("CamX::SettingsManager::GetInstance");
host::CallPoint getStaticSettings("CamX::SettingsManager::GetStaticSettings");

class HostSettings : public CamX::SettingsManager {
public:
    const CamX::StaticSettings* GetStaticSettings() override {
        return host::Call(getStaticSettings).failure() ? nullptr : &record_;
    }

    void SetImageDegree(std::uint32_t degrees) { record_.imageDegree = degrees; }

private:
    CamX::StaticSettings record_{};
};

HostSettings& settings() {
    static HostSettings instance;
    return instance;
}

} // namespace

namespace CamX {

SettingsManager::~SettingsManager() = default;

SettingsManager* SettingsManager::GetInstance() {
    return host::Call(getInstance).failure() ? nullptr : &settings();
}

} // namespace CamX

void host::SetImageDegree(std::uint32_t degrees) {
    settings().SetImageDegree(degrees);
}

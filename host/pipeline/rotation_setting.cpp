#include "host/pipeline/rotation_setting.h"

#include <condition_variable>
#include <mutex>

#include "host/settings/settings_control.h"

namespace host {
namespace {

struct Gate {
    std::mutex mutex;
    std::condition_variable freed;
    int holders = 0;
    std::uint32_t degrees = 0;
};

Gate& gate() {
    static Gate instance;
    return instance;
}

} // namespace

RotationSetting::RotationSetting(std::uint32_t degrees) {
    std::unique_lock lock(gate().mutex);
    gate().freed.wait(lock, [degrees] { return gate().holders == 0 || gate().degrees == degrees; });
    if (gate().holders == 0) {
        gate().degrees = degrees;
        SetImageDegree(degrees);
    }
    ++gate().holders;
}

RotationSetting::~RotationSetting() {
    const std::lock_guard lock(gate().mutex);
    --gate().holders;
    gate().freed.notify_all();
}

} // namespace host

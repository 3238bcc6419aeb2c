#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

#include "host/control/faults.h"
#include "host/properties/property_control.h"

namespace {

host::CallPoint propertyGet("property_get");

struct Store {
    std::mutex mutex;
    std::map<std::string, std::string, std::less<>> values;
};

Store& store() {
    static Store* const instance = new Store;
    return *instance;
}

} // namespace

extern "C" int property_get(const char* key, char* value, const char* default_value) {
    host::Call call(propertyGet);
    call.Tell([key] { return std::string(key); });
    if (call.failure()) {
        // The node uses the text without looking at the result, so it is terminated in every case.
        value[0] = '\0';
        return static_cast<int>(*call.failure());
    }
    const std::lock_guard lock(store().mutex);
    const auto found = store().values.find(std::string_view(key));
    std::string_view text = default_value != nullptr ? default_value : "";
    if (found != store().values.end()) {
        text = found->second;
    }
    // Only the caller's default can be too long: property_set refuses such values.
    text = text.substr(0, kPropertyValueMax - 1);
    std::memcpy(value, text.data(), text.size());
    value[text.size()] = '\0';
    call.Tell([text] { return '"' + std::string(text) + '"'; });
    return static_cast<int>(text.size());
}

extern "C" int property_set(const char* key, const char* value) {
    if (key == nullptr || *key == '\0' || value == nullptr ||
        std::strlen(value) >= kPropertyValueMax) {
        return -1;
    }
    const std::lock_guard lock(store().mutex);
    if (*value == '\0') {
        store().values.erase(key);
    } else {
        store().values[key] = value;
    }
    return 0;
}

void host::ClearProperties() {
    const std::lock_guard lock(store().mutex);
    store().values.clear();
}

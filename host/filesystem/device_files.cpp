#include "host/filesystem/device_files.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <string_view>
#include <utility>

namespace host {
namespace {

constexpr std::string_view kDeviceFolders[] = {"/mnt/vendor/persist/", "/vendor/etc/",
                                               "/data/vendor/"};

struct State {
    std::mutex mutex;
    std::filesystem::path root;
    std::map<const std::FILE*, std::string> streams;
    std::map<int, std::string> descriptors;
    // Lets the process's other files pass without the lock.
    std::atomic<std::size_t> open{0};
};

// Never destroyed: files are still closed while the process ends.
State& state() {
    static State* const instance = new State;
    return *instance;
}

bool StartsInDeviceFolder(std::string_view path) {
    return std::any_of(std::begin(kDeviceFolders), std::end(kDeviceFolders),
                       [path](std::string_view folder) { return path.starts_with(folder); });
}

template <typename Key>
void Remember(std::map<Key, std::string>& files, Key file, const char* devicePath) {
    const std::lock_guard lock(state().mutex);
    files[file] = devicePath;
    state().open = state().streams.size() + state().descriptors.size();
}

template <typename Key>
bool Contains(const std::map<Key, std::string>& files, Key file) {
    if (state().open == 0) {
        return false;
    }
    const std::lock_guard lock(state().mutex);
    return files.contains(file);
}

template <typename Key>
bool Forget(std::map<Key, std::string>& files, Key file) {
    if (state().open == 0) {
        return false;
    }
    const std::lock_guard lock(state().mutex);
    const bool found = files.erase(file) != 0;
    state().open = state().streams.size() + state().descriptors.size();
    return found;
}

} // namespace

void SetDeviceRoot(std::filesystem::path root) {
    const std::lock_guard lock(state().mutex);
    state().root = std::move(root);
}

std::filesystem::path DeviceRoot() {
    const std::lock_guard lock(state().mutex);
    return state().root;
}

std::vector<std::string> OpenDeviceFiles() {
    const std::lock_guard lock(state().mutex);
    std::vector<std::string> paths;
    for (const auto& [stream, path] : state().streams) {
        paths.push_back(path);
    }
    for (const auto& [descriptor, path] : state().descriptors) {
        paths.push_back(path);
    }
    return paths;
}

namespace devicefiles {

bool IsDevicePath(const char* path) {
    return path != nullptr && StartsInDeviceFolder(path);
}

std::string Locate(const char* devicePath) {
    // "..": a path that climbs out of the device's folders leads nowhere.
    const std::string plain = std::filesystem::path(devicePath).lexically_normal().string();
    const std::filesystem::path root = DeviceRoot();
    if (root.empty() || !StartsInDeviceFolder(plain)) {
        return {};
    }
    return (root / plain.substr(1)).string();
}

void Opened(std::FILE* stream, const char* devicePath) {
    Remember<const std::FILE*>(state().streams, stream, devicePath);
}
void Opened(int descriptor, const char* devicePath) {
    Remember(state().descriptors, descriptor, devicePath);
}
bool IsOpen(const std::FILE* stream) {
    return Contains(state().streams, stream);
}
bool IsOpen(int descriptor) {
    return Contains(state().descriptors, descriptor);
}
bool Closing(const std::FILE* stream) {
    return Forget(state().streams, stream);
}
bool Closing(int descriptor) {
    return Forget(state().descriptors, descriptor);
}

} // namespace devicefiles
} // namespace host

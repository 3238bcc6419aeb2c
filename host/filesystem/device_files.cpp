// The C library's file functions, as far as the node uses them, in front of the C library's own.

#include "host/filesystem/device_root.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <map>
#include <mutex>
#include <string_view>
#include <utility>

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include "host/control/faults.h"

namespace host {
namespace {

CallPoint fopenPoint("fopen");
CallPoint fseekPoint("fseek");
CallPoint ftellPoint("ftell");
CallPoint freadPoint("fread");
CallPoint fclosePoint("fclose");
CallPoint openPoint("open");
CallPoint writePoint("write");
CallPoint closePoint("close");

constexpr std::string_view kDeviceFolders[] = {"/mnt/vendor/persist/", "/vendor/etc/",
                                               "/data/vendor/"};

// The open files of the device and their device paths, by stream or descriptor. Thread-safe.
template <typename File>
class OpenFiles {
public:
    void Add(File file, const char* devicePath) {
        const std::lock_guard lock(mutex_);
        paths_[file] = devicePath;
        count_ = paths_.size();
    }
    bool Contains(File file) {
        if (count_ == 0) {
            return false;
        }
        const std::lock_guard lock(mutex_);
        return paths_.contains(file);
    }
    // To be called before the file is closed, since another thread may be given its number right
    // after. False if the file is not one of the device's.
    bool Remove(File file) {
        if (count_ == 0) {
            return false;
        }
        const std::lock_guard lock(mutex_);
        const bool found = paths_.erase(file) != 0;
        count_ = paths_.size();
        return found;
    }
    void AppendPaths(std::vector<std::string>& paths) {
        const std::lock_guard lock(mutex_);
        for (const auto& [file, path] : paths_) {
            paths.push_back(path);
        }
    }

private:
    std::mutex mutex_;
    std::map<File, std::string> paths_;
    std::atomic<std::size_t> count_{0}; // lets the process's other files pass without the lock
};

struct State {
    std::mutex mutex; // guards the root
    std::filesystem::path root;
    OpenFiles<FILE*> streams;
    OpenFiles<int> descriptors;
};

// Never destroyed: files are still closed while the process ends.
State& state() {
    static State* const instance = new State;
    return *instance;
}

bool IsDevicePath(std::string_view path) {
    return std::ranges::any_of(kDeviceFolders,
                               [path](auto folder) { return path.starts_with(folder); });
}

// The device path's place in the device root, or an empty path if it is not to be found.
std::filesystem::path Locate(const char* devicePath) {
    // "..": a path that climbs out of the device's folders leads nowhere.
    const std::filesystem::path plain = std::filesystem::path(devicePath).lexically_normal();
    const std::filesystem::path root = DeviceRoot();
    return root.empty() || !IsDevicePath(plain.native()) ? std::filesystem::path()
                                                         : root / plain.relative_path();
}

// Opens a file by the C library's `next`; the place in the device root stands for a device path.
template <typename File, typename Open>
File OpenAt(CallPoint& point, OpenFiles<File>& files, File failed, const char* path, Open next) {
    if (path == nullptr || !IsDevicePath(path)) {
        return next(path);
    }
    Call call(point);
    call.Tell([path] { return std::string(path); });
    if (call.failure()) {
        // A failed open leaves a reason in errno, which the caller may put into words.
        errno = EIO;
        return failed;
    }
    const std::filesystem::path place = Locate(path);
    if (place.empty()) {
        errno = ENOENT;
        return failed;
    }
    const File file = next(place.c_str());
    if (file != failed) {
        files.Add(file, path);
    }
    return file;
}

// A call on an open file; one on a file that is none of the device's is not counted.
class FileCall {
public:
    FileCall(CallPoint& point, bool ofDevice) {
        if (ofDevice) {
            call_.emplace(point);
        }
        if (failure()) {
            errno = EIO;
        }
    }
    std::optional<std::int64_t> failure() const { return call_ ? call_->failure() : std::nullopt; }

    template <typename Count>
    void TellBytes(Count bytes) {
        if (call_) {
            call_->Tell([bytes] { return std::to_string(bytes) + " bytes"; });
        }
    }

private:
    std::optional<Call> call_;
};

// The C library's function of this name. dlsym finds it behind the definitions below, which stand
// before the C library in the program's search order.
template <typename Function>
Function* Next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
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
    std::vector<std::string> paths;
    state().streams.AppendPaths(paths);
    state().descriptors.AppendPaths(paths);
    return paths;
}

} // namespace host

// The functions below take the C library's place for every file that this process opens. Only the
// device's paths, and the files opened by one, are treated otherwise.
using namespace host;

extern "C" {

FILE* fopen(const char* path, const char* mode) {
    static auto* const next = Next<FILE*(const char*, const char*)>("fopen");
    return OpenAt<FILE*>(fopenPoint, state().streams, nullptr, path,
                         [mode](const char* place) { return next(place, mode); });
}

int open(const char* path, int flags, ...) {
    static auto* const next = Next<int(const char*, int, ...)>("open");
    // The permission argument exists only if the call can create a file.
    const bool creates = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = creates ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return OpenAt(openPoint, state().descriptors, -1, path,
                  [flags, mode](const char* place) { return next(place, flags, mode); });
}

int fseek(FILE* stream, long offset, int whence) {
    static auto* const next = Next<int(FILE*, long, int)>("fseek");
    const FileCall call(fseekPoint, state().streams.Contains(stream));
    return call.failure() ? static_cast<int>(*call.failure()) : next(stream, offset, whence);
}

long ftell(FILE* stream) {
    static auto* const next = Next<long(FILE*)>("ftell");
    const FileCall call(ftellPoint, state().streams.Contains(stream));
    return call.failure() ? static_cast<long>(*call.failure()) : next(stream);
}

size_t fread(void* data, size_t size, size_t count, FILE* stream) {
    static auto* const next = Next<size_t(void*, size_t, size_t, FILE*)>("fread");
    FileCall call(freadPoint, state().streams.Contains(stream));
    // What the failure allows is really read, so that the position is that of a short read.
    if (const auto failure = call.failure()) {
        count = std::min(count, static_cast<size_t>(std::max<std::int64_t>(*failure, 0)));
    }
    const size_t read = next(data, size, count, stream);
    call.TellBytes(read * size);
    return read;
}

ssize_t write(int descriptor, const void* data, size_t size) {
    static auto* const next = Next<ssize_t(int, const void*, size_t)>("write");
    FileCall call(writePoint, state().descriptors.Contains(descriptor));
    if (const auto failure = call.failure()) {
        // Nothing reaches the file, as on a disk without room.
        if (*failure < 0) {
            return -1;
        }
        size = std::min(size, static_cast<size_t>(*failure));
    }
    const ssize_t written = next(descriptor, data, size);
    call.TellBytes(written);
    return written;
}

int fclose(FILE* stream) {
    static auto* const next = Next<int(FILE*)>("fclose");
    static auto* const tell = Next<long(FILE*)>("ftell");
    const bool ofDevice = state().streams.Remove(stream);
    FileCall call(fclosePoint, ofDevice);
    if (ofDevice) { // formatted text is written by calls that are not seen
        call.TellBytes(tell(stream));
    }
    const int result = next(stream);
    return static_cast<int>(call.failure().value_or(result));
}

int close(int descriptor) {
    static auto* const next = Next<int(int)>("close");
    const FileCall call(closePoint, state().descriptors.Remove(descriptor));
    const int result = next(descriptor);
    return static_cast<int>(call.failure().value_or(result));
}

} // extern "C"

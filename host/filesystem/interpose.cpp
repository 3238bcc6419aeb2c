// The C library's file functions, as far as the node uses them, in front of the C library's own.

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include "host/control/faults.h"
#include "host/filesystem/device_files.h"

namespace {

using namespace host::devicefiles;

host::CallPoint fopenPoint("fopen");
host::CallPoint fseekPoint("fseek");
host::CallPoint ftellPoint("ftell");
host::CallPoint freadPoint("fread");
host::CallPoint fclosePoint("fclose");
host::CallPoint openPoint("open");
host::CallPoint writePoint("write");
host::CallPoint closePoint("close");

using OpenStream = FILE*(const char*, const char*);
using OpenDescriptor = int(const char*, int, ...);

// The function that these stand in front of.
template <typename Function>
Function* Next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

FILE* OpenAt(OpenStream* next, const char* path, const char* mode) {
    if (!IsDevicePath(path)) {
        return next(path, mode);
    }
    if (fopenPoint.Enter()) {
        errno = EIO;
        return nullptr;
    }
    const std::string place = Locate(path);
    if (place.empty()) {
        errno = ENOENT;
        return nullptr;
    }
    FILE* const stream = next(place.c_str(), mode);
    if (stream != nullptr) {
        Opened(stream, path);
    }
    return stream;
}

int OpenAt(OpenDescriptor* next, const char* path, int flags, mode_t mode) {
    if (!IsDevicePath(path)) {
        return next(path, flags, mode);
    }
    if (openPoint.Enter()) {
        errno = EIO;
        return -1;
    }
    const std::string place = Locate(path);
    if (place.empty()) {
        errno = ENOENT;
        return -1;
    }
    const int descriptor = next(place.c_str(), flags, mode);
    if (descriptor >= 0) {
        Opened(descriptor, path);
    }
    return descriptor;
}

// The permission argument exists only where the call can create a file.
bool HasMode(int flags) {
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

} // namespace

extern "C" {

FILE* fopen(const char* path, const char* mode) {
    static OpenStream* const next = Next<OpenStream>("fopen");
    return OpenAt(next, path, mode);
}

FILE* fopen64(const char* path, const char* mode) {
    static OpenStream* const next = Next<OpenStream>("fopen64");
    return OpenAt(next, path, mode);
}

int open(const char* path, int flags, ...) {
    static OpenDescriptor* const next = Next<OpenDescriptor>("open");
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = HasMode(flags) ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return OpenAt(next, path, flags, mode);
}

int open64(const char* path, int flags, ...) {
    static OpenDescriptor* const next = Next<OpenDescriptor>("open64");
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = HasMode(flags) ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return OpenAt(next, path, flags, mode);
}

int fseek(FILE* stream, long offset, int whence) {
    static auto* const next = Next<int(FILE*, long, int)>("fseek");
    if (IsOpen(stream)) {
        if (const auto failure = fseekPoint.Enter()) {
            errno = EIO;
            return static_cast<int>(*failure);
        }
    }
    return next(stream, offset, whence);
}

long ftell(FILE* stream) {
    static auto* const next = Next<long(FILE*)>("ftell");
    if (IsOpen(stream)) {
        if (const auto failure = ftellPoint.Enter()) {
            errno = EIO;
            return static_cast<long>(*failure);
        }
    }
    return next(stream);
}

size_t fread(void* data, size_t size, size_t count, FILE* stream) {
    static auto* const next = Next<size_t(void*, size_t, size_t, FILE*)>("fread");
    if (IsOpen(stream)) {
        if (const auto failure = freadPoint.Enter()) {
            count = std::min(count, static_cast<size_t>(std::max<std::int64_t>(*failure, 0)));
            errno = EIO;
        }
    }
    return next(data, size, count, stream);
}

int fclose(FILE* stream) {
    static auto* const next = Next<int(FILE*)>("fclose");
    const auto failure = Closing(stream) ? fclosePoint.Enter() : std::nullopt;
    const int result = next(stream);
    return failure ? static_cast<int>(*failure) : result;
}

ssize_t write(int descriptor, const void* data, size_t size) {
    static auto* const next = Next<ssize_t(int, const void*, size_t)>("write");
    if (IsOpen(descriptor)) {
        if (const auto failure = writePoint.Enter()) {
            if (*failure < 0) {
                errno = EIO;
                return -1;
            }
            size = std::min(size, static_cast<size_t>(*failure));
        }
    }
    return next(descriptor, data, size);
}

int close(int descriptor) {
    static auto* const next = Next<int(int)>("close");
    const auto failure = Closing(descriptor) ? closePoint.Enter() : std::nullopt;
    const int result = next(descriptor);
    return failure ? static_cast<int>(*failure) : result;
}

} // extern "C"

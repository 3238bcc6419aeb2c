#include "host/picture/file_bytes.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <string>
#include <system_error>

#include <fmt/format.h>

#include "host/picture/errors.h"

namespace fs = std::filesystem;

namespace {

// The size that the system states. Throws UseError for what is no regular file: a device or a pipe
// may never end.
std::uintmax_t SizeOf(const fs::path& path) {
    std::error_code error;
    const auto status = fs::status(path, error);
    if (status.type() == fs::file_type::none) {
        Cannot("be read", path, error.message());
    }
    if (!fs::is_regular_file(status)) {
        Refuse(path, "a file",
               !fs::exists(status)        ? "none"
               : fs::is_directory(status) ? "a folder"
                                          : "a device or a pipe");
    }
    return fs::file_size(path);
}

} // namespace

Bytes ReadFileStart(const fs::path& path, std::size_t most) {
    constexpr std::size_t kOfUnknownSize = 65536; // files of /proc state a size of 0
    const std::uintmax_t stated = SizeOf(path);
    const std::size_t wanted = std::min<std::uintmax_t>(most, stated > 0 ? stated : kOfUnknownSize);
    // A stream need not set errno, and the message must not show the reason of an earlier failure.
    errno = 0;
    std::ifstream stream(path, std::ios::binary);
    Bytes bytes(stream.is_open() ? wanted : 0);
    stream.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!stream.is_open() || stream.bad()) {
        Cannot("be read", path, std::strerror(errno));
    }
    bytes.resize(static_cast<std::size_t>(stream.gcount()));
    if (stated > 0 && bytes.size() < wanted) { // a file that shrinks meanwhile
        Refuse(path, fmt::format("{} bytes", wanted),
               fmt::format("{} when it was read", bytes.size()));
    }
    return bytes;
}

Bytes ReadFileBytes(const fs::path& path, std::size_t most) {
    // The refusal comes before any memory is taken, since the file may come from anywhere.
    if (const auto stated = SizeOf(path); stated > most) {
        Refuse(path, fmt::format("at most {} bytes", most), fmt::to_string(stated));
    }
    return ReadFileStart(path, most);
}

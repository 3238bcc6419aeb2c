#include "host/picture/file_bytes.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <system_error>

#include "host/picture/errors.h"

Bytes ReadFileBytes(const std::filesystem::path& path) {
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    if (status.type() == std::filesystem::file_type::none) {
        throw UseError(path.string() + ": cannot be read: " + error.message());
    }
    if (!std::filesystem::exists(status)) {
        Refuse(path, "a file", "none");
    }
    if (std::filesystem::is_directory(status)) {
        Refuse(path, "a file", "a folder");
    }
    errno = 0;
    std::ifstream stream(path, std::ios::binary);
    Bytes bytes;
    if (std::filesystem::is_regular_file(status)) {
        bytes.resize(std::filesystem::file_size(path, error));
        stream.read(reinterpret_cast<char*>(bytes.data()),
                    static_cast<std::streamsize>(bytes.size()));
        bytes.resize(
            static_cast<std::size_t>(stream.gcount())); // the file may have shrunk meanwhile
    } else {                                            // a pipe has no known size
        bytes.assign(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
    }
    if (!stream.is_open() || stream.bad()) {
        throw UseError(path.string() + ": cannot be read: " + std::strerror(errno));
    }
    return bytes;
}

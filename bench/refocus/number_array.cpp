#include "bench/refocus/number_array.h"

#include <cstring>
#include <regex>
#include <string>

#include <zlib.h>

#include "host/picture/errors.h"
#include "host/picture/file_bytes.h"

namespace quality {
namespace {

constexpr std::uint32_t kEndOfDirectory = 0x06054b50;
constexpr std::uint32_t kDirectoryEntry = 0x02014b50;
constexpr std::uint32_t kLocalHeader = 0x04034b50;
constexpr std::size_t kEndOfDirectoryBytes = 22;
constexpr std::size_t kLocalHeaderBytes = 30;
constexpr std::size_t kMostBytes = std::size_t{1} << 30; // unpacked

[[noreturn]] void Refuse(const char* reason) {
    throw UseError(std::string("expected a NumPy archive of a float map: ") + reason);
}

template <typename Unsigned>
Unsigned Get(const Bytes& bytes, std::size_t at) {
    if (at > bytes.size() || bytes.size() - at < sizeof(Unsigned)) {
        Refuse("the file ends too early");
    }
    Unsigned value = 0;
    for (std::size_t i = 0; i < sizeof(Unsigned); ++i) {
        value = static_cast<Unsigned>(value | static_cast<Unsigned>(bytes[at + i]) << (8 * i));
    }
    return value;
}

std::size_t FindDirectoryEnd(const Bytes& bytes) {
    for (std::size_t back = kEndOfDirectoryBytes; back <= bytes.size(); ++back) {
        if (Get<std::uint32_t>(bytes, bytes.size() - back) == kEndOfDirectory) {
            return bytes.size() - back;
        }
    }
    Refuse("no zip file");
}

Bytes Inflate(const Bytes& bytes, std::size_t at, std::size_t packed, std::size_t unpacked) {
    Bytes result(unpacked);
    z_stream stream{};
    stream.next_in = const_cast<Bytef*>(bytes.data() + at); // zlib only reads it
    stream.avail_in = static_cast<uInt>(packed);
    stream.next_out = result.data();
    stream.avail_out = static_cast<uInt>(unpacked);
    if (inflateInit2(&stream, -MAX_WBITS) != Z_OK) { // negative: no zlib header
        Refuse("zlib does not start");
    }
    const int status = inflate(&stream, Z_FINISH);
    inflateEnd(&stream);
    if (status != Z_STREAM_END || stream.total_out != unpacked) {
        Refuse("its packed bytes are damaged");
    }
    return result;
}

// The archive's first file. The sizes stand in the directory at the end; a local header may lack
// them.
Bytes FirstFile(const Bytes& bytes) {
    const auto entry = std::size_t{Get<std::uint32_t>(bytes, FindDirectoryEnd(bytes) + 16)};
    if (Get<std::uint32_t>(bytes, entry) != kDirectoryEntry) {
        Refuse("it holds no file");
    }
    const auto method = Get<std::uint16_t>(bytes, entry + 10);
    const auto packed = std::size_t{Get<std::uint32_t>(bytes, entry + 20)};
    const auto unpacked = std::size_t{Get<std::uint32_t>(bytes, entry + 24)};
    const auto local = std::size_t{Get<std::uint32_t>(bytes, entry + 42)};
    if (Get<std::uint32_t>(bytes, local) != kLocalHeader) {
        Refuse("its directory is damaged");
    }
    const std::size_t data = local + kLocalHeaderBytes + Get<std::uint16_t>(bytes, local + 26) +
                             Get<std::uint16_t>(bytes, local + 28);
    if (data > bytes.size() || packed > bytes.size() - data || unpacked > kMostBytes) {
        Refuse("its sizes are impossible");
    }
    if (method == Z_DEFLATED) {
        return Inflate(bytes, data, packed, unpacked);
    }
    if (method != 0 || packed != unpacked) {
        Refuse("it is packed in an unknown way");
    }
    const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(data);
    return {begin, begin + static_cast<std::ptrdiff_t>(packed)};
}

cv::Mat ParseArray(const Bytes& file) {
    constexpr char kMagic[] = "\x93NUMPY";
    if (file.size() < 12 || std::memcmp(file.data(), kMagic, 6) != 0) {
        Refuse("its first file is no array");
    }
    const bool first = file[6] == 1; // versions differ in the width of the header's length
    const std::size_t headerAt = first ? 10 : 12;
    const std::size_t length = first ? Get<std::uint16_t>(file, 8) : Get<std::uint32_t>(file, 8);
    if (length > file.size() - headerAt) {
        Refuse("its array ends too early");
    }
    const std::string header(reinterpret_cast<const char*>(file.data()) + headerAt, length);
    const std::regex shape(R"(\(\s*(\d{1,5}),\s*(\d{1,5})\s*\))");
    std::smatch sizes;
    if (header.find("'<f4'") == std::string::npos ||
        header.find("'fortran_order': False") == std::string::npos ||
        !std::regex_search(header, sizes, shape)) {
        Refuse("its array is no map of 32-bit floats");
    }
    cv::Mat values(std::stoi(sizes[1]), std::stoi(sizes[2]), CV_32FC1);
    const std::size_t wanted = values.total() * sizeof(float);
    if (file.size() - headerAt - length < wanted) {
        Refuse("its array ends too early");
    }
    std::memcpy(values.data, file.data() + headerAt + length, wanted);
    return values;
}

} // namespace

cv::Mat ReadNumberArray(const std::filesystem::path& path) {
    try {
        return ParseArray(FirstFile(ReadFileBytes(path)));
    } catch (const UseError& error) {
        throw UseError(path.string() + ": " + error.what());
    }
}

} // namespace quality

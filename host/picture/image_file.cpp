#include "host/picture/image_file.h"

#include <algorithm>
#include <array>
#include <csetjmp>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include <fmt/core.h>
#include <opencv2/core.hpp>
#include <png.h>
#include <turbojpeg.h>
#include <zlib.h>

#include "host/picture/errors.h"

namespace {

constexpr std::array<std::uint8_t, 8> kPngStart{0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
constexpr std::array<std::uint8_t, 3> kJpegStart{0xff, 0xd8, 0xff};

template <std::size_t kSize>
bool StartsWith(const Bytes& bytes, const std::array<std::uint8_t, kSize>& start) {
    return bytes.size() >= kSize && std::equal(start.begin(), start.end(), bytes.begin());
}

[[noreturn]] void Damaged(const std::string& name, const char* format, const char* reason) {
    Refuse(name, fmt::format("a whole {} picture", format),
           fmt::format("a damaged one ({})", reason));
}

// The sizes are those of a file's header, before memory is taken for the pixels: a few bytes can
// claim a picture of gigabytes.
void CheckSize(const std::string& name, std::int64_t width, std::int64_t height,
               std::size_t bytes) {
    if (width < 2 || height < 2 || width > kLongestSide || height > kLongestSide) {
        Refuse(name, fmt::format("sides of 2 to {} pixels", kLongestSide),
               fmt::format("{}x{}", width, height));
    }
    // Deflate makes at most 1032 bytes of one, and each holds eight one-bit pixels. A byte of a
    // JPEG stands for fewer.
    constexpr std::uint64_t kMostPixelsInAByte = 8256;
    if (static_cast<std::uint64_t>(width * height) / kMostPixelsInAByte > bytes) {
        Refuse(name, fmt::format("a picture of {}x{}", width, height),
               fmt::format("{} bytes, which cannot hold it", bytes));
    }
}

// Frees libpng's reader on every way out, exceptions included.
struct PngState : png_image {
    PngState() : png_image{} { version = PNG_IMAGE_VERSION; }
    ~PngState() { png_image_free(this); }
};

RgbImage DecodePng(const std::string& name, const Bytes& bytes) {
    PngState png;
    if (png_image_begin_read_from_memory(&png, bytes.data(), bytes.size()) == 0) {
        Damaged(name, "PNG", png.message);
    }
    CheckSize(name, png.width, png.height, bytes.size());
    if ((png.format & PNG_FORMAT_FLAG_LINEAR) != 0) {
        png.flags |= PNG_IMAGE_FLAG_16BIT_sRGB; // else 16-bit files without gAMA count as linear
    }
    png.format = PNG_FORMAT_RGB;
    RgbImage image(static_cast<int>(png.width), static_cast<int>(png.height));
    const png_color black{0, 0, 0};
    if (png_image_finish_read(&png, &black, image.bytes.data(), 0, nullptr) == 0) {
        Damaged(name, "PNG", png.message);
    }
    return image;
}

struct CloseTurboJpeg {
    void operator()(void* handle) const { tjDestroy(handle); }
};

RgbImage DecodeJpeg(const std::string& name, const Bytes& bytes) {
    const std::unique_ptr<void, CloseTurboJpeg> jpeg(tjInitDecompress());
    const auto size = static_cast<unsigned long>(bytes.size());
    int width = 0;
    int height = 0;
    int subsampling = 0;
    int colours = 0;
    if (tjDecompressHeader3(jpeg.get(), bytes.data(), size, &width, &height, &subsampling,
                            &colours) != 0) {
        Damaged(name, "JPEG", tjGetErrorStr2(jpeg.get()));
    }
    CheckSize(name, width, height, bytes.size());
    if (colours == TJCS_CMYK || colours == TJCS_YCCK) {
        Refuse(name, "a grey or RGB picture", "one of four printing inks");
    }
    RgbImage image(width, height);
    // A truncated file is only a warning to the decoder, which fills the rest with grey. Each of a
    // progressive file's scans costs as much as a picture, and a small file can hold thousands.
    if (tjDecompress2(jpeg.get(), bytes.data(), size, image.bytes.data(), width, image.pitch(),
                      height, TJPF_RGB, TJFLAG_STOPONWARNING | TJFLAG_LIMITSCANS) != 0) {
        Damaged(name, "JPEG", tjGetErrorStr2(jpeg.get()));
    }
    return image;
}

// `size` bytes of the text as a number, 0 behind its end. Every offset comes from the file, so each
// byte is checked.
std::size_t NumberAt(std::string_view text, std::size_t at, std::size_t size, bool bigEndian) {
    std::size_t number = 0;
    for (std::size_t i = 0; i < size && at < text.size() && size <= text.size() - at; ++i) {
        const auto byte = static_cast<std::uint8_t>(text[at + (bigEndian ? i : size - 1 - i)]);
        number = number << 8 | byte;
    }
    return number;
}

// Of an EXIF segment, a TIFF file whose first directory has entries of 12 bytes: tag, type, count
// and value.
std::optional<int> TurnOf(std::string_view tiff) {
    constexpr std::size_t kOrientation = 0x0112;
    // "MM" for big-endian, "II" for little-endian numbers; at byte 4 is the directory's offset.
    const bool bigEndian = tiff.starts_with('M');
    const std::size_t directory = NumberAt(tiff, 4, 4, bigEndian);
    const std::size_t entries = NumberAt(tiff, directory, 2, bigEndian);
    // At most 65535 entries, whatever a damaged file states.
    for (std::size_t i = 0; i < entries; ++i) {
        const std::size_t entry = directory + 2 + 12 * i;
        if (NumberAt(tiff, entry, 2, bigEndian) == kOrientation) {
            switch (NumberAt(tiff, entry + 8, 2, bigEndian)) {
            case 1:
                return 0;
            case 3:
                return 180;
            case 6:
                return 90;
            case 8:
                return 270;
            // 2, 4, 5 and 7 mirror the picture as well.
            default:
                return std::nullopt;
            }
        }
    }
    return std::nullopt;
}

// The segments before a JPEG's picture: 0xff, kind, length with its own two bytes, content.
std::optional<int> JpegTurn(const Bytes& bytes) {
    using namespace std::string_view_literals;
    constexpr std::string_view kExif = "Exif\0\0"sv;
    constexpr std::size_t kApplication1 = 0xffe1;
    constexpr std::size_t kStartOfScan = 0xffda;
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    for (std::size_t at = 2; at + 4 <= text.size();) {
        const std::size_t kind = NumberAt(text, at, 2, true);
        const std::string_view content = text.substr(at + 4);
        if (kind == kApplication1 && content.starts_with(kExif)) {
            return TurnOf(content.substr(kExif.size()));
        }
        // A length of 0 still moves on by two bytes, so that a damaged file cannot hold the loop.
        at = kind == kStartOfScan ? text.size() : at + 2 + NumberAt(text, at + 2, 2, true);
    }
    return std::nullopt;
}

// No exception may pass through libpng: what went wrong becomes its own kind of failure.
void Append(png_structp png, png_bytep from, png_size_t size) {
    bool stored = false;
    try {
        auto& bytes = *static_cast<Bytes*>(png_get_io_ptr(png));
        bytes.insert(bytes.end(), from, from + size);
        stored = true;
    } catch (const std::bad_alloc&) {
        stored = false;
    }
    if (!stored) {
        png_error(png, "not enough memory");
    }
}

// Each sample is predicted from its neighbours, and the noise that remains has no repetitions worth
// a search: pictures of the camera's size take a fraction of a second, not ten. Returns false on
// failure, which libpng reports by a long jump: nothing here may need a destructor.
bool WriteRows(png_structp png, png_infop info, int colour, int width, int height,
               const std::uint8_t* rows, int pitch) {
    if (setjmp(png_jmpbuf(png)) != 0) {
        return false;
    }
    png_set_filter(png, PNG_FILTER_TYPE_BASE, PNG_FILTER_AVG);
    png_set_compression_level(png, Z_BEST_SPEED);
    png_set_compression_strategy(png, Z_RLE);
    png_set_IHDR(png, info, static_cast<png_uint_32>(width), static_cast<png_uint_32>(height), 8,
                 colour, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_sRGB(png, info, PNG_sRGB_INTENT_PERCEPTUAL);
    png_write_info(png, info);
    for (int y = 0; y < height; ++y) {
        png_write_row(png, rows + static_cast<std::ptrdiff_t>(y) * pitch);
    }
    png_write_end(png, info);
    return true;
}

Bytes EncodeRows(int colour, int width, int height, const std::uint8_t* rows, int pitch) {
    Bytes bytes;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png != nullptr ? png_create_info_struct(png) : nullptr;
    bool done = false;
    if (info != nullptr) {
        png_set_write_fn(png, &bytes, Append, nullptr);
        done = WriteRows(png, info, colour, width, height, rows, pitch);
    }
    png_destroy_write_struct(&png, &info);
    if (!done) {
        throw std::runtime_error("cannot encode a PNG picture");
    }
    return bytes;
}

} // namespace

RgbImage ReadImageFile(const std::filesystem::path& path, std::optional<int>* clockwise) {
    const Bytes bytes = ReadFileBytes(path);
    if (StartsWith(bytes, kPngStart)) {
        return DecodePng(path.string(), bytes);
    }
    if (StartsWith(bytes, kJpegStart)) {
        if (clockwise != nullptr) {
            *clockwise = JpegTurn(bytes);
        }
        return DecodeJpeg(path.string(), bytes);
    }
    Refuse(path, "a JPEG or PNG picture",
           bytes.empty() ? "an empty file" : "a file of another kind");
}

RgbImage Turned(const RgbImage& picture, int clockwise) {
    if (clockwise == 0) {
        return picture;
    }
    const bool swap = clockwise != 180;
    RgbImage turned(swap ? picture.height : picture.width, swap ? picture.width : picture.height);
    const cv::Mat from(picture.height, picture.width, CV_8UC3,
                       const_cast<std::uint8_t*>(picture.bytes.data()));
    cv::Mat to(turned.height, turned.width, CV_8UC3, turned.bytes.data());
    cv::rotate(from, to, clockwise / 90 - 1); // OpenCV counts the quarter turns from 0
    return turned;
}

Bytes EncodePng(const RgbImage& image) {
    return EncodeRows(PNG_COLOR_TYPE_RGB, image.width, image.height, image.bytes.data(),
                      image.pitch());
}

Bytes EncodePng(const host::Image& grey, int top, int height) {
    return EncodeRows(PNG_COLOR_TYPE_GRAY, grey.width(), height, grey.row(0, top), grey.pitch());
}

Bytes EncodeJpeg(const RgbImage& image, int quality) {
    const std::unique_ptr<void, CloseTurboJpeg> jpeg(tjInitCompress());
    unsigned long size = tjBufSize(image.width, image.height, TJSAMP_444);
    Bytes bytes(size);
    // The buffer has room for the worst case, so that the encoder never puts another in its place.
    std::uint8_t* place = bytes.data();
    if (tjCompress2(jpeg.get(), image.bytes.data(), image.width, image.pitch(), image.height,
                    TJPF_RGB, &place, &size, TJSAMP_444, quality, TJFLAG_NOREALLOC) != 0) {
        throw std::runtime_error(std::string("cannot encode a JPEG picture: ") +
                                 tjGetErrorStr2(jpeg.get()));
    }
    bytes.resize(size);
    return bytes;
}

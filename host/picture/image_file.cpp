#include "host/picture/image_file.h"

#include <algorithm>
#include <array>
#include <csetjmp>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

#include <fmt/core.h>
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

void CheckSize(const std::string& name, std::int64_t width, std::int64_t height) {
    if (width < 2 || height < 2 || width > kLongestSide || height > kLongestSide) {
        Refuse(name, fmt::format("sides of 2 to {} pixels", kLongestSide),
               fmt::format("{}x{}", width, height));
    }
}

struct PngState : png_image {
    PngState() : png_image{} { version = PNG_IMAGE_VERSION; }
    ~PngState() { png_image_free(this); }
};

RgbImage DecodePng(const std::string& name, const Bytes& bytes) {
    PngState png;
    if (png_image_begin_read_from_memory(&png, bytes.data(), bytes.size()) == 0) {
        Damaged(name, "PNG", png.message);
    }
    CheckSize(name, png.width, png.height);
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
    CheckSize(name, width, height);
    if (colours == TJCS_CMYK || colours == TJCS_YCCK) {
        Refuse(name, "a grey or RGB picture", "one of four printing inks");
    }
    RgbImage image(width, height);
    // A truncated file is only a warning to the decoder, which fills the rest with grey.
    if (tjDecompress2(jpeg.get(), bytes.data(), size, image.bytes.data(), width, image.pitch(),
                      height, TJPF_RGB, TJFLAG_STOPONWARNING) != 0) {
        Damaged(name, "JPEG", tjGetErrorStr2(jpeg.get()));
    }
    return image;
}

void Append(png_structp png, png_bytep from, png_size_t size) {
    auto& bytes = *static_cast<Bytes*>(png_get_io_ptr(png));
    bytes.insert(bytes.end(), from, from + size);
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
    png_infop info = png_create_info_struct(png);
    png_set_write_fn(png, &bytes, Append, nullptr);
    const bool done = WriteRows(png, info, colour, width, height, rows, pitch);
    png_destroy_write_struct(&png, &info);
    if (!done) {
        throw std::runtime_error("cannot encode a PNG picture");
    }
    return bytes;
}

} // namespace

RgbImage ReadImageFile(const std::filesystem::path& path) {
    const Bytes bytes = ReadFileBytes(path);
    if (StartsWith(bytes, kPngStart)) {
        return DecodePng(path.string(), bytes);
    }
    if (StartsWith(bytes, kJpegStart)) {
        return DecodeJpeg(path.string(), bytes);
    }
    Refuse(path, "a JPEG or PNG picture",
           bytes.empty() ? "an empty file" : "a file of another kind");
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
    std::uint8_t* place = bytes.data();
    if (tjCompress2(jpeg.get(), image.bytes.data(), image.width, image.pitch(), image.height,
                    TJPF_RGB, &place, &size, TJSAMP_444, quality, TJFLAG_NOREALLOC) != 0) {
        throw std::runtime_error(std::string("cannot encode a JPEG picture: ") +
                                 tjGetErrorStr2(jpeg.get()));
    }
    bytes.resize(size);
    return bytes;
}

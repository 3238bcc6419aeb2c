#include "tools/dumps/dump_image.h"

#include <opencv2/core.hpp>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>

#include <fcntl.h>
#include <unistd.h>

#include <fmt/format.h>

#include "host/picture/errors.h"
#include "host/picture/image_file.h"

namespace fs = std::filesystem;
using Format = host::Image::Format;

namespace {

// The width of this image by the parameters' name, which holds the main image's. Nothing if the two
// names cannot be of one image.
std::optional<int> NamedWidth(const DumpSet& set, const DumpName& image) {
    const auto& parameters = set.file(DumpRole::kParameters);
    const bool fits = parameters && parameters->name.height == image.height &&
                      parameters->name.first <= image.first;
    return fits ? std::optional(parameters->name.first) : std::nullopt;
}

// Columns before the padding, in which no plane's bytes change from row to row. The pitch where
// that holds for all columns: then they show nothing.
int WidthBeforePadding(const Bytes& bytes, int pitch, int height) {
    if (bytes.size() < ImageBytes(Format::Nv12, pitch, height)) {
        return pitch;
    }
    int width = 0;
    auto* plane = const_cast<std::uint8_t*>(bytes.data()); // which the matrix only reads
    for (const int rows : {height, height / 2}) {
        // The planes follow one another, and both have the same pitch and the same width in bytes.
        const cv::Mat matrix(rows, pitch, CV_8UC1, plane);
        plane += matrix.total();
        if (matrix.empty()) {
            continue;
        }
        cv::Mat1b lowest;
        cv::Mat1b highest;
        cv::reduce(matrix, lowest, 0, cv::REDUCE_MIN);
        cv::reduce(matrix, highest, 0, cv::REDUCE_MAX);
        int end = pitch;
        // Padding is looked for from the right. Where luma has found the width already, chroma can
        // only make it larger.
        while (end > width && lowest(0, end - 1) == highest(0, end - 1)) {
            --end;
        }
        width = end;
    }
    return width == 0 ? pitch : width + width % 2;
}

// The widths that the aspect of the sensor's part allows an image of this height.
struct AspectWidth {
    double lowest = 0;
    double highest = 0;
    int likeliest = 0; // even
};

AspectWidth WidthByAspect(const DumpParameters& parameters, int height) {
    // Each side of the part was rounded to whole pixels at both ends: it may be two pixels off.
    const auto across = static_cast<double>(parameters.auxCropWidth);
    const auto down = static_cast<double>(parameters.auxCropHeight);
    const double likeliest = std::min(height * across / down, 1.0 * kLongestPitch);
    // The clamped height keeps the division defined for a crop of a row or two.
    return {height * (across - 2) / (down + 2), height * (across + 2) / std::max(down - 2, 1.0),
            static_cast<int>(std::lround(likeliest / 2)) * 2};
}

// What the system says against a new file of so many bytes in this folder; empty if nothing.
std::string ReasonAgainst(const fs::path& folder, std::size_t bytes) {
    std::string name = (folder / "room-XXXXXX").string();
    const int file = ::mkstemp(name.data());
    if (file < 0) {
        return std::strerror(errno);
    }
    ::unlink(name.c_str());
    const int reason = ::posix_fallocate(file, 0, static_cast<off_t>(bytes));
    ::close(file);
    return reason == 0 ? std::string() : std::strerror(reason);
}

} // namespace

Format FormatOf(DumpRole role) {
    return role == DumpRole::kDisparity ? Format::Y8 : Format::Nv12;
}

std::size_t ImageBytes(Format format, int pitch, int height) {
    const int rows = format == Format::Nv12 ? height + height / 2 : height;
    return static_cast<std::size_t>(pitch) * static_cast<std::size_t>(rows);
}

std::size_t ImageBytes(const DumpName& name) {
    return ImageBytes(FormatOf(name.role), name.first, name.height);
}

bool CanBeImage(Format format, int pitch, int height) {
    return pitch <= kLongestPitch && height <= kLongestSide &&
           (format == Format::Y8 || (pitch % 2 == 0 && height >= 2));
}

host::Image ImageFromBytes(Format format, const Bytes& bytes, int width, int pitch, int height) {
    host::Image image(format, std::min(width, pitch), height, pitch);
    std::copy_n(bytes.begin(), std::min(bytes.size(), image.bytes().size()), image.bytes().begin());
    return image;
}

host::Image ReadImageDump(const fs::path& path, Format format, int width, int pitch, int height) {
    if (!CanBeImage(format, pitch, height)) {
        Refuse(path.string(),
               fmt::format("a pitch and height of at most {}x{}{}", kLongestPitch, kLongestSide,
                           format == Format::Nv12 ? ", an even pitch and at least two rows" : ""),
               fmt::format("{}x{}", pitch, height));
    }
    // A longer file is a dump that was written over a longer one, whose end is left: the first
    // bytes are whole.
    const std::size_t expected = ImageBytes(format, pitch, height);
    const Bytes bytes = ReadFileStart(path, expected);
    if (bytes.size() < expected) {
        Refuse(path.string(), fmt::format("{} bytes for {}x{}", expected, pitch, height),
               fmt::to_string(bytes.size()));
    }
    return ImageFromBytes(format, bytes, width, pitch, height);
}

host::Image ReadImageDump(const DumpFile& file, int width) {
    return ReadImageDump(file.path, FormatOf(file.name.role), width, file.name.first,
                         file.name.height);
}

std::vector<std::string> MissingOfSet(const fs::path& folder, const std::vector<fs::path>& files,
                                      bool disparity) {
    DumpSet set;
    for (const fs::path& path : files) {
        if (auto found = SetOfFile(path)) {
            set = *std::move(found);
            break;
        }
    }
    std::vector<std::string> missing;
    std::size_t largest = 1; // bytes of a file that was cut short
    for (const DumpRole role : {DumpRole::kMain, DumpRole::kAux, DumpRole::kOutput,
                                DumpRole::kParameters, DumpRole::kDisparity}) {
        const auto& file = set.file(role);
        if (!file && (role != DumpRole::kDisparity || disparity)) {
            missing.push_back(fmt::format("expected the {} file, found none", RoleName(role)));
        } else if (file && role == DumpRole::kParameters) {
            for (const std::string& problem : ReadParameters(set).problems) {
                missing.push_back(fmt::format("{}: {}", file->path.filename().string(), problem));
            }
        } else if (file && file->bytes < ImageBytes(file->name)) {
            largest = std::max(largest, ImageBytes(file->name));
            missing.push_back(fmt::format("{}: expected {} bytes, found {}",
                                          file->path.filename().string(), ImageBytes(file->name),
                                          file->bytes));
        }
    }
    // The node tells of no failed write. What stopped it stops another file as well.
    const std::string reason = missing.empty() ? "" : ReasonAgainst(folder, largest);
    if (!reason.empty()) {
        missing.insert(missing.begin(),
                       fmt::format("{}: cannot be written: {}", folder.string(), reason));
    }
    return missing;
}

ParameterText ReadParameters(const DumpSet& set) {
    const auto& file = set.file(DumpRole::kParameters);
    if (!file) {
        Refuse(set.name(), "a parameter text", "none");
    }
    return ParseParameterText(ReadFileBytes(file->path, kLongestParameterText));
}

int WidthOf(const DumpSet& set, DumpRole role) {
    const auto& file = set.file(role);
    const auto& parameters = set.file(DumpRole::kParameters);
    if (role != DumpRole::kAux) {
        return file         ? NamedWidth(set, file->name).value_or(file->name.first)
               : parameters ? parameters->name.first
                            : 0;
    }
    // A name may claim any size: no file is read for an image that cannot be.
    if (!CanBeImage(Format::Nv12, file->name.first, file->name.height)) {
        return file->name.first;
    }
    const ParameterText text = parameters ? ReadParameters(set) : ParameterText{};
    const bool usable = parameters && text.problems.empty();
    return AuxWidth(set, usable ? &text.values : nullptr,
                    ReadFileStart(file->path, ImageBytes(file->name)));
}

int AuxWidth(const DumpSet& set, const DumpParameters* parameters, const Bytes& bytes) {
    const DumpName& aux = set.file(DumpRole::kAux)->name;
    const auto& main = set.file(DumpRole::kMain);
    if (main && main->name.first == aux.first && main->name.height == aux.height) {
        return WidthOf(set, DumpRole::kMain);
    }
    // The parameters' name fits the aux image alone: main and aux have exchanged their names.
    if (main && !NamedWidth(set, main->name) && NamedWidth(set, aux)) {
        return *NamedWidth(set, aux);
    }
    const int padded = WidthBeforePadding(bytes, aux.first, aux.height);
    if (parameters == nullptr || parameters->auxCropWidth <= 0 || parameters->auxCropHeight <= 0) {
        return padded;
    }
    const AspectWidth width = WidthByAspect(*parameters, aux.height);
    // Padding is measured in the image and so comes first. It misleads where a picture's own edge
    // is of one colour; then the aspect decides, if it leaves a plausible padding.
    const bool agrees = padded >= width.lowest - 1 && padded <= width.highest + 1;
    const bool plausible = width.likeliest <= aux.first &&
                           width.likeliest > aux.first - kMostPadding &&
                           width.likeliest > aux.first * 7 / 10;
    return !agrees && plausible ? width.likeliest : padded;
}

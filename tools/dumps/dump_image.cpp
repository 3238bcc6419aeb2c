#include "tools/dumps/dump_image.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>

#include "host/picture/errors.h"

namespace fs = std::filesystem;

namespace {

host::Image FromBytes(host::Image::Format format, const Bytes& bytes, int width, int pitch,
                      int height) {
    host::Image image(format, std::min(width, pitch), height, pitch);
    if (!bytes.empty()) {
        std::memcpy(image.bytes().data(), bytes.data(),
                    std::min(bytes.size(), image.bytes().size()));
    }
    return image;
}

Bytes ReadAtLeast(const fs::path& path, std::size_t expected, int pitch, int height) {
    Bytes bytes = ReadFileBytes(path);
    if (bytes.size() < expected) {
        throw UseError(path.string() + ": expected " + std::to_string(expected) + " bytes for " +
                       std::to_string(pitch) + "x" + std::to_string(height) + ", found " +
                       std::to_string(bytes.size()));
    }
    return bytes;
}

// Columns before the padding: behind them every byte of both planes is the same as the one above.
int WidthBeforePadding(const Bytes& bytes, int pitch, int height) {
    if (bytes.size() < Nv12Bytes(pitch, height)) {
        return pitch;
    }
    const auto constant = [&](int column) {
        const auto at = [&](int row) {
            return bytes[static_cast<std::size_t>(row) * static_cast<std::size_t>(pitch) +
                         static_cast<std::size_t>(column)];
        };
        for (int row = 1; row < height + height / 2; ++row) {
            if (row != height && at(row) != at(row - 1)) {
                return false;
            }
        }
        return true;
    };
    int width = pitch;
    while (width > 0 && constant(width - 1)) {
        --width;
    }
    return width + width % 2;
}

} // namespace

std::size_t Nv12Bytes(int pitch, int height) {
    return static_cast<std::size_t>(pitch) * static_cast<std::size_t>(height + height / 2);
}

std::size_t Y8Bytes(int pitch, int height) {
    return static_cast<std::size_t>(pitch) * static_cast<std::size_t>(height);
}

host::Image ReadNv12Dump(const fs::path& path, int width, int pitch, int height) {
    return Nv12FromBytes(ReadAtLeast(path, Nv12Bytes(pitch, height), pitch, height), width, pitch,
                         height);
}

host::Image ReadY8Dump(const fs::path& path, int width, int pitch, int height) {
    return Y8FromBytes(ReadAtLeast(path, Y8Bytes(pitch, height), pitch, height), width, pitch,
                       height);
}

host::Image Nv12FromBytes(const Bytes& bytes, int width, int pitch, int height) {
    return FromBytes(host::Image::Format::Nv12, bytes, width, pitch, height);
}

host::Image Y8FromBytes(const Bytes& bytes, int width, int pitch, int height) {
    return FromBytes(host::Image::Format::Y8, bytes, width, pitch, height);
}

namespace {

// The width in the parameters' name, where it can be that of a file with this name.
std::optional<int> NamedWidth(const DumpSet& set, const DumpName& name) {
    const auto& parameters = set.file(DumpRole::kParameters);
    const bool fits = parameters && parameters->name.height == name.height &&
                      parameters->name.first <= name.first;
    return fits ? std::optional(parameters->name.first) : std::nullopt;
}

// What an aux image's width can be by the part of the sensor that it shows.
struct AspectWidth {
    double lowest = 0;
    double highest = 0;
    int likeliest = 0; // even
};

AspectWidth WidthByAspect(const DumpParameters& parameters, int height) {
    // Sides of the sensor's part are whole pixels, cut off at both ends: two off at the most.
    const auto across = static_cast<double>(parameters.auxCropWidth);
    const auto down = static_cast<double>(parameters.auxCropHeight);
    return {height * (across - 2) / (down + 2), height * (across + 2) / std::max(down - 2, 1.0),
            static_cast<int>(std::lround(height * across / down / 2)) * 2};
}

} // namespace

int MainWidth(const DumpSet& set) {
    const auto& main = set.file(DumpRole::kMain);
    const auto& parameters = set.file(DumpRole::kParameters);
    if (main) {
        return NamedWidth(set, main->name).value_or(main->name.first);
    }
    return parameters ? parameters->name.first : 0;
}

int OutputWidth(const DumpSet& set) {
    const DumpName& output = set.file(DumpRole::kOutput)->name;
    return NamedWidth(set, output).value_or(output.first);
}

int AuxWidth(const DumpSet& set, const DumpParameters* parameters, const Bytes& bytes) {
    constexpr int kMostPadding = 128;
    const DumpName& aux = set.file(DumpRole::kAux)->name;
    const auto& main = set.file(DumpRole::kMain);
    if (main && main->name.first == aux.first && main->name.height == aux.height) {
        return MainWidth(set);
    }
    // Names that say so have changed places.
    if (main && !NamedWidth(set, main->name) && NamedWidth(set, aux)) {
        return *NamedWidth(set, aux);
    }
    const int padded = WidthBeforePadding(bytes, aux.first, aux.height);
    if (parameters == nullptr || parameters->auxCropWidth <= 0 || parameters->auxCropHeight <= 0) {
        return padded;
    }
    const AspectWidth width = WidthByAspect(*parameters, aux.height);
    const bool padding = padded >= width.lowest - 1 && padded <= width.highest + 1;
    const bool plausible = width.likeliest <= aux.first &&
                           width.likeliest > aux.first - kMostPadding &&
                           width.likeliest > aux.first * 7 / 10;
    return !padding && plausible ? width.likeliest : padded;
}

ParameterText ReadParameters(const DumpSet& set) {
    const auto& file = set.file(DumpRole::kParameters);
    if (!file) {
        throw UseError(set.name() + ": expected a parameter text, found none");
    }
    const Bytes bytes = ReadFileBytes(file->path);
    return ParseParameterText(
        std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

int WidthOf(const DumpSet& set, DumpRole role) {
    switch (role) {
    case DumpRole::kOutput:
        return OutputWidth(set);
    case DumpRole::kAux:
        if (set.file(DumpRole::kParameters)) {
            const ParameterText text = ReadParameters(set);
            const bool read = text.problems.empty();
            return AuxWidth(set, read ? &text.values : nullptr,
                            ReadFileBytes(set.file(DumpRole::kAux)->path));
        }
        return AuxWidth(set, nullptr, ReadFileBytes(set.file(DumpRole::kAux)->path));
    default:
        return MainWidth(set);
    }
}

#include "tools/dumps/dump_image.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>

#include "tools/errors.h"

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

int MainWidth(const DumpSet& set) {
    const auto& main = set.file(DumpRole::kMain);
    const auto& parameters = set.file(DumpRole::kParameters);
    if (!main) {
        return parameters ? parameters->name.first : 0;
    }
    const bool known = parameters && parameters->name.first <= main->name.first;
    return known ? parameters->name.first : main->name.first;
}

int OutputWidth(const DumpSet& set) {
    const auto& main = set.file(DumpRole::kMain);
    const auto& output = set.file(DumpRole::kOutput);
    const int width = MainWidth(set);
    if (!output) {
        return width;
    }
    const bool alike = width > 0 && width <= output->name.first &&
                       (!main || main->name.height == output->name.height);
    return alike ? width : output->name.first;
}

int AuxWidth(const DumpSet& set, const DumpParameters* parameters, const Bytes& bytes) {
    const DumpName& aux = set.file(DumpRole::kAux)->name;
    const auto& main = set.file(DumpRole::kMain);
    if (main && main->name.first == aux.first && main->name.height == aux.height) {
        return MainWidth(set);
    }
    const int padded = WidthBeforePadding(bytes, aux.first, aux.height);
    if (parameters == nullptr || parameters->auxCropWidth <= 0 || parameters->auxCropHeight <= 0) {
        return padded;
    }
    // Sides of the sensor's part are whole pixels, cut off at both ends: two off at the most.
    const auto width = static_cast<double>(parameters->auxCropWidth);
    const auto height = static_cast<double>(parameters->auxCropHeight);
    const double lowest = aux.height * (width - 2) / (height + 2);
    const double highest = aux.height * (width + 2) / std::max(height - 2, 1.0);
    if (padded >= lowest - 1 && padded <= highest + 1) {
        return padded;
    }
    const int byAspect = static_cast<int>(std::lround(aux.height * width / height / 2)) * 2;
    return byAspect >= 2 && byAspect <= aux.first ? byAspect : aux.first;
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

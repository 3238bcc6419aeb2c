// What names and lengths of the files tell, and how the rows in them run.

#include <algorithm>
#include <cstdlib>
#include <string>

#include "tools/dumps/dump_image.h"
#include "tools/inspect/checks.h"
#include "tools/inspect/file_layout.h"

namespace {

constexpr DumpRole kImages[] = {DumpRole::kMain, DumpRole::kAux, DumpRole::kOutput};

// How much better another pitch must fit than the named one.
constexpr double kPitchFit = 0.82;
constexpr double kLeastUnlike = 0.5; // mean step to the next row: with less there is nothing to fit
constexpr int kLeastPitchChange = 8; // slanted structure fits best a few bytes beside its pitch

// How much better chroma must start at another row than at the named one: with an edge that stands
// out, little of a gain will do.
constexpr double kChromaGain = 0.12;
constexpr double kChromaEdge = 1.6;
constexpr double kLeastGain = 0.03;
constexpr double kSharpEdge = 3.0;
constexpr int kLeastHeightChange = 4;

std::string SizeText(int first, int second) {
    return std::to_string(first) + "x" + std::to_string(second);
}

std::string Named(const DumpFile& file) {
    return file.path.filename().string() + ": named " + SizeText(file.name.first, file.name.height);
}

std::optional<int> WrongPitch(const DumpFile& file, const Bytes& bytes) {
    // Luma alone, for which two thirds of the file are too much where rows are missing at its end.
    const std::size_t luma = std::min(bytes.size(), ImageBytes(file.name)) / 2;
    const auto period = FindRowPeriod(std::span(bytes).first(luma), file.name.first);
    if (!period || std::abs(period->pitch - file.name.first) < kLeastPitchChange ||
        period->namedLikeness < kLeastUnlike ||
        period->likeness > kPitchFit * period->namedLikeness) {
        return std::nullopt;
    }
    return period->pitch;
}

// Whether another file's name says this height; the aux image's says nothing of the others.
bool IsNamedHeight(const DumpSet& set, const DumpFile& file, int height) {
    return file.name.role != DumpRole::kAux &&
           std::ranges::any_of(set.files, [&](const std::optional<DumpFile>& other) {
               return other && other->name.role != DumpRole::kAux && other->name.height == height;
           });
}

std::optional<int> WrongHeight(const DumpSet& set, const DumpFile& file, const Bytes& bytes) {
    const auto start = FindChromaStart(bytes, file.name.first, file.name.height);
    if (!start || std::abs(start->row - file.name.height) < kLeastHeightChange) {
        return std::nullopt;
    }
    // A file that ends within its luma has no chroma to start anywhere; a few rows of it are enough
    // only behind a sharp edge.
    const int behind = start->edge > kSharpEdge ? 8 : start->row / 8;
    const bool inside = start->row >= 8 && start->row + behind < start->rows;
    const bool clear = start->edge > 2 * start->namedEdge &&
                       ((start->gain > kChromaGain && start->edge > kChromaEdge) ||
                        (start->gain > kLeastGain && start->edge > kSharpEdge));
    const bool agreed =
        start->gain > 0 && start->edge > start->namedEdge && IsNamedHeight(set, file, start->row);
    return inside && (clear || agreed) ? std::optional(start->row) : std::nullopt;
}

// Where the content does not tell the height: the height that the other names say, if the file's
// length is just that of it.
std::optional<int> HeightByLength(const DumpSet& set, const DumpFile& file) {
    for (const auto& other : set.files) {
        if (other && other->name.height != file.name.height &&
            IsNamedHeight(set, file, other->name.height) &&
            file.bytes ==
                ImageBytes(host::Image::Format::Nv12, file.name.first, other->name.height)) {
            return other->name.height;
        }
    }
    return std::nullopt;
}

void CheckLayout(Inspection& inspection, const DumpFile& file) {
    const DumpRole role = file.name.role;
    const Bytes& bytes = inspection.bytes[static_cast<std::size_t>(role)];
    const std::size_t expected = ImageBytes(file.name);
    const auto report = [&](Problem problem, const std::string& text) {
        inspection.findings.push_back({problem, role, Named(file) + ", " + text});
    };
    if (const auto pitch = WrongPitch(file, bytes)) {
        report(Problem::kPitch, "but its rows repeat every " + std::to_string(*pitch) + " bytes");
        return;
    }
    auto height = WrongHeight(inspection.set, file, bytes);
    if (!height && bytes.size() != expected) {
        height = HeightByLength(inspection.set, file);
    }
    if (height) {
        report(Problem::kHeight,
               "but its chroma starts after " + std::to_string(*height) + " rows");
    } else if (bytes.size() != expected) {
        report(bytes.size() < expected ? Problem::kTruncated : Problem::kGrown,
               "expected " + std::to_string(expected) + " bytes, found " +
                   std::to_string(bytes.size()) +
                   (bytes.size() < expected
                        ? ""
                        : "; an older, longer file of this name keeps its tail"));
    }
}

} // namespace

void CheckPresence(Inspection& inspection) {
    const DumpSet& set = inspection.set;
    for (const DumpRole role :
         {DumpRole::kMain, DumpRole::kAux, DumpRole::kOutput, DumpRole::kParameters}) {
        if (!set.file(role)) {
            inspection.findings.push_back(
                {Problem::kMissing, role,
                 std::string("expected the ") + RoleName(role) + " file, found none"});
        }
    }
    if (!set.file(DumpRole::kDisparity)) {
        inspection.notes.emplace_back(
            "no disparity: the engine had not run in this node, as with a debug view or without "
            "calibration");
    }
    for (const auto& path : set.surplus) {
        inspection.findings.push_back({Problem::kSurplus, std::nullopt,
                                       path.filename().string() +
                                           ": expected one file of its kind, found another of the "
                                           "same second; the later one is looked at"});
    }
}

void CheckImageLayouts(Inspection& inspection) {
    for (const DumpRole role : kImages) {
        const auto& file = inspection.set.file(role);
        if (!file) {
            continue;
        }
        if (!inspection.image(role)) {
            inspection.findings.push_back(
                {Problem::kNames, role,
                 Named(*file) +
                     ", expected an even pitch, two rows or more, and a size near that of the "
                     "file's " +
                     std::to_string(file->bytes) + " bytes"});
            continue;
        }
        CheckLayout(inspection, *file);
    }
}

void CheckDisparitySize(Inspection& inspection) {
    const auto& file = inspection.set.file(DumpRole::kDisparity);
    if (!file) {
        return;
    }
    const std::size_t expected = ImageBytes(file->name);
    if (file->bytes < expected) {
        inspection.findings.push_back({Problem::kDisparity, DumpRole::kDisparity,
                                       Named(*file) + ", expected " + std::to_string(expected) +
                                           " bytes, found " + std::to_string(file->bytes)});
    } else if (file->bytes > expected) {
        inspection.findings.push_back(
            {Problem::kGrown, DumpRole::kDisparity,
             Named(*file) + ", expected " + std::to_string(expected) + " bytes, found " +
                 std::to_string(file->bytes) +
                 "; the node's buffer was made for a larger picture, or an older file of this "
                 "name keeps its tail"});
    }
}

void CheckNames(Inspection& inspection) {
    const DumpSet& set = inspection.set;
    const auto& main = set.file(DumpRole::kMain);
    if (!main) {
        return;
    }
    const auto differ = [&](const DumpFile& file, const std::string& why) {
        inspection.findings.push_back({Problem::kNames, file.name.role,
                                       Named(file) + ", " + why + ", the main image " +
                                           SizeText(main->name.first, main->name.height)});
    };
    if (const auto& file = set.file(DumpRole::kParameters)) {
        if (file->name.height != main->name.height || file->name.first > main->name.first) {
            differ(*file, "expected the main image's height and at most its pitch");
        }
    }
    if (const auto& file = set.file(DumpRole::kDisparity)) {
        if (file->name.height != main->name.height || file->name.first != main->name.first) {
            differ(*file, "expected the main image's pitch and height");
        }
    }
    if (const auto& file = set.file(DumpRole::kOutput)) {
        if (file->name.height != main->name.height) {
            differ(*file, "expected the main image's height");
        }
    }
}

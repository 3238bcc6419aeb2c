// Checks of the files' names and lengths and of the rows in them.

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <future>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "host/picture/image_file.h"
#include "tools/dumps/dump_image.h"
#include "tools/inspect/checks.h"
#include "tools/inspect/file_layout.h"

namespace {

// The limits of this file are held by scripts/inspect-corruptions, which wants 99 % of its seeded
// corruptions named rightly and at most 1 % of good sets suspected. Another pitch is reported only
// if its mean step is below this share of the named pitch's.
constexpr double kPitchFit = 0.82;
// With a smaller mean step (grey levels) to the next row the image has no structure to judge by.
constexpr double kLeastStep = 0.5;
constexpr int kLeastPitchChange = 8; // slanted structure fits best a few bytes beside its pitch

// Another height is reported only if luma ends there clearly better than at the named one: a small
// gain is enough where a sharp edge between the rows confirms it.
constexpr double kChromaGain = 0.12;
constexpr double kChromaEdge = 1.6;
constexpr double kLeastGain = 0.03;
constexpr double kSharpEdge = 3.0;
constexpr int kLeastHeightChange = 4;

std::string Named(const DumpFile& file) {
    return fmt::format("{}: named {}x{}", file.path.filename().string(), file.name.first,
                       file.name.height);
}

std::optional<int> WrongPitch(const DumpFile& file, const Bytes& bytes) {
    // Two thirds of an image are luma; half of it holds no chroma even if the height is wrong.
    const std::size_t luma = std::min(bytes.size(), ImageBytes(file.name)) / 2;
    const auto period = FindRowPeriod(std::span(bytes).first(luma), file.name.first);
    if (!period || std::abs(period->pitch - file.name.first) < kLeastPitchChange ||
        period->namedMeanStep < kLeastStep ||
        period->meanStep > kPitchFit * period->namedMeanStep) {
        return std::nullopt;
    }
    return period->pitch;
}

// Whether the name of another file gives this height. Only the aux image may have its own height.
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
    // A file that ends within its luma has no chroma: enough rows must follow, of which a sharp
    // edge needs few.
    const int behind = start->edge > kSharpEdge ? 8 : start->row / 8;
    const bool inside = start->row >= 8 && start->row + behind < start->rows;
    const bool clear = start->edge > 2 * start->namedEdge &&
                       ((start->gain > kChromaGain && start->edge > kChromaEdge) ||
                        (start->gain > kLeastGain && start->edge > kSharpEdge));
    const bool agreed =
        start->gain > 0 && start->edge > start->namedEdge && IsNamedHeight(set, file, start->row);
    return inside && (clear || agreed) ? std::optional(start->row) : std::nullopt;
}

// For content that does not tell the height: another file's height, if this file has exactly the
// length that belongs to it.
std::optional<int> HeightByLength(const DumpSet& set, const DumpFile& file) {
    for (const auto& other : set.files) {
        if (other && other->name.height != file.name.height &&
            IsNamedHeight(set, file, other->name.height) &&
            file.bytes ==
                ImageBytes(FormatOf(file.name.role), file.name.first, other->name.height)) {
            return other->name.height;
        }
    }
    return std::nullopt;
}

// The pitch comes first: where it is wrong, rows are no rows, and neither their number nor the
// length means anything.
std::optional<Finding> FindWrongLayout(const Inspection& inspection, const DumpFile& file) {
    const DumpRole role = file.name.role;
    const Bytes& bytes = inspection.bytes[static_cast<std::size_t>(role)];
    if (const auto pitch = WrongPitch(file, bytes)) {
        return Finding{Problem::kPitch, role,
                       fmt::format("{}, but its rows repeat every {} bytes", Named(file), *pitch)};
    }
    const std::size_t expected = ImageBytes(file.name);
    auto height = WrongHeight(inspection.set, file, bytes);
    if (!height && file.bytes != expected) {
        height = HeightByLength(inspection.set, file);
    }
    if (height) {
        return Finding{
            Problem::kHeight, role,
            fmt::format("{}, but its chroma starts after {} rows", Named(file), *height)};
    }
    if (file.bytes != expected) {
        const bool truncated = file.bytes < expected;
        return Finding{truncated ? Problem::kTruncated : Problem::kGrown, role,
                       fmt::format("{}, expected {} bytes, found {}{}", Named(file), expected,
                                   file.bytes,
                                   truncated ? "" : "; the end is left of a longer file")};
    }
    return std::nullopt;
}

} // namespace

void CheckPresence(Inspection& inspection) {
    const DumpSet& set = inspection.set;
    for (const DumpRole role :
         {DumpRole::kMain, DumpRole::kAux, DumpRole::kOutput, DumpRole::kParameters}) {
        if (!set.file(role)) {
            inspection.Report(Problem::kMissing, role,
                              fmt::format("expected the {} file, found none", RoleName(role)));
        }
    }
    if (!set.file(DumpRole::kDisparity)) {
        inspection.notes.push_back("no disparity: " +
                                   (inspection.engineFailure.empty()
                                        ? "the engine failed, which the log shows with a code, or "
                                          "was not asked, as with a "
                                          "debug view or without calibration"
                                        : inspection.engineFailure));
    }
    for (const auto& path : set.surplus) {
        inspection.Report(Problem::kSurplus, std::nullopt,
                          path.filename().string() +
                              ": expected one file of its kind, found another of the same second; "
                              "the later one is inspected");
    }
}

void CheckImageLayouts(Inspection& inspection) {
    std::vector<std::future<std::optional<Finding>>> layouts; // on all cores
    for (const DumpRole role : {DumpRole::kMain, DumpRole::kAux, DumpRole::kOutput}) {
        const auto& file = inspection.set.file(role);
        if (file && inspection.image(role)) {
            layouts.push_back(std::async(std::launch::async, FindWrongLayout, std::cref(inspection),
                                         std::cref(*file)));
        } else if (file) {
            inspection.Report(Problem::kNames, role,
                              fmt::format("{}, expected an even pitch, two rows to {}x{}, and a "
                                          "size near that of the file's {} bytes",
                                          Named(*file), kLongestPitch, kLongestSide, file->bytes));
        }
    }
    // Findings come in the order of the roles, whichever thread ends first.
    for (auto& layout : layouts) {
        if (auto finding = layout.get()) {
            inspection.findings.push_back(std::move(*finding));
        }
    }
}

void CheckDisparitySize(Inspection& inspection) {
    const auto& file = inspection.set.file(DumpRole::kDisparity);
    if (!file) {
        return;
    }
    const std::size_t expected = ImageBytes(file->name);
    const bool truncated = file->bytes < expected;
    if (file->bytes != expected) {
        inspection.Report(truncated ? Problem::kDisparity : Problem::kGrown, DumpRole::kDisparity,
                          fmt::format("{}, expected {} bytes, found {}{}", Named(*file), expected,
                                      file->bytes,
                                      truncated ? ""
                                                : "; the node's buffer was made for a larger "
                                                  "picture, or the end is left of a longer file"));
    }
}

void CheckNames(Inspection& inspection) {
    if (!inspection.set.file(DumpRole::kMain)) {
        return;
    }
    const DumpName& main = inspection.set.file(DumpRole::kMain)->name;
    // The aux image is left out: its camera may deliver another size.
    const auto require = [&](DumpRole role, const char* expected, const auto& agrees) {
        const auto& file = inspection.set.file(role);
        if (file && !agrees(file->name)) {
            inspection.Report(Problem::kNames, role,
                              fmt::format("{}, expected the main image's {}, which is {}x{}",
                                          Named(*file), expected, main.first, main.height));
        }
    };
    require(DumpRole::kParameters, "height and at most its pitch", [&](const DumpName& name) {
        return name.height == main.height && name.first <= main.first;
    });
    require(DumpRole::kDisparity, "pitch and height", [&](const DumpName& name) {
        return name.height == main.height && name.first == main.first;
    });
    require(DumpRole::kOutput, "height",
            [&](const DumpName& name) { return name.height == main.height; });
}

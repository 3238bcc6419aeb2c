#include "tools/inspect/inspection.h"

#include <algorithm>

#include "tools/dumps/dump_image.h"
#include "tools/inspect/checks.h"

namespace {

// In this order: later ones look at what earlier ones found.
constexpr InspectionCheck kChecks[] = {
    CheckPresence,    CheckImageLayouts, CheckDisparitySize, CheckNames,
    CheckParameters,  CheckWritten,      CheckSwapped,       CheckFallback,
    CheckAuxRotation, CheckMoment,       CheckChroma,
};

int WidthOfImage(const Inspection& inspection, DumpRole role) {
    if (role == DumpRole::kAux) {
        return AuxWidth(inspection.set, inspection.parameters ? &*inspection.parameters : nullptr,
                        inspection.bytes[static_cast<std::size_t>(role)]);
    }
    return WidthOf(inspection.set, role);
}

// Whether there can be an image of this name: an even pitch for NV12, and not so large that the
// file's bytes are next to nothing of it.
bool CanBeRead(const DumpFile& file) {
    constexpr std::size_t kAlwaysRead = std::size_t{1} << 26;
    const bool nv12 = file.name.role != DumpRole::kDisparity;
    const std::size_t expected =
        ImageBytes(host::Image::Format::Nv12, file.name.first, file.name.height);
    return (!nv12 || (file.name.first % 2 == 0 && file.name.height >= 2)) &&
           (expected <= kAlwaysRead || expected / 4 <= file.bytes);
}

void ReadImages(Inspection& inspection) {
    for (const DumpRole role :
         {DumpRole::kMain, DumpRole::kAux, DumpRole::kOutput, DumpRole::kDisparity}) {
        const auto& file = inspection.set.file(role);
        if (!file || !CanBeRead(*file)) {
            continue;
        }
        inspection.images[static_cast<std::size_t>(role)] =
            ImageFromBytes(FormatOf(role), inspection.bytes[static_cast<std::size_t>(role)],
                           WidthOfImage(inspection, role), file->name.first, file->name.height);
    }
}

} // namespace

const char* NameOf(Problem problem) {
    switch (problem) {
    case Problem::kMissing:
        return "missing";
    case Problem::kSurplus:
        return "two-captures";
    case Problem::kTruncated:
        return "truncated";
    case Problem::kGrown:
        return "grown";
    case Problem::kPitch:
        return "pitch";
    case Problem::kHeight:
        return "height";
    case Problem::kDisparity:
        return "disparity-small";
    case Problem::kNames:
        return "names";
    case Problem::kParameters:
        return "parameters";
    case Problem::kAuxRotated:
        return "aux-rotated";
    case Problem::kSwapped:
        return "main-aux-swapped";
    case Problem::kChroma:
        return "u-v-swapped";
    case Problem::kMoment:
        return "not-one-moment";
    case Problem::kFallback:
        return "fallback";
    }
    return "";
}

bool Inspection::Has(Problem problem) const {
    return std::ranges::any_of(findings, [&](const Finding& f) { return f.problem == problem; });
}

bool Inspection::Has(Problem problem, DumpRole file) const {
    return std::ranges::any_of(
        findings, [&](const Finding& f) { return f.problem == problem && f.file == file; });
}

Inspection Inspect(const DumpSet& set) {
    Inspection inspection;
    inspection.set = set;
    for (std::size_t role = 0; role < set.files.size(); ++role) {
        if (set.files[role]) {
            inspection.bytes[role] = ReadFileBytes(set.files[role]->path);
        }
    }
    if (set.file(DumpRole::kParameters)) {
        const Bytes& bytes = inspection.bytes[static_cast<std::size_t>(DumpRole::kParameters)];
        ParameterText text = ParseParameterText(bytes);
        for (std::string& problem : text.problems) {
            inspection.findings.push_back(
                {Problem::kParameters, DumpRole::kParameters, std::move(problem)});
        }
        if (inspection.findings.empty()) {
            inspection.parameters = std::move(text.values);
        }
    }
    ReadImages(inspection);
    for (const InspectionCheck check : kChecks) {
        check(inspection);
    }
    std::ranges::stable_sort(inspection.findings, {}, &Finding::problem);
    return inspection;
}

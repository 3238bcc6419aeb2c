#include "tools/inspect/inspection.h"

#include <algorithm>
#include <future>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/dumps/dump_image.h"
#include "tools/inspect/checks.h"

using Json = nlohmann::ordered_json;

namespace {

// The order matters: see checks.h.
constexpr InspectionCheck kChecks[] = {
    CheckPresence,    CheckImageLayouts, CheckDisparitySize, CheckNames,
    CheckParameters,  CheckWritten,      CheckSwapped,       CheckFallback,
    CheckAuxRotation, CheckMoment,       CheckChroma,
};

// By Problem.
constexpr const char* kProblemNames[] = {
    "missing",         "two-captures",     "pitch",       "height", "truncated",  "grown",
    "disparity-small", "main-aux-swapped", "aux-rotated", "names",  "parameters", "not-one-moment",
    "u-v-swapped",     "fallback",
};
static_assert(std::size(kProblemNames) == static_cast<std::size_t>(Problem::kFallback) + 1);

// Whether there can be an image of this name. The file must hold a good part of a large image, or a
// wrong name would cost gigabytes.
bool CanBeRead(const DumpFile& file) {
    // 64 MB hold an image of 40 megapixels, whose missing bytes cost little as zeros.
    constexpr std::size_t kAlwaysRead = std::size_t{1} << 26;
    const std::size_t expected = ImageBytes(file.name);
    return CanBeImage(FormatOf(file.name.role), file.name.first, file.name.height) &&
           (expected <= kAlwaysRead || expected / 4 <= file.bytes);
}

void ReadImage(Inspection& inspection, DumpRole role) {
    const auto& file = inspection.set.file(role);
    if (!file || !CanBeRead(*file)) {
        return;
    }
    Bytes& bytes = inspection.bytes[static_cast<std::size_t>(role)];
    bytes = ReadFileStart(file->path, 2 * ImageBytes(file->name)); // the name may say too little
    const auto& parameters = inspection.parameters;
    const int width = role == DumpRole::kAux
                          ? AuxWidth(inspection.set, parameters ? &*parameters : nullptr, bytes)
                          : WidthOf(inspection.set, role);
    inspection.images[static_cast<std::size_t>(role)] =
        ImageFromBytes(FormatOf(role), bytes, width, file->name.first, file->name.height);
}

constexpr DumpRole kRolesShown[] = {DumpRole::kMain, DumpRole::kAux, DumpRole::kOutput,
                                    DumpRole::kDisparity, DumpRole::kParameters};

std::string ParameterLines(const DumpParameters& values) {
    std::string text;
    const auto line = [&text](const char* name, const std::string& value) {
        text += fmt::format("    {:<17} {}\n", name, value);
    };
    line("blur", fmt::to_string(values.blur));
    line("focus", fmt::format("{},{}", values.focusX, values.focusY));
    line("main crop", fmt::format("{}x{}", values.mainCropWidth, values.mainCropHeight));
    line("aux crop", fmt::format("{}x{}", values.auxCropWidth, values.auxCropHeight));
    line("rotation", fmt::to_string(values.degree));
    line("faces", fmt::to_string(values.faces.size()));
    for (const DumpedFace& face : values.faces) {
        line("", fmt::format("{},{} to {},{}, orientation {}", face.left, face.top, face.right,
                             face.bottom, face.orient));
    }
    return text;
}

} // namespace

const char* NameOf(Problem problem) {
    return kProblemNames[static_cast<std::size_t>(problem)];
}

bool Inspection::Has(Problem problem) const {
    return std::ranges::any_of(findings, [&](const Finding& f) { return f.problem == problem; });
}

bool Inspection::Has(Problem problem, DumpRole file) const {
    return std::ranges::any_of(
        findings, [&](const Finding& f) { return f.problem == problem && f.file == file; });
}

Inspection Inspect(const DumpSet& set, const std::string& engineFailure) {
    Inspection inspection;
    inspection.set = set;
    inspection.engineFailure = engineFailure;
    // Parameters come before the images, since the width of the aux image may follow from them.
    if (const auto& file = set.file(DumpRole::kParameters)) {
        ParameterText text = ParseParameterText(ReadFileStart(file->path, kLongestParameterText));
        for (std::string& problem : text.problems) {
            inspection.Report(Problem::kParameters, DumpRole::kParameters, std::move(problem));
        }
        // A text with a problem is not trusted in any of its values.
        if (inspection.findings.empty()) {
            inspection.parameters = std::move(text.values);
        }
    }
    // Each thread writes only the bytes and the image of its own role.
    std::vector<std::future<void>> reading;
    for (const DumpRole role :
         {DumpRole::kMain, DumpRole::kAux, DumpRole::kOutput, DumpRole::kDisparity}) {
        reading.push_back(
            std::async(std::launch::async, [&inspection, role] { ReadImage(inspection, role); }));
    }
    for (auto& image : reading) {
        image.get();
    }
    for (const InspectionCheck check : kChecks) {
        check(inspection);
    }
    // Causes come before what follows from them: see Problem.
    std::ranges::stable_sort(inspection.findings, {}, &Finding::problem);
    return inspection;
}

std::vector<std::string> FindPairProblems(const host::Image& main, const host::Image& aux,
                                          int auxSide) {
    // These two images have no files, so that only the checks of pixels apply.
    Inspection pair;
    pair.images[static_cast<std::size_t>(DumpRole::kMain)] = main;
    pair.images[static_cast<std::size_t>(DumpRole::kAux)] = aux;
    for (const InspectionCheck check : {CheckWritten, CheckAuxRotation, CheckMoment, CheckChroma}) {
        check(pair);
    }
    std::vector<std::string> problems = pair.notes;
    for (const Finding& finding : pair.findings) {
        problems.push_back(finding.text);
    }
    // Images that do not match are displaced in no direction.
    if (const std::string text = problems.empty() ? WrongSide(main, aux, auxSide) : "";
        !text.empty()) {
        problems.push_back(text);
    }
    return problems;
}

std::string ToText(const Inspection& inspection) {
    std::string text = inspection.set.name() + "\n";
    for (const DumpRole role : kRolesShown) {
        if (const auto& file = inspection.set.file(role)) {
            const auto& image = inspection.image(role);
            text += fmt::format("  {:<11} {}{} bytes\n", RoleName(role),
                                image ? fmt::format("{}x{}, pitch {}, ", image->width(),
                                                    image->height(), image->pitch())
                                      : "",
                                file->bytes);
        }
    }
    if (inspection.parameters) {
        text += ParameterLines(*inspection.parameters);
    }
    for (const Finding& finding : inspection.findings) {
        text += fmt::format("  WRONG {}: {}\n", NameOf(finding.problem), finding.text);
    }
    for (const std::string& note : inspection.notes) {
        text += fmt::format("  note: {}\n", note);
    }
    return text + (inspection.findings.empty() ? "  nothing wrong found\n" : "");
}

Json ToJson(const Inspection& inspection) {
    Json files = Json::object();
    for (const DumpRole role : kRolesShown) {
        const auto& file = inspection.set.file(role);
        if (!file) {
            continue;
        }
        Json& entry = files[RoleName(role)];
        entry = {{"file", file->path.string()}, {"bytes", file->bytes}};
        if (const auto& image = inspection.image(role)) {
            entry.update({{"width", image->width()},
                          {"height", image->height()},
                          {"pitch", image->pitch()}});
        }
    }
    Json findings = Json::array();
    for (const Finding& finding : inspection.findings) {
        findings.push_back({{"problem", NameOf(finding.problem)},
                            {"file", finding.file ? Json(RoleName(*finding.file)) : Json(nullptr)},
                            {"text", finding.text}});
    }
    return {{"set", inspection.set.name()},
            {"files", files},
            {"parameters", inspection.parameters ? ToJson(*inspection.parameters) : Json(nullptr)},
            {"findings", findings},
            {"notes", inspection.notes}};
}

#include "tools/commands/commands.h"
#include "tools/commands/shared_options.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <fmt/core.h>

#include "host/picture/errors.h"
#include "host/picture/false_colour.h"
#include "host/picture/image_file.h"
#include "host/picture/nv12.h"
#include "tools/files/json_text.h"
#include "tools/files/output_folder.h"
#include "tools/files/progress.h"
#include "tools/inspect/inspection.h"
#include "tools/report/report_contents.h"

namespace fs = std::filesystem;

namespace {

struct InspectOptions {
    std::vector<fs::path> places;
    fs::path output;
    bool json = false;
    fs::path report;
};

std::vector<std::string> WritePictures(const Inspection& inspection, const fs::path& output,
                                       const std::string& name) {
    const Progress progress("writing the pictures of " + name);
    OutputFolder folder(output);
    for (const DumpRole role : {DumpRole::kMain, DumpRole::kAux, DumpRole::kOutput}) {
        if (const auto& image = inspection.image(role)) {
            folder.Write(name + "_" + RoleName(role) + ".png", EncodePng(Nv12ToRgb(*image)));
        }
    }
    if (const auto& disparity = inspection.image(DumpRole::kDisparity)) {
        const auto size = static_cast<std::int32_t>(disparity->planeSize(0));
        folder.Write(name + "_disparity.png", EncodePng(*DisparityPicture(*disparity, size)));
    }
    folder.Commit();
    return folder.written();
}

std::optional<ReportFile> OpenReport(const fs::path& file, std::size_t sets) {
    if (file.empty()) {
        return std::nullopt;
    }
    if (sets != 1) {
        Refuse("--report", "one dump set", fmt::format("{}; name a file of one", sets));
    }
    return std::optional<ReportFile>(std::in_place, file);
}

void WriteReport(ReportFile& file, const InspectOptions& options, const Inspection& inspection,
                 const std::string& name) {
    Report report = ReportOf(inspection);
    if (!options.output.empty()) {
        for (const DumpRole role : {DumpRole::kMain, DumpRole::kAux, DumpRole::kOutput}) {
            if (inspection.image(role)) {
                const char* const image = RoleName(role);
                report.AddLink(image, options.output / (name + "_" + image + ".png"));
            }
        }
    }
    file.Write(report);
    file.Commit();
}

// A set's inspection and what was written of it.
struct Inspected {
    Inspection inspection;
    std::vector<std::string> written;
};

Inspected InspectOne(const InspectOptions& options, const DumpSet& set, const std::string& name,
                     std::optional<ReportFile>& page) {
    Inspected inspected;
    std::optional<Progress> progress("inspecting " + name);
    inspected.inspection = Inspect(set);
    progress.reset();
    if (!options.output.empty()) {
        inspected.written = WritePictures(inspected.inspection, options.output, name);
    }
    if (page) {
        WriteReport(*page, options, inspected.inspection, name);
        std::ranges::move(page->written(), std::back_inserter(inspected.written));
    }
    return inspected;
}

Json Show(const InspectOptions& options, const Inspected& inspected) {
    Json json = ToJson(inspected.inspection);
    json["written"] = inspected.written;
    if (!options.json) {
        std::printf("%s", ToText(inspected.inspection).c_str());
        PrintWritten(inspected.written);
    }
    return json;
}

// A set that cannot be read is reported in its place; the others are inspected.
int InspectAll(const InspectOptions& options) {
    std::vector<RefusedPlace> refused;
    const std::vector<DumpSet> sets = FindDumpSets(options.places, refused);
    std::optional<ReportFile> page =
        OpenReport(sets.empty() ? fs::path() : options.report, sets.size());
    Json report = Json::array();
    const std::vector<std::string> names = DistinctNames(sets);
    std::size_t wrong = 0;
    for (std::size_t i = 0; i < sets.size(); ++i) {
        const std::string mistake = MistakeIn([&] {
            const Inspected inspected = InspectOne(options, sets[i], names[i], page);
            wrong += inspected.inspection.findings.empty() ? 0 : 1;
            report.push_back(Show(options, inspected));
        });
        if (!mistake.empty()) {
            refused.push_back({sets[i].name(), mistake});
        }
    }
    for (const RefusedPlace& place : refused) {
        std::fprintf(stderr, "bokehnode: %s\n", place.mistake.c_str());
        report.push_back({{"set", place.place.string()}, {"error", place.mistake}});
    }
    if (options.json) {
        std::printf("%s", JsonText(report).c_str());
    } else if (sets.size() > 1) {
        std::printf("%zu of %zu sets look wrong\n", wrong, sets.size());
    }
    if (!refused.empty()) {
        return kExitWrongUse;
    }
    return wrong == 0 ? kExitDone : kExitFailed;
}

} // namespace

std::function<int()> PrepareInspect(Command command) {
    const auto options = std::make_shared<InspectOptions>();
    command
        .Paths("PATH", "FILE", options->places,
               "folders with dump sets in or below them, or files of sets")
        .Required();
    command.Path("-o,--output", "DIR", options->output,
                 "write main, aux, output and disparity of each set as PNG");
    command.Flag("--json", options->json, "say it as JSON");
    AddReportOption(command, options->report);
    command.Footer(
        "Looks for missing files, wrong lengths, a pitch or height that the content contradicts,\n"
        "exchanged U and V, a rotated aux image, exchanged main and aux images, images of\n"
        "different moments, an output that is only a copy, and impossible parameters.\n"
        "--report takes one set.\n"
        "\n"
        "Examples:\n"
        "  adb pull /data/vendor/camera && bokehnode inspect camera -o seen\n"
        "  bokehnode inspect camera/IMG_20240131_235959_0_4096x3000.nv12 --json\n"
        "  bokehnode inspect camera/IMG_20240131_235959 --report seen.html\n"
        "\n" +
        ExitCodes("0 nothing wrong found; 1 something looks wrong"));
    return [options] { return InspectAll(*options); };
}

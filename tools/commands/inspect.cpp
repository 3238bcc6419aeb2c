#include "tools/commands/commands.h"
#include "tools/commands/options.h"

#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <CLI/App.hpp>
#include <CLI/Option.hpp>

#include "host/picture/disparity_picture.h"
#include "host/picture/errors.h"
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

void WritePictures(const Inspection& inspection, const fs::path& output, const std::string& name) {
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
}

std::optional<ReportFile> OpenReport(const fs::path& file, std::size_t sets) {
    if (file.empty()) {
        return std::nullopt;
    }
    if (sets != 1) {
        throw UseError("--report: expected one dump set, found " + std::to_string(sets) +
                       "; name a file of one");
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

Inspection InspectOne(const InspectOptions& options, const DumpSet& set, const std::string& name,
                      std::optional<ReportFile>& page) {
    std::optional<Progress> progress("inspecting " + name);
    Inspection inspection = Inspect(set);
    progress.reset();
    if (!options.output.empty()) {
        WritePictures(inspection, options.output, name);
    }
    if (page) {
        WriteReport(*page, options, inspection, name);
    }
    return inspection;
}

// What cannot be read is reported in its place and does not keep the others from it.
int InspectAll(const InspectOptions& options) {
    std::vector<RefusedPlace> refused;
    const std::vector<DumpSet> sets = FindDumpSets(options.places, refused);
    std::optional<ReportFile> page =
        OpenReport(sets.empty() ? fs::path() : options.report, sets.size());
    nlohmann::ordered_json report = nlohmann::ordered_json::array();
    const std::vector<std::string> names = DistinctNames(sets);
    std::size_t wrong = 0;
    for (std::size_t i = 0; i < sets.size(); ++i) {
        Inspection inspection;
        const std::string mistake =
            MistakeIn([&] { inspection = InspectOne(options, sets[i], names[i], page); });
        if (!mistake.empty()) {
            refused.push_back({sets[i].name(), mistake});
            continue;
        }
        wrong += inspection.findings.empty() ? 0 : 1;
        if (options.json) {
            report.push_back(ToJson(inspection));
        } else {
            std::printf("%s", ToText(inspection).c_str());
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

std::function<int()> PrepareInspect(CLI::App& command) {
    const auto options = std::make_shared<InspectOptions>();
    command
        .add_option("PATH", options->places,
                    "folders with dump sets in or below them, or files of sets")
        ->required();
    command
        .add_option("-o,--output", options->output,
                    "write main, aux, output and disparity of each set as PNG")
        ->type_name("DIR");
    command.add_flag("--json", options->json, "say it as JSON");
    AddReportOption(command, options->report);
    command.footer(
        "Looks for missing files, wrong lengths, a pitch or height that the content contradicts,\n"
        "exchanged U and V, a rotated aux image, exchanged main and aux images, images of\n"
        "different moments, an output that is only a copy, and impossible parameters.\n"
        "--report takes one set.\n"
        "\n"
        "Examples:\n"
        "  adb pull /data/vendor/camera && bokehnode inspect camera -o seen\n"
        "  bokehnode inspect camera/IMG_20240131_235959_0_4096x3000.nv12 --json\n"
        "  bokehnode inspect camera/IMG_20240131_235959 --report seen.html\n"
        "\n"
        "Exit codes: 0 nothing wrong found; 1 something looks wrong; 2 wrong use or\n"
        "unreadable input.");
    return [options] { return InspectAll(*options); };
}

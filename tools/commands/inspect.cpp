#include "tools/commands/inspect.h"

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <CLI/App.hpp>
#include <CLI/Option.hpp>

#include "tools/disparity_picture.h"
#include "tools/errors.h"
#include "tools/image_file.h"
#include "tools/inspect/inspection.h"
#include "tools/inspect/inspection_text.h"
#include "tools/json_text.h"
#include "tools/nv12.h"
#include "tools/output_folder.h"
#include "tools/progress.h"

namespace fs = std::filesystem;

namespace {

struct Options {
    std::vector<fs::path> places;
    fs::path output;
    bool json = false;
};

void WritePictures(const Inspection& inspection, const fs::path& output, const std::string& name) {
    const Progress progress("writing the pictures of " + name);
    OutputFolder folder(output);
    for (const DumpRole role : {DumpRole::kMain, DumpRole::kAux, DumpRole::kOutput}) {
        if (const auto& image = inspection.image(role)) {
            folder.Write(name + "_" + RoleWord(role) + ".png", EncodePng(Nv12ToRgb(*image)));
        }
    }
    if (const auto& disparity = inspection.image(DumpRole::kDisparity)) {
        const auto size = static_cast<std::int32_t>(disparity->planeSize(0));
        folder.Write(name + "_disparity.png", EncodePng(*DisparityPicture(*disparity, size)));
    }
    folder.Commit();
}

int InspectAll(const Options& options) {
    const std::vector<DumpSet> sets = FindDumpSets(options.places);
    nlohmann::ordered_json report = nlohmann::ordered_json::array();
    const std::vector<std::string> names = DistinctNames(sets);
    std::size_t wrong = 0;
    for (std::size_t i = 0; i < sets.size(); ++i) {
        Inspection inspection;
        {
            const Progress progress("inspecting " + names[i]);
            inspection = Inspect(sets[i]);
        }
        wrong += inspection.findings.empty() ? 0 : 1;
        if (!options.output.empty()) {
            WritePictures(inspection, options.output, names[i]);
        }
        if (options.json) {
            report.push_back(ToJson(inspection));
        } else {
            std::printf("%s", InWords(inspection).c_str());
        }
    }
    if (options.json) {
        std::printf("%s", JsonText(report).c_str());
    } else if (sets.size() > 1) {
        std::printf("%zu of %zu sets look wrong\n", wrong, sets.size());
    }
    return wrong == 0 ? kExitDone : kExitFailed;
}

} // namespace

std::function<int()> PrepareInspect(CLI::App& command) {
    const auto options = std::make_shared<Options>();
    command
        .add_option("PATH", options->places,
                    "folders with dump sets in or below them, or files of sets")
        ->required();
    command
        .add_option("-o,--output", options->output,
                    "write main, aux, output and disparity of each set as PNG")
        ->type_name("DIR");
    command.add_flag("--json", options->json, "say it as JSON");
    command.footer(
        "Looks for missing files, wrong lengths, pitch or height that the content denies,\n"
        "swapped U and V, a turned aux image, main and aux in each other's place, images of\n"
        "different moments, an output that is only a copy, parameters that cannot be.\n"
        "\n"
        "Examples:\n"
        "  adb pull /data/vendor/camera && bokehnode inspect camera -o seen\n"
        "  bokehnode inspect camera/IMG_20240131_235959_0_4096x3000.nv12 --json\n"
        "\n"
        "Exit codes: 0 nothing wrong found; 1 something looks wrong; 2 wrong use or\n"
        "unreadable input.");
    return [options] { return InspectAll(*options); };
}

#include "tools/commands/commands.h"

#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include <CLI/App.hpp>
#include <CLI/Option.hpp>

#include "host/picture/errors.h"
#include "host/picture/image_file.h"
#include "host/picture/nv12.h"
#include "tools/commands/options.h"
#include "tools/files/json_text.h"
#include "tools/files/output_folder.h"
#include "tools/files/progress.h"
#include "tools/inspect/inspection.h"
#include "tools/replay/replay.h"
#include "tools/replay/replay_all.h"
#include "tools/replay/replay_text.h"
#include "tools/report/report_contents.h"

namespace fs = std::filesystem;

namespace {

struct ReplayCommandOptions {
    fs::path place;
    fs::path output;
    bool all = false;
    int jobs = 0;
    bool json = false;
    bool noFaces = false;
    fs::path report;
    ReplayOptions replay;
};

// The results have the set's names, and would replace it.
void RefuseSetsFolder(const fs::path& output, const DumpSet& set) {
    std::error_code missing;
    if (fs::equivalent(output, set.folder.empty() ? "." : set.folder, missing)) {
        throw UseError("--output: expected another folder than the set's own, found " +
                       output.string());
    }
}

void WriteFiles(OutputFolder& folder, const std::string& stem, const Replayed& replayed) {
    const Progress progress("writing the results");
    for (const auto& [name, bytes] : replayed.files) {
        folder.Write(name, bytes);
    }
    folder.Write(stem + "_output.png", EncodePng(Nv12ToRgb(replayed.output)));
    const std::string map = stem + "_difference.png";
    if (replayed.outputDifference && !replayed.outputDifference->identical()) {
        folder.Write(map,
                     EncodePng(HeatMap(DifferenceMap(replayed.dumpedOutput, replayed.output))));
    } else {
        folder.Drop(map);
    }
    folder.Commit();
}

// The set as it was before the replay is inspected for it too.
void WriteReport(ReportFile& file, const ReplayCommandOptions& options, const DumpSet& set,
                 const Replayed& replayed) {
    std::optional<Progress> progress("inspecting " + set.stem);
    const Inspection inspection = Inspect(set);
    progress.reset();
    Report report = ReportOf(inspection, replayed);
    if (!options.output.empty() && replayed.result.published) {
        report.AddLink("output", options.output / (set.stem + "_output.png"));
    }
    file.Write(report);
    file.Commit();
}

int ReplayOne(const ReplayCommandOptions& options) {
    const DumpSet set = FindDumpSet(options.place);
    std::optional<ReportFile> report;
    if (!options.report.empty()) {
        report.emplace(options.report);
    }
    std::optional<OutputFolder> output;
    if (!options.output.empty()) {
        RefuseSetsFolder(options.output, set);
        output.emplace(options.output);
    }
    const Replayed replayed = Replay(set, options.replay);
    if (options.replay.orientation && replayed.asked.faces.empty()) {
        std::fprintf(stderr, "bokehnode: --face-orientation: there are no faces to turn\n");
    }
    if (report) {
        WriteReport(*report, options, set, replayed);
    }
    if (output && replayed.result.published) {
        WriteFiles(*output, set.stem, replayed);
    }
    std::printf("%s", options.json ? JsonText(ToJson(set, replayed)).c_str()
                                   : InWords(set, replayed).c_str());
    return replayed.equal() ? kExitDone : kExitFailed;
}

int Run(ReplayCommandOptions& options) {
    if (options.noFaces) {
        options.replay.faces.emplace();
    }
    if (!options.all) {
        return ReplayOne(options);
    }
    if (options.output.empty()) {
        options.output = "replayed";
    }
    const auto cores = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
    return ReplayAll(options.place, options.output, options.jobs > 0 ? options.jobs : cores,
                     options.json, options.replay);
}

// Numbers that the request's arithmetic has room for.
std::vector<int> ParsePixels(const char* option, const std::string& text, std::size_t count,
                             char separator, const char* form) {
    auto numbers = ParseNumbers(option, text, count, separator, form);
    for (const int number : numbers) {
        if (number < -kMostPixels || number > kMostPixels) {
            throw CLI::ValidationError(
                option, "expected numbers from " + std::to_string(-kMostPixels) + " to " +
                            std::to_string(kMostPixels) + ", found \"" + text + "\"");
        }
    }
    return numbers;
}

// "WxH" of any positive sides.
std::function<void(const std::string&)> IntoSize(const char* option, std::optional<Size>& size) {
    return [option, &size](const std::string& text) {
        const auto n = ParsePixels(option, text, 2, 'x', "WxH");
        if (n[0] < 1 || n[1] < 1) {
            throw CLI::ValidationError(option, "expected positive sides, found \"" + text + "\"");
        }
        size = Size{n[0], n[1]};
    };
}

void AddFaceChanges(CLI::App& command, ReplayCommandOptions& options) {
    ReplayOptions& replay = options.replay;
    command
        .add_option_function<std::vector<std::string>>(
            "--face",
            [&](const std::vector<std::string>& texts) {
                replay.faces.emplace();
                for (const std::string& text : texts) {
                    const auto n = ParsePixels("--face", text, 4, ',', "L,T,W,H");
                    if (n[2] < 1 || n[3] < 1) {
                        throw CLI::ValidationError(
                            "--face", "expected positive width and height, found \"" + text + "\"");
                    }
                    replay.faces->push_back({n[0], n[1], n[0] + n[2] - 1, n[1] + n[3] - 1, 1});
                }
                if (replay.faces->size() > kMaxFaces) {
                    throw CLI::ValidationError("--face",
                                               "expected at most " + std::to_string(kMaxFaces) +
                                                   " faces, found " + std::to_string(texts.size()));
                }
            },
            "these faces in place of the dumped ones; may be repeated")
        ->type_name("L,T,W,H")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    command.add_flag("--no-faces", options.noFaces, "leave the dumped faces out")
        ->excludes("--face");
    command
        .add_option("--face-orientation", replay.orientation,
                    "of all faces, the engine's code: 1 upright, 3, 4, 2\nturned by 90, 180, 270")
        ->type_name("1..4")
        ->check(CLI::Range(1, 4));
}

void AddChanges(CLI::App& command, ReplayCommandOptions& options) {
    ReplayOptions& replay = options.replay;
    command.add_option("--blur", replay.blur, "another blur level")
        ->type_name("0..100")
        ->check(CLI::Range(0, 100));
    command
        .add_option_function<std::string>(
            "--focus",
            [&](const std::string& text) {
                const auto n = ParsePixels("--focus", text, 2, ',', "X,Y");
                replay.focus = Point{n[0], n[1]};
            },
            "another focus point of the main image")
        ->type_name("X,Y");
    command.add_option("--rotation", replay.degree, "another rotation of the images")
        ->type_name("DEG")
        ->check(CLI::IsMember({0, 90, 180, 270}));
    AddFaceChanges(command, options);
    for (const auto& [name, size, help] :
         {std::tuple("--main-crop", &replay.mainCrop, "another part of the main sensor"),
          std::tuple("--aux-crop", &replay.auxCrop, "another part of the aux sensor"),
          std::tuple("--main-sensor", &replay.mainSensor,
                     "size of the main sensor (default: as calibrated)"),
          std::tuple("--aux-sensor", &replay.auxSensor, "the same of the aux sensor")}) {
        command.add_option_function<std::string>(name, IntoSize(name, *size), help)
            ->type_name("WxH");
    }
    command.add_flag("--skip-bokeh", replay.skipBokeh, "ask for the disparity but no rendering");
    command
        .add_option("--main-width", replay.mainWidth,
                    "pixels in a row of the main image (default: as the set\ntells)")
        ->type_name("PIXELS");
    command.add_option("--aux-width", replay.auxWidth, "the same of the aux image")
        ->type_name("PIXELS");
}

} // namespace

std::function<int()> PrepareReplay(CLI::App& command) {
    const auto options = std::make_shared<ReplayCommandOptions>();
    command
        .add_option("SET", options->place,
                    "a file of a dump set, or a folder with one; with --all a\nfolder with any "
                    "number of sets")
        ->required();
    command
        .add_option(
            "-o,--output", options->output,
            "write the new dumps, the output as PNG and, where it\ndiffers, by how much; not "
            "into the set's own folder. With\n--all each set's result as JSON and its log "
            "(default with\n--all: replayed)")
        ->type_name("DIR");
    auto* all = command.add_flag("--all", options->all,
                                 "every set below SET, several at once; sets that came out\nequal "
                                 "or differing before, by the output folder, are not\nrun again");
    command.add_option("--jobs", options->jobs, "processes at once (default: one a core)")
        ->type_name("N")
        ->check(CLI::Range(1, 1024))
        ->needs(all);
    command.add_flag("--json", options->json, "say it as JSON");
    AddReportOption(command, options->report)->excludes(all);
    AddChanges(command, *options);
    command
        .add_option("--calibration", options->replay.device.calibration,
                    "the device's calibration file (default: one for a rectified\npair)")
        ->type_name("FILE");
    AddPropertyOptions(command, options->replay.device);
    AddLibraryOptions(command, options->replay.device);
    command.footer(
        "Builds the request again that the node dumped, runs it and compares output and\n"
        "disparity with the dumped ones. With the same engine and calibration they are the\n"
        "same byte for byte.\n"
        "\n"
        "Examples:\n"
        "  bokehnode replay camera/IMG_20240131_235959_0_4096x3000.nv12 \\\n"
        "      --calibration dualcam_cali.bin\n"
        "  bokehnode replay camera/IMG_20240131_235959 --blur 80 -o replayed\n"
        "  bokehnode replay camera/IMG_20240131_235959 --log 6 --report replayed.html\n"
        "  bokehnode replay camera --all --jobs 4 -o replayed\n"
        "\n"
        "Exit codes: 0 output and disparity equal the dumped ones; 1 they differ, or the node\n"
        "or the engine failed; 2 wrong use or unreadable input.");
    return [options] { return Run(*options); };
}

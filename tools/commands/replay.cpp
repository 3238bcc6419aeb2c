#include "tools/commands/commands.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <utility>

#include "host/picture/errors.h"
#include "tools/commands/shared_options.h"
#include "tools/files/console.h"
#include "tools/files/json_text.h"
#include "tools/files/output_folder.h"
#include "tools/files/progress.h"
#include "tools/inspect/inspection.h"
#include "tools/replay/replay.h"
#include "tools/replay/sweep.h"
#include "tools/report/overview.h"
#include "tools/report/report_contents.h"
#include "tools/run/capture_request.h"

namespace fs = std::filesystem;

namespace {

// Empty paths were not given. At most two sweeps, one of blur and one of focus.
struct ReplayCommandOptions {
    fs::path place;
    fs::path output;
    bool all = false;
    ReplayAllOptions allOptions;
    std::vector<std::vector<SweepValue>> sweeps;
    bool json = false;
    fs::path report;
    ReplayOptions replay;
};

// The report shows an inspection of the dumped set as well.
Report ReportOf(const DumpSet& set, const Replayed& replayed) {
    const Progress progress("inspecting " + set.stem);
    return ReportOf(Inspect(set, replayed.engineFailure()), replayed);
}

void WriteReport(ReportFile& file, const ReplayCommandOptions& options, const DumpSet& set,
                 const Replayed& replayed) {
    Report report = ReportOf(set, replayed);
    if (!options.output.empty() && replayed.result.published) {
        report.AddLink("output", options.output / (set.stem + "_output.png"));
    }
    file.Write(report);
    file.Commit();
}

// The page of many replays, for code that knows nothing of pages.
class Overview : public ReplayPages {
public:
    Overview(const fs::path& file, const fs::path& place, std::size_t columns)
        : file_(file, "replay", place, columns) {}

    Json Write(const DumpSet& set, const std::string& name, const std::string& title,
               const Replayed& replayed) override {
        Report report = ReportOf(set, replayed);
        report.SetTitle(title);
        return file_.WritePage(name, title, report);
    }
    bool Has(const Json& tile) const override { return file_.HasPage(tile); }
    void Add(const std::string& title, const std::string& status, const std::string& reason,
             Json tile, bool wrong) override {
        using Kind = Report::Kind;
        const Kind kind = wrong ? Kind::kWrong : status == "equal" ? Kind::kGood : Kind::kNote;
        if (OverviewFile::IsTile(tile)) {
            tile["title"] = title;     // a copy of the set may have got the page
            if (status == "differs") { // of which another run may have accepted more or less
                tile["verdict"]["kind"] = NameOf(kind);
            }
            file_.Add(std::move(tile));
        } else {
            file_.AddPlain(title, kind, reason.empty() ? status : status + ": " + reason);
        }
    }
    std::vector<std::string> Commit() override {
        file_.Commit();
        return file_.written();
    }

private:
    OverviewFile file_;
};

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
    Replayed replayed = Replay(set, options.replay);
    if (options.replay.faceRotation && replayed.asked.faces.empty()) {
        replayed.notes.emplace_back(kNoFacesToTurn);
    }
    std::vector<std::string> written = replayed.written;
    const bool dumped = output && replayed.result.published;
    if (dumped) { // before the page, which would be left alone if this fails
        WriteFiles(*output, set.stem, replayed);
        output->CheckPlaces();
    }
    if (report) {
        WriteReport(*report, options, set, replayed);
        std::ranges::move(report->written(), std::back_inserter(written));
    }
    if (dumped) {
        output->Commit();
        std::ranges::move(output->written(), std::back_inserter(written));
    }
    if (options.json) {
        Json json = ToJson(set, replayed);
        AddCost(json, replayed);
        json["written"] = written;
        std::printf("%s", JsonText(json).c_str());
    } else {
        PrintText(InWords(set, replayed));
        PrintWritten(written);
    }
    return replayed.equal() || replayed.status() == "rendered" ? kExitDone : kExitFailed;
}

int Run(const ReplayCommandOptions& options) {
    if (options.sweeps.empty() && !options.all) {
        return ReplayOne(options);
    }
    if (options.allOptions.failAbove > 0 && !options.allOptions.reference.given()) {
        Refuse("--fail-above", "--against-node or --against-engine beside it", "none");
    }
    if (!options.replay.trace.empty()) { // all runs would write the same file
        Refuse("--trace", "one run", options.all ? "--all" : "--sweep");
    }
    const fs::path output = options.output.empty() ? "replayed" : options.output;
    std::optional<Overview> overview;
    ReplayAllOptions all = options.allOptions;
    if (!options.report.empty()) {
        all.pages = &overview.emplace(options.report, options.place,
                                      options.all ? 0 : options.sweeps.front().size());
    }
    return options.all ? ReplayAll(options.place, output, all, options.json, options.replay)
                       : ReplaySweeps(FindDumpSet(options.place), output, options.sweeps, all.jobs,
                                      options.json, options.replay, all.pages);
}

void AddAllOptions(Command& command, ReplayCommandOptions& options) {
    command.Flag("--all", options.all,
                 "every set below SET, several at once; what came out equal or\n"
                 "differing before, by the output folder, is not run again");
    ReplayAllOptions& all = options.allOptions;
    // At least 1: the system may not tell the number of cores.
    all.jobs = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
    command.Integer("--jobs", "N", 1, 1024, all.jobs,
                    "sets, or pictures of --sweep, at once (default: one a core)");
    command
        .Value(
            "--shard", "K/N",
            [&all](const Argument& argument) {
                const auto n = argument.Integers("K/N", 1);
                if (n[0] > n[1]) {
                    argument.Refuse("K of at most N");
                }
                all.shard = n[0];
                all.shards = n[1];
            },
            "the K-th of N parts of the sets, by their content, for\nseveral machines")
        .Needs("--all");
    command
        .Path("--against-node", "FILE", all.reference.node,
              "compare not with the dumps but with this build of the node:\nthe largest "
              "difference first")
        .Needs("--all");
    command.Path("--against-engine", "FILE", all.reference.engine, "the same of the engine")
        .Needs("--all");
    command
        .Value(
            "--fail-above", "SHARE",
            [&all](const Argument& argument) {
                all.failAbove = argument.Number();
                if (all.failAbove < 0 || all.failAbove > 1) {
                    argument.Refuse("a number from 0 to 1");
                }
            },
            "share of a picture's samples, 0 to 1, that may differ from\nthat build (default: 0)")
        .Needs("--all");
    command.Flag("--merge", all.merge, "run nothing; show the results that the output folder holds")
        .Needs("--all")
        .Excludes("--shard");
}

// The values between the separators.
std::vector<Argument> Split(const Argument& argument, const std::string& text, char separator) {
    std::vector<Argument> values;
    // The added separator keeps an empty last value, which is refused like any other.
    std::istringstream stream(text + separator);
    for (std::string value; std::getline(stream, value, separator);) {
        values.push_back({argument.name, value});
    }
    return values;
}

std::vector<SweepValue> ParseSweep(const Argument& argument) {
    const std::string& text = argument.text;
    // Values of focus hold commas themselves, so that a slash stands between them.
    const auto valuesOf = [&](const std::string& name, char separator) {
        return text.starts_with(name) ? Split(argument, text.substr(name.size()), separator)
                                      : std::vector<Argument>();
    };
    std::vector<SweepValue> values;
    for (const Argument& value : valuesOf("blur=", ',')) {
        values.emplace_back().blur = static_cast<std::uint32_t>(value.Integer(0, 100));
    }
    for (const Argument& value : valuesOf("focus=", '/')) {
        const auto n = value.Integers("X,Y");
        values.emplace_back().focus = Point{n[0], n[1]};
    }
    if (values.empty()) {
        argument.Refuse("blur=0,20,40 or focus=175,75/300,200");
    }
    return values;
}

void AddSweep(Command& command, std::vector<std::vector<SweepValue>>& sweeps) {
    command
        .Repeated(
            "--sweep", "NAME=VALUES",
            [&sweeps](const Argument& argument) {
                const auto values = ParseSweep(argument);
                if (sweeps.size() == 2 || (sweeps.size() == 1 && sweeps[0][0].blur.has_value() ==
                                                                     values[0].blur.has_value())) {
                    argument.Refuse("one sweep of blur and one of focus");
                }
                sweeps.push_back(values);
            },
            "replay with each of these values, blur=0,20,40 or\nfocus=X,Y/X,Y, and write each "
            "output and a contact sheet; the\nsecond of two sweeps goes down the sheet")
        .Excludes("--all");
}

} // namespace

std::function<int()> PrepareReplay(Command command) {
    const auto options = std::make_shared<ReplayCommandOptions>();
    command
        .Path("SET", "FILE", options->place,
              "a file of a dump set, or a folder with one; with --all a\nfolder with any "
              "number of sets")
        .Required();
    command.Path("-o,--output", "DIR", options->output,
                 "write the new dumps, the output as PNG and, where it\ndiffers, by how much; not "
                 "into the set's own folder. With\n--all each set's result as JSON and its log "
                 "(default with\n--all and --sweep: replayed)");
    AddAllOptions(command, *options);
    command.Flag("--json", options->json, "say it as JSON");
    AddReportOption(command, options->report);
    AddReplayChanges(command, options->replay);
    AddSweep(command, options->sweeps);
    command.Footer(
        "Builds the request again that the node dumped, runs it and compares output and\n"
        "disparity with the dumped ones. With the same engine and calibration they are the\n"
        "same byte for byte.\n"
        "\n"
        "Examples:\n"
        "  bokehnode replay camera/IMG_20240131_235959_0_4096x3000.nv12 \\\n"
        "      --calibration dualcam_cali.bin\n"
        "  bokehnode replay camera/IMG_20240131_235959 --blur 80 -o replayed\n"
        "  bokehnode replay camera/IMG_20240131_235959 --log 6 --report replayed.html\n"
        "  bokehnode replay camera/IMG_20240131_235959 --sweep blur=0,20,40,60,80,100 \\\n"
        "      --report blur.html\n"
        "  bokehnode replay camera --all --shard 2/8 --timeout 60 -o replayed\n"
        "  bokehnode replay camera --all --merge -o replayed --report all.html\n"
        "  bokehnode replay camera --all --against-engine released.so --fail-above 0.01\n"
        "\n" +
        ExitCodes("0 output and disparity equal the dumped ones, or there is no output to\n"
                  "compare with, or they equal those of the other build as far as asked; 1 they\n"
                  "differ, or the node or the engine failed") +
        FailureHelp());
    return [options] { return Run(*options); };
}

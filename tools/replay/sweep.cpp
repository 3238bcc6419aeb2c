#include "tools/replay/sweep.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include <fmt/core.h>

#include "host/picture/errors.h"
#include "host/picture/image_file.h"
#include "host/picture/nv12.h"
#include "host/picture/text.h"
#include "tools/files/console.h"
#include "tools/files/output_folder.h"
#include "tools/replay/replay_process.h"
#include "tools/run/device_folder.h"

namespace fs = std::filesystem;

namespace {

// One replay of the sweep.
struct Step {
    ReplayOptions options;
    std::string label; // "blur 20, focus 175,75"
    std::string name;  // "blur-20-focus-175-75", for files
};

void Apply(const SweepValue& value, Step& step) {
    const auto add = [&step](const std::string& option, const std::string& text) {
        step.label += fmt::format("{}{} {}", step.label.empty() ? "" : ", ", option, text);
        step.name += fmt::format("{}{}-{}", step.name.empty() ? "" : "-", option, text);
        std::ranges::replace(step.name, ',', '-');
    };
    if (value.blur) {
        step.options.blur = value.blur;
        add("blur", std::to_string(*value.blur));
    }
    if (value.focus) {
        step.options.focus = value.focus;
        add("focus", fmt::format("{},{}", value.focus->x, value.focus->y));
    }
}

std::vector<Step> StepsOf(const std::vector<std::vector<SweepValue>>& sweeps,
                          const ReplayOptions& options) {
    std::vector<Step> steps;
    const std::vector<SweepValue> once(1);
    // The steps come in the order of the contact sheet, which goes row by row.
    for (const SweepValue& down : sweeps.size() > 1 ? sweeps[1] : once) {
        for (const SweepValue& across : sweeps.front()) {
            Step& step = steps.emplace_back(Step{options, {}, {}});
            Apply(across, step);
            Apply(down, step);
        }
    }
    return steps;
}

// The files of a step in the temporary folder.
struct StepFiles {
    StepFiles(const fs::path& folder, const Step& step)
        : picture(folder / (step.name + ".png")), result(folder / (step.name + ".json")),
          log(folder / (step.name + ".log")) {}

    fs::path picture;
    fs::path result;
    fs::path log;
};

// Each step has a process of its own, so that a value that makes the engine crash costs its own
// cell alone.
void RunStep(const DumpSet& set, const Step& step, const StepFiles& files, ReplayPages* pages) {
    const auto replay = [&] {
        const Replayed replayed = Replay(set, step.options);
        if (replayed.result.published) {
            WriteFile(files.picture, EncodePng(Nv12ToRgb(replayed.output)));
        }
        return Result(replayed.failed() ? status::kFailed : status::kRendered,
                      replayed.failed() ? ReasonOf(replayed) : "", ToJson(set, replayed),
                      pages == nullptr
                          ? Json()
                          : pages->Write(set, step.name, set.stem + ", " + step.label, replayed));
    };
    WriteJson(files.result, ResultOf(replay, {})); // the log is removed at the end
}

// Runs all steps; results and pictures lie in the folder then.
void RunSteps(const DumpSet& set, const std::vector<Step>& steps, const fs::path& folder, int jobs,
              ReplayPages* pages) {
    std::size_t done = 0;
    Processes<const Step*> processes(
        jobs, [&] { return fmt::format("{} of {} done", done, steps.size()); },
        [&](const Step* step, int status) {
            ++done;
            // The process ended before it could store a result.
            if (!EndedWell(status)) {
                WriteJson(StepFiles(folder, *step).result,
                          Result(StatusOfEnd(status), "it left no result"));
            }
        });
    for (const Step& step : steps) {
        const StepFiles files(folder, step);
        processes.Start(&step, files.log, [&] { RunStep(set, step, files, pages); });
    }
    processes.AwaitAll([](const Step*) { return true; });
}

} // namespace

int ReplaySweeps(const DumpSet& set, const fs::path& output,
                 const std::vector<std::vector<SweepValue>>& sweeps, int jobs, bool json,
                 const ReplayOptions& options, ReplayPages* pages) {
    const std::vector<Step> steps = StepsOf(sweeps, options);
    for (const Step& step : steps) {
        CheckFocus(set, step.options);
        if (std::ranges::count(steps, step.name, &Step::name) > 1) { // they share files
            Refuse("--sweep", "each value once", step.label);
        }
    }
    RefuseSetsFolder(output, set);
    OutputFolder folder(output);
    // Processes leave their pictures here, and this one puts them in their places together.
    const TemporaryFolder temporary;
    RunSteps(set, steps, temporary.path(), jobs, pages);

    constexpr int kCellSide = 640; // pixels of a picture in the sheet at most
    std::vector<LabelledPicture> pictures;
    Json results = Json::array();
    bool rendered = true;
    for (const Step& step : steps) {
        const StepFiles files(temporary.path(), step);
        Json result = Json::parse(ReadFileBytes(files.result));
        const std::string status = result["status"];
        const std::string reason = result["reason"];
        rendered = rendered && status == status::kRendered;
        // A step that failed keeps its cell: the grid stays whole.
        LabelledPicture& cell = pictures.emplace_back(
            LabelledPicture{{}, step.label + (status == status::kRendered ? "" : ": " + status)});
        const std::string name = set.stem + "_" + step.name + ".png";
        if (fs::exists(files.picture)) {
            folder.Write(name, ReadFileBytes(files.picture));
            cell.picture = Reduced(ReadImageFile(files.picture), kCellSide);
        } else {
            folder.Drop(name);
        }
        if (!json) {
            PrintText(fmt::format("{:<10} {}{}{}\n", status, step.label, reason.empty() ? "" : ": ",
                                  reason));
        }
        if (pages != nullptr) {
            pages->Add(step.label, status, reason, result["tile"], status != status::kRendered);
        }
        result.erase("tile");
        result["values"] = step.label;
        results.push_back(std::move(result));
    }
    folder.Write(set.stem + "_sweep.png",
                 EncodePng(ContactSheet(pictures, static_cast<int>(sweeps.front().size()))));
    folder.Commit();
    std::vector<std::string> written = folder.written();
    if (pages != nullptr) {
        std::ranges::move(pages->Commit(), std::back_inserter(written));
    }
    if (json) {
        std::printf(
            "%s",
            JsonText({{"set", set.name()}, {"results", results}, {"written", written}}).c_str());
    } else {
        PrintWritten(written);
    }
    return rendered ? kExitDone : kExitFailed;
}

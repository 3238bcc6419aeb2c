#include "tools/commands/commands.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <fmt/core.h>

#include "host/picture/errors.h"
#include "tools/commands/shared_options.h"
#include "tools/files/console.h"
#include "tools/files/json_text.h"
#include "tools/files/progress.h"
#include "tools/files/trace_file.h"
#include "tools/phonelog/log_file.h"
#include "tools/phonelog/node_history.h"
#include "tools/report/overview.h"

namespace fs = std::filesystem;

namespace {

using namespace phonelog;

struct LogOptions {
    std::vector<fs::path> files;
    bool json = false;
    fs::path trace;
    fs::path report;
};

double Milliseconds(std::int64_t micros) {
    return static_cast<double>(micros) / 1000;
}

std::string Place(const Moment& moment) {
    std::string place = moment.time.empty() ? "" : moment.time + ", ";
    place += fmt::format("process {}", moment.process);
    return moment.thread == 0 ? place : place + fmt::format(", thread {}", moment.thread);
}

// "312 ms: preparation 3, disparity 120": nothing where the log has no times.
std::string Duration(const RequestLife& life) {
    if (!life.end || !life.begin.micros) {
        return {};
    }
    std::string text = fmt::format("; {:.1f} ms", Milliseconds(*life.end - *life.begin.micros));
    const char* separator = ": ";
    for (const Step& step : life.steps) {
        text += fmt::format("{}{} {:.1f}", separator, step.name, Milliseconds(step.length));
        separator = ", ";
    }
    return text;
}

// What is said of a life, in the order of its line: "name (place): verdict; facts".
struct LifeSummary {
    std::string name;
    std::string place;
    Report::Kind kind = Report::Kind::kGood;
    std::string verdict;
    std::string facts; // each behind "; "
};

LifeSummary Summarize(const NodeLife& life) {
    LifeSummary summary{fmt::format("node {}", life.number), Place(life.begin)};
    std::string text = life.created ? "" : "not created; ";
    text += !life.calibration           ? "its calibration is not in the log"
            : life.calibration->empty() ? "no calibration"
                                        : "calibration " + *life.calibration;
    for (const std::string& refused : life.refused) {
        text += "; not used: " + refused;
    }
    summary.verdict = std::move(text);
    std::string facts;
    if (life.cameras) {
        facts += fmt::format("; {} linked camera{}, primary {}", *life.cameras,
                             *life.cameras == 1 ? "" : "s", *life.primaryCamera);
    }
    if (!life.engineVersion.empty()) {
        facts += "; engine " + life.engineVersion;
    }
    for (const std::string& failure : life.failures) {
        facts += "; " + failure;
    }
    summary.facts = std::move(facts);
    summary.kind =
        life.created && life.failures.empty() ? Report::Kind::kGood : Report::Kind::kWrong;
    return summary;
}

Report::Kind KindOf(const RequestLife& life) {
    switch (life.verdict) {
    case Verdict::Rendered:
    case Verdict::Disparity:
    case Verdict::Shown:
    case Verdict::Stopped:
        return life.failures.empty() ? Report::Kind::kGood : Report::Kind::kNote;
    default:
        return Report::Kind::kWrong;
    }
}

LifeSummary Summarize(const RequestLife& life) {
    LifeSummary summary{fmt::format("request {}", life.number), Place(life.begin), KindOf(life),
                        Word(life.verdict)};
    summary.name += life.node == 0 ? "" : fmt::format(" of node {}", life.node);
    for (const std::string& failure : life.failures) {
        summary.verdict += "; " + failure;
    }
    std::string text;
    if (life.frame) {
        text += fmt::format("; frame {}", *life.frame);
    }
    if (life.focus) {
        text += fmt::format("; focus {},{}", life.focus->x, life.focus->y);
    }
    if (life.blur) {
        text += fmt::format("; blur {}", *life.blur);
    }
    if (life.rotation && *life.rotation != 0) {
        text += fmt::format("; rotation {}", *life.rotation);
    }
    if (life.crops) {
        text +=
            fmt::format("; crops {}, {}", InWords(life.crops->first), InWords(life.crops->second));
    }
    if (life.faces && *life.faces > 0) {
        text += fmt::format("; {} face{}", *life.faces, *life.faces == 1 ? "" : "s");
        text += life.faceInFocus ? fmt::format(", focus on {}", *life.faceInFocus) : "";
    }
    text += life.errorsAlone ? "; only errors are logged" : "";
    summary.facts = text + Duration(life);
    return summary;
}

Json ToJson(const Moment& moment) {
    return {{"time", moment.time}, {"process", moment.process}, {"thread", moment.thread}};
}

Json ToJson(const NodeLife& life) {
    return {{"node", life.number},
            {"begin", ToJson(life.begin)},
            {"created", life.created},
            {"calibration", OrNull(life.calibration)},
            {"refused", life.refused},
            {"engine", life.engineVersion},
            {"linkedCameras", OrNull(life.cameras)},
            {"primaryCamera", OrNull(life.primaryCamera)},
            {"failures", life.failures}};
}

Json ToJson(const RequestLife& life) {
    Json steps = Json::object();
    for (const Step& step : life.steps) {
        steps[step.name] = Milliseconds(step.length);
    }
    Json json = {{"request", life.number},
                 {"node", life.node == 0 ? Json() : Json(life.node)},
                 {"begin", ToJson(life.begin)},
                 {"verdict", Word(life.verdict)},
                 {"failures", life.failures},
                 {"frame", OrNull(life.frame)},
                 {"processed", OrNull(life.processed)},
                 {"blur", OrNull(life.blur)},
                 {"rotation", OrNull(life.rotation)},
                 {"faces", OrNull(life.faces)},
                 {"faceInFocus", OrNull(life.faceInFocus)},
                 {"errorsAlone", life.errorsAlone}};
    json["focus"] = life.focus ? Json({life.focus->x, life.focus->y}) : Json();
    json["crops"] = life.crops ? Json({life.crops->first, life.crops->second}) : Json();
    json["milliseconds"] =
        life.end && life.begin.micros ? Json(Milliseconds(*life.end - *life.begin.micros)) : Json();
    json["steps"] = std::move(steps);
    return json;
}

// Prints lives as they end, so that a log of any length needs little memory.
class LifePrinter {
public:
    explicit LifePrinter(const LogOptions& options) : json_(options.json) {
        if (!options.trace.empty()) {
            trace_.emplace(options.trace);
        }
        if (!options.report.empty()) {
            page_.emplace(options.report, "log", options.files.front().filename().string(),
                          "nodes and requests");
        }
        std::printf("%s", json_ ? "{\"history\": [" : "");
    }

    template <typename Life>
    void Print(const Life& life) {
        const LifeSummary summary = Summarize(life);
        if (json_) {
            std::printf("%s%s", first_ ? "\n" : ",", JsonText(ToJson(life), -1).c_str());
            first_ = false;
        } else {
            PrintText(fmt::format("{} ({}): {}{}\n", summary.name, summary.place, summary.verdict,
                                  summary.facts));
        }
        if (page_) {
            AddTile(summary);
        }
        if (trace_) {
            Trace(life);
        }
    }

    void PrintMistake(const std::string& mistake) {
        PrintNotice(mistake);
        if (json_) {
            std::printf("],\n\"error\": %s}\n", JsonText(mistake, -1).c_str());
        }
    }

    // Puts the files in their places, and returns them.
    std::vector<std::string> Commit(std::vector<std::string> findings) {
        std::vector<std::string> written;
        if (trace_) {
            if (!timed_) {
                PrintNotice("note: --trace: the log has no times, so that the timeline is empty");
            }
            trace_->Commit();
            written = trace_->written();
        }
        if (page_) {
            for (const auto& [kind, count] : tiles_) {
                if (count > kMostTiles) {
                    findings.push_back(fmt::format("only the first {} of {} {} tiles are shown",
                                                   kMostTiles, count, NameOf(kind)));
                }
            }
            page_->SetFindings(findings);
            page_->Commit();
            std::ranges::copy(page_->written(), std::back_inserter(written));
        }
        return written;
    }

    void PrintEnd(const std::vector<std::string>& findings,
                  const std::vector<std::string>& written) const {
        if (json_) {
            std::printf("],\n\"findings\": %s, \"written\": %s}\n", JsonText(findings, -1).c_str(),
                        JsonText(written, -1).c_str());
            return;
        }
        for (const std::string& finding : findings) {
            PrintText("looks wrong: " + finding + "\n");
        }
        PrintWritten(written);
    }

private:
    static constexpr int kMostTiles = 2000; // of each kind

    void AddTile(const LifeSummary& summary) {
        if (++tiles_[summary.kind] <= kMostTiles) {
            page_->AddPlain(summary.name, summary.kind, summary.verdict,
                            summary.place + summary.facts);
        }
    }

    void Trace(const NodeLife& life) {
        if (life.end && life.begin.micros) {
            AddEvent(fmt::format("node {}", life.number), life.begin, *life.begin.micros,
                     *life.end - *life.begin.micros, ToJson(life));
        }
    }

    void Trace(const RequestLife& life) {
        if (!life.end || !life.begin.micros) {
            return;
        }
        AddEvent(fmt::format("request {}", life.number), life.begin, *life.begin.micros,
                 *life.end - *life.begin.micros, ToJson(life));
        for (const Step& step : life.steps) {
            AddEvent(step.name, life.begin, step.start, step.length, nullptr);
        }
    }

    void AddEvent(const std::string& name, const Moment& moment, std::int64_t start,
                  std::int64_t length, const Json& details) {
        timed_ = true;
        trace_->Add(TraceEvent(name, moment.process, moment.thread, static_cast<double>(start),
                               static_cast<double>(length), details));
    }

    bool json_;
    bool first_ = true;
    bool timed_ = false; // the timeline holds something
    std::optional<TraceFile> trace_;
    std::optional<OverviewFile> page_;
    std::map<Report::Kind, int> tiles_;
};

int ReadLogs(const LogOptions& options) {
    LifePrinter printer(options);
    NodeHistory history([&](const NodeLife& life) { printer.Print(life); },
                        [&](const RequestLife& life) { printer.Print(life); });
    std::string unread; // layout
    const auto read = [&history, &unread](std::string_view line) {
        ForEachNodeMessage(line, [&history](const LogLine& message) { history.Read(message); });
        if (history.messages() == 0 && unread.empty()) {
            unread = UnreadLayout(line);
        }
    };
    std::string mistake = MistakeIn([&] {
        for (const fs::path& file : options.files) {
            const Progress progress("reading " + file.string());
            ForEachLine(file, read);
            if (history.messages() == 0 && !unread.empty()) {
                Refuse(file.string(), "a log of layout brief, time or threadtime",
                       "layout " + unread);
            }
        }
    });
    std::vector<std::string> findings;
    std::vector<std::string> written;
    const std::string atEnd = MistakeIn([&] {
        history.Finish();
        findings = history.Findings();
        written = mistake.empty() ? printer.Commit(findings) : written;
    });
    mistake = mistake.empty() ? atEnd : mistake;
    if (!mistake.empty()) {
        printer.PrintMistake(mistake);
        return kExitWrongUse;
    }
    printer.PrintEnd(findings, written);
    return findings.empty() ? kExitDone : kExitFailed;
}

} // namespace

std::function<int()> PrepareLog(Command command) {
    const auto options = std::make_shared<LogOptions>();
    command
        .Paths("FILE", "FILE", options->files, "logs of `adb logcat`, or bug reports (text or zip)")
        .Required();
    command.Flag("--json", options->json, "say it as JSON");
    AddOutputFile(command, "--trace", ".json", options->trace,
                  "write a timeline for Perfetto, from a log with times,\nending in .json");
    AddReportOption(command, options->report);
    command.Footer(
        "Tells each node's life and each of its requests from the node's own messages, whatever\n"
        "else the log holds, then what looks wrong over all. How much there is to tell depends\n"
        "on the log mask: without one only failures are logged, 2 logs each request, 6 logs\n"
        "every parameter. Layouts brief, time and threadtime, with or without colour, year,\n"
        "microseconds, time zone and user id, or with the time in seconds. Of a bug report the\n"
        "system log is read.\n"
        "\n"
        "Examples:\n"
        "  adb shell setprop persist.vendor.camera.tessola.log 6   # then restart the camera\n"
        "  adb logcat -d > phone.log && bokehnode log phone.log\n"
        "  bokehnode log bugreport-2024-01-31.zip --json\n"
        "  bokehnode log phone.log --trace timeline.json\n"
        "\n" +
        ExitCodes("0 nothing wrong found; 1 something looks wrong"));
    return [options] { return ReadLogs(*options); };
}

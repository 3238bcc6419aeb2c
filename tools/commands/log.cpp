#include "tools/commands/commands.h"

#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
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

namespace fs = std::filesystem;

namespace {

using namespace phonelog;

struct LogOptions {
    std::vector<fs::path> files;
    bool json = false;
    fs::path trace;
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

std::string Text(const NodeLife& life) {
    std::string text = fmt::format("node {} ({}): ", life.number, Place(life.begin));
    text += life.created ? "" : "not created; ";
    text += life.calibration.empty() ? "no calibration" : "calibration " + life.calibration;
    for (const std::string& refused : life.refused) {
        text += "; not used: " + refused;
    }
    if (life.cameras) {
        text += fmt::format("; {} linked cameras, primary {}", *life.cameras, *life.primaryCamera);
    }
    if (!life.engineVersion.empty()) {
        text += "; engine " + life.engineVersion;
    }
    for (const std::string& failure : life.failures) {
        text += "; " + failure;
    }
    return text + "\n";
}

std::string Text(const RequestLife& life) {
    std::string text = fmt::format("request {}", life.number);
    text += life.node == 0 ? "" : fmt::format(" of node {}", life.node);
    text += fmt::format(" ({}): {}", Place(life.begin), Word(life.verdict));
    for (const std::string& failure : life.failures) {
        text += "; " + failure;
    }
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
        text += fmt::format("; {} faces", *life.faces);
        text += life.faceInFocus ? fmt::format(", focus on {}", *life.faceInFocus) : "";
    }
    text += life.errorsAlone ? "; only errors are logged" : "";
    return text + Duration(life) + "\n";
}

Json ToJson(const Moment& moment) {
    return {{"time", moment.time}, {"process", moment.process}, {"thread", moment.thread}};
}

Json ToJson(const NodeLife& life) {
    return {{"node", life.number},
            {"begin", ToJson(life.begin)},
            {"created", life.created},
            {"calibration", life.calibration},
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
        std::printf("%s", json_ ? "{\"history\": [" : "");
    }

    template <typename Life>
    void Print(const Life& life) {
        if (json_) {
            std::printf("%s%s", first_ ? "\n" : ",", JsonText(ToJson(life), -1).c_str());
            first_ = false;
        } else {
            PrintText(Text(life));
        }
        if (trace_) {
            Trace(life);
        }
    }

    void PrintEnd(const std::vector<std::string>& findings) {
        std::vector<std::string> written;
        if (trace_) {
            if (!timed_) {
                PrintNotice("note: --trace: the log has no times, so that the timeline is empty");
            }
            trace_->Commit();
            written = trace_->written();
        }
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
        trace_->Add(name, moment.process, moment.thread, static_cast<double>(start),
                    static_cast<double>(length), details);
    }

    bool json_;
    bool first_ = true;
    bool timed_ = false; // the timeline holds something
    std::optional<TraceFile> trace_;
};

int ReadLogs(const LogOptions& options) {
    LifePrinter printer(options);
    NodeHistory history([&](const NodeLife& life) { printer.Print(life); },
                        [&](const RequestLife& life) { printer.Print(life); });
    for (const fs::path& file : options.files) {
        const Progress progress("reading " + file.string());
        ForEachLine(file, [&history](std::string_view line) {
            ForEachNodeMessage(line, [&history](const LogLine& message) { history.Read(message); });
        });
    }
    history.Finish();
    const std::vector<std::string> findings = history.Findings();
    printer.PrintEnd(findings);
    return findings.empty() ? kExitDone : kExitFailed;
}

} // namespace

std::function<int()> PrepareLog(Command command) {
    const auto options = std::make_shared<LogOptions>();
    command
        .Paths("FILE", "FILE", options->files, "logs of `adb logcat`, or bug reports (text or zip)")
        .Required();
    command.Flag("--json", options->json, "say it as JSON");
    command.Path("--trace", "FILE", options->trace,
                 "write a timeline for Perfetto, from a log with times");
    command.Footer(
        "Tells each node's life and each of its requests from the node's own messages, whatever\n"
        "else the log holds, then what looks wrong over all. How much there is to tell depends\n"
        "on the log mask: without one only failures are logged, 2 logs each request, 6 logs\n"
        "every parameter. Layouts brief, time and threadtime, with or without year,\n"
        "microseconds, time zone and user id.\n"
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

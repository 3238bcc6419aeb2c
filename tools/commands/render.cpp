#include "tools/commands/commands.h"

#include <algorithm>
#include <cstdio>
#include <functional>
#include <future>
#include <iterator>
#include <memory>
#include <optional>
#include <string>

#include <fmt/core.h>

#include "host/picture/errors.h"
#include "host/picture/false_colour.h"
#include "host/picture/image_file.h"
#include "host/picture/nv12.h"
#include "tools/commands/shared_options.h"
#include "tools/dumps/dump_image.h"
#include "tools/dumps/dump_set.h"
#include "tools/files/console.h"
#include "tools/files/interruption.h"
#include "tools/files/output_folder.h"
#include "tools/files/progress.h"
#include "tools/inspect/inspection.h"
#include "tools/report/report_contents.h"
#include "tools/run/capture_request.h"
#include "tools/run/device_folder.h"

namespace fs = std::filesystem;

namespace {

void CheckPicture(const RgbImage& picture, const fs::path& path, const RenderOptions& options) {
    // NV12 has one chroma sample for two columns and two rows.
    const int width = picture.width / 2 * 2;
    const int height = picture.height / 2 * 2;
    if (width != picture.width || height != picture.height) {
        PrintNotice(fmt::format("note: {}: {}x{} is cropped to even sides, {}x{}", path.string(),
                                picture.width, picture.height, width, height));
    }
    CheckPitch(options.pitch, options.size ? options.size->width : width, path);
}

host::Image ImageOf(const RgbImage& picture, const RenderOptions& options) {
    if (!options.size) {
        return RgbToNv12(picture, options.pitch);
    }
    return ScaleNv12(RgbToNv12(picture, 0), options.size->width, options.size->height,
                     options.pitch);
}

// The images as the node gets them: upright, unless the caller wants them as stored.
struct Pair {
    host::Image main;
    host::Image aux;
    int clockwise = 0; // degrees by which both were turned
};

// One phone took both at one moment, so that there is one orientation: where one file has none,
// that of the other holds. If they differ, one file has lost its own, and a guess would give a pair
// without depth, or with a wrong one.
int OrientationOf(const RenderOptions& options, std::optional<int> main, std::optional<int> aux) {
    if (options.asStored) {
        return 0;
    }
    if (main && aux && *main != *aux) {
        Refuse(options.aux,
               fmt::format("the EXIF orientation of {}, {} degrees", options.main.string(), *main),
               fmt::format("{}; --as-stored turns neither", *aux));
    }
    return main ? *main : aux.value_or(0);
}

Pair ReadPair(const RenderOptions& options) {
    const Progress progress("reading the pictures");
    std::optional<int> mainTurn;
    std::optional<int> auxTurn;
    auto reading =
        std::async(std::launch::async, [&] { return ReadImageFile(options.aux, &auxTurn); });
    RgbImage main = ReadImageFile(options.main, &mainTurn);
    RgbImage aux = reading.get();
    Pair pair;
    pair.clockwise = OrientationOf(options, mainTurn, auxTurn);
    for (const auto& [path, picture] :
         {std::pair(&options.main, &main), std::pair(&options.aux, &aux)}) {
        if (pair.clockwise != 0) {
            *picture = Turned(*picture, pair.clockwise);
            PrintNotice(fmt::format("note: {}: turned by {} degrees, as the pair's EXIF "
                                    "orientation says; --as-stored leaves it as it is",
                                    path->string(), pair.clockwise));
        }
        CheckPicture(*picture, *path, options);
    }
    auto converting = std::async(std::launch::async, ImageOf, std::cref(aux), std::cref(options));
    pair.main = ImageOf(main, options);
    pair.aux = converting.get();
    return pair;
}

// A rendered request with all that is written about it. It only refers to what Render owns.
struct Rendered {
    const RenderOptions& options;
    const host::Request& request;
    const DeviceFolder& device;
    const Outcome& outcome;
};

Json ReportJson(const Rendered& rendered) {
    Json json = ToJson(rendered.outcome);
    json["parameters"] = ParametersJson(rendered.options, rendered.request, rendered.outcome);
    return json;
}

// The files appear in the folder only when the caller commits.
void WriteResults(OutputFolder& folder, const Rendered& rendered) {
    const Progress progress("writing the results");
    const auto size = rendered.outcome.result.published->depthPictureSize;
    auto disparityPng = std::async(std::launch::async, [&] {
        const auto disparity = DisparityPicture(*rendered.request.depth, size);
        return disparity ? std::optional(EncodePng(*disparity)) : std::nullopt;
    });
    folder.Write("output.png", EncodePng(Nv12ToRgb(*rendered.request.output)));
    if (const auto png = disparityPng.get()) {
        folder.Write("disparity.png", *png);
    } else {
        // One of an earlier run would pass for this run's.
        folder.Drop("disparity.png");
        if (size > 0) {
            PrintNotice(fmt::format("note: no disparity.png: the engine's {} bytes are not one for "
                                    "each pixel",
                                    size));
        }
    }
    folder.Write("tags.json", JsonText(ReportJson(rendered)));
    // In a folder of the caller's own the dumps stay where the node has put them.
    if (rendered.options.deviceRoot.empty() && rendered.options.dump) {
        for (const fs::path& dump : rendered.device.Dumps()) {
            folder.Write(dump.filename().string(), ReadFileBytes(dump));
            if (const auto name = ParseDumpName(dump.filename().string());
                name && name->role == DumpRole::kParameters) {
                folder.Write(CalibrationFileName(name->stem), rendered.device.calibrationFile());
            }
        }
    }
}

void WriteReport(ReportFile& file, const Rendered& rendered) {
    std::optional<Inspection> dumps;
    {
        const Progress progress("inspecting the dumps");
        for (const fs::path& dump : rendered.device.Dumps()) {
            if (const auto set = SetOfFile(dump)) { // one request makes one set
                dumps = Inspect(*set, rendered.outcome.engineFailure());
                break;
            }
        }
    }
    file.Write(ReportOf(rendered.options, rendered.request, rendered.outcome, dumps));
}

// Puts the files in their places. Returns what was written.
std::vector<std::string> WriteAll(OutputFolder& folder, std::optional<ReportFile>& report,
                                  const Rendered& rendered) {
    // All is written before anything gets its place: a full disk leaves no part of a run.
    const bool published = rendered.outcome.result.published.has_value();
    std::vector<std::string> written = rendered.outcome.written;
    if (published) {
        WriteResults(folder, rendered);
    }
    if (report) {
        WriteReport(*report, rendered);
    }
    if (published) {
        folder.Commit();
        std::ranges::move(folder.written(), std::back_inserter(written));
    }
    if (report) {
        report->Commit();
        std::ranges::move(report->written(), std::back_inserter(written));
    }
    return written;
}

void Print(const Rendered& rendered, const std::vector<std::string>& written) {
    if (rendered.options.json) {
        Json json = ReportJson(rendered);
        AddCost(json, rendered.outcome);
        json["written"] = written;
        std::printf("%s", JsonText(json).c_str());
    } else {
        PrintWritten(written);
    }
    for (const std::string& line : Lines(rendered.outcome)) {
        PrintNotice(line);
    }
}

// The sensors' sizes as given, or else the images', with exchanged sides where the images are
// turned against the sensors.
Sensors SensorsOf(const RenderOptions& options, Size main, Size aux, bool turned) {
    const auto sensor = [turned](const std::optional<Size>& given, Size image) {
        return given.value_or(turned ? Size{image.height, image.width} : image);
    };
    return {sensor(options.mainSensor, main), sensor(options.auxSensor, aux)};
}

// Reads, runs the request and writes in a child process: a library that crashes, hangs or exits
// ends the child alone.
int Render(const RenderOptions& asked) {
    RenderOptions options = asked;
    const Libraries libraries = FindLibraries(options);
    // Folders are made by the parent, which removes them where the child crashes. A place that
    // cannot be written is refused before the run, which takes seconds.
    OutputFolder folder(options.output);
    std::optional<ReportFile> report;
    if (!options.report.empty()) {
        report.emplace(options.report);
    }
    RunOptions run = options;
    run.dump = options.dump || report; // a report shows the dumps of the run
    std::optional<TemporaryFolder> temporary;
    if (run.deviceRoot.empty()) {
        run.deviceRoot = temporary.emplace().path();
    }
    ContinueInChild(options.timeout);

    auto [main, aux, clockwise] = ReadPair(options);
    DeviceFolder device(run);
    // The mount angle is the rotation of images as calibrated. These were turned further.
    if (!options.rotation && clockwise != 0) {
        options.rotation = static_cast<std::uint32_t>(device.MountAngle() + clockwise) % 360;
    }
    const std::uint32_t rotation = options.rotation.value_or(0);
    const bool turned = (static_cast<int>(rotation) - device.MountAngle()) % 180 != 0;
    const Sensors sensors = SensorsOf(options, main.size(), aux.size(), turned);
    const host::UseCase useCase = UseCaseOf(sensors, main.size(), rotation);
    std::vector<std::string> notes;
    host::Request request = RequestOf(options, sensors, useCase, main.size(), aux.size(), notes);
    host::Image output(host::Image::Format::Nv12, main.width(), main.height(), main.pitch());
    host::Image depth = DepthImage(main);
    request.inputs = {&main, &aux};
    request.output = &output;
    request.depth = &depth;

    device.Prepare(sensors.main, sensors.aux, 0, options.size ? "--size" : options.main.string());
    Outcome outcome = RunNode(run, libraries, useCase, request);
    std::ranges::move(notes, std::back_inserter(outcome.notes));
    outcome.calibration = device.calibration();
    if (run.dump && outcome.result.published) {
        outcome.missing = MissingOfSet(device.DumpFolder(), device.Dumps(),
                                       outcome.result.published->depthPictureSize > 0);
    }
    // A copy is mostly the pair's fault, so that it is searched for what an engine cannot work
    // with.
    if (outcome.copied) {
        std::ranges::move(FindPairProblems(main, aux, device.AuxSide(rotation)),
                          std::back_inserter(outcome.reasons));
    }

    const Rendered rendered{options, request, device, outcome};
    const auto written = WriteAll(folder, report, rendered);
    Print(rendered, written);
    return outcome.failed() ? kExitFailed : kExitDone;
}

void AddImageOptions(Command& command, RenderOptions& options) {
    command.Path("MAIN", "FILE", options.main, "the main camera's picture, JPEG or PNG").Required();
    command.Path("AUX", "FILE", options.aux, "the aux camera's picture of the same moment")
        .Required();
    command.Path("-o,--output", "DIR", options.output, "folder for the results, made if missing")
        .Required();
    AddReportOption(command, options.report);
    command.Flag("--json", options.json, "print what tags.json says");
    command.Value(
        "--size", "WxH",
        [&options](const Argument& argument) {
            options.size = argument.Sides("WxH", 2, kLongestSide);
            if (options.size->width % 2 != 0 || options.size->height % 2 != 0) {
                argument.Refuse(fmt::format("even sides of 2 to {}", kLongestSide));
            }
        },
        "scale both pictures to this size first");
    command.Flag("--as-stored", options.asStored,
                 "do not turn a JPEG pair upright, as its EXIF orientation\nsays; turned pictures "
                 "imply the --rotation");
}

void AddFocusOptions(Command& command, RenderOptions& options) {
    command
        .Value(
            "--af-region", "L,T,R,B",
            [&options](const Argument& argument) {
                const auto n = argument.Integers("L,T,R,B");
                if (n[2] < n[0] || n[3] < n[1]) {
                    argument.Refuse("R not left of L and B not above T");
                }
                options.afRegion = ChiWeightedRegion{n[0], n[1], n[2], n[3]};
            },
            "auto-focus region, edges included")
        .Excludes("--focus");
    command.Integer("--af-mode", "0..5", 0, 5, options.afMode,
                    "auto-focus mode; 4, continuous, follows faces\n"
                    "(default: 1 with --focus or --af-region, else 4)");
    command.Integer("--select-face", "N", 0, static_cast<int>(kMaxFaces) - 1, options.selectedFace,
                    "focus on this face, from 0 (default: the largest)");
}

} // namespace

std::function<int()> PrepareRender(Command command) {
    const auto options = std::make_shared<RenderOptions>();
    AddImageOptions(command, *options);
    AddRequestOptions(command, *options, "");
    AddFocusOptions(command, *options);
    command.Flag("--dump", options->dump,
                 "let the node dump images and parameters into the device\n"
                 "root's data/vendor/camera, or without --device-root\n"
                 "beside the output, with the calibration");
    command.Path("--device-root", "DIR", options->deviceRoot,
                 "folder in place of the device's / (default: a temporary one);\n"
                 "the calibration file that it holds comes before the default");
    AddRunOptions(command, *options, "one for a rectified\npair");
    command.Footer(
        "Writes DIR/output.png, DIR/disparity.png (where the engine computed one) and\n"
        "DIR/tags.json. Places are pixels of the main picture, after --size. A report shows\n"
        "what the node dumps too: with --device-root it implies --dump.\n"
        "\n"
        "Examples:\n"
        "  bokehnode render left.png right.png -o out --focus 400,215\n"
        "  bokehnode render left.jpg right.jpg -o out --face 410,220,90,110 --blur 60\n"
        "  bokehnode render left.png right.png -o out --size 4000x3000 --pitch 4096\n"
        "  bokehnode render left.png right.png -o out --debug-view 3 --log 6 --dump\n"
        "  bokehnode render left.png right.png -o out --log 6 --report out/report.html\n"
        "\n" +
        ExitCodes("0 rendered; 1 the node or the engine failed or fell back to a copy of the "
                  "main picture") +
        FailureHelp());
    return [options] { return Render(*options); };
}

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
#include "tools/files/output_folder.h"
#include "tools/files/progress.h"
#include "tools/inspect/inspection.h"
#include "tools/report/report_contents.h"
#include "tools/run/capture_request.h"
#include "tools/run/device_folder.h"

namespace fs = std::filesystem;

namespace {

// Both pictures as they are rendered: upright, unless the caller wants them as stored.
struct Pair {
    RgbImage main;
    RgbImage aux;
    int clockwise = 0; // degrees by which the main picture was turned
};

// One camera app writes both files: where one has no orientation, that of the other holds.
Pair ReadPair(const RenderOptions& options) {
    std::optional<int> mainTurn;
    std::optional<int> auxTurn;
    auto aux = std::async(std::launch::async, [&] { return ReadImageFile(options.aux, &auxTurn); });
    Pair pair{ReadImageFile(options.main, &mainTurn), {}, 0};
    pair.aux = aux.get();
    if (options.asStored || !(mainTurn || auxTurn)) {
        return pair;
    }
    const auto turn = [](const fs::path& path, RgbImage& picture, int clockwise) {
        picture = Turned(picture, clockwise);
        if (clockwise != 0) {
            PrintNotice(
                fmt::format("note: {}: turned by {} degrees, as the pair's EXIF orientation "
                            "says; --as-stored leaves it as it is",
                            path.string(), clockwise));
        }
    };
    pair.clockwise = mainTurn ? *mainTurn : *auxTurn;
    turn(options.main, pair.main, pair.clockwise);
    turn(options.aux, pair.aux, auxTurn.value_or(pair.clockwise));
    return pair;
}

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
    if (rendered.device.temporary() && rendered.options.dump) {
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

// Reads and checks everything, runs the request in a child process, and writes there: only the
// child knows the result.
int Render(const RenderOptions& asked) {
    RenderOptions options = asked;
    std::optional<Progress> reading("reading the pictures");
    const Pair pair = ReadPair(options);
    CheckPicture(pair.main, options.main, options);
    CheckPicture(pair.aux, options.aux, options);
    auto converted =
        std::async(std::launch::async, ImageOf, std::cref(pair.aux), std::cref(options));
    host::Image main = ImageOf(pair.main, options);
    host::Image aux = converted.get();
    reading.reset();

    const Libraries libraries = FindLibraries(options);
    DeviceFolder device(options);
    // The mount angle is the rotation of images as calibrated. These were turned further.
    if (!options.rotation && pair.clockwise != 0) {
        options.rotation = static_cast<std::uint32_t>(device.MountAngle() + pair.clockwise) % 360;
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

    // Made before the run, which takes seconds: a place that cannot be written is refused at once.
    OutputFolder folder(options.output);
    std::optional<ReportFile> report;
    if (!options.report.empty()) {
        report.emplace(options.report);
    }
    device.Prepare(sensors.main, sensors.aux, 0, options.size ? "--size" : options.main.string());
    RunOptions run = options;
    // The report inspects the dumps of the run.
    run.dump = options.dump || report;
    Outcome outcome = RunNode(run, libraries, useCase, request);
    std::ranges::move(notes, std::back_inserter(outcome.notes));
    outcome.calibration = device.calibration();
    if (options.dump && outcome.result.published) {
        outcome.missing =
            MissingOfSet(device.Dumps(), outcome.result.published->depthPictureSize > 0);
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
    AddRunOptions(command, *options);
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

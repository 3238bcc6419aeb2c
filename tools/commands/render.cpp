#include "tools/commands/commands.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <memory>
#include <optional>
#include <string>

#include "host/picture/disparity_picture.h"
#include "host/picture/errors.h"
#include "host/picture/image_file.h"
#include "host/picture/nv12.h"
#include "host/pipeline/pipeline.h"
#include "tools/commands/options.h"
#include "tools/dumps/dump_set.h"
#include "tools/files/output_folder.h"
#include "tools/files/progress.h"
#include "tools/inspect/inspection.h"
#include "tools/report/report_contents.h"
#include "tools/run/capture_request.h"
#include "tools/run/device_folder.h"
#include "tools/run/libraries.h"
#include "tools/run/log_lines.h"
#include "tools/run/run_json.h"

namespace fs = std::filesystem;

namespace {

Size SizeOf(const host::Image& image) {
    return {image.width(), image.height()};
}

host::Image LoadImage(const fs::path& path, const RenderOptions& options) {
    const RgbImage picture = ReadImageFile(path);
    if (picture.width % 2 != 0 || picture.height % 2 != 0) {
        std::fprintf(stderr, "bokehnode: note: %s: %dx%d is cropped to even sides, %dx%d\n",
                     path.c_str(), picture.width, picture.height, picture.width / 2 * 2,
                     picture.height / 2 * 2);
    }
    const int width = options.size ? options.size->width : picture.width / 2 * 2;
    if (options.pitch != 0 && options.pitch < width) {
        throw UseError("--pitch: expected at least " + std::to_string(width) +
                       ", the bytes of a row of " + path.string() + ", found " +
                       std::to_string(options.pitch));
    }
    if (!options.size) {
        return RgbToNv12(picture, options.pitch);
    }
    return ScaleNv12(RgbToNv12(picture, 0), options.size->width, options.size->height,
                     options.pitch);
}

host::RequestResult RunNode(const Libraries& libraries, const host::UseCase& useCase,
                            host::Request& request) {
    const host::NodeLibrary library(libraries.node, libraries.engine);
    std::optional<host::Node> node;
    {
        const Progress progress("creating the node");
        node.emplace(library, useCase);
    }
    const Progress progress("processing the request");
    host::RequestResult result = node->Process(request);
    std::ranges::move(node->End(), std::back_inserter(result.complaints));
    return result;
}

// Nothing is in its place before the caller commits.
void WriteResults(OutputFolder& folder, const RunFacts& facts, const Outcome& outcome,
                  const DeviceFolder& device) {
    const Progress progress("writing the results");
    folder.Write("output.png", EncodePng(Nv12ToRgb(*facts.request.output)));
    const auto size = outcome.result.published->depthPictureSize;
    const auto disparity = DisparityPicture(*facts.request.depth, size);
    if (disparity) {
        folder.Write("disparity.png", EncodePng(*disparity));
    } else {
        folder.Drop("disparity.png");
        if (size > 0) {
            std::fprintf(stderr,
                         "bokehnode: note: no disparity.png: the engine's %d bytes are not "
                         "one for each pixel\n",
                         size);
        }
    }
    folder.Write("tags.json", ReportText(facts, outcome));
    if (device.temporary() && facts.options.dump) {
        for (const fs::path& dump : device.Dumps()) {
            folder.Write(dump.filename().string(), ReadFileBytes(dump));
        }
    }
}

void WriteReport(ReportFile& file, const RunFacts& facts, const Outcome& outcome,
                 const DeviceFolder& device, const LogLines& log) {
    std::optional<Inspection> dumps;
    {
        const Progress progress("inspecting the dumps");
        for (const fs::path& dump : device.Dumps()) {
            if (const auto set = SetOfFile(dump)) { // one request makes one set
                dumps = Inspect(*set);
                break;
            }
        }
    }
    file.Write(ReportOf(facts, outcome, dumps, log.records()));
}

int Judge(const Outcome& outcome) {
    if (!outcome.result.published) {
        std::fprintf(stderr, "bokehnode: the node published nothing, its result is %u\n",
                     outcome.result.code);
    }
    for (const std::string& complaint : outcome.result.complaints) {
        std::fprintf(stderr, "bokehnode: the node broke the interface's rules: %s\n",
                     complaint.c_str());
    }
    if (outcome.copied) {
        std::fprintf(stderr, "bokehnode: the output is a copy of the main picture\n");
        for (const std::string& reason : outcome.reasons) {
            std::fprintf(stderr, "bokehnode: because: %s\n", reason.c_str());
        }
    }
    const bool good =
        outcome.result.published && !outcome.copied && outcome.result.complaints.empty();
    return good ? kExitDone : kExitFailed;
}

int Render(const RenderOptions& options) {
    std::optional<Progress> reading("reading the pictures");
    host::Image main = LoadImage(options.main, options);
    host::Image aux = LoadImage(options.aux, options);
    reading.reset();

    const Libraries libraries = FindLibraries(options.node, options.engine);
    const host::UseCase useCase = UseCaseOf(options, SizeOf(main), SizeOf(aux));
    host::Request request = RequestOf(options, useCase, SizeOf(main));
    host::Image output(host::Image::Format::Nv12, main.width(), main.height(), main.pitch());
    host::Image depth = DepthImage(main);
    request.inputs = {&main, &aux};
    request.output = &output;
    request.depth = &depth;
    RenderOptions run = options;
    run.dump = options.dump || !options.report.empty();
    SetProperties(run);

    DeviceFolder device(options);
    OutputFolder folder(options.output);
    std::optional<ReportFile> report;
    if (!options.report.empty()) {
        report.emplace(options.report);
    }
    device.Prepare(SizeOf(main), SizeOf(aux));
    const LogLines log(options.engine.empty());
    Outcome outcome;
    outcome.result = RunNode(libraries, useCase, request);
    const int debugView = DebugView();
    const bool published = outcome.result.published.has_value();
    outcome.copied = published && IsCopy(*outcome.result.published, debugView);
    if (!published || outcome.copied) {
        outcome.reasons = log.Reasons();
    }
    const RunFacts facts{options,
                         request,
                         debugView,
                         device.calibration(),
                         libraries.node.string(),
                         libraries.engine.string()};
    if (published) {
        WriteResults(folder, facts, outcome, device);
    }
    if (report) {
        WriteReport(*report, facts, outcome, device, log);
    }
    if (published) {
        folder.Commit();
    }
    if (report) {
        report->Commit();
    }
    if (options.json) {
        std::printf("%s", ReportText(facts, outcome).c_str());
    }
    return Judge(outcome);
}

} // namespace

std::function<int()> PrepareRender(CLI::App& command) {
    const auto options = std::make_shared<RenderOptions>();
    AddRenderOptions(command, *options);
    return [options] { return Render(*options); };
}

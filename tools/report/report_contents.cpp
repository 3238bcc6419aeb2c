#include "tools/report/report_contents.h"

#include <utility>

#include <fmt/format.h>

using Kind = Report::Kind;

namespace {

void AddFindings(Report& report, const Inspection& inspection) {
    for (const Finding& finding : inspection.findings) {
        report.AddFinding(Kind::kWrong, NameOf(finding.problem), finding.text);
    }
    for (const std::string& note : inspection.notes) {
        report.AddFinding(Kind::kNote, "", note);
    }
}

void AddDumpLinks(Report& report, const DumpSet& set) {
    for (const DumpRole role : {DumpRole::kMain, DumpRole::kAux, DumpRole::kOutput,
                                DumpRole::kDisparity, DumpRole::kParameters}) {
        if (const auto& file = set.file(role)) {
            report.AddLink(fmt::format("dumped {}", RoleName(role)), file->path);
        }
    }
}

// Each image may be null.
void AddImages(Report& report, const host::Image* main, const host::Image* aux,
               const host::Image* output) {
    for (const auto& [name, image] :
         {std::pair("main", main), std::pair("aux", aux), std::pair("output", output)}) {
        if (image != nullptr) {
            report.AddPicture(name, *image);
        }
    }
    if (main != nullptr && output != nullptr) {
        report.AddComparison("main", *main, "output", *output);
    }
}

void AddOutcome(Report& report, const Outcome& outcome) {
    report.AddLog(outcome.log);
    for (const std::string& complaint : outcome.result.complaints) {
        report.AddFinding(Kind::kWrong, "interface", complaint);
    }
    if (!outcome.result.published) {
        report.AddFinding(
            Kind::kWrong, "failed",
            fmt::format("the node published nothing, its result is {}", outcome.result.code));
    }
    if (outcome.copied) {
        report.AddFinding(Kind::kWrong, "copy", "the output is a copy of the main picture");
    }
    for (const std::string& reason : outcome.reasons) {
        report.AddFinding(Kind::kWrong, "because", reason);
    }
    for (const std::string& note : outcome.notes) {
        report.AddFinding(Kind::kNote, "", note);
    }
}

void AddTags(Report& report, const host::Published& published) {
    report.SetFocus({published.focusPoint[0], published.focusPoint[1]});
    report.AddSection("Published tags", TagsJson(published));
}

void AddDifference(Report& report, const char* name,
                   const std::optional<PictureDifference>& difference) {
    if (difference) {
        report.AddFinding(difference->identical() ? Kind::kGood : Kind::kNote, name,
                          ToText(*difference));
    }
}

} // namespace

Report ReportOf(const Inspection& inspection) {
    Report report("inspect", inspection.set.stem);
    AddFindings(report, inspection);
    if (inspection.findings.empty()) {
        report.AddFinding(Kind::kGood, "", "nothing wrong found");
    }
    if (inspection.parameters) {
        report.SetParameters(*inspection.parameters);
    }
    const auto image = [&](DumpRole role) {
        const auto& found = inspection.image(role);
        return found ? &*found : nullptr;
    };
    AddImages(report, image(DumpRole::kMain), image(DumpRole::kAux), image(DumpRole::kOutput));
    if (const host::Image* disparity = image(DumpRole::kDisparity)) {
        report.SetDisparity(*disparity, disparity->width());
    }
    report.AddSection("Files", ToJson(inspection)["files"]);
    AddDumpLinks(report, inspection.set);
    return report;
}

Report ReportOf(const RenderOptions& options, const host::Request& request, const Outcome& outcome,
                const std::optional<Inspection>& dumps) {
    const auto& published = outcome.result.published;
    Report report("render", options.main.filename().string());
    AddOutcome(report, outcome);
    if (dumps) {
        AddFindings(report, *dumps);
        if (dumps->parameters) {
            report.SetParameters(*dumps->parameters);
        }
    }
    if (!report.hasWrong()) {
        report.AddFinding(Kind::kGood, "", "rendered, nothing wrong found");
    }
    const host::Image& main = *request.inputs[0];
    const host::Image& aux = *request.inputs[1];
    report.SetSensors(options.mainSensor.value_or(main.size()),
                      options.auxSensor.value_or(aux.size()));
    report.SetAfRegion(request.metadata.cameraMetadata[0].focusRect);
    AddImages(report, &main, &aux, published ? request.output : nullptr);
    report.AddLink("main", options.main);
    report.AddLink("aux", options.aux);
    if (published) {
        AddTags(report, *published);
        report.AddLink("output", options.output / "output.png");
        report.AddLink("tags", options.output / "tags.json");
        if (std::cmp_equal(published->depthPictureSize, request.depth->planeSize(0))) {
            report.SetDisparity(*request.depth, request.depth->width());
            report.AddLink("disparity", options.output / "disparity.png");
        }
    }
    report.AddSection("Request", ParametersJson(options, request, outcome));
    return report;
}

Report ReportOf(const Inspection& inspection, const Replayed& replayed) {
    const auto& published = replayed.result.published;
    Report report("replay", inspection.set.stem);
    AddOutcome(report, replayed);
    AddFindings(report, inspection);
    const auto changes = DifferencesOf(replayed.dumped, replayed.asked);
    if (!changes.empty()) {
        report.AddFinding(Kind::kNote, "changed", fmt::format("{}", fmt::join(changes, ", ")));
    }
    AddDifference(report, "output against the dumped one", replayed.outputDifference);
    AddDifference(report, "disparity against the dumped one", replayed.disparityDifference);
    report.SetParameters(replayed.taken.value_or(replayed.asked));
    report.SetSensors(replayed.mainSensor, replayed.auxSensor);
    AddImages(report, &replayed.main, &replayed.aux, published ? &replayed.output : nullptr);
    if (published) {
        AddTags(report, *published);
    }
    if (replayed.outputDifference && !replayed.outputDifference->identical()) {
        report.AddPicture("dumped output", replayed.dumpedOutput);
        report.AddComparison("dumped output", replayed.dumpedOutput, "output", replayed.output);
    }
    if (replayed.disparity.height() > 0) {
        report.SetDisparity(replayed.disparity, replayed.main.width());
    }
    report.AddSection("Run", {{"calibration", replayed.calibration}});
    AddDumpLinks(report, inspection.set);
    return report;
}

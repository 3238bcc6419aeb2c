#include "tools/report/outcome_report.h"

#include <algorithm>
#include <utility>

#include "tools/replay/replay_text.h"
#include "tools/report/inspection_report.h"
#include "tools/report/report_pictures.h"

using Kind = ReportFinding::Kind;

namespace {

Size SizeOf(const host::Image& image) {
    return {image.width(), image.height()};
}

void AddOutcome(Report& report, const host::RequestResult& result, bool copied,
                const std::vector<std::string>& reasons) {
    for (const std::string& complaint : result.complaints) {
        report.findings.push_back({Kind::kWrong, "interface", complaint});
    }
    if (!result.published) {
        report.findings.push_back(
            {Kind::kWrong, "failed",
             "the node published nothing, its result is " + std::to_string(result.code)});
    }
    if (copied) {
        report.findings.push_back(
            {Kind::kWrong, "copy", "the output is a copy of the main picture"});
    }
    for (const std::string& reason : reasons) {
        report.findings.push_back({Kind::kWrong, "because", reason});
    }
}

bool HasWrong(const Report& report) {
    return std::ranges::any_of(report.findings,
                               [](const auto& finding) { return finding.kind == Kind::kWrong; });
}

// `output`: null where there is none.
void AddImages(Report& report, const host::Image& main, const host::Image& aux,
               const host::Image* output) {
    AddPicture(report, "main", main);
    AddPicture(report, "aux", aux);
    if (output != nullptr) {
        AddPicture(report, "output", *output);
        AddComparison(report, "main", main, "output", *output);
    }
}

void AddTags(Report& report, const host::Published& published) {
    report.overlays.focus = {published.focusPoint[0], published.focusPoint[1]};
    report.sections.push_back({"Published tags", TagsJson(published)});
}

void AddDifference(Report& report, const char* what,
                   const std::optional<PictureDifference>& difference) {
    if (difference) {
        const Kind kind = difference->identical() ? Kind::kGood : Kind::kNote;
        report.findings.push_back({kind, std::string(what), ToText(*difference)});
    }
}

} // namespace

Report ReportOf(const RunFacts& facts, const Outcome& outcome,
                const std::optional<Inspection>& dumps, std::vector<host::LogRecord> log) {
    const RenderOptions& options = facts.options;
    Report report;
    report.command = "render";
    report.title = options.main.filename().string();
    report.log = std::move(log);
    AddOutcome(report, outcome.result, outcome.copied, outcome.reasons);
    if (dumps) {
        AddFindings(report, *dumps);
        if (dumps->parameters) {
            AddParameters(report, *dumps->parameters);
        }
    }
    if (!HasWrong(report)) {
        report.findings.push_back({Kind::kGood, "", "rendered, nothing wrong found"});
    }
    if (report.overlays.mainCrop) { // the sensors are as large as the pictures
        report.overlays.mainCrop->sensor = SizeOf(*facts.request.inputs[0]);
        report.overlays.auxCrop->sensor = SizeOf(*facts.request.inputs[1]);
    }
    report.overlays.afRegion = facts.request.metadata.cameraMetadata[0].focusRect;
    report.links = {{"main", options.main}, {"aux", options.aux}};
    const auto& published = outcome.result.published;
    const host::Request& request = facts.request;
    AddImages(report, *request.inputs[0], *request.inputs[1], published ? request.output : nullptr);
    if (published) {
        AddTags(report, *published);
        report.links.push_back({"output", options.output / "output.png"});
        report.links.push_back({"tags", options.output / "tags.json"});
        if (std::cmp_equal(published->depthPictureSize, request.depth->planeSize(0))) {
            SetDisparity(report, *request.depth, request.depth->width());
            report.links.push_back({"disparity", options.output / "disparity.png"});
        }
    }
    report.sections.push_back({"Request", ParametersJson(facts)});
    return report;
}

Report ReportOf(const Inspection& inspection, const Replayed& replayed) {
    Report report;
    report.command = "replay";
    report.title = inspection.set.stem;
    report.log = replayed.log;
    AddOutcome(report, replayed.result, replayed.copied, replayed.reasons);
    AddFindings(report, inspection);
    std::string changes;
    for (const std::string& change : DifferencesOf(replayed.dumped, replayed.asked)) {
        changes += (changes.empty() ? "" : ", ") + change;
    }
    if (!changes.empty()) {
        report.findings.push_back({Kind::kNote, "changed", changes});
    }
    for (const std::string& note : replayed.notes) {
        report.findings.push_back({Kind::kNote, "", note});
    }
    AddDifference(report, "output against the dumped one", replayed.outputDifference);
    AddDifference(report, "disparity against the dumped one", replayed.disparityDifference);
    AddParameters(report, replayed.taken.value_or(replayed.asked));
    report.overlays.mainCrop->sensor = replayed.mainSensor;
    report.overlays.auxCrop->sensor = replayed.auxSensor;
    const auto& published = replayed.result.published;
    AddImages(report, replayed.main, replayed.aux, published ? &replayed.output : nullptr);
    if (published) {
        AddTags(report, *published);
    }
    if (replayed.outputDifference && !replayed.outputDifference->identical()) {
        AddPicture(report, "dumped output", replayed.dumpedOutput);
        AddComparison(report, "dumped output", replayed.dumpedOutput, "output", replayed.output);
    }
    if (replayed.disparity.height() > 0) {
        SetDisparity(report, replayed.disparity, replayed.main.width());
    }
    report.sections.push_back({"Run", {{"calibration", replayed.calibration}}});
    AddDumpLinks(report, inspection.set);
    return report;
}

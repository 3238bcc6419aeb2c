#include "tools/report/inspection_report.h"

#include "tools/report/report_pictures.h"

namespace {

constexpr DumpRole kRoles[] = {DumpRole::kMain, DumpRole::kAux, DumpRole::kOutput,
                               DumpRole::kDisparity, DumpRole::kParameters};

void AddImages(Report& report, const Inspection& inspection) {
    const auto& main = inspection.image(DumpRole::kMain);
    const auto& output = inspection.image(DumpRole::kOutput);
    for (const DumpRole role : {DumpRole::kMain, DumpRole::kAux, DumpRole::kOutput}) {
        if (const auto& image = inspection.image(role)) {
            AddPicture(report, RoleName(role), *image);
        }
    }
    if (main && output) {
        AddComparison(report, RoleName(DumpRole::kMain), *main, RoleName(DumpRole::kOutput),
                      *output);
    }
    if (const auto& disparity = inspection.image(DumpRole::kDisparity)) {
        SetDisparity(report, *disparity, disparity->width());
    }
}

} // namespace

void AddFindings(Report& report, const Inspection& inspection) {
    for (const Finding& finding : inspection.findings) {
        report.findings.push_back(
            {ReportFinding::Kind::kWrong, NameOf(finding.problem), finding.text});
    }
    for (const std::string& note : inspection.notes) {
        report.findings.push_back({ReportFinding::Kind::kNote, "", note});
    }
}

void AddParameters(Report& report, const DumpParameters& parameters) {
    report.overlays.focus = {parameters.focusX, parameters.focusY};
    report.overlays.faces = parameters.faces;
    report.overlays.mainCrop = {{parameters.mainCropWidth, parameters.mainCropHeight}, {}};
    report.overlays.auxCrop = {{parameters.auxCropWidth, parameters.auxCropHeight}, {}};
    report.sections.push_back({"Parameters", ToJson(parameters)});
}

void AddDumpLinks(Report& report, const DumpSet& set) {
    for (const DumpRole role : kRoles) {
        if (const auto& file = set.file(role)) {
            report.links.push_back({std::string("dumped ") + RoleName(role), file->path});
        }
    }
}

Report ReportOf(const Inspection& inspection) {
    Report report;
    report.command = "inspect";
    report.title = inspection.set.stem;
    AddFindings(report, inspection);
    if (inspection.findings.empty()) {
        report.findings.push_back({ReportFinding::Kind::kGood, "", "nothing wrong found"});
    }
    if (inspection.parameters) {
        AddParameters(report, *inspection.parameters);
    }
    AddImages(report, inspection);
    report.sections.push_back({"Files", ToJson(inspection)["files"]});
    AddDumpLinks(report, inspection.set);
    return report;
}

#include "tools/report/report_contents.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <utility>

#include <fmt/format.h>

#include "tools/report/depth_of_field.h"

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
    report.AddComparison("main", "output", false);
}

// "TSL_DCIR_CalcDisparityData failed (-30: No depth.)" as "no depth (-30)"; other texts as they
// are.
std::string Sentence(const std::string& reason) {
    const auto code = reason.find(" failed (");
    const auto words = reason.find(": ", code);
    if (code == std::string::npos || words == std::string::npos || !reason.ends_with(".)")) {
        return reason;
    }
    std::string sentence = reason.substr(words + 2, reason.size() - words - 4);
    sentence.front() = static_cast<char>(std::tolower(static_cast<unsigned char>(sentence[0])));
    return fmt::format("{} ({})", sentence, reason.substr(code + 9, words - code - 9));
}

// What went wrong with a request; empty for a success.
std::string FailureInWords(const Outcome& outcome) {
    if (outcome.result.published && !outcome.copied) {
        const auto& complaints = outcome.result.complaints;
        return complaints.empty() ? ""
                                  : "the node broke the interface's rules: " + complaints.front();
    }
    const char* const what =
        outcome.copied ? "the main image was copied" : "the node failed and published nothing";
    return outcome.reasons.empty() ? what
                                   : fmt::format("{}: {}", what, Sentence(outcome.reasons.front()));
}

const char* ComparedWith(const Replayed& replayed) {
    return replayed.reference ? "the reference build" : "the dump";
}

// "differs from the dump in 12 % of luma, in what is blurred".
std::string OutputInWords(const Replayed& replayed) {
    const PlaneDifference& luma = replayed.outputDifference->planes.front();
    const char* const other = ComparedWith(replayed);
    if (replayed.outputDifference->identical()) {
        return fmt::format("the output is identical to {}", other);
    }
    if (luma.differing == 0) {
        return fmt::format("differs from {} in chroma alone", other);
    }
    const double percent = 100 * luma.share();
    // A single pixel of a large picture must not read as "0 %", nor all but one as "100 %".
    const std::string share = percent < 0.01                    ? "less than 0.01"
                              : percent > 99.5 && percent < 100 ? "more than 99"
                              : percent >= 10                   ? fmt::format("{:.0f}", percent)
                                                                : fmt::format("{:.2g}", percent);
    // Of another focus or blur, other places are sharp in the two.
    const bool sameFocus = replayed.reference || replayed.asked == replayed.dumped;
    const auto depth = sameFocus && replayed.disparity.height() > 0
                           ? DepthOfFieldOf(replayed.disparity, replayed.main.width(),
                                            replayed.taken.value_or(replayed.asked))
                           : std::nullopt;
    return fmt::format("differs from {} in {} % of luma{}", other, share,
                       depth ? PlaceOfDifference(replayed.dumpedOutput, replayed.output,
                                                 replayed.disparity, *depth)
                             : "");
}

// How output, disparity and depthEffectInfo compare, and what could not be compared.
std::string DifferenceInWords(const Replayed& replayed) {
    std::vector<std::string> words;
    const std::uint32_t effect = replayed.result.published->result.depthEffectInfo;
    if (replayed.reference && replayed.reference->depthEffectInfo != effect) {
        words.push_back(
            fmt::format("depthEffectInfo {}, now {}", replayed.reference->depthEffectInfo, effect));
    }
    if (replayed.outputDifference) {
        words.push_back(OutputInWords(replayed));
    }
    if (replayed.disparityDifference && !replayed.disparityDifference->identical()) {
        words.push_back(fmt::format("the disparity differs from {}", ComparedWith(replayed)));
    }
    std::ranges::copy(replayed.notCompared, std::back_inserter(words));
    return fmt::format("{}", fmt::join(words, "; "));
}

// How the output compares with the dumped one.
void SetReplayVerdict(Report& report, const Replayed& replayed) {
    std::string failure = FailureInWords(replayed);
    if (replayed.reference && !replayed.reference->failure.empty()) {
        failure += fmt::format("{}the reference build: {}", failure.empty() ? "" : "; ",
                               replayed.reference->failure);
    }
    // A failure goes first: a copied photo can be equal to the dumped one all the same.
    if (!failure.empty()) {
        report.SetVerdict(Kind::kWrong, failure);
    } else if (replayed.equal()) {
        report.SetVerdict(Kind::kGood,
                          fmt::format("identical to {}, byte for byte", ComparedWith(replayed)));
    } else if (replayed.status() == "rendered") {
        report.SetVerdict(Kind::kNote, "rendered; " + DifferenceInWords(replayed));
    } else {
        // A replay that was asked to change something is expected to differ from the dump.
        const bool changed = !replayed.reference && !replayed.asDumped();
        report.SetVerdict(changed || replayed.accepted ? Kind::kNote : Kind::kWrong,
                          DifferenceInWords(replayed) + (changed ? ", as changed" : ""));
    }
}

// The libraries that it ran in, and those of the reference.
Json RunJson(const Replayed& replayed) {
    Json run{{"calibration", replayed.calibration},
             {"node", replayed.libraries.node.string()},
             {"engine", replayed.libraries.engine.string()}};
    if (const auto& reference = replayed.reference) {
        run["reference node"] = reference->libraries.node.string();
        run["reference engine"] = reference->libraries.engine.string();
        run["reference depthEffectInfo"] = reference->depthEffectInfo;
    }
    return run;
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
        report.AddFinding(Kind::kWrong, "", "because " + reason);
    }
    for (const std::string& missing : outcome.missing) {
        report.AddFinding(Kind::kWrong, "dumps", missing);
    }
    for (const std::string& note : outcome.notes) {
        report.AddFinding(Kind::kNote, "", note);
    }
}

void AddCost(Report& report, const Outcome& outcome) {
    Json cost;
    AddCost(cost, outcome);
    report.AddSection("Time and memory", cost);
}

void AddTags(Report& report, const host::Published& published) {
    report.SetFocus({published.focusPoint[0], published.focusPoint[1]});
    report.AddSection("Published tags", TagsJson(published));
}

void AddDifference(Report& report, const std::string& name,
                   const std::optional<PictureDifference>& difference) {
    if (difference) {
        report.AddFinding(difference->identical() ? Kind::kGood : Kind::kNote, name,
                          ToText(*difference));
    }
}

} // namespace

std::string InWords(const Inspection& inspection) {
    std::vector<std::string> names;
    for (const Finding& finding : inspection.findings) {
        if (std::ranges::find(names, NameOf(finding.problem)) == names.end()) {
            names.emplace_back(NameOf(finding.problem));
        }
    }
    return names.empty() ? "nothing wrong found"
                         : fmt::format("looks wrong: {}", fmt::join(names, ", "));
}

Report ReportOf(const Inspection& inspection) {
    Report report("inspect", inspection.set.stem);
    AddFindings(report, inspection);
    report.SetVerdict(inspection.findings.empty() ? Kind::kGood : Kind::kWrong,
                      InWords(inspection));
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
    // What the dumps look like counts only where the run itself succeeded.
    const std::string failure = FailureInWords(outcome);
    if (!failure.empty() || !dumps || dumps->findings.empty()) {
        report.SetVerdict(failure.empty() ? Kind::kGood : Kind::kWrong,
                          failure.empty() ? "rendered, nothing wrong found" : failure);
    } else {
        report.SetVerdict(Kind::kWrong, "rendered, but " + InWords(*dumps));
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
        // Another engine may have disparity data of any size, of which no picture can be made.
        if (std::cmp_equal(published->depthPictureSize, request.depth->planeSize(0))) {
            report.SetDisparity(*request.depth, request.depth->width());
            report.AddLink("disparity", options.output / "disparity.png");
        }
    }
    report.AddSection("Request", ParametersJson(options, request, outcome));
    AddCost(report, outcome);
    return report;
}

Report ReportOf(const Inspection& inspection, const Replayed& replayed) {
    const auto& published = replayed.result.published;
    Report report("replay", inspection.set.stem);
    AddOutcome(report, replayed);
    AddFindings(report, inspection);
    if (!replayed.changes.empty()) {
        report.AddFinding(Kind::kNote, "changed",
                          fmt::format("{}", fmt::join(replayed.changes, ", ")));
    }
    SetReplayVerdict(report, replayed);
    if (replayed.outputDifference) {
        report.SetSimilarity(replayed.outputDifference->psnr(), replayed.outputDifference->ssim);
    }
    const std::string before = replayed.reference ? "reference" : "dumped";
    AddDifference(report, fmt::format("output against the {} one", before),
                  replayed.outputDifference);
    AddDifference(report, fmt::format("disparity against the {} one", before),
                  replayed.disparityDifference);
    // The node's dump says what was rendered; without one, what was asked for stands in.
    report.SetParameters(replayed.taken.value_or(replayed.asked));
    report.SetSensors(replayed.mainSensor, replayed.auxSensor);
    // First what a replay is about: the dumped output and the new one.
    if (replayed.outputDifference) {
        report.AddPicture("output", replayed.output);
        if (replayed.outputDifference->identical()) {
            report.AddSamePicture(before + " output", "output");
        } else {
            report.AddPicture(before + " output", replayed.dumpedOutput);
        }
        report.AddComparison(before + " output", "output", true);
    }
    AddImages(report, &replayed.main, &replayed.aux,
              published && !replayed.outputDifference ? &replayed.output : nullptr);
    if (published) {
        AddTags(report, *published);
    }
    if (replayed.disparity.height() > 0) {
        report.SetDisparity(replayed.disparity, replayed.main.width());
    }
    report.AddSection("Run", RunJson(replayed));
    AddCost(report, replayed);
    AddDumpLinks(report, inspection.set);
    return report;
}

#include "tools/replay/build_comparison.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>
#include <tuple>

#include <fmt/core.h>
#include <fmt/ranges.h>

#include "host/picture/file_bytes.h"
#include "tools/files/interruption.h"
#include "tools/files/output_folder.h"
#include "tools/run/device_folder.h"

namespace fs = std::filesystem;

namespace {

constexpr char kReferenceFile[] = "reference.json";
constexpr DumpRole kComparedRoles[] = {DumpRole::kOutput, DumpRole::kDisparity};

// Empty for a success. A build that falls back publishes all the same.
std::string FailureOf(const Replayed& replayed) {
    return !replayed.failed()
               ? ""
               : (replayed.copied ? "the main image was copied: " : "") + ReasonOf(replayed);
}

// Leaves output and disparity in the folder, and what became of the replay.
void WriteReference(const DumpSet& set, const ReplayOptions& options, const fs::path& folder,
                    const fs::path& log) {
    const Json result = ResultOf(
        [&] {
            const Replayed replayed = Replay(set, options);
            for (const auto& [name, bytes] : replayed.files) {
                if (std::ranges::count(kComparedRoles, ParseDumpName(name)->role) > 0) {
                    WriteFile(folder / name, bytes);
                }
            }
            // Whatever else became of it, dumps of a replay that published can be compared.
            const auto& published = replayed.result.published;
            const bool whole = published && replayed.missing.empty();
            Json made = Result(whole ? status::kRendered : status::kFailed, ReasonOf(replayed));
            made["depthEffectInfo"] = published ? published->result.depthEffectInfo : 0;
            made["failure"] = FailureOf(replayed);
            return made;
        },
        log);
    WriteJson(folder / kReferenceFile, result);
}

// The set as if the reference build had dumped it.
DumpSet SetOfReference(const DumpSet& set, const fs::path& folder) {
    const DumpSet made = FindDumpSet(folder);
    DumpSet result = set;
    for (const DumpRole role : kComparedRoles) {
        result.files[static_cast<std::size_t>(role)] = made.file(role);
    }
    return result;
}

// The largest share and the lowest PSNR of any plane. `due`: there should be a difference, so that
// without one a picture is missing or has another size.
Json SummaryOf(const std::optional<PictureDifference>& difference, bool due) {
    if (!difference) {
        return {{"share", due ? 1 : 0}, {"psnr", nullptr}, {"ssim", nullptr}};
    }
    double share = 0;
    for (const PlaneDifference& plane : difference->planes) {
        share = std::max(share, plane.share());
    }
    return {
        {"share", share}, {"psnr", OrNull(difference->psnr())}, {"ssim", OrNull(difference->ssim)}};
}

Json Compared(const DumpSet& set, const Replayed& replayed) {
    const Reference& reference = *replayed.reference;
    const std::uint32_t now = replayed.result.published->result.depthEffectInfo;
    // A copy is equal to a copy.
    const bool equal = replayed.same() && replayed.result.complaints.empty();
    const std::string failure = FailureOf(replayed);
    Json report = ToJson(set, replayed);
    report["equal"] = equal;
    report["comparison"] = {
        {"depthEffectInfo", {reference.depthEffectInfo, now}},
        {"failures", {reference.failure, failure}},
        {"output", SummaryOf(replayed.outputDifference, true)},
        {"disparity", SummaryOf(replayed.disparityDifference, replayed.disparityDue)}};
    std::vector<std::string> reasons;
    if (reference.depthEffectInfo != now) {
        reasons.push_back(
            fmt::format("depthEffectInfo {}, now {}", reference.depthEffectInfo, now));
    }
    if (!reference.failure.empty()) {
        reasons.push_back("the reference build: " + reference.failure);
    }
    if (!failure.empty() || !equal) {
        reasons.push_back(failure.empty() ? ReasonOf(replayed) : failure);
    }
    return Result(equal ? status::kEqual : status::kDiffers,
                  fmt::format("{}", fmt::join(reasons, "; ")), report);
}

// JSON has no infinity: it is null there.
constexpr double kIdentical = std::numeric_limits<double>::infinity(); // PSNR in dB

struct PictureSummary {
    double share = 0;
    double psnr = kIdentical;
    std::optional<double> ssim;

    explicit PictureSummary(const Json& json)
        : share(json.at("share")),
          psnr(json.at("psnr").is_null() ? kIdentical : json.at("psnr").get<double>()) {
        if (!json.at("ssim").is_null()) {
            ssim = json.at("ssim");
        }
    }
};

// What Compared has put into the report.
struct Comparison {
    std::uint32_t effectBefore = 0;
    std::uint32_t effectNow = 0;
    bool failed; // one of the two
    PictureSummary output;
    PictureSummary disparity;

    explicit Comparison(const Json& json)
        : effectBefore(json.at("depthEffectInfo").at(0)),
          effectNow(json.at("depthEffectInfo").at(1)), failed(json.at("failures") != Json{"", ""}),
          output(json.at("output")), disparity(json.at("disparity")) {}

    bool sameEffect() const { return effectBefore == effectNow; }
};

// Nothing where the builds could not be compared, or the stored result is damaged.
std::optional<Comparison> ComparisonOf(const Json& result) {
    // A stored file may hold any JSON.
    try {
        return std::optional<Comparison>(result.at("report").at("comparison"));
    } catch (const Json::exception&) {
        return std::nullopt;
    }
}

// Smaller for what is to be seen first.
std::tuple<bool, bool, double, double> RankOf(const Json& result) {
    const auto found = ComparisonOf(result);
    // A picture that is missing, or has another size, differs without a PSNR.
    const auto quality = [](const PictureSummary& picture) {
        return picture.share > 0 && picture.psnr == kIdentical ? 0.0 : picture.psnr;
    };
    return found ? std::tuple(true, found->sameEffect() && !found->failed, quality(found->output),
                              quality(found->disparity))
                 : std::tuple(false, false, 0.0, 0.0);
}

std::string Percent(double share) {
    return fmt::format("{:.3g} %", 100 * share);
}

std::string Decibels(double psnr) {
    return psnr == kIdentical ? "-" : fmt::format("{:.2f}", psnr);
}

} // namespace

ReplayOptions OptionsOf(const ReferenceBuild& reference, ReplayOptions options) {
    options.node = reference.node.empty() ? options.node : reference.node;
    options.engine = reference.engine.empty() ? options.engine : reference.engine;
    return options;
}

Json ReplayInBoth(const DumpSet& set, const ReplayOptions& reference, const ReplayOptions& options,
                  double failAbove, const fs::path& log, const PageWriter& page) {
    const TemporaryFolder folder;
    int end = 0;
    fmt::print(stderr, "the reference build:\n");
    // A process can load one engine alone, so that each build gets a process of its own.
    AwaitChild(StartProcess({}, [&] { WriteReference(set, reference, folder.path(), log); }), end);
    fmt::print(stderr, "the build under test:\n");
    if (!EndedWell(end)) {
        Json lost =
            Result(StatusOfEnd(end), "the reference build left no result, see " + log.string());
        WriteJson(folder.path() / kReferenceFile, lost); // throws what a full disk says
        return lost;
    }
    // The process ended well, so that its result is whole.
    const Json made = Json::parse(ReadFileBytes(folder.path() / kReferenceFile));
    if (made["status"] != status::kRendered) {
        return Result(made["status"], "the reference build: " + made["reason"].get<std::string>());
    }
    Replayed replayed =
        Replay(SetOfReference(set, folder.path()), options,
               Reference{FindLibraries(reference), made["depthEffectInfo"], made["failure"]});
    if (!replayed.result.published) {
        return Result(status::kFailed, ReasonOf(replayed));
    }
    Json result = Compared(set, replayed);
    replayed.accepted = !Exceeds(result, failAbove);
    result["tile"] = page(replayed);
    return result;
}

void SortByDifference(std::vector<Json>& results) {
    std::ranges::stable_sort(results, {}, RankOf);
}

bool Exceeds(const Json& result, double share) {
    const auto found = ComparisonOf(result);
    return !found || found->failed || !found->sameEffect() ||
           std::max(found->output.share, found->disparity.share) > share;
}

std::string ComparisonTable(const std::vector<Json>& results, double failAbove) {
    static constexpr char kRow[] = "{:<2}{:>8} {:>6} {:>7} {:>9} {:>6}  {:<10} {}\n";
    std::string table =
        fmt::format(kRow, "", "output", "PSNR", "SSIM", "disparity", "PSNR", "effect", "set");
    for (const Json& result : results) {
        const char* const mark = Exceeds(result, failAbove) ? "!" : "";
        const std::string set = result["set"];
        const std::string reason = result["reason"];
        if (const auto found = ComparisonOf(result)) {
            const auto& [output, disparity] = std::tie(found->output, found->disparity);
            const std::string effect =
                found->sameEffect()
                    ? std::to_string(found->effectNow)
                    : fmt::format("{} -> {}", found->effectBefore, found->effectNow);
            table += fmt::format(kRow, mark, Percent(output.share), Decibels(output.psnr),
                                 output.ssim ? fmt::format("{:.4f}", *output.ssim) : "-",
                                 Percent(disparity.share), Decibels(disparity.psnr), effect,
                                 found->failed ? fmt::format("{}: {}", set, reason) : set);
        } else {
            table += fmt::format("{:<2}{}: {}: {}\n", mark, result["status"].get<std::string>(),
                                 set, reason);
        }
    }
    return table;
}

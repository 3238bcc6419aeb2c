#include "tools/commands/commands.h"
#include "tools/commands/shared_options.h"

#include <algorithm>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <future>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "host/picture/errors.h"
#include "host/picture/false_colour.h"
#include "host/picture/image_file.h"
#include "host/picture/nv12.h"
#include "tools/files/console.h"
#include "tools/files/json_text.h"
#include "tools/files/output_folder.h"
#include "tools/files/progress.h"
#include "tools/inspect/inspection.h"
#include "tools/report/overview.h"
#include "tools/report/report_contents.h"

namespace fs = std::filesystem;

namespace {

// Empty paths were not given.
struct InspectOptions {
    std::vector<fs::path> places;
    fs::path output;
    bool json = false;
    bool details = false; // of each set, however many there are
    fs::path report;
};

std::vector<std::string> WritePictures(const Inspection& inspection, const fs::path& output,
                                       const std::string& name) {
    // Each set commits its own pictures: a set that fails later takes none of them away.
    OutputFolder folder(output);
    for (const DumpRole role : {DumpRole::kMain, DumpRole::kAux, DumpRole::kOutput}) {
        if (const auto& image = inspection.image(role)) {
            folder.Write(name + "_" + RoleName(role) + ".png", EncodePng(Nv12ToRgb(*image)));
        }
    }
    if (const auto& disparity = inspection.image(DumpRole::kDisparity)) {
        const auto size = static_cast<std::int32_t>(disparity->planeSize(0));
        folder.Write(name + "_disparity.png", EncodePng(*DisparityPicture(*disparity, size)));
    }
    folder.Commit();
    return folder.written();
}

void AddPictureLinks(Report& report, const InspectOptions& options, const Inspection& inspection,
                     const std::string& name) {
    for (const DumpRole role : {DumpRole::kMain, DumpRole::kAux, DumpRole::kOutput}) {
        if (!options.output.empty() && inspection.image(role)) {
            const char* const image = RoleName(role);
            report.AddLink(image, options.output / (name + "_" + image + ".png"));
        }
    }
}

// The page of one set, or the page of many with one for each.
class Pages {
public:
    Pages(const InspectOptions& options, std::size_t sets) {
        if (options.report.empty() || sets == 0) {
            return;
        }
        if (sets == 1) {
            page_.emplace(options.report);
        } else {
            const std::vector<std::string> titles(options.places.begin(), options.places.end());
            overview_.emplace(options.report, "inspect",
                              fmt::format("{}", fmt::join(titles, ", ")));
        }
    }

    // On any thread. Returns the tile of a set of many.
    Json Write(const std::string& name, const std::string& title, const Report& report) {
        if (page_) {
            page_->Write(report);
            return {};
        }
        return overview_->WritePage(name, title, report);
    }

    // `tiles`: none where the set has no page, and `mistake` says why.
    void Add(const std::string& title, const std::vector<Json>& tiles, const std::string& mistake) {
        if (!overview_) {
            return;
        }
        std::ranges::for_each(tiles, [&](const Json& tile) { overview_->Add(tile); });
        if (tiles.empty()) {
            overview_->AddPlain(title, Report::Kind::kWrong, mistake);
        }
    }

    std::vector<std::string> Commit() {
        if (overview_) {
            overview_->Commit();
            return overview_->written();
        }
        if (page_) {
            page_->Commit();
            return page_->written();
        }
        return {};
    }

    bool wanted() const { return page_ || overview_; }

private:
    std::optional<ReportFile> page_;
    std::optional<OverviewFile> overview_;
};

// A set's inspection and what was written of it.
struct Inspected {
    Inspection inspection;
    std::vector<std::string> written;
    std::vector<Json> tiles; // the set's own, in a page of many
    std::string mistake;     // why not all of it was written
};

Inspected InspectOne(const InspectOptions& options, const DumpSet& set, const std::string& name,
                     Pages& pages) {
    Inspected inspected;
    inspected.inspection = Inspect(set);
    // What was found is shown on a full disk as well.
    inspected.mistake = MistakeIn([&] {
        if (pages.wanted()) {
            Report report = ReportOf(inspected.inspection);
            AddPictureLinks(report, options, inspected.inspection, name);
            inspected.tiles.push_back(pages.Write(name, set.name(), report));
        }
        if (!options.output.empty()) {
            inspected.written = WritePictures(inspected.inspection, options.output, name);
        }
    });
    return inspected;
}

// Inspects sets, one a core at once, and hands the results out in the sets' order.
class InspectionQueue {
public:
    InspectionQueue(const InspectOptions& options, const std::vector<DumpSet>& sets,
                    const std::vector<std::string>& names, Pages& pages)
        : options_(options), sets_(sets), names_(names), pages_(pages) {}

    // Throws what stopped this set's inspection.
    Inspected Next() {
        const std::size_t atOnce = std::max(1u, std::thread::hardware_concurrency());
        for (; started_ < sets_.size() && running_.size() < atOnce; ++started_) {
            running_.push_back(std::async(std::launch::async, [this, i = started_] {
                return InspectOne(options_, sets_[i], names_[i], pages_);
            }));
        }
        // The oldest inspection under way is the one to wait for.
        const Progress progress("inspecting " + names_[started_ - running_.size()]);
        std::future<Inspected> first = std::move(running_.front());
        running_.pop_front();
        return first.get();
    }

private:
    const InspectOptions& options_;
    const std::vector<DumpSet>& sets_;
    const std::vector<std::string>& names_;
    Pages& pages_;
    std::size_t started_ = 0;
    // Declared last: the futures' destructors wait for inspections, which use the members above.
    std::deque<std::future<Inspected>> running_;
};

// "wrong      camera/IMG_20240131_235959: 740x500, blur 100, focus 370,180, looks wrong: names".
std::string Row(const Inspection& inspection) {
    std::vector<std::string> facts;
    if (const auto& main = inspection.image(DumpRole::kMain)) {
        facts.push_back(fmt::format("{}x{}", main->width(), main->height()));
    }
    if (const auto& parameters = inspection.parameters) {
        facts.push_back(fmt::format("blur {}, focus {},{}", parameters->blur, parameters->focusX,
                                    parameters->focusY));
    }
    const bool good = inspection.findings.empty();
    if (!good) {
        facts.push_back(InWords(inspection));
    }
    return fmt::format("{:<10} {}: {}\n", good ? "good" : "wrong", inspection.set.name(),
                       fmt::join(facts, ", "));
}

// Returns the set as JSON; its pictures' names are told by their folder alone if there are many.
Json Show(const InspectOptions& options, const Inspected& inspected, bool details) {
    Json json = ToJson(inspected.inspection);
    json["written"] = inspected.written;
    if (!options.json) {
        const Inspection& inspection = inspected.inspection;
        PrintText(details ? ToText(inspection) : Row(inspection));
        PrintWritten(details ? inspected.written : std::vector<std::string>());
    }
    return json;
}

// Of all sets.
struct Summary {
    std::size_t sets = 0;
    std::size_t inspected = 0;
    std::size_t wrong = 0;
    bool pictures = false; // were written
    bool failed = false;   // something could not be read or written
};

void Finish(const InspectOptions& options, const Summary& all, Json& report,
            std::vector<std::string> written, bool details) {
    if (options.json) {
        if (!written.empty() && !report.empty()) { // of a page, beside the last set's pictures
            std::ranges::copy(written, std::back_inserter(report.back()["written"]));
        }
        std::printf("%s", JsonText(report).c_str());
        return;
    }
    if (all.sets > 1) {
        const std::size_t left = all.sets - all.inspected;
        PrintText(fmt::format("{} of {} sets look wrong{}\n", all.wrong, all.sets,
                              left == 0 ? "" : fmt::format(", {} not inspected", left)));
    }
    if (!details && all.pictures) {
        written.insert(written.begin(), options.output.string());
    }
    PrintWritten(written);
}

// A set that cannot be read is reported in its place; the others are inspected.
int InspectAll(const InspectOptions& options) {
    std::vector<RefusedPlace> refused;
    const std::vector<DumpSet> sets = FindDumpSets(options.places, refused);
    const bool details = options.details || sets.size() == 1;
    Pages pages(options, sets.size());
    Json report = Json::array();
    const std::vector<std::string> names = DistinctNames(sets);
    Summary all{.sets = sets.size(), .failed = !refused.empty()};
    InspectionQueue queue(options, sets, names, pages);
    for (std::size_t i = 0; i < sets.size(); ++i) {
        std::vector<Json> tiles;
        Json entry{{"set", sets[i].name()}};
        std::string mistake;
        const std::string unread = MistakeIn([&] {
            const Inspected inspected = queue.Next();
            ++all.inspected;
            all.wrong += inspected.inspection.findings.empty() ? 0 : 1;
            all.pictures = all.pictures || !inspected.written.empty();
            entry = Show(options, inspected, details);
            tiles = inspected.tiles;
            mistake = inspected.mistake;
        });
        mistake += unread;
        if (!mistake.empty()) {
            PrintNotice(mistake);
            entry["error"] = mistake;
            all.failed = true;
        }
        pages.Add(sets[i].name(), tiles, mistake);
        report.push_back(std::move(entry));
    }
    for (const RefusedPlace& place : refused) {
        PrintNotice(place.mistake);
        report.push_back({{"set", place.place.string()}, {"error", place.mistake}});
    }
    Finish(options, all, report, pages.Commit(), details);
    return all.failed ? kExitWrongUse : all.wrong == 0 ? kExitDone : kExitFailed;
}

} // namespace

std::function<int()> PrepareInspect(Command command) {
    const auto options = std::make_shared<InspectOptions>();
    command
        .Paths("PATH", "FILE", options->places,
               "folders with dump sets in or below them, or files of sets")
        .Required();
    command.Path("-o,--output", "DIR", options->output,
                 "write main, aux, output and disparity of each set as PNG");
    command.Flag("--details", options->details,
                 "all that is known of each set, as of a single one");
    command.Flag("--json", options->json, "say it as JSON");
    AddReportOption(command, options->report);
    command.Footer(
        "Looks for missing files, wrong lengths, a pitch or height that the content contradicts,\n"
        "exchanged U and V, a rotated aux image, exchanged main and aux images, images of\n"
        "different moments, an output that is only a copy, and impossible parameters.\n"
        "Several sets take a line each. Their report is a page with a tile for each, which opens\n"
        "that set's page; these stand beside it, in the folder seen.sets for seen.html.\n"
        "\n"
        "Examples:\n"
        "  adb pull /data/vendor/camera && bokehnode inspect camera -o seen\n"
        "  bokehnode inspect camera/IMG_20240131_235959_0_4096x3000.nv12 --json\n"
        "  bokehnode inspect camera/IMG_20240131_235959 --report seen.html\n"
        "  bokehnode inspect camera --report seen.html\n"
        "\n" +
        ExitCodes("0 nothing wrong found; 1 something looks wrong"));
    return [options] { return InspectAll(*options); };
}

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <fmt/core.h>
#include <fmt/ranges.h>
#include <zlib.h>

#include "host/picture/errors.h"
#include "tools/dumps/dump_set.h"
#include "tools/files/console.h"
#include "tools/files/interruption.h"
#include "tools/files/output_folder.h"
#include "tools/files/progress.h"
#include "tools/replay/build_comparison.h"
#include "tools/replay/replay.h"
#include "tools/replay/replay_process.h"
#include "tools/replay/stored_result.h"
#include "tools/run/device_folder.h"

namespace fs = std::filesystem;

namespace {

// The checksum names files and spreads sets over shards. Two sets that share it do no harm, since a
// stored result is accepted by its whole key.
std::uint32_t ChecksumOf(const std::vector<std::string>& content) {
    const std::string text = fmt::format("{}", fmt::join(content, "\n"));
    return static_cast<std::uint32_t>(
        ::crc32_z(0, reinterpret_cast<const Bytef*>(text.data()), text.size()));
}

// The beginning of each file tells captures apart, and every shard reads it of all of them.
bool IsInShard(const DumpSet& set, const ReplayAllOptions& all) {
    constexpr std::uintmax_t kBeginning = 1 << 16;
    const auto shards = static_cast<std::uint32_t>(all.shards);
    return all.shards == 1 ||
           ChecksumOf(ContentOf(set, kBeginning)) % shards + 1 == static_cast<unsigned>(all.shard);
}

struct Job {
    std::size_t row; // of the table
    DumpSet set;
    Json key;       // what the result depends on
    fs::path files; // the result's and the log's, without their endings

    fs::path result() const { return files.string() + ".json"; }
    std::string name() const { return files.filename().string(); }
    fs::path log() const { return files.string() + ".log"; }
};

// Refuses, before any process starts, options that are wrong for every set. Sets may have pictures
// of several sizes: a focus point that lies in one of them is accepted.
void CheckOptions(const std::vector<DumpSet>& sets, const ReplayOptions& options) {
    const DeviceFolder calibration(options); // reads it
    std::optional<UseError> wrong;
    for (const DumpSet& set : sets) {
        try {
            CheckFocus(set, options);
            return;
        } catch (const UseError& error) {
            wrong.emplace(error);
        }
    }
    if (wrong && options.focus) {
        throw UseError(*wrong);
    }
}

// Nothing where none of this key is stored, or it cannot be read.
std::optional<Json> StoredResult(const Job& job) {
    // The limit bounds what a damaged or foreign file of this name can cost.
    constexpr std::uintmax_t kLongest = std::uintmax_t{1} << 24;
    std::error_code error;
    if (!fs::is_regular_file(job.result(), error) || fs::file_size(job.result()) > kLongest) {
        return std::nullopt;
    }
    std::optional<Json> result;
    MistakeIn([&] { result = ParseResult(ReadFileBytes(job.result()), job.key); });
    return result;
}

void Store(const Job& job, const Json& result) {
    Json stored{{"key", job.key}};
    stored.update(result);
    WriteJson(job.result(), stored);
}

Json ReplayAlone(const DumpSet& set, const ReplayOptions& options, const PageWriter& page) {
    const Replayed replayed = Replay(set, options);
    return Result(replayed.status(), replayed.equal() ? "" : ReasonOf(replayed),
                  ToJson(set, replayed), page(replayed));
}

// As long as nothing else is known.
bool AsDumped(const Json& result) {
    const Json& report = result["report"];
    return !report.is_object() || report.value("asDumped", Json()) != false;
}

// Replays the set and stores what became of it.
void RunJob(const Job& job, const ReplayOptions& options, const ReplayAllOptions& all) {
    const auto replay = [&] {
        const PageWriter page = [&](const Replayed& replayed) {
            return all.pages != nullptr
                       ? all.pages->Write(job.set, job.name(), job.set.stem, replayed)
                       : Json();
        };
        return all.reference.given() ? ReplayInBoth(job.set, OptionsOf(all.reference, options),
                                                    options, all.failAbove, job.log(), page)
                                     : ReplayAlone(job.set, options, page);
    };
    Json result = ResultOf(replay, job.log());
    if (result["report"].is_object()) {
        result["report"].erase("set"); // it may lie elsewhere another time
    }
    Store(job, result);
}

// Runs jobs, several at once, and shows their results in the sets' order.
class Batch {
public:
    Batch(const std::vector<DumpSet>& sets, const ReplayOptions& options,
          const ReplayAllOptions& all, bool json)
        : sets_(sets), options_(options), all_(all), json_(json),
          processes_(
              all.jobs, [this] { return ProgressText(); },
              [this](const Job& job, int status) { Finish(job, status); }),
          results_(sets.size()) {}

    void Start(const Job& job) {
        std::error_code ignored;
        fs::remove(job.result(), ignored); // so that what is found later is of this run
        processes_.Start(job, job.log(), [&] { RunJob(job, options_, all_); });
    }

    // Waits for a copy of the same set that is running.
    void AwaitCopies(const Job& job) {
        processes_.AwaitAll([&job](const Job& other) { return other.files == job.files; });
    }

    // `before`: the result is of an earlier run.
    void Show(const Job& job, Json result, bool before) {
        const std::string status = result["status"];
        const std::string reason = result["reason"];
        ++counts_[status];
        failed_ += IsFinal(status) ? 0 : 1;
        ++done_;
        if (all_.pages != nullptr) {
            // A replay that was asked to change something is expected to differ.
            const bool accepted = status == status::kEqual || status == status::kRendered ||
                                  (status == status::kDiffers && !AsDumped(result));
            all_.pages->Add(job.set.name(), status, reason, result["tile"],
                            all_.reference.given() ? Exceeds(result, all_.failAbove) : !accepted);
        }
        result.erase("key");
        result.erase("tile");
        result["set"] = job.set.name();
        result["doneBefore"] = before;
        results_[job.row] = std::move(result);
        // Results are printed in the order of the sets: one waits for those before it.
        for (;
             !json_ && !all_.reference.given() && printed_ < done_ && !results_[printed_].is_null();
             ++printed_) {
            Print(results_[printed_]);
            results_[printed_] = true; // its report is needed no more
        }
    }

    void AwaitAll() {
        processes_.AwaitAll([](const Job&) { return true; });
    }

    // Returns the exit code.
    int Finish(const std::vector<std::string>& written) {
        const bool comparing = all_.reference.given();
        if (comparing) {
            SortByDifference(results_);
        }
        const auto exceeding = static_cast<std::size_t>(std::ranges::count_if(
            results_, [&](const Json& r) { return comparing && Exceeds(r, all_.failAbove); }));
        if (json_) {
            Json json{{"sets", sets_.size()}, {"counts", counts_}};
            if (comparing) {
                json["exceeding"] = exceeding;
            }
            json.update({{"results", results_},
                         {"error", mistake_.empty() ? Json() : Json(mistake_)},
                         {"written", written}});
            std::printf("%s", JsonText(json).c_str());
        } else {
            PrintSummary(exceeding, written);
        }
        if (!mistake_.empty()) {
            PrintNotice("some results are not stored: " + mistake_);
        }
        // Differences from another build are judged by the accepted share, those from the dumps are
        // not.
        const bool good =
            comparing ? exceeding == 0
                      : counts_[status::kEqual] + counts_[status::kRendered] == sets_.size();
        return !mistake_.empty() || counts_.contains(status::kUnreadable) ? kExitWrongUse
               : good                                                     ? kExitDone
                                                                          : kExitFailed;
    }

private:
    static void Print(const Json& result) {
        const std::string reason = result["reason"];
        PrintText(fmt::format("{:<10} {}{}{}{}\n", result["status"].get<std::string>(),
                              result["set"].get<std::string>(), reason.empty() ? "" : ": ", reason,
                              result["doneBefore"] == true ? " (done before)" : ""));
        std::fflush(stdout);
    }

    void PrintSummary(std::size_t exceeding, const std::vector<std::string>& written) const {
        std::vector<std::string> counts;
        for (const auto& [status, count] : counts_) {
            counts.push_back(fmt::format("{} {}", count, status));
        }
        std::string text =
            fmt::format("{}: {}\n", Counted(sets_.size(), "set"), fmt::join(counts, ", "));
        if (all_.reference.given()) {
            text = ComparisonTable(results_, all_.failAbove) + text +
                   fmt::format("{} of them failed or differ by more than accepted\n", exceeding);
        }
        PrintText(text);
        PrintWritten(written);
    }

    std::string ProgressText() const {
        const std::size_t left = sets_.size() - done_;
        std::string text = fmt::format("{} done, {} of them failed, {} left", Counted(done_, "set"),
                                       failed_, left);
        // Only sets that ran are counted: those done before took no time and would make the rest
        // seem short.
        if (ran_ > 0) {
            const std::chrono::duration<double> taken = Progress::Clock::now() - start_;
            const double rest =
                taken.count() * static_cast<double>(left) / static_cast<double>(ran_);
            text += rest < 600 ? fmt::format(" in about {:.0f} s", rest)
                               : fmt::format(" in about {:.0f} min", rest / 60);
        }
        return text;
    }

    void Finish(const Job& job, int status) {
        const auto result = EndedWell(status) ? StoredResult(job) : std::nullopt;
        ++ran_;
        Show(job, result ? *result : Lost(job, status), false);
    }

    // The result of a job that stored none.
    Json Lost(const Job& job, int status) {
        Json result = Result(StatusOfEnd(status), "it left no result, see " + job.log().string());
        if (const std::string mistake = MistakeIn([&] { Store(job, result); }); !mistake.empty()) {
            result["reason"] = mistake_ = mistake;
        }
        return result;
    }

    const std::vector<DumpSet>& sets_;
    const ReplayOptions& options_;
    const ReplayAllOptions& all_;
    const bool json_;
    const Progress::Clock::time_point start_ = Progress::Clock::now();
    Processes<Job> processes_;
    std::vector<Json> results_; // by set; null: none yet
    std::map<std::string, std::size_t> counts_;
    std::size_t done_ = 0;
    std::size_t failed_ = 0;
    std::size_t ran_ = 0; // but for those done before
    std::size_t printed_ = 0;
    std::string mistake_; // why results could not be stored
};

} // namespace

int ReplayAll(const fs::path& place, const fs::path& output, const ReplayAllOptions& all, bool json,
              const ReplayOptions& options) {
    Json commonKey = KeyOf(options, FindLibraries(options));
    if (all.reference.given()) {
        const ReplayOptions reference = OptionsOf(all.reference, options);
        const Json key = KeyOf(reference, FindLibraries(reference));
        commonKey["reference"] = {key["node"], key["engine"]};
    }
    // Whatever can be refused is refused before the first set runs, not after hours.
    std::vector<DumpSet> sets = FindDumpSets({place});
    CheckOptions(sets, options);
    RefuseCapturesFolder(output, place);
    for (const DumpSet& set : sets) {
        RefuseSetsFolder(output, set);
    }
    std::erase_if(sets, [&all](const DumpSet& set) { return !IsInShard(set, all); });
    if (!all.merge) {
        OutputFolder(output).Commit(); // makes the folder, or throws
    }
    Batch batch(sets, options, all, json);
    for (std::size_t row = 0; row < sets.size(); ++row) {
        Job job{row, sets[row], commonKey, {}};
        // Jobs go by content: copies of one set in several folders share a result and run once.
        const auto content = ContentOf(job.set, kWhole);
        job.key["set"] = content;
        job.files = output / fmt::format("{}-{:08x}", job.set.stem, ChecksumOf(content));
        batch.AwaitCopies(job);
        const auto result = StoredResult(job);
        const bool whole =
            all.pages == nullptr || (result && all.pages->Has(result->value("tile", Json())));
        if (result && (all.merge || (IsFinal((*result)["status"]) && whole))) {
            batch.Show(job, *result, !all.merge);
        } else if (all.merge) {
            batch.Show(job, Result(status::kMissing, "not run with these options"), false);
        } else {
            batch.Start(job);
        }
    }
    batch.AwaitAll();
    std::vector<std::string> written(all.merge ? 0 : 1, output.string());
    if (all.pages != nullptr) {
        std::ranges::move(all.pages->Commit(), std::back_inserter(written));
    }
    return batch.Finish(written);
}

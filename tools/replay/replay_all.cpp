#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <exception>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fmt/core.h>
#include <fmt/ranges.h>
#include <zlib.h>

#include "host/picture/errors.h"
#include "tools/dumps/dump_set.h"
#include "tools/files/child_process.h"
#include "tools/files/output_folder.h"
#include "tools/files/progress.h"
#include "tools/replay/replay.h"
#include "tools/replay/stored_result.h"
#include "tools/run/device_folder.h"

namespace fs = std::filesystem;

namespace {

constexpr char kEqual[] = "equal";
constexpr char kDiffers[] = "differs";
constexpr char kFailed[] = "failed";
constexpr char kUnreadable[] = "unreadable";
constexpr char kMissing[] = "missing";

// Only these results depend on the inputs alone; sets with any other are run again.
bool IsFinal(const std::string& status) {
    return status == kEqual || status == kDiffers;
}

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
    DumpSet set;
    std::string name;              // of the result's files; sets of one name have the same content
    Json key;                      // what the result depends on
    std::vector<std::size_t> rows; // of the table: the set and its copies
    fs::path output;

    fs::path log() const { return output / (name + ".log"); }
    fs::path result() const { return output / (name + ".json"); }
};

Job JobOf(const DumpSet& set, std::size_t row, const Json& commonKey, const fs::path& output) {
    constexpr std::uintmax_t kLongestFile = std::uintmax_t{1} << 32;
    const std::vector<std::string> content = ContentOf(set, kLongestFile);
    Json key = commonKey;
    key["set"] = content;
    return {set, fmt::format("{}-{:08x}", set.stem, ChecksumOf(content)), key, {row}, output};
}

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
    constexpr std::uintmax_t kLongest = std::uintmax_t{1} << 24;
    std::error_code error;
    if (!fs::is_regular_file(job.result(), error) || fs::file_size(job.result()) > kLongest) {
        return std::nullopt;
    }
    std::optional<Json> result;
    MistakeIn([&] { result = ParseResult(ReadFileBytes(job.result()), job.key); });
    return result;
}

void Store(const Job& job, const std::string& status, const std::string& reason,
           const Json& report) {
    OutputFolder folder(job.output);
    folder.Write(
        job.result().filename().string(),
        JsonText({{"key", job.key}, {"status", status}, {"reason", reason}, {"report", report}}));
    folder.Commit();
}

// Why a set is not equal, in a few words.
std::string Reason(const Replayed& replayed) {
    for (const auto* list : {&replayed.reasons, &replayed.result.complaints}) {
        if (!list->empty()) {
            return list->front();
        }
    }
    std::vector<std::string> words;
    const auto add = [&words](const char* what, const std::optional<PictureDifference>& found) {
        if (!found || found->identical()) {
            return;
        }
        std::uint64_t count = 0;
        int largest = 0;
        for (const PlaneDifference& plane : found->planes) {
            count += plane.differing;
            largest = std::max(largest, plane.largest);
        }
        words.push_back(
            fmt::format("{} differs in {} samples, by {} at most", what, count, largest));
    };
    add("output", replayed.outputDifference);
    add("disparity", replayed.disparityDifference);
    return fmt::format("{}", fmt::join(words.empty() ? replayed.notes : words, "; "));
}

// Replays the set and stores what became of it.
void RunJob(const Job& job, const ReplayOptions& options) {
    std::string status;
    std::string reason;
    Json report;
    try {
        const Replayed replayed = Replay(job.set, options);
        status = replayed.equal() ? kEqual : replayed.failed() ? kFailed : kDiffers;
        reason = replayed.equal() ? "" : Reason(replayed);
        report = ToJson(job.set, replayed);
        report.erase("set"); // it may lie elsewhere another time
    } catch (const UseError& error) {
        status = kUnreadable;
        reason = error.what();
    } catch (const ChildFailure& error) {
        status = error.what();
        reason = "see " + job.log().string();
    } catch (const std::exception& error) {
        status = kFailed;
        reason = error.what();
    }
    Store(job, status, reason, report);
}

pid_t StartJob(const Job& job, const ReplayOptions& options) {
    std::error_code ignored;
    fs::remove(job.result(), ignored); // so that what is found later is of this run
    const pid_t child = ForkChild();
    if (child > 0) {
        return child;
    }
    int code = kExitDone;
    try {
        ::dup2(::open(job.log().c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666), STDERR_FILENO);
        RunJob(job, options);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bokehnode: %s\n", error.what());
        code = kExitFailed;
    }
    std::fflush(nullptr);
    ::_exit(code); // the parent's destructors must not run here
}

std::string TimeInWords(double seconds) {
    return seconds < 100    ? fmt::format("{:.0f} s", seconds)
           : seconds < 6000 ? fmt::format("{:.0f} min", seconds / 60)
                            : fmt::format("{:.1f} h", seconds / 3600);
}

// The results, printed in the sets' order.
class Table {
public:
    Table(bool json, const std::vector<DumpSet>& sets) : json_(json), sets_(sets) {
        results_.resize(sets.size());
    }

    void Fill(std::size_t row, Json result, bool before) {
        const std::string status = result["status"];
        ++counts_[status];
        ++done_;
        ran_ += before ? 0 : 1;
        result.erase("key");
        result["set"] = sets_[row].name();
        result["doneBefore"] = before;
        results_[row] = std::move(result);
        for (; !json_ && printed_ < done_ && !results_[printed_].is_null(); ++printed_) {
            Print(results_[printed_]);
            results_[printed_] = true; // its report is needed no more
        }
    }

    std::string Progress(double seconds) const {
        const std::size_t left = sets_.size() - done_;
        const auto ended = [this](const char* status) {
            const auto count = counts_.find(status);
            return count == counts_.end() ? 0 : count->second;
        };
        std::string text = fmt::format("{} sets done, {} of them failed, {} left", done_,
                                       done_ - ended(kEqual) - ended(kDiffers), left);
        if (ran_ > 0) {
            const double each = seconds / static_cast<double>(ran_);
            text += ", about " + TimeInWords(each * static_cast<double>(left));
        }
        return text;
    }

    // Prints the end. `mistake`: why results could not be stored, if so. Returns the exit code.
    int Finish(const std::vector<std::string>& written, const std::string& mistake) {
        const std::string lost = mistake.empty() ? "" : "some results are not stored: " + mistake;
        if (json_) {
            Json summary{{"sets", sets_.size()},
                         {"counts", counts_},
                         {"results", results_},
                         {"written", written}};
            if (!lost.empty()) {
                summary["error"] = lost;
            }
            std::printf("%s", JsonText(summary).c_str());
        } else {
            std::vector<std::string> counts;
            for (const auto& [status, count] : counts_) {
                counts.push_back(fmt::format("{} {}", count, status));
            }
            std::printf("%zu sets: %s\n", sets_.size(),
                        fmt::format("{}", fmt::join(counts, ", ")).c_str());
            for (const std::string& path : written) {
                std::printf("wrote %s\n", path.c_str());
            }
        }
        if (!lost.empty()) {
            std::fprintf(stderr, "bokehnode: %s\n", lost.c_str());
        }
        return !lost.empty() || counts_.contains(kUnreadable) ? kExitWrongUse
               : counts_[kEqual] == sets_.size()              ? kExitDone
                                                              : kExitFailed;
    }

private:
    static void Print(const Json& result) {
        const std::string reason = result["reason"];
        std::printf("%-10s %s%s%s%s\n", result["status"].get<std::string>().c_str(),
                    result["set"].get<std::string>().c_str(), reason.empty() ? "" : ": ",
                    reason.c_str(), result["doneBefore"] == true ? " (done before)" : "");
        std::fflush(stdout);
    }

    bool json_;
    const std::vector<DumpSet>& sets_;
    std::vector<Json> results_; // by set; null: none yet
    std::map<std::string, std::size_t> counts_;
    std::size_t done_ = 0;
    std::size_t ran_ = 0;
    std::size_t printed_ = 0;
};

// Runs jobs, several at once, and fills in the table.
class Batch {
public:
    Batch(const ReplayOptions& options, int jobs, Table& table)
        : options_(options), jobs_(static_cast<std::size_t>(jobs)), table_(table) {}

    void Run(Job job) {
        while (running_.size() >= jobs_) {
            FinishOne();
        }
        const pid_t child = StartJob(job, options_);
        running_.emplace(child, std::move(job));
    }

    // The job of this name, if it is running.
    Job* Find(const std::string& name) {
        const auto found = std::ranges::find_if(
            running_, [&name](const auto& entry) { return entry.second.name == name; });
        return found == running_.end() ? nullptr : &found->second;
    }

    void Finish() {
        while (!running_.empty()) {
            FinishOne();
        }
    }

    // Why results could not be stored; empty if all were.
    const std::string& mistake() const { return mistake_; }

private:
    void FinishOne() {
        const std::chrono::duration<double> taken = Progress::Clock::now() - start_;
        std::optional<Progress> progress(std::in_place, table_.Progress(taken.count()), start_);
        const auto [child, status] = AwaitChild(0);
        progress.reset(); // its thread must have ended before the next fork
        const auto found = running_.find(child);
        if (found == running_.end()) {
            return;
        }
        const Job& job = found->second;
        std::optional<Json> result;
        if (WIFEXITED(status) && WEXITSTATUS(status) == kExitDone) {
            result = StoredResult(job);
        }
        for (const std::size_t row : job.rows) {
            table_.Fill(row, result ? *result : Lost(job, status), false);
        }
        running_.erase(found);
    }

    // The result of a job that stored none.
    Json Lost(const Job& job, int status) {
        const std::string what = WIFSIGNALED(status) ? SignalInWords(WTERMSIG(status)) : kFailed;
        std::string reason = "it left no result, see " + job.log().string();
        const std::string mistake = MistakeIn([&] { Store(job, what, reason, {}); });
        if (!mistake.empty()) {
            reason = mistake;
            mistake_ = mistake;
        }
        return {{"status", what}, {"reason", reason}};
    }

    const ReplayOptions& options_;
    const std::size_t jobs_;
    Table& table_;
    const Progress::Clock::time_point start_ = Progress::Clock::now();
    std::map<pid_t, Job> running_;
    std::string mistake_;
};

} // namespace

int ReplayAll(const fs::path& place, const fs::path& output, const ReplayAllOptions& all, bool json,
              const ReplayOptions& options) {
    const Json commonKey = KeyOf(options, FindLibraries(options));
    std::vector<DumpSet> sets = FindDumpSets({place});
    CheckOptions(sets, options);
    for (const DumpSet& set : sets) {
        RefuseSetsFolder(output, set);
    }
    std::erase_if(sets, [&all](const DumpSet& set) { return !IsInShard(set, all); });
    if (!all.merge) {
        OutputFolder(output).Commit(); // makes the folder, or throws
    }
    Table table(json, sets);
    Batch batch(options, all.jobs, table);
    for (std::size_t row = 0; row < sets.size(); ++row) {
        Job job = JobOf(sets[row], row, commonKey, output);
        if (Job* const same = batch.Find(job.name)) {
            same->rows.push_back(row);
            continue;
        }
        const auto result = StoredResult(job);
        if (result && (all.merge || IsFinal((*result)["status"]))) {
            table.Fill(row, *result, !all.merge);
        } else if (all.merge) {
            table.Fill(row, {{"status", kMissing}, {"reason", "not run with these options"}},
                       false);
        } else {
            batch.Run(std::move(job));
        }
    }
    batch.Finish();
    const std::vector<std::string> written(all.merge ? 0 : 1, output.string());
    return table.Finish(written, batch.mistake());
}

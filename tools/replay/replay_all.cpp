#include "tools/replay/replay_all.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include <nlohmann/json.hpp>

#include "host/picture/errors.h"
#include "tools/dumps/dump_set.h"
#include "tools/files/interruption.h"
#include "tools/files/json_text.h"
#include "tools/files/output_folder.h"
#include "tools/files/progress.h"
#include "tools/replay/replay.h"
#include "tools/replay/replay_text.h"
#include "tools/run/device_folder.h"
#include "tools/run/libraries.h"

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

namespace {

struct Job {
    DumpSet set;
    std::string name;
    Json key; // what the result depends on
};

Json Stamp(const fs::path& path) {
    std::error_code error;
    const auto size = fs::file_size(path, error);
    const auto time = fs::last_write_time(path, error).time_since_epoch().count();
    return {path.string(), error ? 0 : size, error ? 0 : time};
}

Json KeyOf(const DumpSet& set, const ReplayOptions& options, const Libraries& libraries) {
    Json files = Json::array();
    for (const auto& file : set.files) {
        if (file) {
            files.push_back(Stamp(file->path));
        }
    }
    const auto size = [](const std::optional<Size>& value) {
        return value ? Json{value->width, value->height} : Json(nullptr);
    };
    // What the options change shows in parameters that hold nothing else.
    const DumpParameters empty = Changed({}, options);
    return {{"files", files},
            {"node", Stamp(libraries.node)},
            {"engine", Stamp(libraries.engine)},
            {"calibration",
             options.device.calibration.empty() ? Json() : Stamp(options.device.calibration)},
            {"changes", ToJson(empty)},
            {"changed",
             {options.blur.has_value(), options.focus.has_value(), options.degree.has_value(),
              options.faces.has_value(), options.orientation.value_or(0), options.skipBokeh,
              options.mainWidth.value_or(0), options.auxWidth.value_or(0),
              options.device.debugView.value_or(-1), options.device.logMask.value_or(-1)}},
            {"sizes",
             {size(options.mainCrop), size(options.auxCrop), size(options.mainSensor),
              size(options.auxSensor)}},
            {"properties", options.device.properties}};
}

// What the file system or a process's end made of a set may be another thing next time.
bool Lasts(const Json& result) {
    const Json& status = result["status"];
    return status == "equal" || status == "differs";
}

// What is wrong for every set alike is said before any starts. A folder's pictures may have several
// sizes; a focus point that one of them can have is right.
void CheckOptions(const std::vector<DumpSet>& sets, const ReplayOptions& options) {
    const DeviceFolder calibration(options.device);
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

// Nothing where there is none, or one of other files or options.
std::optional<Json> ResultOf(const Job& job, const fs::path& output) {
    const fs::path file = output / (job.name + ".json");
    if (!fs::is_regular_file(file)) {
        return std::nullopt;
    }
    const Bytes bytes = ReadFileBytes(file);
    const Json result = Json::parse(bytes.begin(), bytes.end(), nullptr, false);
    const bool same = result.is_object() && result.value("key", Json()) == job.key;
    return same ? std::optional(result) : std::nullopt;
}

// In the process of one set: does it and writes its result.
int RunJob(const Job& job, const fs::path& output, const ReplayOptions& options) {
    Json result{{"key", job.key}};
    try {
        const Replayed replayed = Replay(job.set, options);
        result["status"] = replayed.equal() ? "equal" : replayed.failed() ? "failed" : "differs";
        result["report"] = ToJson(job.set, replayed);
    } catch (const UseError& error) {
        result["status"] = "unreadable";
        result["error"] = error.what();
    } catch (const std::exception& error) {
        result["status"] = "failed";
        result["error"] = error.what();
    }
    OutputFolder folder(output);
    folder.Write(job.name + ".json", JsonText(result));
    folder.Commit();
    return 0;
}

pid_t StartJob(const Job& job, const fs::path& output, const ReplayOptions& options) {
    std::fflush(nullptr);
    const pid_t parent = ::getpid();
    const pid_t child = ::fork();
    if (child < 0) {
        throw std::runtime_error(std::string("cannot start a process: ") + std::strerror(errno));
    }
    if (child > 0) {
        return child;
    }
    int code = kExitFailed;
    try {
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
        WatchForInterruption(); // its thread is the parent's alone
        const int log =
            ::open((output / (job.name + ".log")).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
        ::dup2(log, STDERR_FILENO);
        code = ::getppid() == parent ? RunJob(job, output, options) : code;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bokehnode: %s\n", error.what());
    }
    std::fflush(nullptr);
    ::_exit(code); // nothing of the parent's is undone here
}

// Why a set is not equal, in a few words.
std::string Reason(const Json& result) {
    if (result.contains("error")) {
        return result["error"];
    }
    const Json& report = result["report"];
    for (const char* list : {"reasons", "complaints"}) {
        if (!report[list].empty()) {
            return report[list].front();
        }
    }
    std::string words;
    for (const char* what : {"output", "disparity"}) {
        const Json& difference = report[what];
        if (difference.is_null() || difference["identical"] == true) {
            continue;
        }
        std::uint64_t count = 0;
        int largest = 0;
        for (const Json& plane : difference["planes"]) {
            count += plane["differing"].get<std::uint64_t>();
            largest = std::max(largest, plane["largest"].get<int>());
        }
        words += std::string(words.empty() ? "" : "; ") + what + " differs in " +
                 std::to_string(count) + " samples, by " + std::to_string(largest) + " at most";
    }
    if (words.empty()) {
        for (const Json& note : report["notes"]) {
            words += (words.empty() ? "" : "; ") + note.get<std::string>();
        }
    }
    return words;
}

class Tally {
public:
    explicit Tally(bool json) : json_(json) {}

    void Add(const Job& job, const Json& result, bool before) {
        const std::string status = result["status"];
        ++counts_[status];
        ++done_;
        if (json_) {
            Json entry = result;
            entry.erase("key");
            entry["set"] = job.set.name();
            results_.push_back(entry);
            return;
        }
        const std::string reason = status == "equal" ? "" : ": " + Reason(result);
        std::printf("%-10s %s%s%s\n", status.c_str(), job.set.name().c_str(), reason.c_str(),
                    before ? " (done before)" : "");
        std::fflush(stdout);
    }

    std::size_t done() const { return done_; }

    int Finish(std::size_t sets) {
        if (json_) {
            Json counts = Json::object();
            for (const auto& [status, count] : counts_) {
                counts[status] = count;
            }
            std::printf(
                "%s",
                JsonText({{"sets", sets}, {"counts", counts}, {"results", results_}}).c_str());
        } else {
            std::printf("%zu sets:", sets);
            for (const auto& [status, count] : counts_) {
                std::printf(" %zu %s", count, status.c_str());
            }
            std::printf("\n");
        }
        return counts_["equal"] == sets ? kExitDone : kExitFailed;
    }

private:
    bool json_;
    std::size_t done_ = 0;
    std::map<std::string, std::size_t> counts_;
    Json results_ = Json::array();
};

void FinishOne(std::map<pid_t, const Job*>& running, const fs::path& output, Tally& tally,
               std::size_t sets) {
    int status = 0;
    pid_t ended = 0;
    {
        // Its thread is gone before the next process starts.
        const Progress progress(std::to_string(tally.done()) + " of " + std::to_string(sets) +
                                " sets");
        do {
            ended = ::waitpid(-1, &status, 0);
        } while (ended < 0 && errno == EINTR);
    }
    const auto found = running.find(ended);
    if (found == running.end()) {
        return;
    }
    const Job& job = *found->second;
    running.erase(found);
    if (const auto result = ResultOf(job, output); result && WIFEXITED(status)) {
        tally.Add(job, *result, false);
        return;
    }
    const std::string how = WIFSIGNALED(status) ? std::string("its process ended by signal ") +
                                                      std::to_string(WTERMSIG(status))
                                                : "its process wrote no result";
    tally.Add(
        job,
        {{"status", "failed"}, {"error", how + ", see " + (output / (job.name + ".log")).string()}},
        false);
}

} // namespace

int ReplayAll(const fs::path& place, const fs::path& output, int jobs, bool json,
              const ReplayOptions& options) {
    const Libraries libraries = FindLibraries(options.device.node, options.device.engine);
    const std::vector<DumpSet> sets = FindDumpSets({place});
    const std::vector<std::string> names = DistinctNames(sets);
    CheckOptions(sets, options);
    std::vector<Job> list;
    for (std::size_t i = 0; i < sets.size(); ++i) {
        list.push_back({sets[i], names[i], KeyOf(sets[i], options, libraries)});
    }
    OutputFolder(output).Commit(); // makes it, or says why not
    Tally tally(json);
    std::map<pid_t, const Job*> running;
    for (const Job& job : list) {
        if (const auto result = ResultOf(job, output); result && Lasts(*result)) {
            tally.Add(job, *result, true);
            continue;
        }
        while (running.size() >= static_cast<std::size_t>(jobs)) {
            FinishOne(running, output, tally, sets.size());
        }
        running[StartJob(job, output, options)] = &job;
    }
    while (!running.empty()) {
        FinishOne(running, output, tally, sets.size());
    }
    return tally.Finish(sets.size());
}

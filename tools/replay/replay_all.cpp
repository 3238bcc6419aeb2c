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

#include <fmt/core.h>

#include "host/picture/errors.h"
#include "tools/dumps/dump_set.h"
#include "tools/files/interruption.h"
#include "tools/files/json_text.h"
#include "tools/files/output_folder.h"
#include "tools/files/progress.h"
#include "tools/replay/replay.h"
#include "tools/run/device_folder.h"

namespace fs = std::filesystem;

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

// Everything that the options can change about a result, besides the files that they name.
Json OptionsJson(const ReplayOptions& options) {
    Json faces = Json::array();
    for (const ChiRect& face : options.faces) {
        faces.push_back({face.left, face.top, face.width, face.height});
    }
    const auto point = [](Point at) { return Json{at.x, at.y}; };
    return {{"blur", OrNull(options.blur)},
            {"focus", options.focus ? point(*options.focus) : Json()},
            {"rotation", OrNull(options.rotation)},
            {"faces", faces},
            {"noFaces", options.noFaces},
            {"faceRotation", OrNull(options.faceRotation)},
            {"mainCrop", OrNull(options.mainCrop)},
            {"auxCrop", OrNull(options.auxCrop)},
            {"mainSensor", OrNull(options.mainSensor)},
            {"auxSensor", OrNull(options.auxSensor)},
            {"mainWidth", OrNull(options.mainWidth)},
            {"auxWidth", OrNull(options.auxWidth)},
            {"pitch", options.pitch},
            {"skipBokeh", options.skipBokeh},
            {"debugView", OrNull(options.debugView)},
            {"log", OrNull(options.logMask)},
            {"properties", options.properties},
            {"failures", options.failures}};
}

Json KeyOf(const DumpSet& set, const ReplayOptions& options, const Libraries& libraries) {
    Json files = Json::array();
    for (const auto& file : set.files) {
        if (file) {
            files.push_back(Stamp(file->path));
        }
    }
    return {{"files", files},
            {"node", Stamp(libraries.node)},
            {"engine", Stamp(libraries.engine)},
            {"calibration", options.calibration.empty() ? Json() : Stamp(options.calibration)},
            {"options", OptionsJson(options)}};
}

// Only these results depend on the inputs alone; failed and unreadable sets are run again.
bool IsFinal(const Json& result) {
    const Json& status = result["status"];
    return status == "equal" || status == "differs";
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

// The stored result of this job, unless it was computed from other files or options.
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

// Replays one set in a process of its own and writes the result.
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
        WatchForInterruption(); // fork copies no thread but this one
        const int log =
            ::open((output / (job.name + ".log")).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
        ::dup2(log, STDERR_FILENO);
        code = ::getppid() == parent ? RunJob(job, output, options) : code;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bokehnode: %s\n", error.what());
    }
    std::fflush(nullptr);
    ::_exit(code); // the parent's destructors must not run here
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
        words += fmt::format("{}{} differs in {} samples, by {} at most", words.empty() ? "" : "; ",
                             what, count, largest);
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
    Tally(bool json, const fs::path& output) : json_(json), output_(output) {}

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
            std::printf("%s", JsonText({{"sets", sets},
                                        {"counts", counts},
                                        {"results", results_},
                                        {"written", {output_.string()}}})
                                  .c_str());
        } else {
            std::printf("%zu sets:", sets);
            for (const auto& [status, count] : counts_) {
                std::printf(" %zu %s", count, status.c_str());
            }
            std::printf("\nwrote %s\n", output_.c_str());
        }
        return counts_["equal"] == sets ? kExitDone : kExitFailed;
    }

private:
    bool json_;
    fs::path output_;
    std::size_t done_ = 0;
    std::map<std::string, std::size_t> counts_;
    Json results_ = Json::array();
};

void FinishOne(std::map<pid_t, const Job*>& running, const fs::path& output, Tally& tally,
               std::size_t sets) {
    int status = 0;
    pid_t ended = 0;
    {
        // The progress thread must have ended before the next fork.
        const Progress progress(fmt::format("{} of {} sets", tally.done(), sets));
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
    const std::string how = WIFSIGNALED(status)
                                ? fmt::format("ended by signal {}", WTERMSIG(status))
                                : "wrote no result";
    const fs::path log = output / (job.name + ".log");
    tally.Add(
        job,
        {{"status", "failed"}, {"error", fmt::format("its process {}, see {}", how, log.string())}},
        false);
}

} // namespace

int ReplayAll(const fs::path& place, const fs::path& output, int jobs, bool json,
              const ReplayOptions& options) {
    const Libraries libraries = FindLibraries(options);
    const std::vector<DumpSet> sets = FindDumpSets({place});
    const std::vector<std::string> names = DistinctNames(sets);
    CheckOptions(sets, options);
    std::vector<Job> list;
    for (std::size_t i = 0; i < sets.size(); ++i) {
        list.push_back({sets[i], names[i], KeyOf(sets[i], options, libraries)});
    }
    OutputFolder(output).Commit(); // makes the folder, or throws
    Tally tally(json, output);
    std::map<pid_t, const Job*> running;
    for (const Job& job : list) {
        if (const auto result = ResultOf(job, output); result && IsFinal(*result)) {
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

#pragma once

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include <sys/types.h>

#include "tools/files/interruption.h"
#include "tools/files/json_text.h"
#include "tools/files/progress.h"
#include "tools/replay/replay.h"

// Replays in child processes of their own, and what is told of each.

// What a result's "status" can be, beside a crash or a timeout in words.
namespace status {
constexpr char kEqual[] = "equal";
constexpr char kDiffers[] = "differs";
constexpr char kRendered[] = "rendered"; // where there is nothing to compare with
constexpr char kFailed[] = "failed";
constexpr char kUnreadable[] = "unreadable";
constexpr char kMissing[] = "missing";
} // namespace status

// A result: the "status", the "reason" in words, the "report" and the page's "tile", which may be
// null.
Json Result(const std::string& status, const std::string& reason, const Json& report = {},
            const Json& tile = {});

// Writes the replay's page, if one is wanted, and returns its tile.
using PageWriter = std::function<Json(const Replayed&)>;

// The result that `replay` returns, or what stopped it. `log`: the file to refer the reader to, if
// there is one.
Json ResultOf(const std::function<Json()>& replay, const std::filesystem::path& log);

// Whether a result of this status depends on the inputs alone; sets with any other are run again.
bool IsFinal(const std::string& status);

// Why the replay failed or differs, in a few words.
std::string ReasonOf(const Replayed& replayed);

void WriteJson(const std::filesystem::path& file, const Json& json);

// Performs the action in a new process, whose standard error is this file, or this process's if the
// path is empty. Returns its id.
pid_t StartProcess(const std::filesystem::path& log, const std::function<void()>& action);

// Processes that do a job each, `most` at once. For a thread of a process that has no other.
template <typename Job>
class Processes {
public:
    // `progress`: what to show of the whole run. `ended`: gets each job that ended, and its
    // process's status as of waitpid(2).
    Processes(int most, std::function<std::string()> progress,
              std::function<void(const Job&, int status)> ended)
        : most_(static_cast<std::size_t>(most)), progress_(std::move(progress)),
          ended_(std::move(ended)) {}
    // Where an error has stopped this process, those that still run must not outlive its files.
    ~Processes() {
        for (const auto& [child, job] : running_) {
            ::kill(child, SIGTERM);
        }
        for (const auto& [child, job] : running_) {
            int status = 0;
            AwaitChild(child, status);
        }
    }
    Processes(const Processes&) = delete;
    Processes& operator=(const Processes&) = delete;

    // Waits until there is room.
    void Start(const Job& job, const std::filesystem::path& log,
               const std::function<void()>& action) {
        while (running_.size() >= most_) {
            AwaitOne();
        }
        running_.emplace(StartProcess(log, action), job);
    }

    // Waits until none of the jobs for which `which` is true is running.
    void AwaitAll(const std::function<bool(const Job&)>& which) {
        while (
            std::ranges::any_of(running_, [&](const auto& entry) { return which(entry.second); })) {
            AwaitOne();
        }
    }

private:
    void AwaitOne() {
        int status = 0;
        std::optional<Progress> progress(std::in_place, progress_(), start_);
        const auto ended = running_.extract(AwaitChild(-1, status));
        progress.reset(); // its thread must have ended before the next fork
        if (!ended.empty()) {
            ended_(ended.mapped(), status);
        }
    }

    const std::size_t most_;
    const std::function<std::string()> progress_;
    const std::function<void(const Job&, int status)> ended_;
    const Progress::Clock::time_point start_ = Progress::Clock::now();
    std::map<pid_t, Job> running_;
};

// Whether a process with this status as of waitpid(2) has come to the end of its action.
bool EndedWell(int status);

// The status of a result for one that has not.
std::string StatusOfEnd(int status);

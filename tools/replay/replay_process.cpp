#include "tools/replay/replay_process.h"

#include <cstdint>
#include <cstdio>
#include <exception>
#include <vector>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fmt/core.h>
#include <fmt/ranges.h>

#include "host/picture/errors.h"
#include "tools/files/console.h"
#include "tools/files/output_folder.h"

Json Result(const std::string& status, const std::string& reason, const Json& report,
            const Json& tile) {
    return {{"status", status}, {"reason", reason}, {"report", report}, {"tile", tile}};
}

Json ResultOf(const std::function<Json()>& replay, const std::filesystem::path& log) {
    try {
        return replay();
    } catch (const UseError& error) {
        // A set that cannot be read is told apart from a run that failed: its files are at fault.
        return Result(status::kUnreadable, error.what());
    } catch (const ChildFailure& error) {
        return Result(error.what(), log.empty() ? "" : "see " + log.string());
    } catch (const std::exception& error) {
        return Result(status::kFailed, error.what());
    }
}

bool IsFinal(const std::string& status) {
    return status == status::kEqual || status == status::kDiffers || status == status::kRendered;
}

std::string ReasonOf(const Replayed& replayed) {
    // The first reason that applies is given, since differences mostly follow from a failure.
    if (!replayed.missing.empty()) {
        return "the dumps are not whole: " + replayed.missing.front();
    }
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
        words.push_back(fmt::format("{} differs in {}, by {} at most", what,
                                    Counted(count, "sample"), largest));
    };
    add("output", replayed.outputDifference);
    add("disparity", replayed.disparityDifference);
    return fmt::format("{}", fmt::join(words.empty() ? replayed.notes : words, "; "));
}

void WriteJson(const std::filesystem::path& file, const Json& json) {
    // The file appears as a whole or not at all: a process that is killed leaves no half of a
    // result.
    OutputFolder folder(file.parent_path());
    folder.Write(file.filename().string(), JsonText(json));
    folder.Commit();
}

pid_t StartProcess(const std::filesystem::path& log, const std::function<void()>& action) {
    const pid_t child = ForkChild();
    if (child > 0) {
        return child;
    }
    int code = kExitDone;
    try {
        if (!log.empty()) { // the messages of several processes would mix
            ::dup2(::open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666), STDERR_FILENO);
        }
        action();
    } catch (const std::exception& error) {
        PrintNotice(error.what());
        code = kExitFailed;
    }
    // The child has copies of the parent's objects, whose destructors would remove the parent's
    // files.
    LeaveChild(code);
}

bool EndedWell(int status) {
    return WIFEXITED(status) && WEXITSTATUS(status) == kExitDone;
}

std::string StatusOfEnd(int status) {
    return WIFSIGNALED(status) ? SignalInWords(WTERMSIG(status)) : status::kFailed;
}

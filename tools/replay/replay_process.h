#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include <sys/types.h>

#include "tools/files/json_text.h"
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

// The result that `replay` returns, or what stopped it. `log`: the file to refer the reader to.
Json ResultOf(const std::function<Json()>& replay, const std::filesystem::path& log);

// Why the replay failed or differs, in a few words.
std::string ReasonOf(const Replayed& replayed);

void WriteJson(const std::filesystem::path& file, const Json& json);

// Performs the action in a new process, whose standard error is this file. Returns its id.
pid_t StartProcess(const std::filesystem::path& log, const std::function<void()>& action);

// Whether a process with this status as of waitpid(2) has come to the end of its action.
bool EndedWell(int status);

// The status of a result for one that has not.
std::string StatusOfEnd(int status);

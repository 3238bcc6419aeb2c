#pragma once

#include <filesystem>
#include <string>

#include "tools/commands/options.h"
#include "tools/replay/replay.h"
#include "tools/run/run_options.h"

// What several commands take or say, under one name and in one way.

// The options of a request. `defaults`: what holds without them, "as dumped"; empty for a new
// request, which has defaults of its own.
void AddRequestOptions(Command& command, RequestOptions& options, const std::string& defaults);

// What the node runs in: calibration, debug view, log mask, properties, failures, timeout,
// libraries. `calibration`: in words, which one is taken by default.
void AddRunOptions(Command& command, RunOptions& options, const std::string& calibration);

// What a replay changes, and what it runs in.
void AddReplayChanges(Command& command, ReplayOptions& options);

// The calls that --fail of AddRunOptions knows, for the end of the help.
std::string FailureHelp();

// For the end of the help: "Exit codes: OTHERS; 2 ...", which means the same for all commands.
std::string ExitCodes(const std::string& others);

// A file that a command writes, refused unless its name ends so.
Option AddOutputFile(Command& command, const char* name, const char* ending,
                     std::filesystem::path& file, const std::string& help);

// --report FILE.
Option AddReportOption(Command& command, std::filesystem::path& file);

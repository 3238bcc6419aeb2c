#pragma once

#include <functional>

#include "tools/commands/options.h"

// The commands, one a file. Each adds its options to `command`; what it returns runs the command
// once they are read and returns the exit code; UseErrors and host::PipelineErrors pass.

std::function<int()> PrepareRender(Command command);    // a pair of pictures through the node
std::function<int()> PrepareInspect(Command command);   // what is in dump sets, and wrong with them
std::function<int()> PrepareReplay(Command command);    // dumped requests through the node again
std::function<int()> PrepareConvert(Command command);   // dumps to PNG and pictures to dumps
std::function<int()> PrepareDiff(Command command);      // compares two pictures
std::function<int()> PrepareCalibrate(Command command); // the stand-in engine's calibration file
std::function<int()> PrepareLog(Command command);       // what a phone's log tells
std::function<int()> PrepareView(Command command);      // dump sets in a live page
// A shell's completion of `program`, made from its commands and options.
std::function<int()> PrepareCompletion(Command command, const Program& program);

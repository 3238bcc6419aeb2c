#pragma once

#include <functional>

#include "tools/commands/options.h"

// The commands, one a file. Each adds its options to `command`; what it returns runs the command
// once they are read and returns the exit code; UseErrors and host::PipelineErrors pass.

// `bokehnode render`: one pair of pictures through the node.
std::function<int()> PrepareRender(Command command);

// `bokehnode inspect`: what is in dump sets, and what is wrong with them.
std::function<int()> PrepareInspect(Command command);

// `bokehnode replay`: dumped requests through the node again.
std::function<int()> PrepareReplay(Command command);

// `bokehnode convert`: dumps to PNG and pictures to dumps.
std::function<int()> PrepareConvert(Command command);

// `bokehnode diff`: compares two pictures.
std::function<int()> PrepareDiff(Command command);

// `bokehnode calibrate`: the stand-in engine's calibration file.
std::function<int()> PrepareCalibrate(Command command);

// `bokehnode completion`: a shell's completion of `program`, made from its commands and options.
std::function<int()> PrepareCompletion(Command command, const Program& program);

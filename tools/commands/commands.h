#pragma once

#include <functional>

namespace CLI {
class App;
}

// The commands, one a file. Each adds its options to `command`; what it returns runs the command
// once they are read and returns the exit code; UseErrors and host::PipelineErrors pass.

// `bokehnode render`: one pair of pictures through the node.
std::function<int()> PrepareRender(CLI::App& command);

// `bokehnode inspect`: what is in dump sets, and what is wrong with them.
std::function<int()> PrepareInspect(CLI::App& command);

// `bokehnode replay`: dumped requests through the node again.
std::function<int()> PrepareReplay(CLI::App& command);

// `bokehnode convert`: dumps to PNG and pictures to dumps.
std::function<int()> PrepareConvert(CLI::App& command);

// `bokehnode diff`: compares two pictures.
std::function<int()> PrepareDiff(CLI::App& command);

// `bokehnode calibrate`: the stand-in engine's calibration file.
std::function<int()> PrepareCalibrate(CLI::App& command);

// `bokehnode completion`: a shell's completion of this program, made from its own commands and
// options.
std::function<int()> PrepareCompletion(CLI::App& command);

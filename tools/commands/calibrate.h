#pragma once

#include <functional>

namespace CLI {
class App;
}

// `bokehnode calibrate`: the stand-in engine's calibration file. Adds the options; what is returned
// runs the command once they are read.
std::function<int()> PrepareCalibrate(CLI::App& command);

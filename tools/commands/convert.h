#pragma once

#include <functional>

namespace CLI {
class App;
}

// `bokehnode convert`: dumps to PNG and pictures to dumps. Adds the options; what is returned runs
// the command once they are read.
std::function<int()> PrepareConvert(CLI::App& command);

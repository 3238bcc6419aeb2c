#pragma once

#include <functional>

namespace CLI {
class App;
}

// `bokehnode completion`: a shell's completion of this program, made from its own commands and
// options. Adds the options; what is returned runs the command once they are read.
std::function<int()> PrepareCompletion(CLI::App& command);

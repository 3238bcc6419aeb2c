#pragma once

#include <functional>

namespace CLI {
class App;
}

// `bokehnode inspect`: what is in dump sets, and what is wrong with them. Adds the options; what is
// returned runs the command once they are read.
std::function<int()> PrepareInspect(CLI::App& command);

#pragma once

#include <functional>

namespace CLI {
class App;
}

// `bokehnode replay`: dumped requests through the node again. Adds the options; what is returned
// runs the command once they are read.
std::function<int()> PrepareReplay(CLI::App& command);

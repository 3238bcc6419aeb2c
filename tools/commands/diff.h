#pragma once

#include <functional>

namespace CLI {
class App;
}

// `bokehnode diff`: compares two pictures. Adds the options; what is returned runs the command once
// they are read.
std::function<int()> PrepareDiff(CLI::App& command);

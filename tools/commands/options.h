#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "tools/run/run_options.h"

namespace CLI {
class App;
class Option;
} // namespace CLI

void AddRenderOptions(CLI::App& command, RenderOptions& options);

// The parts that other commands share: debug view, log mask and properties; node and engine.
void AddPropertyOptions(CLI::App& command, RenderOptions& options);
void AddLibraryOptions(CLI::App& command, RenderOptions& options);

// --report FILE, the same for every command that makes one.
CLI::Option* AddReportOption(CLI::App& command, std::filesystem::path& file);

// The whole numbers of an option's text, `count` of them with `separator` between. Throws
// CLI::ValidationError with `form` as what was expected, for instance "X,Y".
std::vector<int> ParseNumbers(const std::string& option, const std::string& text, std::size_t count,
                              char separator, const std::string& form);

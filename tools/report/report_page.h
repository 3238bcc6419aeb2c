#pragma once

#include <filesystem>
#include <string>

#include "tools/report/report.h"

// The report as an HTML page that needs nothing else. `folder`, where the page is to stand, is what
// its links are relative to.
std::string PageOf(const Report& report, const std::filesystem::path& folder);

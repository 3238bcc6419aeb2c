#pragma once

#include <filesystem>
#include <string>

#include <nlohmann/json.hpp>

// The texts of the HTML pages, which need nothing else.

// `data`: for the page's script. `pictures`: elements with the parts of pictures that it names.
std::string CapturePage(const nlohmann::ordered_json& data, const std::string& pictures);
std::string OverviewPage(const nlohmann::ordered_json& data);

// A link from a page in this folder. All bytes of a name are escaped that could mean anything but
// themselves.
std::string LinkTo(const std::filesystem::path& file, const std::filesystem::path& folder);

#pragma once

#include <filesystem>
#include <string>

#include <nlohmann/json.hpp>

// The texts of the HTML pages, which need nothing else.

// `data` is what the page's script shows. `pictures` are the elements that hold the pictures, which
// `data` names; `reduced` are those of the reduced pictures, shown while the others are read.
std::string CapturePage(const nlohmann::ordered_json& data, const std::string& reduced,
                        const std::string& pictures);
// The page of one capture that a server shows: it asks the server for its pictures. `policy`: what
// the browser may load and run; of scripts and styles only those with the nonce.
std::string LivePage(const nlohmann::ordered_json& data, const std::string& policy,
                     const std::string& nonce);
// `data`: command, title and tiles, and of a log also its findings and what its tiles are
// ("things"). `policy` and `nonce`: as above, or empty for a page that is a file.
std::string OverviewPage(const nlohmann::ordered_json& data, const std::string& policy = "",
                         const std::string& nonce = "");

// A link from a page in this folder. All bytes of a name are escaped that could mean anything but
// themselves.
std::string LinkTo(const std::filesystem::path& file, const std::filesystem::path& folder);

#pragma once

#include <string>

#include <nlohmann/json.hpp>

// With a newline at the end. File names need not be UTF-8, JSON text must be: what is not is
// replaced. `indent` -1: one line.
inline std::string JsonText(const nlohmann::ordered_json& json, int indent = 2) {
    return json.dump(indent, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

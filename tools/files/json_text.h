#pragma once

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "host/picture/geometry.h"

using Json = nlohmann::ordered_json;

inline void to_json(Json& json, Size size) {
    json = {size.width, size.height};
}

template <typename Value>
Json OrNull(const std::optional<Value>& value) {
    return value ? Json(*value) : Json();
}

// With a newline at the end. File names need not be UTF-8, JSON text must be: what is not is
// replaced. `indent` -1: one line.
inline std::string JsonText(const Json& json, int indent = 2) {
    return json.dump(indent, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

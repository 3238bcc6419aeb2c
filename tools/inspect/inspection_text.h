#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include "tools/inspect/inspection.h"

// Files, parameters, findings and notes, for a reader and as JSON.
std::string InWords(const Inspection& inspection);
nlohmann::ordered_json ToJson(const Inspection& inspection);

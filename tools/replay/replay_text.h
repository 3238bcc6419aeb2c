#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include "tools/replay/replay.h"

// What became of a replay, for a reader and as JSON.
std::string InWords(const DumpSet& set, const Replayed& replayed);
nlohmann::ordered_json ToJson(const DumpSet& set, const Replayed& replayed);

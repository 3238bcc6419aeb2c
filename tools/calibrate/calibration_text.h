#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include "host/refocus/calibration.h"

// A calibration for a reader and as JSON.
std::string InWords(const refocus::Calibration& calibration);
nlohmann::ordered_json ToJson(const refocus::Calibration& calibration);

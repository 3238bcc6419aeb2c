#pragma once

#include <nlohmann/json.hpp>

#include "tools/compare/difference.h"

nlohmann::ordered_json ToJson(const PictureDifference& difference);

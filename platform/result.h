#pragma once

#include <cstdint>

// Result code of the platform's node interface; 0 is success. The platform's full list is named in
// bokehbase/configuration.cpp, where it words a message. The node itself produces these three and
// passes all others on.
using CDKResult = std::uint32_t;

constexpr CDKResult CDKResultSuccess = 0;
constexpr CDKResult CDKResultEFailed = 1;
constexpr CDKResult CDKResultEInvalidPointer = 5;

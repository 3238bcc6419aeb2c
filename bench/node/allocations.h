#pragma once

#include <cstdint>

namespace bench {

// Heap allocations of this process so far: every `new`, whoever calls it, and every malloc, calloc
// and realloc of the node.
std::uint64_t Allocations();

} // namespace bench

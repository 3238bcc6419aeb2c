#pragma once

#include "bench/node/comparison.h"

namespace bench {

// Each registers the benchmarks of one file.
void RegisterCopies(const Plan& plan);
void RegisterMerges(const Plan& plan);
void RegisterRequests(const Plan& plan);
void RegisterDumps(const Plan& plan);

} // namespace bench

#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "tools/dumps/dump_set.h"
#include "tools/files/json_text.h"
#include "tools/replay/replay.h"
#include "tools/replay/replay_process.h"

// Compares a replay with the same replay in other libraries, not with the dumps.

// The options with the other libraries of `reference`, each where it is given.
ReplayOptions OptionsOf(const ReferenceBuild& reference, ReplayOptions options);

// Replays the set in the reference build and then, in a process of its own, in that of the options.
// Returns a result whose report has as "comparison" what the table shows. To be called in a process
// of its own, with its standard error in `log`. The page shows the reference's pictures as dumped,
// and as accepted what differs in no more than `failAbove` of the samples.
Json ReplayInBoth(const DumpSet& set, const ReplayOptions& reference, const ReplayOptions& options,
                  double failAbove, const std::filesystem::path& log, const PageWriter& page);

// The largest difference first: what did not run, what has another depthEffectInfo, then by PSNR.
void SortByDifference(std::vector<Json>& results);

// Whether the builds differ by more than this share of a plane's samples, or in depthEffectInfo, or
// one of them did not run, copied the main image or broke a rule.
bool Exceeds(const Json& result, double share);

// A line for each result.
std::string ComparisonTable(const std::vector<Json>& results, double failAbove);

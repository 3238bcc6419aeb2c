#pragma once

#include <optional>
#include <string>

#include "tools/inspect/inspection.h"
#include "tools/replay/replay.h"
#include "tools/report/report.h"
#include "tools/run/capture_request.h"

// What the report of each command holds.

// "looks wrong: fallback, names", or that nothing does.
std::string InWords(const Inspection& inspection);

// All that is known of a dump set.
Report ReportOf(const Inspection& inspection);

// A rendered pair. `dumps`: the inspection of what the node dumped of it.
Report ReportOf(const RenderOptions& options, const host::Request& request, const Outcome& outcome,
                const std::optional<Inspection>& dumps);

// A replayed set. `inspection`: what was known of it before.
Report ReportOf(const Inspection& inspection, const Replayed& replayed);

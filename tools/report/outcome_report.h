#pragma once

#include <vector>

#include "tools/inspect/inspection.h"
#include "tools/replay/replay.h"
#include "tools/report/report.h"
#include "tools/run/run_json.h"

// What a run of the node came to, as a report.

// A rendered pair. `dumps`: what the node dumped of it, where it did.
Report ReportOf(const RunFacts& facts, const Outcome& outcome,
                const std::optional<Inspection>& dumps, std::vector<host::LogRecord> log);

// A replayed set, of which `inspection` tells what was wrong with it before.
Report ReportOf(const Inspection& inspection, const Replayed& replayed);

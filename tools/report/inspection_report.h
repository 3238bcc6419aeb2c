#pragma once

#include "tools/inspect/inspection.h"
#include "tools/report/report.h"

// All that is known of a dump set, as a report.
Report ReportOf(const Inspection& inspection);

// The parts of it that reports of other commands share.
void AddFindings(Report& report, const Inspection& inspection);
void AddParameters(Report& report, const DumpParameters& parameters);
void AddDumpLinks(Report& report, const DumpSet& set);

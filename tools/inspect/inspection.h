#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "host/picture/file_bytes.h"
#include "host/picture/image.h"
#include "tools/dumps/dump_set.h"
#include "tools/dumps/parameter_text.h"
#include "tools/inspect/finding.h"

// A dump set, read, and what was found in it: all that a report shows.
struct Inspection {
    DumpSet set;
    std::array<Bytes, 5> bytes;               // by role; empty for a file that is not there
    std::optional<DumpParameters> parameters; // where the text could be read
    // Images by role, as the names say; bytes that a file lacks are 0. Nothing for a missing file.
    std::array<std::optional<host::Image>, 5> images;
    std::vector<Finding> findings;  // the likeliest cause first
    std::vector<std::string> notes; // what is no fault but good to know

    const std::optional<host::Image>& image(DumpRole role) const {
        return images[static_cast<std::size_t>(role)];
    }
    bool Has(Problem problem) const;
    bool Has(Problem problem, DumpRole file) const;
};

// Reads the set and runs all checks. Throws UseError where a file cannot be read.
Inspection Inspect(const DumpSet& set);

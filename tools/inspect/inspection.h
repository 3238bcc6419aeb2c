#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "host/picture/file_bytes.h"
#include "host/picture/image.h"
#include "tools/dumps/dump_set.h"
#include "tools/dumps/parameter_text.h"

// What can be wrong with a dump set. Findings are sorted in this order, which puts causes before
// what follows from them.
enum class Problem {
    kMissing,    // a file that every capture has is missing
    kSurplus,    // there are files of two captures of the same second
    kPitch,      // an image's rows are longer or shorter than its name says
    kHeight,     // an image has more or fewer rows than its name says
    kTruncated,  // an image has fewer bytes than its name says
    kGrown,      // it has more, as when a longer file of that name was overwritten
    kDisparity,  // the disparity has fewer bytes than its name says
    kSwapped,    // main and aux image are exchanged
    kAuxRotated, // the aux image is rotated against the main image
    kNames,      // the sizes in the names contradict one another
    kParameters, // the parameter text is damaged, or contradicts itself or the images
    kMoment,     // the images do not show one scene at one moment
    kChroma,     // U and V are exchanged in one image
    kFallback,   // the output is a copy of the main image
};

// "pitch", "aux-rotated" and so on: the problem's name in texts and JSON.
const char* NameOf(Problem problem);

struct Finding {
    Problem problem = Problem::kMissing;
    std::optional<DumpRole> file; // the file that is wrong; nothing if it is not a single one
    std::string text;             // what was expected and what was found
};

// A dump set, read, and what was found in it.
struct Inspection {
    DumpSet set;
    std::string engineFailure;  // where it is known: why there may be no disparity
    std::array<Bytes, 5> bytes; // of the images by role, up to twice what their names say
    std::optional<DumpParameters> parameters; // nothing if the text is missing or damaged
    // By role, with the sizes that the names give; missing bytes are 0. Nothing for a missing file
    // and for the parameters.
    std::array<std::optional<host::Image>, 5> images;
    std::vector<Finding> findings;  // the likeliest cause first
    std::vector<std::string> notes; // remarkable, but no fault

    const std::optional<host::Image>& image(DumpRole role) const {
        return images[static_cast<std::size_t>(role)];
    }
    void Report(Problem problem, std::optional<DumpRole> file, std::string text) {
        findings.push_back({problem, file, std::move(text)});
    }
    bool Has(Problem problem) const;
    bool Has(Problem problem, DumpRole file) const;
};

// Reads the set and runs all checks. `engineFailure`: the engine's failed call, where it is known.
// Throws UseError if a file cannot be read.
Inspection Inspect(const DumpSet& set, const std::string& engineFailure = "");

// Why an engine may find no depth in this pair, a line each. `auxSide`: 1 for an aux camera that is
// right of the main one as the images stand, -1 left of it, 0 unknown.
std::vector<std::string> FindPairProblems(const host::Image& main, const host::Image& aux,
                                          int auxSide);

// Files, parameters, findings and notes.
std::string ToText(const Inspection& inspection);
nlohmann::ordered_json ToJson(const Inspection& inspection);

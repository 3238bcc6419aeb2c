#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/dumps/dump_name.h"

// What a look at a dump set can find; causes before what follows from them.
enum class Problem {
    kMissing,    // a file that every capture has is not there
    kSurplus,    // files of two captures of one second
    kPitch,      // an image's rows are longer or shorter than its name says
    kHeight,     // an image has more or fewer rows than its name says
    kTruncated,  // an image has fewer bytes than its name says
    kGrown,      // more, as a file has that was written over a longer one
    kDisparity,  // the disparity has fewer bytes than its name says
    kSwapped,    // main and aux image have changed places
    kAuxRotated, // the aux image is turned against the main one
    kNames,      // sizes in the names do not go together
    kParameters, // the parameter text contradicts itself or the images, or is damaged
    kMoment,     // the images do not show the same thing at the same moment
    kChroma,     // U and V have changed places in one image
    kFallback,   // the output is the main image
};

struct Finding {
    Problem problem = Problem::kMissing;
    std::optional<DumpRole> file; // the one that is wrong, where it is one
    std::string text;             // what was expected and what was found
};

// "pitch", "aux-rotated" and so on: a problem's name in JSON and behind a finding.
const char* NameOf(Problem problem);

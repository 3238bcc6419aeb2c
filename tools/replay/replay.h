#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/log/log_control.h"
#include "host/picture/file_bytes.h"
#include "host/pipeline/pipeline.h"
#include "tools/compare/difference.h"
#include "tools/dumps/dump_set.h"
#include "tools/replay/replay_options.h"

// What became of a dumped request that ran again: all that a report shows.
struct Replayed {
    DumpParameters dumped;
    DumpParameters asked;                // the dumped ones with what the options change
    std::optional<DumpParameters> taken; // what the node made of the request
    host::RequestResult result;
    bool copied = false;              // the output is the main image, though nobody asked for it
    std::vector<std::string> reasons; // of a copy
    std::vector<std::string> notes;
    std::vector<host::LogRecord> log;
    std::string calibration; // where it came from
    Size mainSensor;
    Size auxSensor;
    host::Image main;
    host::Image aux;
    host::Image output;
    host::Image dumpedOutput; // without a size where the set has none that can be compared
    host::Image disparity;    // rows as long as the main image's pitch
    host::Image dumpedDisparity;
    // Against the dumped ones; nothing where there is no pair to compare.
    std::optional<PictureDifference> outputDifference;
    std::optional<PictureDifference> disparityDifference;
    bool disparityDue = false; // the set or the replay has one, so that both must
    std::vector<std::pair<std::string, Bytes>> files; // the node's new dumps, named as the old ones

    bool failed() const { return !result.published || copied || !result.complaints.empty(); }
    // Output and disparity are the dumped ones, byte for byte.
    bool equal() const;
};

// Rebuilds the set's request and runs it through the node, which dumps. Once per process: the
// node's libraries and properties are the process's. Throws UseError where the set cannot be
// replayed.
Replayed Replay(const DumpSet& set, const ReplayOptions& options);

// Throws UseError where the changes name a focus point that no replay of this set can have.
void CheckFocus(const DumpSet& set, const ReplayOptions& options);

#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "host/pipeline/pipeline.h"
#include "tools/run/run_options.h"

// What became of a request.
struct Outcome {
    host::RequestResult result;
    bool copied = false;              // the output is the main image, though nobody asked for it
    std::vector<std::string> reasons; // of a copy, from the log
};

// What the request was made of.
struct RunFacts {
    const RenderOptions& options;
    const host::Request& request;
    int debugView = 0;
    std::string calibration;
    std::string node;
    std::string engine;
};

// The published tags by their names.
nlohmann::ordered_json TagsJson(const host::Published& published);

nlohmann::ordered_json ParametersJson(const RunFacts& facts);

// The run as JSON text: published tags, result code, complaints, parameters.
std::string ReportText(const RunFacts& facts, const Outcome& outcome);

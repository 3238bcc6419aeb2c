#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "host/control/faults.h"
#include "host/log/log_control.h"
#include "host/pipeline/pipeline.h"
#include "tools/files/json_text.h"
#include "tools/run/run_options.h"

// Requests through the node.

// The two libraries that the pipeline loads.
struct Libraries {
    std::filesystem::path node;
    std::filesystem::path engine;
};

// Those of the options; by default those in the folder of the platform's stand-ins. Throws UseError
// where a file is missing.
Libraries FindLibraries(const RunOptions& options);

// What became of a request.
struct Outcome {
    host::RequestResult result;       // complaints found while the node ended included
    bool copied = false;              // the output is the main image, though nobody asked for it
    std::vector<std::string> reasons; // from the log: why nothing was published, or a copy
    std::vector<std::string> missing; // of the dumps that were asked for
    std::vector<std::string> notes;
    std::vector<host::LogRecord> log;
    std::vector<host::CallRecord> calls;
    std::vector<std::string> written; // the trace, where it was asked for
    double peakMemory = 0;            // of the process, in MB; 0 if it runs further requests
    int debugView = 0;                // that the properties select, 0 for none
    std::string calibration;          // where it came from

    bool failed() const {
        return !result.published || copied || !result.complaints.empty() || !missing.empty();
    }
    // The first of the reasons that is a failed call of the engine, with its code; empty if none.
    std::string engineFailure() const;
};

// Sets the properties, arms the failures, creates a node, runs the request and ends the node. The
// log's messages go to standard error meanwhile. Once per process: libraries and properties are the
// process's. A library may crash, hang or exit: to be called after ContinueInChild. Throws UseError
// where a library does not load, host::PipelineError where the node refuses to be created.
Outcome RunNode(const RunOptions& options, const Libraries& libraries, const host::UseCase& useCase,
                host::Request& request);

// A node that stays loaded for further requests of this process, with the engine's buffers and
// threads. One at a time.
class LoadedNode {
public:
    LoadedNode();
    ~LoadedNode();
    LoadedNode(const LoadedNode&) = delete;
    LoadedNode& operator=(const LoadedNode&) = delete;

    // As RunNode. The first call, and the one after End, sets the properties and creates the node;
    // others find it as it is. All calls must name the same libraries. `last`: the node ends within
    // the call. The last call writes the file of a trace, the others add to it.
    Outcome Run(const RunOptions& options, const Libraries& libraries, const host::UseCase& useCase,
                host::Request& request, bool last);

    // Ends the node, if there is one. The libraries stay loaded.
    void End();

private:
    struct Session;
    std::unique_ptr<Session> session_;
};

// What went wrong, why, and what is worth noting, a line each.
std::vector<std::string> Lines(const Outcome& outcome);

// The published tags by their names.
Json TagsJson(const host::Published& published);

// The outcome as JSON: the same for the same request.
Json ToJson(const Outcome& outcome);

// Adds what differs from run to run: the time of each step, the peak memory.
void AddCost(Json& json, const Outcome& outcome);

#include "tools/run/node_run.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <optional>
#include <utility>

#include <dlfcn.h>
#include <sys/resource.h>

#include <fmt/core.h>

#include "host/control/faults.h"
#include "host/picture/errors.h"
#include "host/properties/property_control.h"
#include "platform/device_names.h"
#include "tools/files/progress.h"
#include "tools/run/call_trace.h"
#include "tools/run/log_lines.h"

namespace fs = std::filesystem;

namespace {

constexpr int kEveryMessage = 6; // log mask

// Where the stand-ins that this program has loaded come from: its build or its installation.
fs::path StandInsFolder() {
    Dl_info library = {};
    // The loader knows the folder; the program's own path differs between a build and an
    // installation.
    ::dladdr(::dlsym(RTLD_DEFAULT, "property_set"), &library);
    return fs::path(library.dli_fname).parent_path();
}

fs::path FindLibrary(const char* option, fs::path file, const char* name) {
    if (file.empty()) {
        file = StandInsFolder() / name;
    }
    if (!fs::is_regular_file(file)) {
        Refuse(option, "a library", "none at " + file.string());
    }
    return fs::absolute(file); // without a folder the loader would search its own
}

// A node reads the properties while it is created.
void SetProperties(const RunOptions& options) {
    const auto set = [](const std::string& name, const std::string& value) {
        // The platform's function judges names and values, so that the limits are the device's.
        if (property_set(name.c_str(), value.c_str()) != 0) {
            Refuse("--set", "a property that can be set", fmt::format("\"{}={}\"", name, value));
        }
    };
    host::ClearProperties();
    if (options.dump) {
        set(device::kDumpProperty, "1");
    }
    if (options.debugView) {
        set(device::kDebugViewProperty, std::to_string(*options.debugView));
    }
    if (options.logMask || !options.trace.empty()) { // a trace shows the operations that log
        set(device::kLogMaskProperty, std::to_string(options.logMask.value_or(kEveryMessage)));
    }
    for (const auto& [name, value] : options.properties) { // last, since --set is the most explicit
        set(name, value);
    }
}

// The property is asked and not the option, since --set may have set it as well.
int DebugView() {
    char value[kPropertyValueMax] = {};
    property_get(device::kDebugViewProperty, value, "0");
    const int view = std::atoi(value);
    return view >= 1 && view <= 3 ? view : 0;
}

// Starts counting anew, since the tool itself has called functions of the stand-ins.
void ArmFailures(const std::vector<std::string>& failures) {
    host::Faults::Reset();
    for (const std::string& failure : failures) {
        host::Faults::Arm(failure);
    }
}

// While it lives, a library's call of exit() aborts: it must not look like a run that succeeded.
struct NoExit {
    static inline bool active = false;

    NoExit() {
        // One handler for the process runs at every exit(), this program's own included, and so
        // asks whether a library is being called.
        static const int registered = std::atexit([] { active ? std::abort() : void(); });
        active = registered == 0;
    }
    ~NoExit() { active = false; }
};

// Unless a debug view is on, a picture that the engine rendered comes with its disparity.
bool IsCopy(const host::Published& published, int debugView) {
    return debugView == 0 &&
           (published.result.depthEffectInfo != 0 || published.depthPictureSize <= 0);
}

double PeakMemory() {
    rusage usage = {};
    ::getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024;
}

} // namespace

// This comes before anything runs, so that a wrong path is wrong use and not a failed node.
Libraries FindLibraries(const RunOptions& options) {
    return {FindLibrary("--node", options.node, device::kNodeLibrary),
            FindLibrary("--engine", options.engine, device::kEngineLibrary)};
}

// Destroyed in the reverse order: the node before its library.
struct LoadedNode::Session {
    std::optional<host::NodeLibrary> library;
    std::optional<host::Node> node;

    host::RequestResult Process(const Libraries& libraries, const host::UseCase& useCase,
                                host::Request& request);
};

LoadedNode::LoadedNode() : session_(std::make_unique<Session>()) {}
LoadedNode::~LoadedNode() = default;

host::RequestResult LoadedNode::Session::Process(const Libraries& libraries,
                                                 const host::UseCase& useCase,
                                                 host::Request& request) {
    try {
        if (!library) {
            library.emplace(libraries.node, libraries.engine);
        }
    } catch (const host::PipelineError& error) {
        if (error.code() ==
            CDKResultSuccess) { // no answer of the node: the file is no such library
            throw UseError(error.what());
        }
        throw;
    }
    if (!node) {
        const Progress progress("creating the node");
        node.emplace(*library, useCase);
    }
    const Progress progress("processing the request");
    return node->Process(request);
}

Outcome LoadedNode::Run(const RunOptions& options, const Libraries& libraries,
                        const host::UseCase& useCase, host::Request& request, bool last) {
    Outcome outcome;
    // A node that is there has read them already.
    if (!session_->node) {
        SetProperties(options);
    }
    outcome.debugView = DebugView();
    const bool errorsAlone = !options.trace.empty() && !options.logMask &&
                             !std::ranges::count(options.properties, device::kLogMaskProperty,
                                                 &std::pair<std::string, std::string>::first);
    const LogLines log(options.engine.empty(), errorsAlone);
    const CallTrace trace;
    ArmFailures(options.failures);
    try {
        const NoExit noExit;
        outcome.result = session_->Process(libraries, useCase, request);
        if (last) {
            // The end is part of the request's result: the node may break a rule there as well.
            std::ranges::move(session_->node->End(), std::back_inserter(outcome.result.complaints));
            session_->node.reset();
        }
        // Of a node before this one, which ended between two requests.
        std::ranges::move(host::TakeStrayComplaints(),
                          std::back_inserter(outcome.result.complaints));
    } catch (const host::PipelineError& error) {
        // The log knows the cause, of which the node returns only a code.
        std::string text = error.what();
        for (const std::string& reason : log.Reasons()) {
            text += "; because: " + reason;
        }
        for (const std::string& complaint : host::TakeStrayComplaints()) {
            text += "; besides: " + complaint;
        }
        throw host::PipelineError(text, error.code());
    }
    for (const std::string& failure : host::Faults::Pending()) {
        outcome.notes.push_back("--fail: there was no such call: " + failure);
    }
    const auto& published = outcome.result.published;
    outcome.copied = published && IsCopy(*published, outcome.debugView);
    if (!published || outcome.copied) {
        outcome.reasons = log.Reasons();
    }
    outcome.log = log.records();
    outcome.calls = trace.calls();
    if (last) {
        outcome.peakMemory = PeakMemory();
    }
    if (!options.trace.empty()) {
        if (last) {
            outcome.written = WriteTrace(options.trace, outcome.calls);
        } else {
            AddToTrace(options.trace, outcome.calls);
        }
    }
    return outcome;
}

void LoadedNode::End() {
    session_->node.reset();
}

Outcome RunNode(const RunOptions& options, const Libraries& libraries, const host::UseCase& useCase,
                host::Request& request) {
    LoadedNode node;
    return node.Run(options, libraries, useCase, request, true);
}

std::string Outcome::engineFailure() const {
    // A reason begins with the function that failed.
    const auto failure = std::ranges::find_if(
        reasons, [](const std::string& reason) { return reason.starts_with("TSL_DCIR_"); });
    return failure == reasons.end() ? std::string() : *failure;
}

std::vector<std::string> Lines(const Outcome& outcome) {
    std::vector<std::string> lines;
    if (!outcome.result.published) {
        lines.push_back(fmt::format("failed: the node published nothing, its result is {}",
                                    outcome.result.code));
    }
    if (outcome.copied) {
        lines.emplace_back("failed: the output is a copy of the main picture");
    }
    const auto add = [&lines](const char* what, const std::vector<std::string>& texts) {
        for (const std::string& text : texts) {
            lines.push_back(what + text);
        }
    };
    add("because: ", outcome.reasons);
    add("failed: the node broke the interface's rules: ", outcome.result.complaints);
    add("failed: the dumps are not whole: ", outcome.missing);
    add("note: ", outcome.notes);
    return lines;
}

Json TagsJson(const host::Published& published) {
    return {{"SupportedFeature", published.supportedFeature},
            {"CurrentMode", published.currentMode},
            {"ProcessedFrameNumber", published.processedFrameNumber},
            {"FrameDimension", published.frameDimension},
            {"depthpicturesize", published.depthPictureSize},
            {"OutputMetadataBokeh",
             {{"masterCameraId", published.result.masterCameraId},
              {"activeMap", published.result.activeMap},
              {"depthEffectInfo", published.result.depthEffectInfo}}},
            {"PtFocus", published.focusPoint}};
}

Json ToJson(const Outcome& outcome) {
    const auto& published = outcome.result.published;
    return {{"result", outcome.result.code},
            {"copiedMainImage", outcome.copied},
            {"reasons", outcome.reasons},
            {"complaints", outcome.result.complaints},
            {"missing", outcome.missing},
            {"notes", outcome.notes},
            {"published", published ? TagsJson(*published) : Json()}};
}

void AddCost(Json& json, const Outcome& outcome) {
    json["milliseconds"] = StepsJson(outcome.calls);
    if (outcome.peakMemory > 0) {
        json["peakMemoryMB"] = std::round(outcome.peakMemory * 10) / 10;
    }
}

#include "tools/run/call_trace.h"

#include <algorithm>
#include <string_view>

#include <unistd.h>

#include "tools/files/trace_file.h"

namespace {

std::string EventOf(const host::CallRecord& call) {
    return TraceEvent(call.name, ::getpid(), call.thread, static_cast<double>(call.start),
                      static_cast<double>(call.length),
                      call.detail.empty() ? Json() : Json({{"detail", call.detail}}));
}

// Messages come as calls of the log, whose detail is the text.
constexpr std::string_view kLogCall = "__android_log_print";

// The operation in a message of the node, "TSL_CTB: OPERATION: LINE: ...".
std::string_view OperationIn(std::string_view message) {
    constexpr std::string_view kPrefix = "TSL_CTB: ";
    if (!message.starts_with(kPrefix)) {
        return {};
    }
    message.remove_prefix(kPrefix.size());
    return message.substr(0, message.find(':'));
}

bool IsCallback(std::string_view name) {
    return name.starts_with("Node");
}

} // namespace

CallTrace::CallTrace() {
    host::SetCallObserver([this](const host::CallRecord& call) { Take(call); });
}

CallTrace::~CallTrace() {
    host::SetCallObserver(nullptr);
}

void CallTrace::Take(const host::CallRecord& call) {
    const std::lock_guard lock(mutex_);
    if (call.name == kLogCall) {
        TakeMessage(call);
    } else {
        calls_.push_back(call);
    }
}

void CallTrace::TakeMessage(const host::CallRecord& message) {
    const std::string_view operation = OperationIn(message.detail);
    if (operation.empty() || IsCallback(operation)) { // the pipeline tells of callbacks itself
        return;
    }
    // Nodes may log on several threads at once. The end of an operation belongs to the innermost
    // begin of that name on its thread.
    auto& begun = operations_[message.thread];
    if (message.detail.find("(IN") != std::string::npos) {
        begun.emplace_back(operation, message.start);
    } else if (message.detail.find("(OUT)") != std::string::npos) {
        // What began within it and logged no end of its own is no operation of known length.
        const auto found = std::find_if(begun.rbegin(), begun.rend(), [operation](const auto& one) {
            return one.first == operation;
        });
        if (found != begun.rend()) {
            calls_.push_back(
                {found->first, "", found->second, message.start - found->second, message.thread});
            begun.erase(std::prev(found.base()), begun.end());
        }
    }
}

std::vector<std::string> WriteTrace(const std::filesystem::path& file,
                                    const std::vector<host::CallRecord>& calls) {
    TraceFile trace(file);
    for (const host::CallRecord& call : calls) {
        trace.Add(EventOf(call));
    }
    trace.Commit();
    return trace.written();
}

void AddToTrace(const std::filesystem::path& file, const std::vector<host::CallRecord>& calls) {
    // There is no file before a session's first request, nor where the user moved it to begin anew.
    if (!std::filesystem::exists(file)) {
        WriteTrace(file, calls);
    } else if (!calls.empty()) {
        std::string events;
        for (const host::CallRecord& call : calls) {
            events += (events.empty() ? "" : ",\n") + EventOf(call);
        }
        ExtendTrace(file, events);
    }
}

Json StepsJson(const std::vector<host::CallRecord>& calls) {
    std::map<std::string, std::int64_t> lengths;
    for (const host::CallRecord& call : calls) {
        if (IsCallback(call.name) || call.name.starts_with("TSL_DCIR_")) {
            lengths[call.name] += call.length;
        }
    }
    Json steps = Json::object();
    for (const auto& [name, micros] : lengths) {
        steps[name] = static_cast<double>(micros) / 1000;
    }
    return steps;
}

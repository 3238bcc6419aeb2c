#pragma once

#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "host/control/faults.h"
#include "tools/files/json_text.h"

// Collects what happens between pipeline, node, platform and stand-in engine during its life: each
// callback, each call that the node makes, and each operation of the node whose begin and end it
// logs. One at a time.
class CallTrace {
public:
    CallTrace();
    ~CallTrace();
    CallTrace(const CallTrace&) = delete;
    CallTrace& operator=(const CallTrace&) = delete;

    // In the order in which they ended. While no call is under way.
    const std::vector<host::CallRecord>& calls() const { return calls_; }

private:
    void Take(const host::CallRecord& call);
    void TakeMessage(const host::CallRecord& message);

    std::mutex mutex_;
    std::vector<host::CallRecord> calls_;
    // Operations that have begun, by thread: name and start.
    std::map<int, std::vector<std::pair<std::string, std::int64_t>>> operations_;
};

// Writes the calls as a timeline for Perfetto. Returns what was written; errors as OutputFolder.
std::vector<std::string> WriteTrace(const std::filesystem::path& file,
                                    const std::vector<host::CallRecord>& calls);

// Adds further calls to a file that WriteTrace has written.
void AddToTrace(const std::filesystem::path& file, const std::vector<host::CallRecord>& calls);

// Milliseconds of each callback and each function of the engine, calls of one name together.
Json StepsJson(const std::vector<host::CallRecord>& calls);

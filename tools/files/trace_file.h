#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "tools/files/json_text.h"
#include "tools/files/output_folder.h"

// An event of a timeline: something that took time on a thread. What lies within another event of
// the same thread is shown below it. Microseconds, the start by any clock. `details`: an object, or
// null.
std::string TraceEvent(const std::string& name, int process, int thread, double start,
                       double length, const Json& details = nullptr);

// A timeline as Chrome trace events in JSON, which Perfetto and chrome://tracing open.
class TraceFile {
public:
    // Errors are UseErrors that name the file, here and below.
    explicit TraceFile(const std::filesystem::path& file);

    void Add(const std::string& event);

    // Puts the file in its place; without it nothing is left.
    void Commit();

    std::vector<std::string> written() const { return folder_.written(); }

private:
    void Flush();

    OutputFolder folder_;
    std::string name_;
    std::string text_; // not yet in the file
    bool empty_ = true;
};

// Adds events, with ",\n" between them, to a committed file, which is whole again at once. Throws
// UseError where they cannot be written; the file stays as it was.
void ExtendTrace(const std::filesystem::path& file, const std::string& events);

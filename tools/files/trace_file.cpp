#include "tools/files/trace_file.h"

#include <utility>

TraceFile::TraceFile(const std::filesystem::path& file)
    : folder_(file.parent_path()), name_(file.filename().string()),
      text_("{\"displayTimeUnit\": \"ms\", \"traceEvents\": [") {
    folder_.Write(name_, std::string_view());
}

void TraceFile::Add(const std::string& name, int process, int thread, double start, double length,
                    const Json& details) {
    Json event = {{"name", name},  {"ph", "X"},      {"ts", start},
                  {"dur", length}, {"pid", process}, {"tid", thread}};
    if (!details.is_null()) {
        event["args"] = details;
    }
    text_ += std::exchange(empty_, false) ? "\n" : ",\n";
    std::string line = JsonText(event, -1);
    line.pop_back();
    text_ += line;
    constexpr std::size_t kFlush = std::size_t{1} << 20;
    if (text_.size() > kFlush) {
        Flush();
    }
}

void TraceFile::Flush() {
    folder_.Append(name_, std::exchange(text_, {}));
}

void TraceFile::Commit() {
    text_ += "\n]}\n";
    Flush();
    folder_.Commit();
}

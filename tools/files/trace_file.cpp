#include "tools/files/trace_file.h"

#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include <fmt/core.h>

#include "host/picture/errors.h"

namespace {

// This closes list and object. ExtendTrace relies on a file ending in exactly these bytes.
constexpr std::string_view kEnd = "\n]}\n";

} // namespace

std::string TraceEvent(const std::string& name, int process, int thread, double start,
                       double length, const Json& details) {
    Json event = {{"name", name},  {"ph", "X"},      {"ts", start},
                  {"dur", length}, {"pid", process}, {"tid", thread}};
    if (!details.is_null()) {
        event["args"] = details;
    }
    std::string line = JsonText(event, -1);
    // Events are joined by commas, so that the newline at the end goes.
    line.pop_back();
    return line;
}

TraceFile::TraceFile(const std::filesystem::path& file)
    : folder_(file.parent_path()), name_(file.filename().string()),
      text_("{\"displayTimeUnit\": \"ms\", \"traceEvents\": [") {
    folder_.Write(name_, std::string_view());
}

void TraceFile::Add(const std::string& event) {
    text_ += std::exchange(empty_, false) ? "\n" : ",\n";
    text_ += event;
    // A trace of a long session is written in pieces, and never held as a whole.
    constexpr std::size_t kFlush = std::size_t{1} << 20;
    if (text_.size() > kFlush) {
        Flush();
    }
}

void TraceFile::Flush() {
    folder_.Append(name_, std::exchange(text_, {}));
}

void TraceFile::Commit() {
    text_ += kEnd;
    Flush();
    folder_.Commit();
}

void ExtendTrace(const std::filesystem::path& file, const std::string& events) {
    // The end of the file is overwritten: to write all of it anew for each request of a session
    // would take longer and longer.
    const int opened = ::open(file.c_str(), O_RDWR | O_CLOEXEC);
    const off_t end = opened < 0 ? -1 : ::lseek(opened, -static_cast<off_t>(kEnd.size()), SEEK_END);
    char last = 0; // the bracket of an empty list, or the brace of an event
    bool written = end > 0 && ::pread(opened, &last, 1, end - 1) == 1;
    const std::string text = fmt::format("{}\n{}{}", last == '[' ? "" : ",", events, kEnd);
    written = written &&
              WriteAll(opened, {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
    // The calls below may set errno anew.
    const int reason = errno;
    if (!written && end > 0 && ::ftruncate(opened, end) == 0) { // there was room for this before
        ::lseek(opened, end, SEEK_SET);
        WriteAll(opened, {reinterpret_cast<const std::uint8_t*>(kEnd.data()), kEnd.size()});
    }
    ::close(opened);
    if (!written) {
        Cannot("be written", file, std::strerror(reason));
    }
}

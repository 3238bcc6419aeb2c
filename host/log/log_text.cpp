#include <algorithm>
#include <cstdio>

#include "host/log/log_control.h"

namespace host {

char PriorityLetter(int priority) {
    constexpr std::string_view kLetters = "??VDIWEFS";
    return priority >= 0 && static_cast<std::size_t>(priority) < kLetters.size()
               ? kLetters[static_cast<std::size_t>(priority)]
               : '?';
}

std::string LogText(const LogRecord& record) {
    char head[128]; // the device cuts what stands before each line to such a buffer
    std::snprintf(head, sizeof(head), "%c/%-8s(%5d): ", PriorityLetter(record.priority),
                  record.tag.c_str(), record.pid);
    // Every line of the message gets the head; the newline that ends a message opens no further
    // line.
    std::string lines;
    std::string_view rest = record.text;
    do {
        const std::size_t length = std::min(rest.find('\n'), rest.size());
        lines.append(head).append(rest.substr(0, length)).append("\n");
        rest.remove_prefix(std::min(length + 1, rest.size()));
    } while (!rest.empty());
    return lines;
}

} // namespace host

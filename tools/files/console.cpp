#include "tools/files/console.h"

#include <bit>
#include <cstdio>

std::string Printable(const std::string& text) {
    const auto at = [&text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    std::string printable;
    for (std::size_t i = 0; i < text.size();) {
        // A character of UTF-8: its first byte says how many of 0x80 to 0xbf follow.
        const std::size_t length =
            at(i) < 0x80 ? 1 : static_cast<std::size_t>(std::countl_one(at(i)));
        std::size_t end = i + 1;
        while (end < text.size() && end < i + length && (at(end) & 0xc0) == 0x80) {
            ++end;
        }
        const bool whole = at(i) < 0x80 || (length >= 2 && length <= 4 && end == i + length);
        const bool low = (at(i) < ' ' && text[i] != '\n' && text[i] != '\t') || at(i) == 0x7f;
        // The C1 control codes in UTF-8, of which 0x9b begins a terminal's command as ESC [ does.
        const bool high = at(i) == 0xc2 && whole && at(i + 1) < 0xa0; // 0x80 to 0x9f
        if (!whole || low || high) {
            printable += '?';
        } else {
            printable.append(text, i, end - i);
        }
        i = end;
    }
    return printable;
}

std::string Counted(std::uint64_t count, const std::string& thing) {
    return std::to_string(count) + " " + thing + (count == 1 ? "" : "s");
}

void PrintText(const std::string& text) {
    std::fputs(Printable(text).c_str(), stdout);
}

void PrintWritten(const std::vector<std::string>& files) {
    for (const std::string& file : files) {
        PrintText("wrote " + file + "\n");
    }
}

void PrintNotice(const std::string& line) {
    std::fprintf(stderr, "bokehnode: %s\n", Printable(line).c_str());
}

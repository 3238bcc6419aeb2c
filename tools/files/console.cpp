#include "tools/files/console.h"

#include <cstdio>

std::string Printable(std::string text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        // In UTF-8 the control characters from 0x80 to 0x9f are 0xc2 and the character itself.
        const bool high = byte == 0xc2 && i + 1 < text.size() &&
                          (static_cast<unsigned char>(text[i + 1]) & 0xe0) == 0x80;
        if (high) {
            text.erase(i, 1);
        }
        if (high || (byte < ' ' && byte != '\n' && byte != '\t') || byte == 0x7f) {
            text[i] = '?';
        }
    }
    return text;
}

void PrintText(const std::string& text) {
    std::fputs(Printable(text).c_str(), stdout);
}

void PrintNotice(const std::string& line) {
    std::fprintf(stderr, "bokehnode: %s\n", Printable(line).c_str());
}

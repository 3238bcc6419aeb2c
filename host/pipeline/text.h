#pragma once

#include <sstream>
#include <string>

namespace host {

// The arguments' printed forms, one after the other.
template <typename... Parts>
std::string Text(const Parts&... parts) {
    std::ostringstream text;
    (text << ... << parts);
    return text.str();
}

// As Text, with the number in hexadecimal.
inline std::string Hex(unsigned long long number) {
    std::ostringstream text;
    text << "0x" << std::hex << number;
    return text.str();
}

} // namespace host

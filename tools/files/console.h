#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Text for a person. File names may hold control bytes, which a terminal would obey: all but
// newline and tab are shown as "?".
std::string Printable(const std::string& text);

// "1 set", "2 sets".
std::string Counted(std::uint64_t count, const std::string& thing);

// On standard output, as it stands.
void PrintText(const std::string& text);

// "wrote FILE" on standard output, for each.
void PrintWritten(const std::vector<std::string>& files);

// "bokehnode: LINE" on standard error.
void PrintNotice(const std::string& line);

#pragma once

#include <string>

// Text for a person. File names may hold control bytes, which a terminal would obey: all but
// newline and tab are shown as "?".
std::string Printable(const std::string& text);

// On standard output, as it stands.
void PrintText(const std::string& text);

// "bokehnode: LINE" on standard error.
void PrintNotice(const std::string& line);

#pragma once

#include <string>
#include <vector>

// The whole numbers of an option's text, `count` of them with `separator` between. Throws
// CLI::ValidationError with `form` as what was expected, for instance "X,Y".
std::vector<int> ParseNumbers(const std::string& option, const std::string& text, std::size_t count,
                              char separator, const std::string& form);

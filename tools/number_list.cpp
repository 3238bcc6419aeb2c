#include "tools/number_list.h"

#include <charconv>

#include <CLI/Error.hpp>

std::vector<int> ParseNumbers(const std::string& option, const std::string& text, std::size_t count,
                              char separator, const std::string& form) {
    std::vector<int> numbers;
    const char* at = text.data();
    const char* const end = at + text.size();
    while (numbers.size() < count) {
        int number = 0;
        const auto [next, error] = std::from_chars(at, end, number);
        if (error != std::errc()) {
            break;
        }
        numbers.push_back(number);
        at = next;
        if (numbers.size() < count) {
            if (at == end || *at != separator) {
                break;
            }
            ++at;
        }
    }
    if (numbers.size() != count || at != end) {
        throw CLI::ValidationError(option, "expected " + form + " in whole numbers, found \"" +
                                               text + "\"");
    }
    return numbers;
}

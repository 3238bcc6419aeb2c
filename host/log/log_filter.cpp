#include <algorithm>

#include "host/log/log_text.h"

namespace host {
namespace {

constexpr std::string_view kSeparators = " \t,";
constexpr int kVerbose = 2;
constexpr int kDebug = 3;
constexpr int kSilent = 8;

// The priority that a letter or digit stands for, `unspecified` for "*".
std::optional<int> ParsePriority(std::string_view text, int unspecified) {
    constexpr std::string_view kLetters = "vdiwefs";
    if (text.empty()) {
        return std::nullopt;
    }
    // What follows the first character is ignored, so that words do as well.
    const char first = text[0];
    if (first == '*') {
        return unspecified;
    }
    if (first >= '0' && first <= '9') {
        const int number = first - '0';
        if (number >= kSilent) {
            return kVerbose;
        }
        if (number < kVerbose) {
            return number == 0 ? std::nullopt : std::optional(unspecified);
        }
        return number;
    }
    const char lower = first >= 'A' && first <= 'Z' ? static_cast<char>(first - 'A' + 'a') : first;
    const auto letter = kLetters.find(lower);
    if (letter == std::string_view::npos) {
        return std::nullopt;
    }
    return kVerbose + static_cast<int>(letter);
}

} // namespace

std::optional<LogFilter> LogFilter::Parse(std::string_view expressions) {
    LogFilter filter;
    while (!expressions.empty()) {
        const std::size_t end =
            std::min(expressions.find_first_of(kSeparators), expressions.size());
        if (end > 0 && !filter.Add(expressions.substr(0, end))) {
            return std::nullopt;
        }
        expressions.remove_prefix(std::min(end + 1, expressions.size()));
    }
    return filter;
}

bool LogFilter::Add(std::string_view expression) {
    const std::size_t colon = std::min(expression.find(':'), expression.size());
    const std::string_view tag = expression.substr(0, colon);
    const bool others = tag == "*";
    const std::string_view priority =
        colon < expression.size() ? expression.substr(colon + 1) : std::string_view("*");
    const auto least = ParsePriority(priority, others ? kDebug : kVerbose);
    if (tag.empty() || !least) {
        return false;
    }
    if (others) {
        leastOfOthers_ = *least;
    } else {
        rules_.push_back({std::string(tag), *least});
    }
    return true;
}

bool LogFilter::Passes(std::string_view tag, int priority) const {
    // Of several rules for a tag the last one counts.
    for (auto rule = rules_.rbegin(); rule != rules_.rend(); ++rule) {
        if (rule->tag == tag) {
            return priority >= rule->least;
        }
    }
    return priority >= leastOfOthers_;
}

} // namespace host

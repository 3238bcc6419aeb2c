#include "tools/phonelog/log_line.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "tools/phonelog/node_messages.h"

namespace phonelog {

namespace {

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// Takes words off the end of a text: what stands before the tag is read backwards, since another
// line's rest may stand in front of it.
class Backwards {
public:
    explicit Backwards(std::string_view text) : rest_(text) {}

    void SkipSpaces() {
        while (rest_.ends_with(' ')) {
            rest_.remove_suffix(1);
        }
    }

    // The longest end of the text whose characters all fit; may be empty.
    template <typename Fits>
    std::string_view TakeWhile(Fits fits) {
        std::size_t start = rest_.size();
        while (start > 0 && fits(rest_[start - 1])) {
            --start;
        }
        const std::string_view taken = rest_.substr(start);
        rest_.remove_suffix(taken.size());
        return taken;
    }

    char TakeOne() {
        if (rest_.empty()) {
            return '\0';
        }
        const char last = rest_.back();
        rest_.remove_suffix(1);
        return last;
    }

    std::string_view rest() const { return rest_; }

private:
    std::string_view rest_;
};

template <typename Integer>
bool ToInt(std::string_view digits, Integer& number) {
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return error == std::errc() && end == digits.data() + digits.size();
}

// A second's fraction, of which digits behind the sixth do not count.
bool ToMicros(std::string_view digits, int& micros) {
    digits = digits.substr(0, 6);
    const bool read = ToInt(digits, micros);
    for (std::size_t i = digits.size(); i < 6; ++i) {
        micros *= 10;
    }
    return read;
}

// Days from the start of 1970, or of a leap year where the year is unknown, to a date (Fliegel, Van
// Flandern, Communications of the ACM 11, 1968, for the Gregorian calendar).
std::int64_t Days(int year, int month, int day) {
    const int a = (month - 14) / 12;
    const int julian = 1461 * (year + 4800 + a) / 4 + 367 * (month - 2 - 12 * a) / 12 -
                       3 * ((year + 4900 + a) / 100) / 4 + day - 32075;
    return julian - 2440588;
}

// "SECONDS.fff[fff]".
void ReadSeconds(std::string_view clock, LogLine& line) {
    const auto point = clock.find('.');
    std::int64_t seconds = 0;
    int fraction = 0;
    constexpr std::int64_t kMost = 100'000'000'000;
    if (point != std::string_view::npos && clock.size() - point > 3 &&
        ToInt(clock.substr(0, point), seconds) && seconds < kMost &&
        ToMicros(clock.substr(point + 1), fraction)) {
        line.micros = seconds * 1000000 + fraction;
        line.time = clock;
    }
}

// "[YYYY-]MM-DD HH:MM:SS.fff[fff]" or "SECONDS.fff[fff]" at the end of `text`.
void ReadTime(std::string_view text, LogLine& line) {
    Backwards words(text);
    words.SkipSpaces();
    const std::size_t end = words.rest().size();
    const auto zone = words.rest().rfind(' ');
    if (zone != std::string_view::npos && zone + 6 == end && // "+0100"
        (words.rest()[zone + 1] == '+' || words.rest()[zone + 1] == '-')) {
        words = Backwards(words.rest().substr(0, zone));
    }
    const std::string_view clock =
        words.TakeWhile([](char c) { return IsDigit(c) || c == ':' || c == '.'; });
    if (clock.find(':') == std::string_view::npos) {
        ReadSeconds(clock, line);
        return;
    }
    words.SkipSpaces();
    const std::string_view date = words.TakeWhile([](char c) { return IsDigit(c) || c == '-'; });
    constexpr std::size_t kDateSize = 5;
    constexpr std::size_t kClockSize = 8;
    if (date.size() < kDateSize || clock.size() <= kClockSize || clock[kClockSize] != '.') {
        return;
    }
    // What another line left in front of the date is no part of it.
    const std::string_view monthAndDay = date.substr(date.size() - kDateSize);
    std::string_view whole = monthAndDay;
    int year = 1972; // a leap year
    if (date.size() >= 10 && date[date.size() - 6] == '-' &&
        ToInt(date.substr(date.size() - 10, 4), year)) {
        whole = date.substr(date.size() - 10);
    }
    int month = 0;
    int day = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
    int fraction = 0;
    if (!ToInt(monthAndDay.substr(0, 2), month) || !ToInt(monthAndDay.substr(3, 2), day) ||
        !ToInt(clock.substr(0, 2), hour) || !ToInt(clock.substr(3, 2), minute) ||
        !ToInt(clock.substr(6, 2), second) || !ToMicros(clock.substr(kClockSize + 1), fraction) ||
        month < 1 || month > 12) {
        return;
    }
    const std::int64_t seconds = ((Days(year, month, day) * 24 + hour) * 60 + minute) * 60 + second;
    line.micros = seconds * 1000000 + fraction;
    const char* clockEnd = clock.data() + clock.size();
    line.time = {whole.data(), static_cast<std::size_t>(clockEnd - whole.data())};
}

// "TIME [UID] PID TID P " before the tag, ": " behind it.
bool ReadThreadtime(std::string_view before, std::string_view behind, LogLine& line) {
    Backwards words(before);
    words.SkipSpaces();
    line.priority = words.TakeOne();
    std::array<int, 2> ids = {};
    for (int& id : ids) { // the thread first
        words.SkipSpaces();
        if (!ToInt(words.TakeWhile(IsDigit), id)) {
            return false;
        }
    }
    line.thread = ids[0];
    line.process = ids[1];
    words.SkipSpaces();
    // A user id is a number or a name; a time has a point.
    Backwards user = words;
    const std::string_view word = user.TakeWhile([](char c) { return c != ' '; });
    ReadTime(word.find('.') == std::string_view::npos ? user.rest() : words.rest(), line);
    line.text = behind.substr(1);
    return line.micros.has_value();
}

// "[TIME ]P/" before the tag, "([UID:]PID): " behind it.
bool ReadBrief(std::string_view before, std::string_view behind, LogLine& line) {
    Backwards words(before);
    if (words.TakeOne() != '/') {
        return false;
    }
    line.priority = words.TakeOne();
    const auto close = behind.find("):");
    if (close == std::string_view::npos) {
        return false;
    }
    const std::string_view ids = behind.substr(1, close - 1);
    Backwards inside(ids);
    // No other parenthesis: it would be the next line's, written into a head that was cut.
    if (ids.find_first_of("()") != std::string_view::npos ||
        !ToInt(inside.TakeWhile(IsDigit), line.process)) {
        return false;
    }
    ReadTime(words.rest(), line);
    line.text = behind.substr(close + 2);
    return true;
}

// Reads the head around the tag at `at`. False where the word stands in a message.
bool ReadHead(std::string_view line, std::size_t at, LogLine& message) {
    message = {};
    std::string_view behind = line.substr(at + kTagSize);
    behind.remove_prefix(std::min(behind.find_first_not_of(' '), behind.size()));
    const std::string_view before = line.substr(0, at);
    const bool read = behind.starts_with(':')   ? ReadThreadtime(before, behind, message)
                      : behind.starts_with('(') ? ReadBrief(before, behind, message)
                                                : false;
    if (!read || (message.priority != 'D' && message.priority != 'E')) {
        return false;
    }
    message.text.remove_prefix(message.text.starts_with(' ') ? 1 : 0);
    return true;
}

} // namespace

void ForEachNodeMessage(std::string_view line, const std::function<void(const LogLine&)>& take) {
    std::optional<LogLine> open; // its text may reach to the line's end
    for (std::size_t at = 0; (at = line.find(kTagStart, at)) != std::string_view::npos; ++at) {
        if (!IsNodeTag(line.substr(at, kTagSize))) {
            continue;
        }
        LogLine next;
        if (!ReadHead(line, at, next)) {
            continue;
        }
        if (open) {
            // The first one was cut where the head of the next begins.
            constexpr std::size_t kPriority = 2; // "E/"
            const char* until = next.micros ? next.time.data() : line.data() + at - kPriority;
            const auto length = std::max<std::ptrdiff_t>(until - open->text.data(), 0);
            open->text = open->text.substr(0, static_cast<std::size_t>(length));
            take(*open);
        }
        open = next;
    }
    if (open) {
        while (open->text.ends_with('\r') || open->text.ends_with('\n')) {
            open->text.remove_suffix(1);
        }
        constexpr std::string_view kColourEnd = "\033[0m";
        if (open->text.ends_with(kColourEnd)) {
            open->text.remove_suffix(kColourEnd.size());
        }
        take(*open);
    }
}

std::string_view UnreadLayout(std::string_view line) {
    if (line.size() < kTagSize + 2) {
        return {};
    }
    return IsNodeTag(line.substr(0, kTagSize))                     ? "raw"
           : line[1] == '/' && IsNodeTag(line.substr(2, kTagSize)) ? "tag"
           : line[1] == '('                                        ? "process or thread"
           : line.starts_with("[ ")                                ? "long"
                                                                   : "";
}

} // namespace phonelog

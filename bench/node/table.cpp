#include "bench/node/table.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace bench {
namespace {

using Line = std::array<std::string, 6>;

template <typename... Arguments>
std::string Text(const char* format, Arguments... arguments) {
    char text[64];
    std::snprintf(text, sizeof(text), format, arguments...);
    return text;
}

std::string Duration(double microseconds) {
    if (microseconds >= 1000) {
        return Text("%.2f ms", microseconds / 1000);
    }
    return microseconds >= 1 ? Text("%.2f us", microseconds) : Text("%.2f ns", microseconds * 1000);
}

std::string Limit(double microseconds) {
    return microseconds >= 1 ? Text("%g us", microseconds) : Text("%g ns", microseconds * 1000);
}

std::string Met(bool met) {
    return met ? "yes" : "NO";
}

std::vector<Result>& Results() {
    static std::vector<Result> results;
    return results;
}

void AddLines(const Result& result, std::vector<Line>& lines) {
    const std::string measured = Duration(result.microseconds);
    for (const PeerResult& peer : result.peers) {
        const Quartiles& ratio = peer.ratio;
        const bool hasTarget = peer.mostRatio > 0;
        lines.push_back({result.name, measured, peer.name + ", " + Duration(peer.microseconds),
                         Text("%.3f (%.3f to %.3f)", ratio.median, ratio.lower, ratio.upper),
                         hasTarget ? Text("<= %.2f", peer.mostRatio) : "",
                         hasTarget ? Met(ratio.median <= peer.mostRatio) : ""});
    }
    if (result.mostMicroseconds > 0) {
        lines.push_back({result.name, measured, "", "", "<= " + Limit(result.mostMicroseconds),
                         Met(result.microseconds <= result.mostMicroseconds)});
    }
    if (!result.mayAllocate || result.allocations > 0) {
        lines.push_back({result.name, Text("%g allocations", result.allocations), "", "",
                         result.mayAllocate ? "" : "0",
                         result.mayAllocate ? "" : Met(result.allocations == 0)});
    }
}

void Print(const Line& line, const std::array<std::size_t, 6>& widths) {
    for (std::size_t i = 0; i < line.size(); ++i) {
        std::printf("| %-*s ", static_cast<int>(widths[i]), line[i].c_str());
    }
    std::puts("|");
}

} // namespace

Quartiles QuartilesOf(std::vector<double> samples) {
    std::sort(samples.begin(), samples.end());
    const auto at = [&samples](std::size_t quarter) {
        return samples[(samples.size() - 1) * quarter / 4];
    };
    return {at(1), at(2), at(3)};
}

void Keep(const Result& result) {
    std::vector<Result>& results = Results();
    const auto found = std::find_if(results.begin(), results.end(), [&result](const Result& kept) {
        return kept.name == result.name;
    });
    if (found != results.end()) {
        *found = result;
    } else {
        results.push_back(result);
    }
}

bool AllWork() {
    bool all = true;
    for (const Result& result : Results()) {
        const bool allocates = !result.mayAllocate && result.allocations > 0;
        if (!result.works || allocates) {
            std::fprintf(stderr, "%s: %s\n", result.name.c_str(),
                         result.works ? "allocates" : "wrong outcome");
            all = false;
        }
    }
    return all;
}

void PrintTable() {
    std::vector<Line> lines = {
        {"what", "measured", "beside", "ratio (middle half)", "target", "met?"}};
    for (const Result& result : Results()) {
        AddLines(result, lines);
    }
    std::array<std::size_t, 6> widths{};
    for (const Line& line : lines) {
        for (std::size_t i = 0; i < line.size(); ++i) {
            widths[i] = std::max(widths[i], line[i].size());
        }
    }
    Line rule;
    for (std::size_t i = 0; i < rule.size(); ++i) {
        rule[i] = std::string(widths[i], '-');
    }
    lines.insert(lines.begin() + 1, rule);
    for (const Line& line : lines) {
        Print(line, widths);
    }
}

} // namespace bench

#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace quality {

// One figure beside what it is held against.
struct Row {
    enum class Better { kLess, kMore };

    std::string what;
    double value = 0.0;
    std::string unit;
    std::string reference; // of the same run, in words and numbers
    Better better = Better::kLess;
    double must = 0.0;
    double aim = 0.0;

    bool Meets(double limit) const {
        return better == Better::kLess ? value <= limit : value >= limit;
    }
};

// "3.4 %" with as many decimals as asked for.
std::string Number(double value, const std::string& unit, int decimals = 2);

// All rows as one table, each with "aim", "must" or "MISSED".
void Print(std::ostream& out, const std::vector<Row>& rows);

// False if a row misses its must.
bool AllMeetMust(const std::vector<Row>& rows);

} // namespace quality

#include "bench/refocus/report.h"

#include <algorithm>
#include <array>
#include <iomanip>
#include <sstream>

namespace quality {
namespace {

using Cells = std::array<std::string, 6>;

Cells CellsOf(const Row& row) {
    const std::string sign = row.better == Row::Better::kLess ? "<= " : ">= ";
    const char* verdict = row.Meets(row.aim) ? "aim" : row.Meets(row.must) ? "must" : "MISSED";
    return {row.what,
            Number(row.value, row.unit),
            sign + Number(row.must, "", 1),
            Number(row.aim, "", 1),
            verdict,
            row.reference};
}

} // namespace

std::string Number(double value, const std::string& unit, int decimals) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(decimals) << value;
    if (!unit.empty()) {
        text << ' ' << unit;
    }
    return text.str();
}

void Print(std::ostream& out, const std::vector<Row>& rows) {
    std::vector<Cells> table{{"what", "figure", "must", "aim", "meets", "beside, in this run"}};
    std::transform(rows.begin(), rows.end(), std::back_inserter(table), CellsOf);
    std::array<std::size_t, 6> widths{};
    for (const Cells& cells : table) {
        for (std::size_t i = 0; i < cells.size(); ++i) {
            widths[i] = std::max(widths[i], cells[i].size());
        }
    }
    for (const Cells& cells : table) {
        for (std::size_t i = 0; i + 1 < cells.size(); ++i) {
            out << std::left << std::setw(static_cast<int>(widths[i]) + 2) << cells[i];
        }
        out << cells.back() << '\n';
    }
}

bool AllMeetMust(const std::vector<Row>& rows) {
    return std::all_of(rows.begin(), rows.end(),
                       [](const Row& row) { return row.Meets(row.must); });
}

} // namespace quality

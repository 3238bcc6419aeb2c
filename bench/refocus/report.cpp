#include "bench/refocus/report.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <utility>

#include <fmt/ostream.h>

#include "host/picture/false_colour.h"
#include "host/picture/image_file.h"
#include "host/picture/nv12.h"

namespace quality {
namespace {

using Cells = std::array<std::string, 6>;

Cells CellsOf(const Row& row) {
    const char* verdict = row.Meets(row.aim) ? "aim" : row.Meets(row.must) ? "must" : "MISSED";
    return {row.what,
            fmt::format("{:.2f} {}", row.value, row.unit),
            fmt::format("{} {:.1f}", row.better == Row::Better::kLess ? "<=" : ">=", row.must),
            fmt::format("{:.1f}", row.aim),
            verdict,
            row.reference};
}

} // namespace

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
            fmt::print(out, "{:<{}}", cells[i], widths[i] + 2);
        }
        fmt::print(out, "{}\n", cells.back());
    }
}

bool AllMeetMust(const std::vector<Row>& rows) {
    return std::all_of(rows.begin(), rows.end(),
                       [](const Row& row) { return row.Meets(row.must); });
}

PictureFolder::PictureFolder(std::filesystem::path folder) : folder_(std::move(folder)) {
    if (!folder_.empty()) {
        std::filesystem::create_directories(folder_);
    }
}

void PictureFolder::Write(const std::string& name, const host::Image& image) const {
    if (!folder_.empty()) {
        Write(name, Nv12ToRgb(image));
    }
}

void PictureFolder::Write(const std::string& name, const RgbImage& picture) const {
    if (folder_.empty()) {
        return;
    }
    const Bytes bytes = EncodePng(picture);
    std::ofstream file(folder_ / (name + ".png"), std::ios::binary);
    file.exceptions(std::ios::badbit | std::ios::failbit);
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
}

void PictureFolder::Write(const std::string& name, const cv::Mat& numbers,
                          const std::string& unit) const {
    if (!folder_.empty()) {
        Write(name, FalseColour(numbers, cv::abs(numbers) < INFINITY, unit));
    }
}

} // namespace quality

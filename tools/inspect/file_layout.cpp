#include "tools/inspect/file_layout.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace {

// Steps are measured on this many pieces of this length, spread over the image: there are thousands
// of pitches to try, too many for all bytes of a large image.
constexpr int kSegmentBytes = 64;
constexpr std::size_t kSegments = 400;
constexpr int kSmooth = 4; // bytes averaged against noise

// Sums of kSmooth adjacent bytes.
std::vector<std::uint16_t> Smoothed(std::span<const std::uint8_t> bytes) {
    std::vector<std::uint16_t> sums(bytes.size() - kSmooth + 1);
    for (std::size_t i = 0; i < sums.size(); ++i) {
        sums[i] = static_cast<std::uint16_t>(bytes[i] + bytes[i + 1] + bytes[i + 2] + bytes[i + 3]);
    }
    return sums;
}

// Adds, for each pitch, the sum of the steps over that many bytes from a segment's sums.
void AddSteps(const std::vector<std::uint16_t>& sums, const std::vector<int>& pitches,
              std::vector<std::uint64_t>& steps) {
    for (std::size_t i = 0; i < pitches.size(); ++i) {
        const std::uint16_t* const below = sums.data() + pitches[i];
        std::uint32_t sum = 0;
        for (int at = 0; at < kSegmentBytes; ++at) {
            sum += static_cast<std::uint32_t>(
                std::abs(sums[static_cast<std::size_t>(at)] - below[at]));
        }
        steps[i] += sum;
    }
}

struct RowStatistics {
    double lumaScore = 0; // -1 to 1; positive for luma, negative for interleaved chroma
    double step = 0;      // mean absolute difference from the row before
};

// Adjacent bytes of luma are adjacent pixels and resemble each other more than bytes two apart. In
// interleaved chroma it is the other way round: adjacent bytes are U and V.
std::vector<RowStatistics> AnalyseRows(std::span<const std::uint8_t> bytes, std::size_t pitch) {
    std::vector<RowStatistics> statistics(bytes.size() / pitch);
    for (std::size_t r = 0; r < statistics.size(); ++r) {
        const std::uint8_t* row = bytes.data() + r * pitch;
        const std::uint8_t* before = r == 0 ? row : row - pitch;
        std::uint64_t next = 0;   // sum of steps to the adjacent byte
        std::uint64_t second = 0; // and to the one after it
        std::uint64_t step = 0;
        std::uint64_t colour = 0;
        for (std::size_t x = 0; x + 2 < pitch; ++x) {
            next += static_cast<std::uint64_t>(std::abs(row[x] - row[x + 1]));
            second += static_cast<std::uint64_t>(std::abs(row[x] - row[x + 2]));
            step += static_cast<std::uint64_t>(std::abs(row[x] - before[x]));
            colour += static_cast<std::uint64_t>(std::abs(row[x] - 128));
        }
        const auto count = static_cast<double>(pitch);
        const double a = static_cast<double>(next) / count;
        const double b = static_cast<double>(second) / count;
        // The 1 keeps the score of a flat row, whose steps are noise, near 0.
        statistics[r].lumaScore = (b - a) / (a + b + 1);
        // The chroma of a colourless row is smooth and near 128, so that its steps tell nothing.
        // It counts as chroma, with little weight.
        if (a < 2.5 && static_cast<double>(colour) / count < 8) {
            statistics[r].lumaScore = -0.3;
        }
        statistics[r].step = static_cast<double>(step) / count;
    }
    return statistics;
}

double Median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

} // namespace

std::optional<RowPeriod> FindRowPeriod(std::span<const std::uint8_t> bytes, int namedPitch) {
    const int longest = 2 * namedPitch;
    const auto needed = static_cast<std::size_t>(longest + kSegmentBytes) * 2;
    if (bytes.size() < needed) {
        return std::nullopt;
    }
    // The named pitch is tried first, so that its steps have index 0, and again among the others.
    std::vector<int> pitches{namedPitch};
    for (int pitch = (namedPitch / 2 + 1) / 2 * 2; pitch <= longest; pitch += 2) {
        pitches.push_back(pitch);
    }
    // Segments that are spread over the bytes, each with what lies below it at any pitch.
    const auto reach = static_cast<std::size_t>(longest + kSegmentBytes + kSmooth - 1);
    std::vector<std::uint64_t> steps(pitches.size());
    for (std::size_t segment = 0; segment < kSegments; ++segment) {
        const std::size_t start = (bytes.size() - reach) * segment / kSegments;
        AddSteps(Smoothed(bytes.subspan(start, reach)), pitches, steps);
    }
    const auto least = std::ranges::min_element(steps.begin() + 1, steps.end());
    const auto mean = [](std::uint64_t sum) {
        return static_cast<double>(sum) / (kSegments * kSegmentBytes * kSmooth);
    };
    return RowPeriod{pitches[static_cast<std::size_t>(least - steps.begin())], mean(*least),
                     mean(steps[0])};
}

std::optional<ChromaStart> FindChromaStart(std::span<const std::uint8_t> bytes, int pitch,
                                           int namedRow) {
    const std::vector<RowStatistics> statistics =
        AnalyseRows(bytes, static_cast<std::size_t>(pitch));
    const int rows = static_cast<int>(statistics.size());
    if (rows < 24) {
        return std::nullopt;
    }
    // total[r] is the sum of the luma scores before row r. Chroma starts where the sum before the
    // row exceeds the sum from it on by most.
    std::vector<double> total(statistics.size() + 1);
    std::vector<double> steps;
    for (std::size_t r = 0; r < statistics.size(); ++r) {
        total[r + 1] = total[r] + statistics[r].lumaScore;
        steps.push_back(statistics[r].step);
    }
    const auto score = [&](int row) {
        return 2 * total[static_cast<std::size_t>(row)] - total.back();
    };
    int best = 0;
    for (int row = 1; row <= rows; ++row) {
        best = score(row) > score(best) ? row : best;
    }
    // The scores find the row within a few rows. The largest step near it is the exact one. The
    // addition keeps the ratio finite in an image whose rows are alike.
    const double usual = Median(steps) + 0.5;
    const auto edge = [&](int row) {
        return row <= 0 || row >= rows ? 0.0
                                       : statistics[static_cast<std::size_t>(row)].step / usual;
    };
    int sharpest = best;
    for (int row = best - 6; row <= best + 6; ++row) {
        sharpest = edge(row) > edge(sharpest) ? row : sharpest;
    }
    const int named = std::clamp(namedRow, 0, rows);
    const int between = std::abs(sharpest - named);
    // Each row between the two changes the score by twice its own luma score.
    const double gain = between == 0 ? 0 : (score(best) - score(named)) / (2.0 * between);
    return ChromaStart{sharpest, gain, edge(sharpest), edge(named), rows};
}

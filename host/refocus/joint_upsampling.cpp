#include "host/refocus/joint_upsampling.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "host/refocus/image.h"

namespace refocus {
namespace {

using Similarity = std::array<float, 256>;

Similarity MakeSimilarity() {
    constexpr double kSigma = 8.0; // levels
    Similarity similarity{};
    for (std::size_t level = 0; level < similarity.size(); ++level) {
        const double t = static_cast<double>(level) / kSigma;
        similarity[level] = static_cast<float>(std::exp(-0.5 * t * t) + 1e-5); // never all 0
    }
    return similarity;
}

// The two reduced columns (or rows) around a full-size one, and the second one's share.
struct Tap {
    int first;
    int second;
    float share;

    bool SamePair(const Tap& other) const { return first == other.first && second == other.second; }
};

std::vector<Tap> MakeTaps(int fullCount, int reducedCount, int factor) {
    std::vector<Tap> taps(static_cast<std::size_t>(fullCount));
    for (int i = 0; i < fullCount; ++i) {
        const float at = (static_cast<float>(i) + 0.5f) / static_cast<float>(factor) - 0.5f;
        const int first = static_cast<int>(std::floor(at));
        taps[static_cast<std::size_t>(i)] = {std::clamp(first, 0, reducedCount - 1),
                                             std::clamp(first + 1, 0, reducedCount - 1),
                                             at - static_cast<float>(first)};
    }
    return taps;
}

// The four reduced pixels around a full-size one.
struct Corners {
    std::array<float, 4> values;
    std::array<int, 4> brightness;

    bool Flat() const {
        const auto [low, high] = std::minmax_element(values.begin(), values.end());
        return *high - *low < 2.0f; // no edge to align with the guide's
    }
};

// The value between the corners at the fractions `right` and `down`, for a pixel of brightness
// `own`.
float BilateralMean(const Corners& corners, float right, float down, int own) {
    static const Similarity similarity = MakeSimilarity();
    const std::array<float, 4> shares{(1 - down) * (1 - right), (1 - down) * right,
                                      down * (1 - right), down * right};
    float sum = 0.0f;
    float total = 0.0f;
    for (std::size_t i = 0; i < 4; ++i) {
        const float weight =
            shares[i] * similarity[static_cast<std::size_t>(std::abs(own - corners.brightness[i]))];
        sum += weight * corners.values[i];
        total += weight;
    }
    return sum / total;
}

// One row of `guide`; upper and lower are the reduced rows around it.
void UpsampleRow(const cv::Mat& reduced, const cv::Mat& reducedGuide, const Tap& row,
                 const std::vector<Tap>& columns, const std::uint8_t* light, std::uint8_t* out) {
    const float* upper = reduced.ptr<float>(row.first);
    const float* lower = reduced.ptr<float>(row.second);
    const std::uint8_t* upperLight = reducedGuide.ptr<std::uint8_t>(row.first);
    const std::uint8_t* lowerLight = reducedGuide.ptr<std::uint8_t>(row.second);
    for (std::size_t x = 0; x < columns.size();) {
        const Tap& pair = columns[x];
        const Corners corners{
            {upper[pair.first], upper[pair.second], lower[pair.first], lower[pair.second]},
            {upperLight[pair.first], upperLight[pair.second], lowerLight[pair.first],
             lowerLight[pair.second]}};
        const auto& v = corners.values;
        const float left = v[0] + (v[2] - v[0]) * row.share + 0.5f;
        const float right = v[1] + (v[3] - v[1]) * row.share + 0.5f;
        // All full-size pixels between the same corners. Away from edges, linear interpolation
        // gives the same value at a fraction of the time.
        const bool flat = corners.Flat();
        for (; x < columns.size() && columns[x].SamePair(pair); ++x) {
            const float share = columns[x].share;
            const float value = flat ? left + (right - left) * share
                                     : BilateralMean(corners, share, row.share, light[x]) + 0.5f;
            out[x] = static_cast<std::uint8_t>(value);
        }
    }
}

} // namespace

void JointUpsample(const cv::Mat& reduced, const cv::Mat& reducedGuide, const cv::Mat& guide,
                   int factor, cv::Mat& target) {
    if (factor == 1) {
        reduced.convertTo(target, CV_8U);
        return;
    }
    const std::vector<Tap> columns = MakeTaps(guide.cols, reduced.cols, factor);
    const std::vector<Tap> rows = MakeTaps(guide.rows, reduced.rows, factor);
    ForEachRow(guide.rows, [&](int y) {
        UpsampleRow(reduced, reducedGuide, rows[static_cast<std::size_t>(y)], columns,
                    guide.ptr<std::uint8_t>(y), target.ptr<std::uint8_t>(y));
    });
}

} // namespace refocus

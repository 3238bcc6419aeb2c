#include "host/refocus/joint_upsampling.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "host/refocus/cell_interpolation.h"
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

// The value between four reduced ones for a pixel of brightness `own`. All arrays: upper left,
// upper right, lower left, lower right.
float BilateralMean(const std::array<float, 4>& values, const std::array<int, 4>& brightness,
                    float right, float down, int own) {
    static const Similarity similarity = MakeSimilarity();
    const std::array<float, 4> shares{(1 - down) * (1 - right), (1 - down) * right,
                                      down * (1 - right), down * right};
    float sum = 0.0f;
    float total = 0.0f;
    for (std::size_t i = 0; i < 4; ++i) {
        const float weight =
            shares[i] * similarity[static_cast<std::size_t>(std::abs(own - brightness[i]))];
        sum += weight * values[i];
        total += weight;
    }
    return sum / total;
}

using Tap = CellInterpolation::Tap;

// Replaces the pixels of a row that lie between reduced values of both sides of an edge.
void AlignEdges(const cv::Mat& reduced, const cv::Mat& reducedGuide, const Tap& row,
                const CellInterpolation& columns, const std::uint8_t* light, std::uint8_t* out) {
    const float* upper = reduced.ptr<float>(row.first);
    const float* lower = reduced.ptr<float>(row.second);
    const std::uint8_t* upperLight = reducedGuide.ptr<std::uint8_t>(row.first);
    const std::uint8_t* lowerLight = reducedGuide.ptr<std::uint8_t>(row.second);
    for (const CellInterpolation::Interval& pair : columns.intervals()) {
        const std::array values{upper[pair.first], upper[pair.second], lower[pair.first],
                                lower[pair.second]};
        const float low = std::min(std::min(values[0], values[1]), std::min(values[2], values[3]));
        const float high = std::max(std::max(values[0], values[1]), std::max(values[2], values[3]));
        if (high - low < 2.0f) {
            continue; // no edge to align with the guide's
        }
        const std::array<int, 4> brightness{upperLight[pair.first], upperLight[pair.second],
                                            lowerLight[pair.first], lowerLight[pair.second]};
        for (int x = pair.begin; x < pair.end; ++x) {
            const float value =
                BilateralMean(values, brightness, columns.At(x).share, row.share, light[x]);
            out[x] = static_cast<std::uint8_t>(value + 0.5f);
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
    const CellInterpolation columns(reduced.cols, 1.0f / static_cast<float>(factor), guide.cols);
    const CellInterpolation rows(reduced.rows, 1.0f / static_cast<float>(factor), guide.rows);
    cv::Mat fixed;
    reduced.convertTo(fixed, CV_16S, kFixedOne);
    ForEachStripe(guide.rows, [&](const cv::Range& stripe) {
        std::vector<std::int16_t> cells;
        std::vector<std::int16_t> row = FixedRow(guide.cols);
        for (int y = stripe.start; y < stripe.end; ++y) {
            MixRows(fixed, rows.At(y), cells);
            columns.Expand(cells, row);
            auto* out = target.ptr<std::uint8_t>(y);
            StoreRounded(row, guide.cols, out);
            AlignEdges(reduced, reducedGuide, rows.At(y), columns, guide.ptr<std::uint8_t>(y), out);
        }
    });
}

} // namespace refocus

#include "host/refocus/joint_upsampling.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace refocus {
namespace {

using Similarity = std::array<float, 256>;

Similarity MakeSimilarity() {
    constexpr double kSigma = 8.0; // levels
    Similarity similarity{};
    for (std::size_t level = 0; level < similarity.size(); ++level) {
        const double t = static_cast<double>(level) / kSigma;
        similarity[level] = static_cast<float>(std::exp(-0.5 * t * t) + 1e-5);
    }
    return similarity;
}

// The two reduced columns (or rows) around each full-size one, and the second one's share.
struct Tap {
    int first;
    int second;
    float share;
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

} // namespace

void JointUpsample(const cv::Mat& reduced, const cv::Mat& reducedGuide, const cv::Mat& guide,
                   int factor, cv::Mat& target) {
    if (factor == 1) {
        reduced.convertTo(target, CV_8U);
        return;
    }
    static const Similarity similarity = MakeSimilarity();
    const std::vector<Tap> columns = MakeTaps(guide.cols, reduced.cols, factor);
    const std::vector<Tap> rows = MakeTaps(guide.rows, reduced.rows, factor);
    cv::parallel_for_(cv::Range(0, guide.rows), [&](const cv::Range& range) {
        for (int y = range.start; y < range.end; ++y) {
            const Tap row = rows[static_cast<std::size_t>(y)];
            const float* upper = reduced.ptr<float>(row.first);
            const float* lower = reduced.ptr<float>(row.second);
            const std::uint8_t* upperGuide = reducedGuide.ptr<std::uint8_t>(row.first);
            const std::uint8_t* lowerGuide = reducedGuide.ptr<std::uint8_t>(row.second);
            const std::uint8_t* light = guide.ptr<std::uint8_t>(y);
            std::uint8_t* out = target.ptr<std::uint8_t>(y);
            for (int x = 0; x < guide.cols; ++x) {
                const Tap col = columns[static_cast<std::size_t>(x)];
                const int own = light[x];
                const auto like = [own](int other) {
                    return similarity[static_cast<std::size_t>(std::abs(own - other))];
                };
                const float w00 = (1 - row.share) * (1 - col.share) * like(upperGuide[col.first]);
                const float w01 = (1 - row.share) * col.share * like(upperGuide[col.second]);
                const float w10 = row.share * (1 - col.share) * like(lowerGuide[col.first]);
                const float w11 = row.share * col.share * like(lowerGuide[col.second]);
                const float sum = w00 * upper[col.first] + w01 * upper[col.second] +
                                  w10 * lower[col.first] + w11 * lower[col.second];
                out[x] = static_cast<std::uint8_t>(sum / (w00 + w01 + w10 + w11) + 0.5f);
            }
        }
    });
}

} // namespace refocus

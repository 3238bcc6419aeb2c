#include "host/refocus/occlusion_filling.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <vector>

namespace refocus {
namespace {

constexpr float kNothing = std::numeric_limits<float>::infinity();
constexpr int kDirections = 8;
constexpr int kNarrow = 6;                // pixels: too few for another thing to show between
using Seen = cv::Vec<float, kDirections>; // nearest consistent disparity in each direction

// Sweeps the map from one corner to the other; `first` is the first of the four directions that
// lead back to pixels already met: along the row, and three into the row before.
void Sweep(const cv::Mat& disparity, const cv::Mat& consistent, bool forwards, int first,
           cv::Mat& seen) {
    const int step = forwards ? -1 : 1;
    const int width = disparity.cols;
    const std::vector<Seen> outside(static_cast<std::size_t>(width), Seen::all(kNothing));
    for (int row = 0; row < disparity.rows; ++row) {
        const int y = forwards ? row : disparity.rows - 1 - row;
        Seen* own = seen.ptr<Seen>(y);
        const Seen* before = row > 0 ? seen.ptr<Seen>(y + step) : outside.data();
        const float* values = disparity.ptr<float>(y);
        const std::uint8_t* known = consistent.ptr<std::uint8_t>(y);
        for (int column = 0; column < width; ++column) {
            const int x = forwards ? column : width - 1 - column;
            const auto from = [&](const Seen* line, int at, int direction) {
                return at >= 0 && at < width ? line[at][direction] : kNothing;
            };
            for (int i = 0; i < 4; ++i) {
                const int at = i < 3 ? x + step * (1 - i) : x + step;
                own[x][first + i] =
                    known[x] != 0 ? values[x] : from(i < 3 ? before : own, at, first + i);
            }
        }
    }
}

// Pixels of a row without a disparity, and what bounds them.
struct Gap {
    float left;
    float right;
    int width;

    // What an object hides from the aux camera is as wide as its step in disparity. Where both ends
    // are alike and far apart, both are of objects in front, and the row tells nothing of what lies
    // behind. At the picture's border there is but one end.
    bool RowTells() const {
        const bool one = left < kNothing || right < kNothing;
        const bool both = left < kNothing && right < kNothing;
        return one && (!both || width <= kNarrow ||
                       std::abs(right - left) * 2.0f >= static_cast<float>(width));
    }
};

float Chosen(const Seen& seen, bool occluded) {
    std::array<float, kDirections + 1> sorted{};
    int count = 0;
    for (int i = 0; i < kDirections; ++i) {
        if (seen[i] == kNothing) {
            continue;
        }
        int at = count++;
        for (; at > 0 && sorted[static_cast<std::size_t>(at - 1)] > seen[i]; --at) {
            sorted[static_cast<std::size_t>(at)] = sorted[static_cast<std::size_t>(at - 1)];
        }
        sorted[static_cast<std::size_t>(at)] = seen[i];
    }
    const int chosen = occluded ? std::min(1, count - 1) : (count - 1) / 2;
    return count == 0 ? kNothing : sorted[static_cast<std::size_t>(chosen)];
}

} // namespace

void FillOcclusions(cv::Mat& disparity, const cv::Mat& consistent, const cv::Mat& occluded) {
    if (cv::countNonZero(consistent) == 0) {
        disparity.setTo(0.0f);
        return;
    }
    cv::Mat seen(disparity.size(), CV_MAKETYPE(CV_32F, kDirections));
    Sweep(disparity, consistent, true, 0, seen);
    Sweep(disparity, consistent, false, 4, seen);
    float last = 0.0f; // for the few from which no direction leads to anything
    for (int y = 0; y < disparity.rows; ++y) {
        float* row = disparity.ptr<float>(y);
        const std::uint8_t* known = consistent.ptr<std::uint8_t>(y);
        for (int x = 0; x < disparity.cols; ++x) {
            if (known[x] != 0) {
                last = row[x];
                continue;
            }
            const int end = static_cast<int>(
                std::find_if(known + x, known + disparity.cols, [](auto k) { return k != 0; }) -
                known);
            const Gap gap{x > 0 ? row[x - 1] : kNothing, end < disparity.cols ? row[end] : kNothing,
                          end - x};
            for (; x < end; ++x) {
                const bool hidden = occluded.at<std::uint8_t>(y, x) != 0;
                const float chosen = gap.RowTells() ? std::min(gap.left, gap.right)
                                                    : Chosen(seen.at<Seen>(y, x), hidden);
                row[x] = last = chosen < kNothing ? chosen : last;
            }
            --x;
        }
    }
}

} // namespace refocus

#include "host/refocus/occlusion_filling.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <vector>

namespace refocus {
namespace {

std::size_t Index(int row, int column, int width) {
    return static_cast<std::size_t>(row) * static_cast<std::size_t>(width) +
           static_cast<std::size_t>(column);
}

// A known disparity and how many pixels away it lies.
struct Neighbour {
    float disparity = 0.0f;
    int distance = std::numeric_limits<int>::max();
};

Neighbour Nearer(const Neighbour& a, const Neighbour& b) {
    if (a.distance != b.distance) {
        return a.distance < b.distance ? a : b;
    }
    return a.disparity <= b.disparity ? a : b;
}

// Fills the row's inner gaps. Pixels of gaps at its ends stay, with `known` 0 and their neighbour
// in the row, if any, in `nearest`.
void FillRow(float* disparity, std::uint8_t* known, Neighbour* nearest, int width) {
    int last = -1; // column of the last valid pixel
    for (int x = 0; x <= width; ++x) {
        if (x < width && known[x] == 0) {
            continue;
        }
        if (last >= 0 && x < width) {
            std::fill(disparity + last + 1, disparity + x, std::min(disparity[last], disparity[x]));
            std::fill(known + last + 1, known + x, std::uint8_t{255});
        } else if (last >= 0 || x < width) {
            const int end = last >= 0 ? last : x;
            for (int gap = last + 1; gap < x; ++gap) {
                nearest[gap] = {disparity[end], std::abs(gap - end)};
            }
        }
        last = x;
    }
}

// Offers each unknown pixel what its column knows before it, downwards or upwards.
void LookAlongColumns(const cv::Mat& disparity, const cv::Mat& known, bool downwards,
                      std::vector<Neighbour>& nearest) {
    const int width = disparity.cols;
    std::vector<Neighbour> seen(static_cast<std::size_t>(width));
    for (int i = 0; i < disparity.rows; ++i) {
        const int y = downwards ? i : disparity.rows - 1 - i;
        for (int x = 0; x < width; ++x) {
            Neighbour& column = seen[static_cast<std::size_t>(x)];
            if (known.at<std::uint8_t>(y, x) != 0) {
                column = {disparity.at<float>(y, x), 0};
            } else if (column.distance != Neighbour().distance) {
                ++column.distance;
                Neighbour& own = nearest[Index(y, x, width)];
                own = Nearer(own, column);
            }
        }
    }
}

} // namespace

void FillOcclusions(cv::Mat& disparity, const cv::Mat& consistent) {
    if (cv::countNonZero(consistent) == 0) {
        disparity.setTo(0.0f);
        return;
    }
    cv::Mat known = consistent.clone();
    std::vector<Neighbour> nearest(disparity.total());
    const int width = disparity.cols;
    for (int y = 0; y < disparity.rows; ++y) {
        FillRow(disparity.ptr<float>(y), known.ptr<std::uint8_t>(y),
                nearest.data() + static_cast<std::ptrdiff_t>(y) * width, width);
    }
    LookAlongColumns(disparity, known, true, nearest);
    LookAlongColumns(disparity, known, false, nearest);
    for (int y = 0; y < disparity.rows; ++y) {
        for (int x = 0; x < width; ++x) {
            if (known.at<std::uint8_t>(y, x) == 0) {
                // A row and a column without any valid pixel cross here only where next to nothing
                // was matched.
                disparity.at<float>(y, x) = nearest[Index(y, x, width)].disparity;
            }
        }
    }
}

} // namespace refocus

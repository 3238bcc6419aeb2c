#include "host/refocus/push_pull.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>

#include "host/refocus/image.h"
#include "host/refocus/image_memory.h"

namespace refocus {
namespace {

// Values times weight, and weight.
cv::Mat Weighted(const cv::Mat& values, const cv::Mat& weight) {
    cv::Mat weighted = NewImage(values.size(), CV_32FC4);
    ForEachRow(values.rows, [&](int y) {
        const auto* value = values.ptr<cv::Vec3f>(y);
        const float* share = weight.ptr<float>(y);
        auto* out = weighted.ptr<cv::Vec4f>(y);
        for (int x = 0; x < values.cols; ++x) {
            out[x] = {value[x][0] * share[x], value[x][1] * share[x], value[x][2] * share[x],
                      share[x]};
        }
    });
    return weighted;
}

// Halves the size. A block of 2x2 is known if one of its values is: the sum's weight is capped
// at 1.
cv::Mat Push(const cv::Mat& weighted) {
    cv::Mat half = NewImage({(weighted.cols + 1) / 2, (weighted.rows + 1) / 2}, CV_32FC4);
    ForEachRow(half.rows, [&](int y) {
        const auto* upper = weighted.ptr<cv::Vec4f>(2 * y);
        const auto* lower = weighted.ptr<cv::Vec4f>(std::min(2 * y + 1, weighted.rows - 1));
        const bool both = 2 * y + 1 < weighted.rows;
        auto* out = half.ptr<cv::Vec4f>(y);
        for (int x = 0; x < half.cols; ++x) {
            const std::ptrdiff_t left = std::ptrdiff_t{2} * x;
            cv::Vec4f sum = upper[left];
            if (both) {
                sum += lower[left];
            }
            if (left + 1 < weighted.cols) {
                sum += upper[left + 1];
                if (both) {
                    sum += lower[left + 1];
                }
            }
            out[x] = sum[3] > 1.0f ? sum * (1.0f / sum[3]) : sum;
        }
    });
    return half;
}

// The known values over those of the coarser levels, CV_32FC4 of the same size; its fourth channel
// is meaningless.
cv::Mat Pull(cv::Mat weighted) {
    if (weighted.total() == 1) {
        const float weight = weighted.at<cv::Vec4f>(0)[3];
        return weight > 0.0f ? cv::Mat(weighted * (1.0 / static_cast<double>(weight))) : weighted;
    }
    const cv::Mat half = Pull(Push(weighted));
    cv::Mat coarse = NewImage({half.cols * 2, half.rows * 2}, CV_32FC4);
    cv::resize(half, coarse, coarse.size(), 0, 0, cv::INTER_LINEAR);
    ForEachRow(weighted.rows, [&](int y) {
        const auto* behind = coarse.ptr<cv::Vec4f>(y);
        auto* out = weighted.ptr<cv::Vec4f>(y);
        for (int x = 0; x < weighted.cols; ++x) {
            if (out[x][3] < 1.0f) {
                out[x] += behind[x] * (1.0f - out[x][3]);
            }
        }
    });
    return weighted;
}

} // namespace

cv::Mat PushPull(const cv::Mat& values, const cv::Mat& weight) {
    if (cv::countNonZero(weight) == 0) {
        return cv::Mat::zeros(values.size(), values.type());
    }
    cv::Mat filled = NewImage(values.size(), CV_32FC3);
    cv::cvtColor(Pull(Weighted(values, weight)), filled, cv::COLOR_BGRA2BGR);
    return filled;
}

} // namespace refocus

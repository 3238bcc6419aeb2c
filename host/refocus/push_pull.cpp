#include "host/refocus/push_pull.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>

namespace refocus {
namespace {

// Known values over unknown ones: values * weight + behind * (1 - weight).
cv::Mat Over(const cv::Mat& values, const cv::Mat& weight, const cv::Mat& behind) {
    cv::Mat result(values.size(), CV_32FC3);
    for (int y = 0; y < values.rows; ++y) {
        const auto* front = values.ptr<cv::Vec3f>(y);
        const auto* back = behind.ptr<cv::Vec3f>(y);
        const auto* share = weight.ptr<float>(y);
        auto* out = result.ptr<cv::Vec3f>(y);
        for (int x = 0; x < values.cols; ++x) {
            out[x] = back[x] + share[x] * (front[x] - back[x]);
        }
    }
    return result;
}

} // namespace

cv::Mat PushPull(const cv::Mat& values, const cv::Mat& weight) {
    if (values.total() == 1) {
        return values;
    }
    // Half size: weighted means, known as soon as a quarter of the block is.
    const cv::Size half((values.cols + 1) / 2, (values.rows + 1) / 2);
    const cv::Size even(half.width * 2, half.height * 2);
    cv::Mat sums(even, CV_32FC4, cv::Scalar::all(0));
    for (int y = 0; y < values.rows; ++y) {
        const auto* value = values.ptr<cv::Vec3f>(y);
        const auto* share = weight.ptr<float>(y);
        auto* sum = sums.ptr<cv::Vec4f>(y);
        for (int x = 0; x < values.cols; ++x) {
            const cv::Vec3f weighted = value[x] * share[x];
            sum[x] = {weighted[0], weighted[1], weighted[2], share[x]};
        }
    }
    cv::resize(sums, sums, half, 0, 0, cv::INTER_AREA);
    cv::Mat coarse(half, CV_32FC3);
    cv::Mat coarseWeight(half, CV_32FC1);
    for (int y = 0; y < half.height; ++y) {
        const auto* sum = sums.ptr<cv::Vec4f>(y);
        for (int x = 0; x < half.width; ++x) {
            const float share = sum[x][3];
            coarse.at<cv::Vec3f>(y, x) =
                share > 0.0f ? cv::Vec3f(sum[x][0], sum[x][1], sum[x][2]) / share : cv::Vec3f();
            coarseWeight.at<float>(y, x) = std::min(1.0f, share * 4.0f);
        }
    }
    cv::Mat behind;
    cv::resize(PushPull(coarse, coarseWeight), behind, even, 0, 0, cv::INTER_LINEAR);
    return Over(values, weight, behind(cv::Rect({}, values.size())));
}

} // namespace refocus

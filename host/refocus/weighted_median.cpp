#include "host/refocus/weighted_median.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <array>
#include <cmath>

namespace refocus {
namespace {

using Likeness = std::array<float, 256>; // by difference of brightness

Likeness MakeLikeness(float contrast) {
    Likeness likeness{};
    for (std::size_t level = 0; level < likeness.size(); ++level) {
        likeness[level] = std::exp(-static_cast<float>(level) / contrast);
    }
    return likeness;
}

// Disparities sorted into equal bins, for histograms.
struct Bins {
    static constexpr int kCount = 512;
    cv::Mat index; // CV_16UC1
    float low = 0.0f;
    float width = 1.0f;

    explicit Bins(const cv::Mat& disparity) {
        double least = 0.0;
        double most = 0.0;
        cv::minMaxLoc(disparity, &least, &most);
        low = static_cast<float>(least);
        width = std::max(1e-3f, static_cast<float>(most - least) / (kCount - 1));
        disparity.convertTo(index, CV_16U, 1.0 / width, -low / width);
    }
};

// 255 where the median is to decide.
cv::Mat DoubtfulPixels(const cv::Mat& disparity, const cv::Mat& weight,
                       const WeightedMedianOptions& options) {
    const cv::Mat window = cv::Mat::ones(options.reach, options.reach, CV_8U);
    cv::Mat high, low;
    cv::dilate(disparity, high, window);
    cv::erode(disparity, low, window);
    return ((high - low) > options.step) | (weight < 1.0);
}

class Window {
public:
    Window(const Bins& bins, const cv::Mat& weight, const cv::Mat& guide, int reach,
           const Likeness& likeness)
        : bins_(bins), weight_(weight), guide_(guide), reach_(reach), likeness_(likeness) {}

    float Median(int x, int y) {
        histogram_.fill(0.0f);
        int lowest = Bins::kCount;
        double total = 0.0;
        const int own = guide_.at<std::uint8_t>(y, x);
        const int left = std::max(0, x - reach_);
        const int right = std::min(guide_.cols - 1, x + reach_);
        for (int row = std::max(0, y - reach_); row <= std::min(guide_.rows - 1, y + reach_);
             ++row) {
            const std::uint8_t* light = guide_.ptr<std::uint8_t>(row);
            const float* weight = weight_.ptr<float>(row);
            const std::uint16_t* bin = bins_.index.ptr<std::uint16_t>(row);
            for (int i = left; i <= right; ++i) {
                const float share =
                    weight[i] * likeness_[static_cast<std::size_t>(std::abs(own - light[i]))];
                histogram_[bin[i]] += share;
                total += static_cast<double>(share);
                lowest = std::min<int>(lowest, bin[i]);
            }
        }
        auto bin = static_cast<std::size_t>(lowest);
        for (double sum = static_cast<double>(histogram_[bin]);
             sum < total / 2 && bin + 1 < histogram_.size();) {
            sum += static_cast<double>(histogram_[++bin]);
        }
        return bins_.low + static_cast<float>(bin) * bins_.width;
    }

private:
    const Bins& bins_;
    const cv::Mat& weight_;
    const cv::Mat& guide_;
    int reach_;
    const Likeness& likeness_;
    std::array<float, Bins::kCount> histogram_{};
};

} // namespace

cv::Mat WeightedMedian(const cv::Mat& disparity, const cv::Mat& weight, const cv::Mat& guide,
                       const WeightedMedianOptions& options) {
    const Bins bins(disparity);
    const Likeness likeness = MakeLikeness(options.contrast);
    const cv::Mat doubtful = DoubtfulPixels(disparity, weight, options);
    cv::Mat result = disparity.clone();
    cv::parallel_for_(cv::Range(0, disparity.rows), [&](const cv::Range& range) {
        Window window(bins, weight, guide, options.reach, likeness);
        for (int y = range.start; y < range.end; ++y) {
            const std::uint8_t* decide = doubtful.ptr<std::uint8_t>(y);
            float* out = result.ptr<float>(y);
            for (int x = 0; x < result.cols; ++x) {
                if (decide[x] != 0) {
                    out[x] = window.Median(x, y);
                }
            }
        }
    });
    return result;
}

} // namespace refocus

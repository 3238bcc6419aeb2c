#include "host/refocus/disparity_refinement.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <utility>
#include <vector>

namespace refocus {
namespace {

constexpr float kNone = std::numeric_limits<float>::infinity();
constexpr int kDirections = 8;
constexpr int kNarrowGap = 6; // pixels; too narrow to show a third surface in between

constexpr int kChromaWeight = 2; // of a difference in U or V, beside one in luma
using Similarity = std::array<float, 255 * (1 + 2 * kChromaWeight) + 1>; // by difference of colours

Similarity MakeSimilarity(float contrast) {
    Similarity similarity{};
    for (std::size_t level = 0; level < similarity.size(); ++level) {
        similarity[level] = std::exp(-static_cast<float>(level) / contrast);
    }
    return similarity;
}

std::size_t ColourDifference(const cv::Vec3b& a, const cv::Vec3b& b) {
    const int luma = std::abs(a[0] - b[0]);
    const int chroma = std::abs(a[1] - b[1]) + std::abs(a[2] - b[2]);
    const int difference = luma + kChromaWeight * chroma;
    return static_cast<std::size_t>(difference);
}

// Index of the consistent pixel that is met first in each direction, or kOutside.
using Nearest = cv::Vec<int, kDirections>;
constexpr int kOutside = -1;

// Scans the map from one corner to the opposite one and propagates the nearest consistent pixels of
// four directions, `first` and the three after it: three from the previous row, one along the row.
// A second scan the other way finds the remaining four.
void PropagateNearest(const cv::Mat& consistent, bool forwards, int first, cv::Mat& nearest) {
    const int step = forwards ? -1 : 1;
    const int width = consistent.cols;
    const std::vector<Nearest> outside(static_cast<std::size_t>(width), Nearest::all(kOutside));
    for (int row = 0; row < consistent.rows; ++row) {
        const int y = forwards ? row : consistent.rows - 1 - row;
        Nearest* own = nearest.ptr<Nearest>(y);
        const Nearest* before = row > 0 ? nearest.ptr<Nearest>(y + step) : outside.data();
        const std::uint8_t* known = consistent.ptr<std::uint8_t>(y);
        for (int column = 0; column < width; ++column) {
            const int x = forwards ? column : width - 1 - column;
            const auto from = [&](const Nearest* line, int at, int direction) {
                return at >= 0 && at < width ? line[at][direction] : kOutside;
            };
            for (int i = 0; i < 4; ++i) {
                const int at = i < 3 ? x + step * (1 - i) : x + step;
                own[x][first + i] =
                    known[x] != 0 ? y * width + x : from(i < 3 ? before : own, at, first + i);
            }
        }
    }
}

// Consecutive pixels of a row without a disparity, and the disparities beside them.
struct Gap {
    float left; // kNone at the image's border
    float right;
    int width;

    // An object occludes as many pixels as its disparity differs from the background's. A gap that
    // is much wider than the difference of its ends lies between two foreground objects, so that
    // the row does not show the background's disparity.
    bool RowDecides() const {
        const bool one = left < kNone || right < kNone;
        const bool both = left < kNone && right < kNone;
        return one && (!both || width <= kNarrowGap ||
                       std::abs(right - left) * 2.0f >= static_cast<float>(width));
    }
};

// The disparity of a pixel in a gap from those of the consistent pixels around it. It is a low one,
// because most gaps are what a nearer object hides from the aux camera; not the lowest, which may
// be a mismatch. Pixels of a similar colour count most: they probably show the same surface.
float LowDisparityAround(cv::Point at, const Nearest& nearest, const cv::Mat& disparity,
                         const cv::Mat& guide, const Similarity& similarity) {
    constexpr float kRank = 0.1f;
    constexpr float kAnyColour = 0.02f;   // weight of a pixel whose colour differs completely
    constexpr float kPerDistance = 0.02f; // a pixel at a distance of 50 weighs half
    std::array<std::pair<float, float>, kDirections> around; // disparity and weight
    std::size_t count = 0;
    float total = 0.0f;
    for (const int index : nearest.val) {
        if (index != kOutside) {
            const cv::Point from(index % disparity.cols, index / disparity.cols);
            const int distance = std::max(std::abs(from.x - at.x), std::abs(from.y - at.y));
            const std::size_t difference =
                ColourDifference(guide.at<cv::Vec3b>(at), guide.at<cv::Vec3b>(from));
            const float weight = (kAnyColour + similarity[difference]) /
                                 (1.0f + kPerDistance * static_cast<float>(distance));
            around[count++] = {disparity.at<float>(from), weight};
            total += weight;
        }
    }
    std::sort(around.begin(), around.begin() + count);
    float sum = 0.0f;
    for (std::size_t i = 0; i < count; ++i) {
        sum += around[i].second;
        if (sum >= kRank * total) {
            return around[i].first;
        }
    }
    return kNone;
}

constexpr int kWindowStep = 2; // every second pixel and row of a window is looked at

// The disparities quantised to equal bins, for histograms.
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

// 255 near disparity edges and where a value was filled in: there the median decides.
cv::Mat DoubtfulPixels(const cv::Mat& disparity, const cv::Mat& weight,
                       const WeightedMedianOptions& options) {
    const cv::Mat window = cv::Mat::ones(options.radius, options.radius, CV_8U);
    cv::Mat high, low;
    cv::dilate(disparity, high, window);
    cv::erode(disparity, low, window);
    return ((high - low) > options.step) | (weight < 1.0);
}

class Window {
public:
    Window(const Bins& bins, const cv::Mat& weight, const cv::Mat& guide, int radius,
           const Similarity& similarity)
        : bins_(bins), weight_(weight), guide_(guide), radius_(radius), similarity_(similarity) {}

    float Median(int x, int y) {
        histogram_.fill(0.0f);
        int lowest = Bins::kCount;
        double total = 0.0;
        const auto& own = guide_.at<cv::Vec3b>(y, x);
        const int left = x - std::min(x, radius_) / kWindowStep * kWindowStep;
        const int right = std::min(guide_.cols - 1, x + radius_);
        const int top = y - std::min(y, radius_) / kWindowStep * kWindowStep;
        const int bottom = std::min(guide_.rows - 1, y + radius_);
        for (int row = top; row <= bottom; row += kWindowStep) {
            const auto* colour = guide_.ptr<cv::Vec3b>(row);
            const float* weight = weight_.ptr<float>(row);
            const std::uint16_t* bin = bins_.index.ptr<std::uint16_t>(row);
            for (int i = left; i <= right; i += kWindowStep) {
                const float share = weight[i] * similarity_[ColourDifference(own, colour[i])];
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
    int radius_;
    const Similarity& similarity_;
    std::array<float, Bins::kCount> histogram_{};
};

} // namespace

void FillGaps(cv::Mat& disparity, const cv::Mat& consistent, const cv::Mat& guide) {
    if (cv::countNonZero(consistent) == 0) {
        disparity.setTo(0.0f);
        return;
    }
    cv::Mat nearest(disparity.size(), CV_MAKETYPE(CV_32S, kDirections));
    PropagateNearest(consistent, true, 0, nearest);
    PropagateNearest(consistent, false, 4, nearest);
    const Similarity similarity = MakeSimilarity(kColourContrast);
    float last = 0.0f; // used where none of the eight directions meets a consistent pixel
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
            const Gap gap{x > 0 ? row[x - 1] : kNone, end < disparity.cols ? row[end] : kNone,
                          end - x};
            for (; x < end; ++x) {
                const float value = gap.RowDecides()
                                        ? std::min(gap.left, gap.right)
                                        : LowDisparityAround({x, y}, nearest.at<Nearest>(y, x),
                                                             disparity, guide, similarity);
                row[x] = last = value < kNone ? value : last;
            }
            --x;
        }
    }
}

cv::Mat WeightedMedian(const cv::Mat& disparity, const cv::Mat& weight, const cv::Mat& guide,
                       const WeightedMedianOptions& options) {
    const Bins bins(disparity);
    const Similarity similarity = MakeSimilarity(options.contrast);
    const cv::Mat doubtful = DoubtfulPixels(disparity, weight, options);
    cv::Mat result = disparity.clone();
    cv::parallel_for_(cv::Range(0, disparity.rows), [&](const cv::Range& range) {
        Window window(bins, weight, guide, options.radius, similarity);
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

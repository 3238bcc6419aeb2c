#include "host/refocus/composition.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace refocus {
namespace {

constexpr double kStripes = 16; // of rows, for threads; each needs a sampler of its own
constexpr float kLeastCover = 1.0f / 512.0f; // less changes no 8-bit value

// Reads images of cells between their centres, a row of pixels at a time. `pixel`: main image
// pixels from one sample to the next, 1 for luma and 2 for chroma.
template <int Channels>
class CellSampler {
public:
    using Sample = cv::Vec<float, Channels>;

    CellSampler(const cv::Mat& cells, int cell, int pixel, int samples)
        : cells_(cells), scale_(static_cast<float>(pixel) / static_cast<float>(cell)),
          row_(static_cast<std::size_t>(cells.cols) + 1), taps_(static_cast<std::size_t>(samples)) {
        for (int x = 0; x < samples; ++x) {
            taps_[static_cast<std::size_t>(x)] = TapAt(x, cells.cols);
        }
    }

    void SelectRow(int y) {
        const Tap tap = TapAt(y, cells_.rows);
        const auto* upper = cells_.ptr<Sample>(tap.first);
        const auto* lower = cells_.ptr<Sample>(std::min(tap.first + 1, cells_.rows - 1));
        for (int x = 0; x < cells_.cols; ++x) {
            row_[static_cast<std::size_t>(x)] = upper[x] + (lower[x] - upper[x]) * tap.share;
        }
        row_.back() = row_[row_.size() - 2];
    }

    Sample At(int x) const {
        const Tap tap = taps_[static_cast<std::size_t>(x)];
        const Sample& left = row_[static_cast<std::size_t>(tap.first)];
        const Sample& right = row_[static_cast<std::size_t>(tap.first) + 1];
        return left + (right - left) * tap.share;
    }

private:
    struct Tap {
        int first;
        float share;
    };

    Tap TapAt(int sample, int count) const {
        const float at = std::clamp((static_cast<float>(sample) + 0.5f) * scale_ - 0.5f, 0.0f,
                                    static_cast<float>(count - 1));
        const int first = static_cast<int>(at);
        return {first, at - static_cast<float>(first)};
    }

    cv::Mat cells_;
    float scale_;
    std::vector<Sample> row_;
    std::vector<Tap> taps_;
};

struct Shares {
    float far = 0.0f;
    float near = 0.0f;
};

std::uint8_t Mix(std::uint8_t original, const Shares& shares, float far, float behind, float near,
                 float cover) {
    auto value = static_cast<float>(original);
    value += shares.far * (far - value);
    // A pixel barely before the focus still shows itself, one well before it what is behind it.
    const float square = shares.near * shares.near;
    value += square * square * (behind - value);
    value += cover * (near - value);
    return static_cast<std::uint8_t>(std::clamp(value + 0.5f, 0.0f, 255.0f));
}

cv::Mat Merge(const BlurredLayers& layers, const std::vector<int>& fromTo, int channels) {
    cv::Mat merged(layers.far.size(), CV_32FC(channels));
    const std::vector<cv::Mat> sources{layers.far, layers.behind, layers.near, layers.nearCover};
    std::vector<cv::Mat> targets{merged};
    cv::mixChannels(sources, targets, fromTo);
    return merged;
}

void ComposeLuma(const Nv12View& input, const cv::Mat& map, const BlurTable& table,
                 const cv::Mat& cells, int cell, cv::Mat& output) {
    cv::parallel_for_(
        cv::Range(0, output.rows),
        [&](const cv::Range& range) {
            CellSampler<4> sampler(cells, cell, 1, output.cols);
            for (int y = range.start; y < range.end; ++y) {
                sampler.SelectRow(y);
                const std::uint8_t* in = input.luma.ptr<std::uint8_t>(y);
                const std::uint8_t* values = map.ptr<std::uint8_t>(y);
                std::uint8_t* out = output.ptr<std::uint8_t>(y);
                for (int x = 0; x < output.cols; ++x) {
                    const Shares shares{table.far[values[x]], table.near[values[x]]};
                    const cv::Vec4f s = sampler.At(x);
                    if (shares.far > 0.0f || shares.near > 0.0f || s[3] >= kLeastCover) {
                        out[x] = Mix(in[x], shares, s[0], s[1], s[2], s[3]);
                    }
                }
            }
        },
        kStripes);
}

Shares MeanShares(const cv::Mat& map, const BlurTable& table, int x, int y) {
    Shares mean;
    for (int dy = 0; dy < 2; ++dy) {
        const std::uint8_t* values = map.ptr<std::uint8_t>(2 * y + dy, 2 * x);
        for (int dx = 0; dx < 2; ++dx) {
            mean.far += table.far[values[dx]] / 4.0f;
            mean.near += table.near[values[dx]] / 4.0f;
        }
    }
    return mean;
}

void ComposeChroma(const Nv12View& input, const cv::Mat& map, const BlurTable& table,
                   const cv::Mat& cells, int cell, cv::Mat& output) {
    cv::parallel_for_(
        cv::Range(0, output.rows),
        [&](const cv::Range& range) {
            CellSampler<7> sampler(cells, cell, 2, output.cols);
            for (int y = range.start; y < range.end; ++y) {
                sampler.SelectRow(y);
                const auto* in = input.chroma.ptr<cv::Vec2b>(y);
                auto* out = output.ptr<cv::Vec2b>(y);
                for (int x = 0; x < output.cols; ++x) {
                    const Shares shares = MeanShares(map, table, x, y);
                    const auto s = sampler.At(x);
                    if (shares.far > 0.0f || shares.near > 0.0f || s[6] >= kLeastCover) {
                        out[x] = {Mix(in[x][0], shares, s[0], s[2], s[4], s[6]),
                                  Mix(in[x][1], shares, s[1], s[3], s[5], s[6])};
                    }
                }
            }
        },
        kStripes);
}

} // namespace

void Compose(const Nv12View& input, const cv::Mat& map, const BlurTable& table,
             const BlurredLayers& layers, int cell, Nv12View& output) {
    // Channels of the layers one after another: far 0-2, behind 3-5, near 6-8, cover 9.
    const cv::Mat luma = Merge(layers, {0, 0, 3, 1, 6, 2, 9, 3}, 4);
    const cv::Mat chroma = Merge(layers, {1, 0, 2, 1, 4, 2, 5, 3, 7, 4, 8, 5, 9, 6}, 7);
    ComposeLuma(input, map, table, luma, cell, output.luma);
    ComposeChroma(input, map, table, chroma, cell, output.chroma);
}

} // namespace refocus

#include "host/refocus/composition.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "host/refocus/colour.h"

namespace refocus {
namespace {

constexpr float kMinCover = 1.0f / 512.0f; // a smaller opacity changes no 8-bit value

// The layers converted to YUV, one plane (CV_32FC1) for each component.
enum Plane { kFarY, kFarU, kFarV, kNearY, kNearU, kNearV, kOverY, kOverU, kOverV, kCover, kPlanes };
using Planes = std::array<cv::Mat, kPlanes>;

// Far and Near: what is seen at a pixel behind and before the focus, near layer included. Over: the
// near layer alone, to be composited over pixels in focus; its Y is linear light.
Planes MakePlanes(const BlurredLayers& layers) {
    Planes planes;
    for (cv::Mat& plane : planes) {
        plane.create(layers.far.size(), CV_32FC1);
    }
    cv::Mat reached; // opacity of the near layer in this cell or one beside it
    cv::dilate(layers.nearCover, reached, cv::Mat());
    ForEachRow(layers.far.rows, [&](int y) {
        const auto store = [&](Plane first, int x, const cv::Vec3f& yuv) {
            cv::Mat* plane = planes.data() + first;
            for (int i = 0; i < 3; ++i) {
                plane[i].at<float>(y, x) = yuv[i];
            }
        };
        for (int x = 0; x < layers.far.cols; ++x) {
            const float cover = layers.nearCover.at<float>(y, x);
            if (reached.at<float>(y, x) < kMinCover) {
                const cv::Vec3f far = YuvOf(layers.far.at<cv::Vec3f>(y, x));
                store(kFarY, x, far);
                store(kNearY, x, far);
                store(kOverY, x, {});
                planes[kCover].at<float>(y, x) = 0.0f;
                continue;
            }
            const auto& near = layers.near.at<cv::Vec3f>(y, x);
            const auto under = [&](const cv::Mat& layer) {
                const auto& light = layer.at<cv::Vec3f>(y, x);
                return YuvOf(light + (near - light) * cover);
            };
            const bool covered = cover >= kMinCover;
            planes[kCover].at<float>(y, x) = covered ? cover : 0.0f;
            store(kFarY, x, under(layers.far));
            store(kNearY, x, under(layers.behind));
            cv::Vec3f over = YuvOf(near);
            over[0] = LightOf(over[0], 128.0f, 128.0f)[0];
            store(kOverY, x, over);
        }
    });
    return planes;
}

float Mix(float from, float to, float share) {
    return from + (to - from) * share;
}

// Interpolates planes of cells linearly, a row of samples at a time. `pixel` is the distance
// between samples in main image pixels: 1 for luma, 2 for chroma.
class RowSampler {
public:
    RowSampler(cv::Size cells, int cell, int pixel, int samples)
        : cells_(cells), scale_(static_cast<float>(pixel) / static_cast<float>(cell)),
          mixed_(static_cast<std::size_t>(cells.width) + 1) {
        for (int x = 0; x < samples; ++x) {
            taps_.push_back(TapAt(x, cells.width));
        }
    }

    void Sample(const cv::Mat& plane, int y, std::vector<float>& row) {
        const Tap tap = TapAt(y, cells_.height);
        const float* upper = plane.ptr<float>(tap.first);
        const float* lower = plane.ptr<float>(std::min(tap.first + 1, cells_.height - 1));
        for (int x = 0; x < cells_.width; ++x) {
            mixed_[static_cast<std::size_t>(x)] = upper[x] + (lower[x] - upper[x]) * tap.share;
        }
        mixed_.back() = mixed_[mixed_.size() - 2];
        row.resize(taps_.size());
        for (std::size_t x = 0; x < taps_.size();) {
            const int first = taps_[x].first;
            const float* at = mixed_.data() + first;
            const float step = at[1] - at[0];
            for (; x < taps_.size() && taps_[x].first == first; ++x) {
                row[x] = at[0] + step * taps_[x].share;
            }
        }
    }

    // A single sample.
    float SampleAt(const cv::Mat& plane, int x, int y) const {
        const Tap row = TapAt(y, cells_.height);
        const Tap column = taps_[static_cast<std::size_t>(x)];
        const int right = std::min(column.first + 1, cells_.width - 1);
        const float* upper = plane.ptr<float>(row.first);
        const float* lower = plane.ptr<float>(std::min(row.first + 1, cells_.height - 1));
        const float left = Mix(upper[column.first], lower[column.first], row.share);
        return Mix(left, Mix(upper[right], lower[right], row.share), column.share);
    }

    // True where all four cells that a sample is interpolated from are marked (CV_8UC1).
    bool AllMarked(const cv::Mat& marked, int x, int y) const {
        const int row = TapAt(y, cells_.height).first;
        const int column = taps_[static_cast<std::size_t>(x)].first;
        const auto at = [&](int dy, int dx) {
            return marked.at<std::uint8_t>(std::min(row + dy, cells_.height - 1),
                                           std::min(column + dx, cells_.width - 1)) != 0;
        };
        return at(0, 0) && at(0, 1) && at(1, 0) && at(1, 1);
    }

    // True if one of the rows of cells that a row of samples is interpolated from is marked.
    bool Touches(const std::vector<std::uint8_t>& marked, int y) const {
        const auto first = static_cast<std::size_t>(TapAt(y, cells_.height).first);
        return marked[first] != 0 || marked[std::min(first + 1, marked.size() - 1)] != 0;
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

    cv::Size cells_;
    float scale_;
    std::vector<float> mixed_;
    std::vector<Tap> taps_;
};

std::uint8_t Rounded(float value) {
    return static_cast<std::uint8_t>(std::clamp(value + 0.5f, 0.0f, 255.0f));
}

class Composer {
public:
    Composer(const Nv12View& input, const cv::Mat& map, const BlurTable& table,
             const Planes& planes, const Matte& matte, int cell, Nv12View& output)
        : input_(input), map_(map), table_(table), planes_(planes), matte_(matte), output_(output),
          luma_(planes[kCover].size(), cell, 1, input.luma.cols),
          chroma_(planes[kCover].size(), cell, 2, input.chroma.cols),
          blurred_(static_cast<std::size_t>(input.luma.cols)) {
        for (std::size_t value = 0; value < farShare_.size(); ++value) {
            farShare_[value] = static_cast<int>(std::lround(table.far[value] * kWhole));
        }
        for (int y = 0; y < planes[kCover].rows; ++y) {
            covered_.push_back(cv::countNonZero(planes[kCover].row(y)) > 0);
            outlined_.push_back(cv::countNonZero(matte.onOutline.row(y)) > 0);
        }
    }

    void LumaRow(int y) {
        const bool covered = luma_.Touches(covered_, y);
        const bool outlined = luma_.Touches(outlined_, y);
        luma_.Sample(planes_[kFarY], y, rows_[kFarY]);
        std::transform(rows_[kFarY].begin(), rows_[kFarY].end(), blurred_.begin(), Rounded);
        const std::uint8_t* in = input_.luma.ptr<std::uint8_t>(y);
        if (covered || outlined) { // the output may be the input, and is written below
            own_.assign(in, in + input_.luma.cols);
        }
        const std::uint8_t* values = map_.ptr<std::uint8_t>(y);
        std::uint8_t* out = output_.luma.ptr<std::uint8_t>(y);
        for (std::size_t x = 0; x < blurred_.size(); ++x) {
            const int share = farShare_[values[x]];
            out[x] = static_cast<std::uint8_t>(
                (in[x] * (kWhole - share) + blurred_[x] * share + kWhole / 2) / kWhole);
        }
        if (outlined) {
            OutlineLumaRow(y, own_.data(), values, out);
        }
        if (covered) {
            CoverLumaRow(y, own_.data(), values, out);
        }
    }

    // Writes the outlines of what is in focus.
    void OutlineLumaRow(int y, const std::uint8_t* in, const std::uint8_t* values,
                        std::uint8_t* out) {
        for (int x = 0; x < input_.luma.cols; ++x) {
            if (table_.near[values[x]] > 0.0f || !luma_.AllMarked(matte_.onOutline, x, y)) {
                continue;
            }
            const float sharpLuma = luma_.SampleAt(matte_.sharpLuma, x, y);
            const float share =
                MatteShare(in[x], table_.far[values[x]], luma_.SampleAt(matte_.far, x, y),
                           sharpLuma, luma_.SampleAt(matte_.farLuma, x, y));
            out[x] = Rounded(Mix(in[x], rows_[kFarY][static_cast<std::size_t>(x)], share));
        }
    }

    // Writes the pixels that the near layer covers or that belong to it.
    void CoverLumaRow(int y, const std::uint8_t* in, const std::uint8_t* values,
                      std::uint8_t* out) {
        luma_.Sample(planes_[kNearY], y, rows_[kNearY]);
        luma_.Sample(planes_[kOverY], y, rows_[kOverY]);
        luma_.Sample(planes_[kCover], y, rows_[kCover]);
        const float* lights = LightOfCodes();
        for (std::size_t x = 0; x < blurred_.size(); ++x) {
            const float far = table_.far[values[x]];
            const float near = table_.near[values[x]];
            const float cover = rows_[kCover][x];
            if (near > 0.0f || (cover > 0.0f && far < 1.0f)) {
                const float sharp = far + near < 1.0f && cover > 0.0f
                                        ? CodeOf(Mix(lights[in[x]], rows_[kOverY][x], cover))
                                        : static_cast<float>(in[x]);
                out[x] = Rounded(Mix(Mix(sharp, rows_[kFarY][x], far), rows_[kNearY][x], near));
            }
        }
    }

    void ChromaRow(int y) {
        const bool covered = chroma_.Touches(covered_, y);
        for (const Plane plane : {kFarU, kFarV, kNearU, kNearV, kOverU, kOverV, kCover}) {
            if (covered || plane == kFarU || plane == kFarV) {
                chroma_.Sample(planes_[plane], y, rows_[plane]);
            }
        }
        const std::uint8_t* upper = map_.ptr<std::uint8_t>(2 * y);
        const std::uint8_t* lower = map_.ptr<std::uint8_t>(2 * y + 1);
        const auto* in = input_.chroma.ptr<cv::Vec2b>(y);
        auto* out = output_.chroma.ptr<cv::Vec2b>(y);
        const auto mean = [&](const std::array<float, 256>& shares, std::size_t x) {
            return (shares[upper[2 * x]] + shares[upper[2 * x + 1]] + shares[lower[2 * x]] +
                    shares[lower[2 * x + 1]]) /
                   4.0f;
        };
        for (std::size_t x = 0; x < rows_[kFarU].size(); ++x) {
            const float far = mean(table_.far, x);
            const float near = covered ? mean(table_.near, x) : 0.0f;
            const float cover = covered ? rows_[kCover][x] : 0.0f;
            if (near == 0.0f && cover == 0.0f) {
                if (far > 0.0f) {
                    out[x] = {Rounded(Mix(in[x][0], rows_[kFarU][x], far)),
                              Rounded(Mix(in[x][1], rows_[kFarV][x], far))};
                }
                continue;
            }
            const float behind = far + near > 0.0f ? near / (far + near) : 0.0f;
            const auto mix = [&](std::uint8_t own, Plane farPlane, Plane nearPlane, Plane over) {
                const float sharp = Mix(own, rows_[over][x], cover);
                const float blurred = Mix(rows_[farPlane][x], rows_[nearPlane][x], behind);
                return Rounded(Mix(sharp, blurred, std::min(1.0f, far + near)));
            };
            out[x] = {mix(in[x][0], kFarU, kNearU, kOverU), mix(in[x][1], kFarV, kNearV, kOverV)};
        }
    }

private:
    const Nv12View& input_;
    const cv::Mat& map_;
    const BlurTable& table_;
    const Planes& planes_;
    const Matte& matte_;
    Nv12View& output_;
    RowSampler luma_;
    RowSampler chroma_;
    static constexpr int kWhole = 256;
    std::array<int, 256> farShare_{}; // of kWhole, by disparity value
    std::vector<std::uint8_t> blurred_;
    std::vector<std::uint8_t> own_;
    std::vector<std::uint8_t> outlined_; // rows of cells with any outline
    std::vector<std::uint8_t> covered_;  // rows of cells with any near layer
    std::array<std::vector<float>, kPlanes> rows_;
};

} // namespace

void Compose(const Nv12View& input, const cv::Mat& map, const BlurTable& table,
             const BlurredLayers& layers, const Matte& matte, int cell, Nv12View& output) {
    const Planes planes = MakePlanes(layers);
    constexpr double kStripes = 16; // parts of the image, each with its own composer and buffers
    cv::parallel_for_(
        cv::Range(0, output.luma.rows),
        [&](const cv::Range& range) {
            Composer composer(input, map, table, planes, matte, cell, output);
            for (int y = range.start; y < range.end; ++y) {
                composer.LumaRow(y);
                if (y % 2 == 0 && y / 2 < output.chroma.rows) {
                    composer.ChromaRow(y / 2);
                }
            }
        },
        kStripes);
}

} // namespace refocus

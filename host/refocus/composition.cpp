#include "host/refocus/composition.h"

#include <opencv2/core/hal/intrin.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <vector>

#include "host/refocus/cell_interpolation.h"
#include "host/refocus/colour.h"
#include "host/refocus/image_memory.h"

namespace refocus {
namespace {

constexpr float kMinCover = 1.0f / 512.0f; // a smaller opacity changes no 8-bit value

// The layers converted to YUV, one plane in fixed point for each component.
enum Plane { kFarY, kFarU, kFarV, kNearY, kNearU, kNearV, kOverY, kOverU, kOverV, kCover, kPlanes };
using Planes = std::array<cv::Mat, kPlanes>;

// Far holds what shows at a pixel behind the focus, Near at one before it, both with the near layer
// on top. Over is the near layer alone, for pixels in focus; its Y is linear light. Light and
// opacity are 255 for 1.
Planes MakePlanes(const BlurredLayers& layers) {
    Planes planes;
    for (cv::Mat& plane : planes) {
        plane = NewImage(layers.far.size(), CV_16SC1);
    }
    cv::Mat reached; // opacity of the near layer in this cell or one beside it
    cv::dilate(layers.nearCover, reached, cv::Mat());
    ForEachRow(layers.far.rows, [&](int y) {
        const auto store = [&](Plane first, int x, const cv::Vec3f& yuv) {
            cv::Mat* plane = planes.data() + first;
            for (int i = 0; i < 3; ++i) {
                plane[i].at<std::int16_t>(y, x) = ToFixed(yuv[i]);
            }
        };
        for (int x = 0; x < layers.far.cols; ++x) {
            const float cover = layers.nearCover.at<float>(y, x);
            if (reached.at<float>(y, x) < kMinCover) {
                const cv::Vec3f far = YuvOf(layers.far.at<cv::Vec3f>(y, x));
                store(kFarY, x, far);
                store(kNearY, x, far);
                store(kOverY, x, {});
                planes[kCover].at<std::int16_t>(y, x) = 0;
                continue;
            }
            const auto& near = layers.near.at<cv::Vec3f>(y, x);
            const auto under = [&](const cv::Mat& layer) {
                const auto& light = layer.at<cv::Vec3f>(y, x);
                return YuvOf(light + (near - light) * cover);
            };
            planes[kCover].at<std::int16_t>(y, x) =
                ToFixed(cover >= kMinCover ? 255.0f * cover : 0.0f);
            store(kFarY, x, under(layers.far));
            store(kNearY, x, under(layers.behind));
            cv::Vec3f over = YuvOf(near);
            over[0] = 255.0f * LightOf(over[0], 128.0f, 128.0f)[0];
            store(kOverY, x, over);
        }
    });
    return planes;
}

float Mix(float from, float to, float share) {
    return from + (to - from) * share;
}

std::uint8_t Rounded(float value) {
    return static_cast<std::uint8_t>(std::clamp(value + 0.5f, 0.0f, 255.0f));
}

// The value of a plane (CV_32FC1) between four cells.
float Between(const cv::Mat& plane, const CellInterpolation::Tap& row,
              const CellInterpolation::Tap& column) {
    const float* upper = plane.ptr<float>(row.first);
    const float* lower = plane.ptr<float>(row.second);
    return Mix(Mix(upper[column.first], lower[column.first], row.share),
               Mix(upper[column.second], lower[column.second], row.share), column.share);
}

// Disparity values whose pixels need no mixing. Shares grow with the distance from the focus.
struct WholeValues {
    int farUpTo = -1;    // up to here a pixel is the far field's alone
    int sharpFrom = 256; // from here it has no share of the far field
    int sharpUpTo = -1;  // up to here it has no share of the near field
    int nearFrom = 256;  // from here it is the near field's alone

    explicit WholeValues(const BlurTable& table) {
        for (int value = 0; value < 256; ++value) {
            const auto i = static_cast<std::size_t>(value);
            farUpTo = table.far[i] >= 1.0f ? value : farUpTo;
            sharpFrom = table.far[i] > 0.0f ? 256 : std::min(sharpFrom, value);
            sharpUpTo = table.near[i] > 0.0f ? sharpUpTo : value;
            nearFrom = table.near[i] >= 1.0f ? std::min(nearFrom, value) : 256;
        }
    }
};

constexpr int kRun = 16; // luma pixels of a row that are judged at once

// The lowest and the highest of a run of disparity values.
struct ValueRange {
    int low;
    int high;

    explicit ValueRange(const std::uint8_t* values) {
        const cv::v_uint8x16 all = cv::v_load(values);
        low = cv::v_reduce_min(all);
        high = cv::v_reduce_max(all);
    }
    ValueRange(const ValueRange& a, const ValueRange& b)
        : low(std::min(a.low, b.low)), high(std::max(a.high, b.high)) {}
};

bool AllZero(const std::int16_t* fixed) {
    return !cv::v_check_any((cv::v_load(fixed) | cv::v_load(fixed + kRun / 2)) !=
                            cv::v_setzero_s16());
}

class Composer {
public:
    Composer(const Nv12View& input, const cv::Mat& map, const BlurTable& table,
             const Planes& planes, const Matte& matte, int cell, Nv12View& output)
        : input_(input), map_(map), table_(table), whole_(table), planes_(planes), matte_(matte),
          output_(output),
          luma_(planes[kCover].cols, 1.0f / static_cast<float>(cell), input.luma.cols),
          chroma_(planes[kCover].cols, 2.0f / static_cast<float>(cell), input.chroma.cols),
          lumaRows_(planes[kCover].rows, 1.0f / static_cast<float>(cell), input.luma.rows),
          chromaRows_(planes[kCover].rows, 2.0f / static_cast<float>(cell), input.chroma.rows) {
        for (int y = 0; y < planes[kCover].rows; ++y) {
            covered_.push_back(cv::countNonZero(planes[kCover].row(y)) > 0);
            outlined_.push_back(cv::countNonZero(matte.onOutline.row(y)) > 0);
        }
        rows_.fill(FixedRow(input.luma.cols));
    }

    void LumaRow(int y) {
        const CellInterpolation::Tap& tap = lumaRows_.At(y);
        const bool covered = Touches(covered_, tap);
        const bool outlined = Touches(outlined_, tap);
        Sample(luma_, kFarY, tap);
        const std::uint8_t* in = input_.luma.ptr<std::uint8_t>(y);
        if (covered || outlined) { // the output may be the input, and is written below
            own_.assign(in, in + input_.luma.cols);
        }
        const std::uint8_t* values = map_.ptr<std::uint8_t>(y);
        std::uint8_t* out = output_.luma.ptr<std::uint8_t>(y);
        FarLumaRow(in, values, out);
        if (outlined) {
            OutlineLumaRow(tap, own_.data(), values, out);
        }
        if (covered) {
            CoverLumaRow(tap, own_.data(), values, out);
        }
    }

    void ChromaRow(int y) {
        const CellInterpolation::Tap& tap = chromaRows_.At(y);
        const bool covered = Touches(covered_, tap);
        for (const Plane plane : {kFarU, kFarV, kNearU, kNearV, kOverU, kOverV, kCover}) {
            if (covered || plane == kFarU || plane == kFarV) {
                Sample(chroma_, plane, tap);
            }
        }
        const std::uint8_t* upper = map_.ptr<std::uint8_t>(2 * y);
        const std::uint8_t* lower = map_.ptr<std::uint8_t>(2 * y + 1);
        const auto* in = input_.chroma.ptr<cv::Vec2b>(y);
        auto* out = output_.chroma.ptr<cv::Vec2b>(y);
        constexpr int kHalf = kRun / 2;
        for (int x = 0; x < input_.chroma.cols; x += kHalf) {
            const int end = std::min(x + kHalf, input_.chroma.cols);
            if (end == x + kHalf) {
                const std::ptrdiff_t luma = std::ptrdiff_t{2} * x;
                const ValueRange range(ValueRange(upper + luma), ValueRange(lower + luma));
                if (range.high <= whole_.farUpTo) {
                    StoreChroma(kFarU, x, out);
                    continue;
                }
                if (covered && range.low >= whole_.nearFrom) {
                    StoreChroma(kNearU, x, out);
                    continue;
                }
                // Half of a run of cover is enough, but a whole one lies within the row's room.
                const bool sharp = range.low >= whole_.sharpFrom && range.high <= whole_.sharpUpTo;
                if (sharp && (!covered || AllZero(rows_[kCover].data() + x))) {
                    continue;
                }
            }
            for (int i = x; i < end; ++i) {
                const std::ptrdiff_t luma = std::ptrdiff_t{2} * i;
                out[i] = MixedChroma(in[i], upper + luma, lower + luma, i, covered);
            }
        }
    }

private:
    static bool Touches(const std::vector<std::uint8_t>& marked,
                        const CellInterpolation::Tap& tap) {
        return marked[static_cast<std::size_t>(tap.first)] != 0 ||
               marked[static_cast<std::size_t>(tap.second)] != 0;
    }

    void Sample(const CellInterpolation& columns, Plane plane, const CellInterpolation::Tap& row) {
        MixRows(planes_[plane], row, cells_);
        columns.Expand(cells_, rows_[plane]);
    }

    float Code(Plane plane, int x) const {
        return static_cast<float>(rows_[plane][static_cast<std::size_t>(x)]) / kFixedOne;
    }

    void FarLumaRow(const std::uint8_t* in, const std::uint8_t* values, std::uint8_t* out) {
        for (int x = 0; x < input_.luma.cols; x += kRun) {
            const int end = std::min(x + kRun, input_.luma.cols);
            if (end == x + kRun) {
                const ValueRange range(values + x);
                if (range.high <= whole_.farUpTo) {
                    StoreRounded(rows_[kFarY].data() + x, out + x);
                    continue;
                }
                if (range.low >= whole_.sharpFrom) {
                    continue;
                }
            }
            for (int i = x; i < end; ++i) {
                out[i] = Rounded(Mix(in[i], Code(kFarY, i), table_.far[values[i]]));
            }
        }
    }

    // Writes the outlines of what is in focus.
    void OutlineLumaRow(const CellInterpolation::Tap& row, const std::uint8_t* in,
                        const std::uint8_t* values, std::uint8_t* out) {
        const std::uint8_t* upper = matte_.onOutline.ptr<std::uint8_t>(row.first);
        const std::uint8_t* lower = matte_.onOutline.ptr<std::uint8_t>(row.second);
        for (const CellInterpolation::Interval& cells : luma_.intervals()) {
            if ((upper[cells.first] & upper[cells.second] & lower[cells.first] &
                 lower[cells.second]) == 0) {
                continue;
            }
            for (int x = cells.begin; x < cells.end; ++x) {
                if (table_.near[values[x]] > 0.0f) {
                    continue;
                }
                const CellInterpolation::Tap& column = luma_.At(x);
                const float share = MatteShare(
                    in[x], table_.far[values[x]], Between(matte_.far, row, column),
                    Between(matte_.sharpLuma, row, column), Between(matte_.farLuma, row, column));
                out[x] = Rounded(Mix(in[x], Code(kFarY, x), share));
            }
        }
    }

    // Writes the pixels that the near layer covers or that belong to it.
    void CoverLumaRow(const CellInterpolation::Tap& row, const std::uint8_t* in,
                      const std::uint8_t* values, std::uint8_t* out) {
        for (const Plane plane : {kNearY, kOverY, kCover}) {
            Sample(luma_, plane, row);
        }
        for (int x = 0; x < input_.luma.cols; x += kRun) {
            const int end = std::min(x + kRun, input_.luma.cols);
            if (end == x + kRun) {
                const ValueRange range(values + x);
                if (range.low >= whole_.nearFrom) {
                    StoreRounded(rows_[kNearY].data() + x, out + x);
                    continue;
                }
                if (range.high <= whole_.farUpTo ||
                    (range.high <= whole_.sharpUpTo && AllZero(rows_[kCover].data() + x))) {
                    continue;
                }
            }
            for (int i = x; i < end; ++i) {
                CoverPixel(i, in[i], values[i], out[i]);
            }
        }
    }

    void CoverPixel(int x, std::uint8_t in, std::uint8_t value, std::uint8_t& out) const {
        const float far = table_.far[value];
        const float near = table_.near[value];
        const float cover = Code(kCover, x) / 255.0f;
        if (near > 0.0f || (cover > 0.0f && far < 1.0f)) {
            const float light = Code(kOverY, x) / 255.0f;
            const float sharp = far + near < 1.0f && cover > 0.0f
                                    ? CodeOf(Mix(LightOfCodes()[in], light, cover))
                                    : static_cast<float>(in);
            out = Rounded(Mix(Mix(sharp, Code(kFarY, x), far), Code(kNearY, x), near));
        }
    }

    // Stores half a run of the plane U and the next one, V.
    void StoreChroma(Plane u, int x, cv::Vec2b* out) const {
        std::array<std::uint8_t, kRun> us;
        std::array<std::uint8_t, kRun> vs;
        StoreRounded(rows_[u].data() + x, us.data());
        StoreRounded(rows_[u + 1].data() + x, vs.data());
        for (std::size_t i = 0; i < kRun / 2; ++i) {
            out[x + static_cast<int>(i)] = {us[i], vs[i]};
        }
    }

    // A pixel of chroma, by the disparities of its four pixels of luma.
    cv::Vec2b MixedChroma(const cv::Vec2b& in, const std::uint8_t* upper, const std::uint8_t* lower,
                          int x, bool covered) const {
        const auto mean = [&](const std::array<float, 256>& shares) {
            return (shares[upper[0]] + shares[upper[1]] + shares[lower[0]] + shares[lower[1]]) /
                   4.0f;
        };
        const float far = mean(table_.far);
        const float near = covered ? mean(table_.near) : 0.0f;
        const float cover = covered ? Code(kCover, x) / 255.0f : 0.0f;
        if (near == 0.0f && cover == 0.0f) {
            return {Rounded(Mix(in[0], Code(kFarU, x), far)),
                    Rounded(Mix(in[1], Code(kFarV, x), far))};
        }
        const float behind = far + near > 0.0f ? near / (far + near) : 0.0f;
        const auto mix = [&](std::uint8_t own, Plane farPlane, Plane nearPlane, Plane over) {
            const float sharp = Mix(own, Code(over, x), cover);
            const float blurred = Mix(Code(farPlane, x), Code(nearPlane, x), behind);
            return Rounded(Mix(sharp, blurred, std::min(1.0f, far + near)));
        };
        return {mix(in[0], kFarU, kNearU, kOverU), mix(in[1], kFarV, kNearV, kOverV)};
    }

    const Nv12View& input_;
    const cv::Mat& map_;
    const BlurTable& table_;
    const WholeValues whole_;
    const Planes& planes_;
    const Matte& matte_;
    Nv12View& output_;
    CellInterpolation luma_;
    CellInterpolation chroma_;
    CellInterpolation lumaRows_;
    CellInterpolation chromaRows_;
    std::vector<std::uint8_t> own_;
    std::vector<std::uint8_t> outlined_; // rows of cells with any outline
    std::vector<std::uint8_t> covered_;  // rows of cells with any near layer
    std::vector<std::int16_t> cells_;
    std::array<std::vector<std::int16_t>, kPlanes> rows_;
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

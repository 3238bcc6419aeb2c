#include "host/refocus/cell_interpolation.h"

#include <algorithm>

#include <opencv2/core/hal/intrin.hpp>

namespace refocus {
namespace {

constexpr int kLanes = cv::v_int16x8::nlanes;

} // namespace

std::int16_t ToFixed(float value) {
    return static_cast<std::int16_t>(std::clamp(value, 0.0f, 255.0f) * kFixedOne + 0.5f);
}

std::vector<std::int16_t> FixedRow(int samples) {
    return std::vector<std::int16_t>(static_cast<std::size_t>(samples + kLanes));
}

CellInterpolation::CellInterpolation(int cells, float spacing, int samples)
    : shares_(FixedRow(samples)) {
    for (int i = 0; i < samples; ++i) {
        const float at = std::clamp((static_cast<float>(i) + 0.5f) * spacing - 0.5f, 0.0f,
                                    static_cast<float>(cells - 1));
        const int first = static_cast<int>(at);
        const float share = at - static_cast<float>(first);
        if (i == 0 || first != taps_.back().first) {
            intervals_.push_back({i, i, first, std::min(first + 1, cells - 1)});
        }
        ++intervals_.back().end;
        taps_.push_back({first, std::min(first + 1, cells - 1), share});
        shares_[static_cast<std::size_t>(i)] = static_cast<std::int16_t>(share * 32767.0f);
    }
}

void CellInterpolation::Expand(const std::vector<std::int16_t>& cells,
                               std::vector<std::int16_t>& samples) const {
    for (const Interval& interval : intervals_) {
        const int first = cells[static_cast<std::size_t>(interval.first)];
        const int second = cells[static_cast<std::size_t>(interval.second)];
        const cv::v_int16x8 from = cv::v_setall_s16(static_cast<short>(first));
        // Twice the difference, since the upper half of the product with 1/32768 is half of it.
        const cv::v_int16x8 step = cv::v_setall_s16(static_cast<short>(2 * (second - first)));
        // What exceeds the interval is overwritten by the next one.
        for (int x = interval.begin; x < interval.end; x += kLanes) {
            const cv::v_int16x8 share = cv::v_load(shares_.data() + x);
            cv::v_store(samples.data() + x, from + cv::v_mul_hi(step, share));
        }
    }
}

void MixRows(const cv::Mat& plane, const CellInterpolation::Tap& tap,
             std::vector<std::int16_t>& row) {
    const auto* upper = plane.ptr<std::int16_t>(tap.first);
    const auto* lower = plane.ptr<std::int16_t>(tap.second);
    row.resize(static_cast<std::size_t>(plane.cols));
    for (int x = 0; x < plane.cols; ++x) {
        const float mixed =
            static_cast<float>(upper[x]) + static_cast<float>(lower[x] - upper[x]) * tap.share;
        row[static_cast<std::size_t>(x)] = static_cast<std::int16_t>(mixed);
    }
}

void StoreRounded(const std::int16_t* fixed, std::uint8_t* values) {
    const cv::v_int16x8 half = cv::v_setall_s16(kFixedOne / 2);
    const auto rounded = [&](const std::int16_t* from) { return (cv::v_load(from) + half) >> 6; };
    cv::v_store(values, cv::v_pack_u(rounded(fixed), rounded(fixed + kLanes)));
}

void StoreRounded(const std::vector<std::int16_t>& fixed, int count, std::uint8_t* values) {
    constexpr int kVector = 2 * kLanes;
    int x = 0;
    for (; x + kVector <= count; x += kVector) {
        StoreRounded(fixed.data() + x, values + x);
    }
    for (; x < count; ++x) {
        values[x] = static_cast<std::uint8_t>((fixed[static_cast<std::size_t>(x)] + kFixedOne / 2) /
                                              kFixedOne);
    }
}

} // namespace refocus

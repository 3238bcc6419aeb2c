#pragma once

#include <cstdint>
#include <vector>

#include <opencv2/core.hpp>

namespace refocus {

// Fixed point of interpolated values: 0 to 255 in steps of 1/64 (CV_16SC1).
constexpr int kFixedOne = 64;

// The value in fixed point, clipped to 0 to 255.
std::int16_t ToFixed(float value);

// A buffer of Expand's for `samples` values: it writes in whole vectors.
std::vector<std::int16_t> FixedRow(int samples);

// Linear interpolation between the centres of cells along one axis of a grid. The samples lie
// `spacing` cells apart, the first one half of that from the border; before the first and behind
// the last centre the cell's value is repeated.
class CellInterpolation {
public:
    struct Tap {
        int first;
        int second;  // the next cell, or `first` if it is the last one
        float share; // of the second
    };
    // Consecutive samples between the same two cells.
    struct Interval {
        int begin;
        int end;
        int first;
        int second;
    };

    CellInterpolation(int cells, float spacing, int samples);

    const Tap& At(int sample) const { return taps_[static_cast<std::size_t>(sample)]; }
    const std::vector<Interval>& intervals() const { return intervals_; }

    // Interpolates a row of cells in fixed point.
    void Expand(const std::vector<std::int16_t>& cells, std::vector<std::int16_t>& samples) const;

private:
    std::vector<Tap> taps_;
    std::vector<Interval> intervals_;
    std::vector<std::int16_t> shares_; // in 1/32768, as many as FixedRow
};

// The row of a plane in fixed point at a tap between its rows.
void MixRows(const cv::Mat& plane, const CellInterpolation::Tap& tap,
             std::vector<std::int16_t>& row);

// Rounds 16 values in fixed point.
void StoreRounded(const std::int16_t* fixed, std::uint8_t* values);
// Rounds the first `count` values of a row.
void StoreRounded(const std::vector<std::int16_t>& fixed, int count, std::uint8_t* values);

} // namespace refocus

#pragma once

#include <algorithm>
#include <functional>

#include <opencv2/core.hpp>

#include "engine/refocus_engine.h"
#include "host/refocus/error.h"

namespace refocus {

constexpr int kMinImageSide = 16;
constexpr int kMaxImageSide = 16384;

// An NV12 image in the caller's memory, full-range BT.601. The matrices own no pixels and have the
// planes' pitches; bytes beyond a row's width are neither read nor written.
struct Nv12View {
    cv::Mat luma;   // CV_8UC1, height x width
    cv::Mat chroma; // CV_8UC2 (U, V), height / 2 x width / 2, both rounded down
};

// kNone, or what is wrong with the descriptor (kNullArgument, kImage...). Reads no pixel.
Error CheckImage(const PLIM_OFFSCREEN* image);

// A view of an image that passed CheckImage.
Nv12View ViewOf(const PLIM_OFFSCREEN& image);

// Copies `width` bytes of each row of both planes, including the last chroma byte of an odd width,
// which belongs to no pair. Both images have the same size; they may be the same image.
void CopyImage(const PLIM_OFFSCREEN& from, const PLIM_OFFSCREEN& to);

// Whole-number factor, at least 1, that brings the longer side nearest to `target`.
int ReductionFactor(cv::Size size, int target);

// Mean of each factor x factor block; remaining columns and rows are left out. With factor 1 the
// result shares the pixels.
cv::Mat ReduceLuma(const cv::Mat& luma, int factor);

// The image flipped left to right.
cv::Mat Mirrored(const cv::Mat& image);

// Told a step's name after it, for measurements of time.
using StepListener = std::function<void(const char* step)>;

// Calls operation(range) for ranges of about 64 rows that cover those below `rows`, in parallel on
// OpenCV's threads. What is computed of a few rows at a time stays in the caches.
template <typename Operation>
void ForEachStripe(int rows, const Operation& operation) {
    constexpr int kStripe = 64;
    cv::parallel_for_(cv::Range(0, (rows + kStripe - 1) / kStripe), [&](const cv::Range& stripes) {
        for (int i = stripes.start; i < stripes.end; ++i) {
            operation(cv::Range(i * kStripe, std::min(rows, (i + 1) * kStripe)));
        }
    });
}

// Calls operation(y) for each row below `rows`, in parallel on OpenCV's threads.
template <typename Operation>
void ForEachRow(int rows, const Operation& operation) {
    cv::parallel_for_(cv::Range(0, rows), [&operation](const cv::Range& range) {
        for (int y = range.start; y < range.end; ++y) {
            operation(y);
        }
    });
}

} // namespace refocus

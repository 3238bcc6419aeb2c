#pragma once

#include <opencv2/core.hpp>

#include "engine/refocus_engine.h"
#include "host/refocus/error.h"

namespace refocus {

constexpr int kMinImageSide = 16;
constexpr int kMaxImageSide = 16384;

// An NV12 image in somebody else's memory, full range BT.601. The matrices own no pixels and keep
// the planes' pitches; what lies beyond a row's width belongs to nobody here.
struct Nv12View {
    cv::Mat luma;   // CV_8UC1, height x width
    cv::Mat chroma; // CV_8UC2 (U, V), height / 2 x width / 2, both truncated
};

// kNone, or what is wrong with the descriptor (kNullArgument, kImage...). Touches no pixel.
Error CheckImage(const PLIM_OFFSCREEN* image);

// Of a descriptor that CheckImage found well.
Nv12View ViewOf(const PLIM_OFFSCREEN& image);

// Copies all bytes of all rows, as many as the width says, also the chroma byte that an odd width
// leaves over. Both images have the same size; they may be the same image.
void CopyImage(const PLIM_OFFSCREEN& from, const PLIM_OFFSCREEN& to);

// Whole-number factor that brings `width` nearest to `target`, 1 or more.
int ReductionFactor(int width, int target);

// Mean of each factor x factor block; columns and rows that fill no block are left out. With factor
// 1 the result shares the pixels.
cv::Mat ReduceLuma(const cv::Mat& luma, int factor);

} // namespace refocus

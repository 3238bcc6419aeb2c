#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/picture/false_colour.h"
#include "host/picture/image.h"
#include "host/picture/rgb_image.h"

// Where and how far two pictures of one size differ; padding is not looked at.

struct PlaneDifference {
    std::string plane; // Y, U, V, or R, G, B
    std::uint64_t samples = 0;
    std::uint64_t differing = 0; // samples that differ at all
    int largest = 0;
    // 10 log10(255^2 / mean squared difference), in dB; nothing where all are the same.
    std::optional<double> psnr;
};

struct DifferingPixel {
    int x = 0; // picture pixels; of chroma the upper left of the four that share it
    int y = 0;
    std::string plane;
    int a = 0;
    int b = 0;
};

struct PictureDifference {
    std::vector<PlaneDifference> planes;
    std::optional<DifferingPixel> first; // from the top, then from the left

    bool identical() const { return !first; }
    std::uint64_t differing() const;
    int largest() const;
};

// Both of the same format, width and height.
PictureDifference Compare(const host::Image& a, const host::Image& b);
PictureDifference Compare(const RgbImage& a, const RgbImage& b);

// The largest difference of any plane at each place, none where there is no difference; reduced so
// that no side is longer than 2000, each place then holding the largest of those it stands for.
NumberMap DifferenceMap(const host::Image& a, const host::Image& b);
NumberMap DifferenceMap(const RgbImage& a, const RgbImage& b);

// "identical", or the first pixel, counts and PSNR, a line for each plane.
std::string InWords(const PictureDifference& difference);

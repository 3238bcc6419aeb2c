#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "host/picture/false_colour.h"
#include "host/picture/image.h"
#include "host/picture/rgb_image.h"

// Where and by how much two pictures of one format and size differ. Padding is not compared, nor is
// what a mask leaves out: a Y8 image of the same size, in which a pixel of at least 128 is
// compared. A chroma sample is compared if one of its pixels is. Without a size the mask leaves
// nothing out.

struct PlaneDifference {
    std::string plane; // Y, U, V, or R, G, B
    std::uint64_t samples = 0;
    std::uint64_t differing = 0; // samples that are not equal
    int largest = 0;             // absolute difference of a sample
    std::optional<double> psnr;  // dB against a peak of 255; nothing where all samples are equal

    double share() const { // of the samples
        return samples == 0 ? 0 : static_cast<double>(differing) / static_cast<double>(samples);
    }
};

struct DifferingPixel {
    int x = 0; // pixels; of the four pixels that share a chroma sample the upper left one
    int y = 0;
    std::string plane;
    int a = 0;
    int b = 0;
};

struct PictureDifference {
    std::vector<PlaneDifference> planes;
    std::optional<DifferingPixel> first; // in reading order
    std::optional<double>
        ssim; // mean structural similarity of luma; of RGB pictures, of their grey

    bool identical() const { return !first; }
    std::optional<double> psnr() const; // the lowest of the planes
};

// `similarity`: the SSIM as well, which takes longer than all the rest.
PictureDifference Compare(const host::Image& a, const host::Image& b, const host::Image& mask = {},
                          bool similarity = true);
PictureDifference Compare(const RgbImage& a, const RgbImage& b, const host::Image& mask = {});

// "identical", or the first differing pixel, a line of counts and PSNR for each plane, and the
// SSIM.
std::string ToText(const PictureDifference& difference);
nlohmann::ordered_json ToJson(const PictureDifference& difference);

// The largest difference of any plane at each pixel, as a Y8 image. A map with a side of more than
// 2000 pixels is reduced; a pixel then holds the largest difference of those it stands for.
host::Image DifferenceMap(const host::Image& a, const host::Image& b, const host::Image& mask = {});
host::Image DifferenceMap(const RgbImage& a, const RgbImage& b, const host::Image& mask = {});

// A difference map in false colours; equal pixels are grey.
RgbImage HeatMap(const host::Image& differenceMap);

#pragma once

#include <array>
#include <optional>
#include <string>

#include "host/picture/image.h"
#include "tools/dumps/parameter_text.h"

// What is sharp and what is blurred in an output, by the stand-in engine's formulas. Another engine
// may blur otherwise.
struct DepthOfField {
    std::array<float, 256> radius{}; // main image pixels, by disparity; positive before the focus
    // The disparities that stay sharp, both included: their discs cannot be told from points.
    int low = 0;
    int high = 0;
};

// `disparity`: its first `width` bytes of each row belong to the main image. Nothing for an image
// of less than 16 pixels on a side, which the engine refuses.
std::optional<DepthOfField> DepthOfFieldOf(const host::Image& disparity, int width,
                                           const DumpParameters& parameters);

// Where two outputs differ in luma, by the depth of field: ", within the blur's edge" and the like;
// empty if it is everywhere, or unless all three images are of one size.
std::string PlaceOfDifference(const host::Image& a, const host::Image& b,
                              const host::Image& disparity, const DepthOfField& depth);

#include "host/refocus/circle_of_confusion.h"

#include <algorithm>
#include <cmath>

namespace refocus {
namespace {

constexpr double kMaxRadiusShare = 0.022; // of the image's width
constexpr double kLeastDepthShare = 0.01; // of the image's width: the shallowest scene
constexpr double kDepthOfField = 0.05;    // of the scene's depth, each side of the focus
constexpr double kSharpRadius = 0.5;      // a disc within its own pixel

double SmoothStep(double from, double to, double value) {
    const double t = std::clamp((value - from) / (to - from), 0.0, 1.0);
    return t * t * (3.0 - 2.0 * t);
}

} // namespace

BlurTable MakeBlurTable(const DisparityScale& scale, int focusValue, int intensity, int imageWidth,
                        int cell) {
    const double depth = std::max(255.0 * scale.step, kLeastDepthShare * imageWidth);
    const double gain = kMaxRadiusShare * imageWidth * intensity / 100.0 / depth;
    BlurTable table;
    for (int value = 0; value < 256; ++value) {
        const double distance = scale.step * (value - focusValue);
        const double radius = gain * std::max(0.0, std::abs(distance) - kDepthOfField * depth);
        if (radius <= kSharpRadius) {
            continue;
        }
        const auto i = static_cast<std::size_t>(value);
        const double blurred = SmoothStep(kSharpRadius, kSharpRadius + cell, radius);
        table.radius[i] = static_cast<float>(distance > 0 ? radius : -radius);
        (distance > 0 ? table.near : table.far)[i] = static_cast<float>(blurred);
        table.maxRadius = std::max(table.maxRadius, static_cast<float>(radius));
    }
    return table;
}

} // namespace refocus

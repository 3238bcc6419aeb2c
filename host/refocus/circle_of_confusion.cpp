#include "host/refocus/circle_of_confusion.h"

#include <algorithm>
#include <cmath>

namespace refocus {
namespace {

constexpr double kMaxRadiusShare = 0.022; // of the image's longer side
constexpr double kMinDepthShare = 0.01;   // of the longer side; a shallower scene is blurred less
// The customary limit of sharpness is a disc of 1/1500 of the image's diagonal; half of it as
// radius.
constexpr double kSharpRadiusShare = 0.5 / 1500;
constexpr double kSharpRadius = 0.5; // pixels; the disc stays within its own pixel

double SmoothStep(double from, double to, double value) {
    const double t = std::clamp((value - from) / (to - from), 0.0, 1.0);
    return t * t * (3.0 - 2.0 * t);
}

// Share of the blurred field in a pixel whose disc has this radius. Means of cells, interpolated,
// are blurred like by a disc of radius sqrt(cell^2 - 1) already. For a smaller disc, mixed with the
// sharp image, this share has the disc's variance.
double BlurredShare(double sharp, int cell, double radius) {
    const double ownBlur = static_cast<double>(cell) * cell - 1.0;
    const double share = ownBlur > 0.0 ? std::min(1.0, radius * radius / ownBlur) : 1.0;
    return share * SmoothStep(0.8 * sharp, 1.2 * sharp, radius);
}

} // namespace

double RadiusPerDisparity(const DisparityScale& scale, int intensity, int longerSide) {
    const double depth = std::max(255.0 * scale.step, kMinDepthShare * longerSide);
    return kMaxRadiusShare * longerSide * intensity / 100.0 / depth;
}

BlurTable MakeBlurTable(const DisparityScale& scale, FocusRange focus, int intensity,
                        cv::Size imageSize, int cell) {
    const double perValue =
        scale.step *
        RadiusPerDisparity(scale, intensity, std::max(imageSize.width, imageSize.height));
    const double sharp =
        std::max(kSharpRadius, kSharpRadiusShare * std::hypot(imageSize.width, imageSize.height));
    BlurTable table;
    for (int value = 0; value < 256; ++value) {
        const int distance = value - std::clamp(value, focus.low, focus.high);
        const double radius = perValue * distance;
        const auto i = static_cast<std::size_t>(value);
        (distance > 0 ? table.near : table.far)[i] =
            static_cast<float>(BlurredShare(sharp, cell, std::abs(radius)));
        table.radius[i] = static_cast<float>(radius);
        table.maxRadius = std::max(table.maxRadius, std::abs(table.radius[i]));
    }
    return table;
}

} // namespace refocus

#include "tools/run/crop_search.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "bokehbase/crop_region.h"

namespace {

double AspectOf(Size size) {
    return static_cast<double>(size.width) / size.height;
}

bool HasArea(Size size) {
    return size.width > 0 && size.height > 0;
}

// A side computed from an aspect ratio. It may be far larger than any sensor: it is clamped to int.
int Side(double length) {
    constexpr double kLongest = 1 << 30;
    return static_cast<int>(std::min(length, kLongest));
}

// The part of the sensor that the node would compute from this crop. It is computed by the node's
// own code, since a copy of its rounding would be off by a pixel sooner or later.
Size PartOf(Size sensor, const ChiRect& crop, Size image) {
    CropRegion part = ShownRegion({0, 0, sensor.width, sensor.height},
                                  {crop.left, crop.top, static_cast<std::int32_t>(crop.width),
                                   static_cast<std::int32_t>(crop.height)},
                                  {0, 0, image.width, image.height});
    part.FitToAspect(AspectOf(image));
    return {part.width, part.height};
}

std::vector<Size> Candidates(Size sensor, Size part) {
    // Pixels around the wanted size. The node cuts whole pixels off both ends several times, and
    // rounds down each time.
    constexpr int kReach = 4;
    std::vector<Size> sizes{sensor};
    for (int i = -kReach; i <= kReach; ++i) {
        const int width = part.width + i;
        const int height = part.height + i;
        for (int j = -kReach; j <= kReach; ++j) {
            sizes.push_back({width, part.height + j});
            sizes.push_back({width, Side(width / AspectOf(sensor)) + j});
            sizes.push_back({Side(height * AspectOf(sensor)) + j, height});
        }
    }
    return sizes;
}

} // namespace

std::optional<AppliedCrop> FindAppliedCrop(Size sensor, Size image, Size part) {
    if (!HasArea(sensor) || !HasArea(image) || !HasArea(part)) {
        return std::nullopt;
    }
    std::optional<AppliedCrop> nearest;
    int distance = 0;
    // Candidates are tried one by one: rounding and the trimming to an aspect ratio have no closed
    // inverse.
    for (const Size size : Candidates(sensor, part)) {
        if (!HasArea(size) || size.width > sensor.width || size.height > sensor.height) {
            continue;
        }
        const ChiRect crop{(sensor.width - size.width) / 2, (sensor.height - size.height) / 2,
                           static_cast<std::uint32_t>(size.width),
                           static_cast<std::uint32_t>(size.height)};
        const Size found = PartOf(sensor, crop, image);
        const int off = std::abs(found.width - part.width) + std::abs(found.height - part.height);
        if (!nearest || off < distance) {
            nearest = {crop, found};
            distance = off;
        }
    }
    return nearest;
}

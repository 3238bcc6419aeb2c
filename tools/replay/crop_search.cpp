#include "tools/replay/crop_search.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

namespace {

double AspectOf(Size size) {
    return static_cast<double>(size.width) / size.height;
}

bool HasArea(Size size) {
    return size.width > 0 && size.height > 0;
}

int Cut(int extent, double fraction) {
    return extent - 2 * static_cast<int>(std::trunc(fraction * extent));
}

// A side that an aspect gives, which may be far larger than any sensor's.
int Side(double length) {
    constexpr double kLongest = 1 << 30;
    return static_cast<int>(std::min(length, kLongest));
}

// What the node makes of a rectangle that it trims to an aspect; its places do not matter here.
void Trim(Size& size, double aspect) {
    constexpr double kTolerance = 0.001;
    if (!HasArea(size)) {
        return;
    }
    const double own = AspectOf(size);
    const double difference = aspect - own;
    if (difference > kTolerance) {
        size.height = Cut(size.height, (1 - own / aspect) * 0.5);
    } else if (difference < kTolerance) {
        size.width = Cut(size.width, (1 - aspect / own) * 0.5);
    }
}

// What the node finds: the sensor shrunk as the crop is to its surroundings, then trimmed.
Size PartOf(Size sensor, const ChiRect& crop, Size image) {
    const Size applied{static_cast<int>(crop.width), static_cast<int>(crop.height)};
    Size part = sensor;
    const bool wider = AspectOf(applied) > AspectOf(part);
    const double inner = wider ? applied.width : applied.height;
    const double full = inner + 2.0 * (wider ? crop.left : crop.top);
    const double fraction = (1 - inner / full) * 0.5;
    part = {Cut(part.width, fraction), Cut(part.height, fraction)};
    Trim(part, AspectOf(applied));
    Trim(part, AspectOf(image)); // once for the crop left to the image, once at the end
    Trim(part, AspectOf(image));
    return part;
}

std::vector<Size> Candidates(Size sensor, Size part) {
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

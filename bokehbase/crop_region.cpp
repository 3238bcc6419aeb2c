#include "bokehbase/crop_region.h"

#include <cmath>
#include <limits>
#include <locale>
#include <sstream>

namespace {

bool HasAspect(const CropRegion& region) {
    return region.width != 0 && region.height != 0;
}

double Aspect(const CropRegion& region) {
    return static_cast<double>(region.width) / static_cast<double>(region.height);
}

bool FitsInt32(std::int64_t value) {
    return value >= std::numeric_limits<std::int32_t>::min() &&
           value <= std::numeric_limits<std::int32_t>::max();
}

// Takes `fraction` of the extent off at both ends. False, with nothing changed, where the result
// cannot be held.
bool CutBothEnds(std::int32_t& start, std::int32_t& extent, double fraction) {
    const double cut = std::trunc(fraction * extent);
    if (!(std::abs(cut) <= std::numeric_limits<std::int32_t>::max())) {
        return false;
    }
    const auto whole = static_cast<std::int64_t>(cut);
    if (!FitsInt32(start + whole) || !FitsInt32(extent - 2 * whole)) {
        return false;
    }
    start = static_cast<std::int32_t>(start + whole);
    extent = static_cast<std::int32_t>(extent - 2 * whole);
    return true;
}

} // namespace

void CropRegion::fit(const CropRegion& other) {
    if (!HasAspect(*this) || !HasAspect(other)) {
        return;
    }
    // One fraction for both axes, taken where `other` is tighter: along its width where it is the
    // relatively wider rectangle, along its height otherwise.
    const double otherAspect = Aspect(other);
    const bool wider = otherAspect > Aspect(*this);
    const std::int64_t part = wider ? other.width : other.height;
    // A crop in the middle of its frame leaves as much on the far side as its offset says.
    const std::int64_t full = part + 2 * static_cast<std::int64_t>(wider ? other.left : other.top);
    if (full == 0) {
        return;
    }
    const double fraction = (1 - static_cast<double>(part) / static_cast<double>(full)) * 0.5;
    CropRegion shrunk = *this;
    if (!CutBothEnds(shrunk.left, shrunk.width, fraction) ||
        !CutBothEnds(shrunk.top, shrunk.height, fraction)) {
        return;
    }
    shrunk.FitToAspect(otherAspect);
    *this = shrunk;
}

void CropRegion::FitToAspect(double aspect) {
    constexpr double kTolerance = 0.001;
    if (!HasAspect(*this) || !std::isfinite(aspect) || aspect == 0) {
        return;
    }
    const double own = Aspect(*this);
    const double difference = aspect - own;
    if (difference > kTolerance) {
        CutBothEnds(top, height, (1 - own / aspect) * 0.5);
    } else if (difference < kTolerance) {
        // Also the case of a slightly too narrow rectangle, which may grow by a pixel at each end.
        CutBothEnds(left, width, (1 - aspect / own) * 0.5);
    }
}

std::string CropRegion::toString() const {
    std::ostringstream text;
    text.imbue(std::locale::classic()); // whatever the process made of its own
    text << "[" << left << "," << top << " " << width << "x" << height << " (" << Aspect(*this)
         << ")]";
    return text.str();
}

CropRegion ShownRegion(const CropRegion& activeArray, const CropRegion& appliedCrop,
                       const CropRegion& residualCrop) {
    CropRegion shown = activeArray;
    shown.fit(appliedCrop);
    shown.fit(residualCrop);
    return shown;
}

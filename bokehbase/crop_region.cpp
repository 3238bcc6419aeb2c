#include "bokehbase/crop_region.h"

#include <cmath>
#include <limits>
#include <locale>
#include <sstream>

#include "bokehbase/log.h"

namespace {

CropRegion FromMetadata(const ChiRect& rect) {
    return {rect.left, rect.top, static_cast<std::int32_t>(rect.width),
            static_cast<std::int32_t>(rect.height)};
}

bool HasArea(const CropRegion& region) {
    return region.width > 0 && region.height > 0;
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

void FitToAspect(CropRegion& region, double aspect) {
    constexpr double kTolerance = 0.001;
    if (!HasArea(region) || !std::isfinite(aspect) || aspect <= 0) {
        return;
    }
    const double own = Aspect(region);
    const double difference = aspect - own;
    if (difference > kTolerance) {
        CutBothEnds(region.top, region.height, (1 - own / aspect) * 0.5);
    } else if (difference < kTolerance) {
        // Also the case of a slightly too narrow rectangle, which may grow by a pixel at each side.
        CutBothEnds(region.left, region.width, (1 - aspect / own) * 0.5);
    }
}

} // namespace

void CropRegion::fit(const CropRegion& other) {
    if (!HasArea(*this) || !HasArea(other)) {
        return;
    }
    const double otherAspect = Aspect(other);
    const bool wider = otherAspect > Aspect(*this);
    const std::int64_t part = wider ? other.width : other.height;
    const std::int64_t full = part + 2 * static_cast<std::int64_t>(wider ? other.left : other.top);
    if (full <= 0) {
        return;
    }
    const double fraction = (1 - static_cast<double>(part) / static_cast<double>(full)) * 0.5;
    CropRegion shrunk = *this;
    if (!CutBothEnds(shrunk.left, shrunk.width, fraction) ||
        !CutBothEnds(shrunk.top, shrunk.height, fraction)) {
        return;
    }
    FitToAspect(shrunk, otherAspect);
    *this = shrunk;
}

std::string CropRegion::toString() const {
    std::ostringstream text;
    text.imbue(std::locale::classic()); // whatever the process made of its own
    text << "[" << left << "," << top << " " << width << "x" << height << " (" << Aspect(*this)
         << ")]";
    return text.str();
}

CropSize getCropRegions(const CameraMetadata* metadata, int targetWidth, int targetHeight) {
    CropRegion scaler = FromMetadata(metadata->scalerCropRegion);
    const CropRegion activeArray = FromMetadata(metadata->activeArraySize);
    const CropRegion sensorApplied = FromMetadata(metadata->sensorAppliedCrop);
    const CropRegion ifeApplied = FromMetadata(metadata->ifeAppliedCrop);
    const CropRegion ifeResidual = FromMetadata(metadata->ifeResidualCrop);

    CropRegion total = activeArray;
    total.fit(ifeApplied);
    total.fit(ifeResidual);
    CropRegion preApplied = total;

    const double target = static_cast<double>(targetWidth) / static_cast<double>(targetHeight);
    FitToAspect(scaler, target);
    FitToAspect(preApplied, target);
    FitToAspect(total, target);

    try {
        BASE_DEBUG("TSL_CTB: %s: %d: ScalerCropRegion: %s, totalCropRegion: %s, "
                   "preAppliedCropRegion: %s, ActiveArraySize: %s,  SensorAppliedCrop: %s, "
                   "IFEAppliedCrop: %s, IFEResidualCrop: %s\n",
                   scaler.toString().c_str(), total.toString().c_str(),
                   preApplied.toString().c_str(), activeArray.toString().c_str(),
                   sensorApplied.toString().c_str(), ifeApplied.toString().c_str(),
                   ifeResidual.toString().c_str());
    } catch (...) {
        // A debug line is not worth a photo.
    }
    return {total.width, total.height};
}

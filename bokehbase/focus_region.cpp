#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>

#include "bokehbase/bokeh_base.h"
#include "bokehbase/log.h"

namespace {

constexpr std::uint32_t kNoFace = 0xFFFFFFFF;

// In main image pixels. Not clipped to the image.
struct MappedRect {
    std::uint32_t x = 0;
    std::uint32_t y = 0;
    std::uint32_t w = 0;
    std::uint32_t h = 0;
};

// Metadata is outside the supported range where these limits bite; they only keep it harmless.
std::int32_t ClampToInt32(std::int64_t value) {
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(
        value, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()));
}

std::uint32_t ClampToUint32(float value) {
    constexpr float kBeyond = 4294967296.0f;
    return value < kBeyond ? static_cast<std::uint32_t>(value)
                           : std::numeric_limits<std::uint32_t>::max();
}

std::uint32_t OffsetFrom(std::int32_t value, std::int32_t reference) {
    const std::int64_t difference = static_cast<std::int64_t>(value) - reference;
    return static_cast<std::uint32_t>(std::max<std::int64_t>(difference, 0));
}

// Scales a sensor rectangle, relative to the reference rectangle, to an image of this size. Nothing
// where one of the three has no area.
std::optional<MappedRect> MapRectToInputData(const ChiRect& source, const ChiRect& reference,
                                             std::int32_t width, std::int32_t height) {
    if (height < 1 || width < 1 || source.width == 0 || source.height == 0 ||
        reference.width == 0 || reference.height == 0) {
        return std::nullopt;
    }
    // Single precision, each product rounded on its own: a replay must give the device's pixels.
    const float scaleX = static_cast<float>(width) / static_cast<float>(reference.width);
    const float scaleY = static_cast<float>(height) / static_cast<float>(reference.height);
    const auto dx = static_cast<float>(OffsetFrom(source.left, reference.left));
    const auto dy = static_cast<float>(OffsetFrom(source.top, reference.top));
    // Starts go to the nearest pixel, sizes are cut, so that no rectangle grows by the mapping.
    const MappedRect mapped = {
        .x = ClampToUint32(std::round(dx * scaleX)),
        .y = ClampToUint32(std::round(dy * scaleY)),
        .w = ClampToUint32(std::floor(static_cast<float>(source.width) * scaleX)),
        .h = ClampToUint32(std::floor(static_cast<float>(source.height) * scaleY)),
    };
    BASE_DEBUG("TSL_CTB: %s: %d: : MapRectToInputData rtSrcRect(l,t,w,h)= "
               "[%d,%d,%d,%d],rtIFERect(l,t,w,h)= [%d,%d,%d,%d], "
               "rtDstRectOnInputData[%d,%d,%d,%d]\n",
               source.left, source.top, source.width, source.height, reference.left, reference.top,
               reference.width, reference.height, mapped.x, mapped.y, mapped.w, mapped.h);
    return mapped;
}

// The extent between two inclusive corners; 0, which no mapping accepts, where they are crossed or
// too far apart for a size.
std::uint32_t Extent(std::int32_t first, std::int32_t last) {
    const std::int64_t extent = static_cast<std::int64_t>(last) - first + 1;
    return extent < 0 || extent > std::numeric_limits<std::uint32_t>::max()
               ? 0
               : static_cast<std::uint32_t>(extent);
}

// The last pixel of an extent. Without any pixel at all the edge stays at the start, never below 0.
std::int32_t InclusiveEdge(std::uint32_t start, std::uint32_t extent) {
    const std::int64_t end = static_cast<std::int64_t>(start) + extent;
    return end == 0 ? 0 : ClampToInt32(end - 1);
}

std::int32_t Middle(std::int32_t first, std::int32_t last) {
    return static_cast<std::int32_t>((static_cast<std::int64_t>(first) + last) / 2);
}

// The engine's orientation code for a rotation in degrees, rounded to quarter turns.
std::int32_t FaceOrientation(std::int32_t rotation) {
    const std::int32_t turn = rotation % 360 + (rotation % 360 < 0 ? 360 : 0);
    return kFaceOrients[(turn + 45) / 90 % 4];
}

// Drops the faces that are too small to be any, in the metadata itself. Returns how many remain.
std::uint32_t FilterFaces(CameraMetadata& camera) {
    constexpr std::uint32_t kSmallestFace = 2;
    const std::uint32_t count = std::min<std::uint32_t>(camera.faceCount, kMaxFaces);
    std::uint32_t removed = 0;
    for (std::uint32_t k = 0; k < count; ++k) {
        ChiRect face = camera.faces[k];
        // Moved before it is judged: a face that stays closes the gap, another is overwritten.
        if (removed > 0) {
            camera.faces[k - removed] = face;
        }
        if (face.width < kSmallestFace || face.height < kSmallestFace) {
            face.width = 0;
            face.height = 0;
            camera.faces[k] = face;
            ++removed;
        }
        BASE_DEBUG_AS("UpdateFocusROIBasedFace",
                      "TSL_CTB: %s: %d: facerect[%d](l,t,w,h)[%d,%d,%d,%d]\n", k, face.left,
                      face.top, face.width, face.height);
    }
    camera.faceCount = static_cast<std::uint8_t>(count - removed);
    return count - removed;
}

struct MappedFaces {
    std::uint32_t largest = kNoFace; // the first of equals
    bool mapped = false;             // false: no face, or no area to map to
};

// Maps the faces into `params`; where that cannot be done, their rectangles are all zero.
MappedFaces MapFaces(const CameraMetadata& camera, const ChiRect& reference, std::uint32_t count,
                     frame_params_t& params) {
    const auto* results = static_cast<const OEMFDResults*>(
        ReadMetadata(params.tagInfo, params.tagInfo.requestId,
                     params.tagInfo.oemFDResultsTagId | kTagPoolRequest));
    const std::int32_t orientation = FaceOrientation(results != nullptr ? results->rotation : 0);

    MappedFaces faces;
    std::uint64_t largestArea = 0;
    for (std::uint32_t j = 0; j < count; ++j) {
        const std::optional<MappedRect> result = MapRectToInputData(
            camera.faces[j], reference, params.stMainImage.i32Width, params.stMainImage.i32Height);
        const MappedRect mapped = result.value_or(MappedRect{});
        faces.mapped = result.has_value();
        params.pFaceRects[j] = {ClampToInt32(mapped.x), ClampToInt32(mapped.y),
                                InclusiveEdge(mapped.x, mapped.w),
                                InclusiveEdge(mapped.y, mapped.h)};
        params.pFaceOrients[j] = orientation;
        const std::uint64_t area = static_cast<std::uint64_t>(mapped.w) * mapped.h;
        if (faces.largest == kNoFace || area > largestArea) {
            faces.largest = j;
            largestArea = area;
        }
    }
    return faces;
}

} // namespace

void ChiNodeBokehBase::UpdateFocusROI(unsigned char cameraIndex, frame_params_t& params) {
    const CameraMetadata& camera = params.pInputMetadata->cameraMetadata[cameraIndex];
    const std::int32_t width = params.stMainImage.i32Width;
    const std::int32_t height = params.stMainImage.i32Height;
    m_rtIFERect = camera.scalerCropRegion;

    const ChiWeightedRegion& focus = camera.focusRect;
    const ChiRect source = {focus.xMin, focus.yMin, Extent(focus.xMin, focus.xMax),
                            Extent(focus.yMin, focus.yMax)};
    const MappedRect mapped =
        MapRectToInputData(source, m_rtIFERect, width, height).value_or(MappedRect{});
    params.ptFocus = {ClampToInt32(static_cast<std::int64_t>(mapped.x) + mapped.w / 2),
                      ClampToInt32(static_cast<std::int64_t>(mapped.y) + mapped.h / 2)};
    // A region that is missing or cannot be mapped comes out at 0.
    if (params.ptFocus.x == 0 || params.ptFocus.y == 0) {
        params.ptFocus = {width / 2, height / 2};
    }
    BASE_DEBUG("TSL_CTB: %s: %d: focus rect(l,t,w,h):[%d,%d,%d,%d], ptFocus:[%d,%d]\n", focus.xMin,
               focus.yMin, focus.xMax, focus.yMax, params.ptFocus.x, params.ptFocus.y);
}

void ChiNodeBokehBase::UpdateFocusROIBasedFace(unsigned char cameraIndex, frame_params_t& params) {
    CameraMetadata& camera = params.pInputMetadata->cameraMetadata[cameraIndex];
    // The pipeline's choice, where it made one.
    const std::uint32_t pool = m_faceIndexTagBare ? 0 : kTagPoolRequest;
    const auto* selected = static_cast<const std::uint32_t*>(ReadMetadata(
        params.tagInfo, params.tagInfo.requestId, params.tagInfo.selectFaceIndexTagId | pool));
    std::uint32_t face = selected != nullptr ? *selected : kNoFace;
    BASE_DEBUG("TSL_CTB: %s: %d: afMode %d, numFaces %d, maxFaceIndex %d\n", camera.afMode,
               camera.faceCount, face);

    // Whoever reads the metadata after the node sees the cleaned list too.
    const std::uint32_t count = FilterFaces(camera);
    if (params.pFaceRects == nullptr || params.pFaceOrients == nullptr) {
        return;
    }
    params.i32FaceNum = static_cast<std::int32_t>(count);
    const MappedFaces faces = MapFaces(camera, m_rtIFERect, count, params);
    // An index that no face has counts as none supplied.
    if (face >= count) {
        face = faces.largest;
    }
    // Unmapped rectangles would draw the point into the corner; it stays where it is.
    if (camera.afMode != kAfModeContinuousPicture || !faces.mapped) {
        return;
    }
    const TSL_RECT& rect = params.pFaceRects[face];
    params.ptFocus = {Middle(rect.left, rect.right), Middle(rect.top, rect.bottom)};
    BASE_DEBUG("TSL_CTB: %s: %d: MaxFaceInfo[Index:%d]: (l,t,r,b)[%d,%d,%d,%d], Angles: %d, "
               "ptFocus:[%d,%d]\n",
               face, rect.left, rect.top, rect.right, rect.bottom, params.pFaceOrients[face],
               params.ptFocus.x, params.ptFocus.y);
}

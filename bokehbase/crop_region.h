#pragma once

#include <cstdint>
#include <string>

#include "platform/chi_metadata.h"

// An integer rectangle in sensor pixels. Its aspect ratio is width / height, in double precision.
//
// A rectangle without area has no aspect ratio to work with: as the one to change it stays as it
// is, as the other one it changes nothing. The same holds where a result would leave the 32-bit
// range.
struct CropRegion {
    std::int32_t left = 0;
    std::int32_t top = 0;
    std::int32_t width = 0;
    std::int32_t height = 0;

    // Shrinks both axes by the fraction that other's own offsets cut from other's full extent, then
    // trims to other's aspect ratio.
    void fit(const CropRegion& other);

    // As "[left,top widthxheight (aspect)]". Allocates.
    std::string toString() const;
};

struct CropSize {
    std::int32_t width;
    std::int32_t height;
};

// Size of the part of the sensor that the camera's image shows, in sensor pixels before any
// scaling: the active array, less what was cropped, trimmed to the aspect ratio of the image that
// the camera delivers (targetWidth x targetHeight pixels).
CropSize getCropRegions(const CameraMetadata* metadata, int targetWidth, int targetHeight);

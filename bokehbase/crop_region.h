#pragma once

#include <cstdint>
#include <string>

// Integer arithmetic of a camera's crops. Includes nothing of the node or the platform: whoever
// asks which crops give a certain result, as a replay does, links this very code.
//
// All functions are pure and may run on any thread. Extents are signed; a rectangle whose width or
// height is 0 has no aspect ratio to work with, so it stays as it is and changes no other one. The
// same holds where a result would leave the 32-bit range.

// A rectangle in sensor pixels. Its aspect ratio is width / height, in double precision.
struct CropRegion {
    std::int32_t left = 0;
    std::int32_t top = 0;
    std::int32_t width = 0;
    std::int32_t height = 0;

    // Shrinks both axes by the fraction that other's own offsets cut from other's full extent, then
    // trims to other's aspect ratio.
    void fit(const CropRegion& other);

    // Takes the same number of pixels off both ends of one axis, so that width / height comes as
    // close to `aspect` as whole pixels allow. A ratio within 0.001 below it is left alone, but for
    // a pixel that each end of the width may gain.
    void FitToAspect(double aspect);

    // As "[left,top widthxheight (aspect)]". Allocates; may throw std::bad_alloc.
    std::string toString() const;
};

// The part of the sensor that an image shows, before any scaling: the active array, less the crop
// that the front end applied and the crop that was left to it.
CropRegion ShownRegion(const CropRegion& activeArray, const CropRegion& appliedCrop,
                       const CropRegion& residualCrop);

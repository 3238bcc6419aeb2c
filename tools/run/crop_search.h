#pragma once

#include <optional>

#include "host/picture/geometry.h"
#include "platform/chi_metadata.h"

struct AppliedCrop {
    ChiRect crop;
    Size part; // of the sensor, as the node computes it from the crop
};

// Inverts the node's crop arithmetic: returns the centred front-end crop from which the node would
// compute that an image of this size shows `part` of the sensor, in sensor pixels. If no crop gives
// exactly that part, returns the one that comes nearest; nothing if a size has no area.
//
// The node fits the sensor's rectangle to the crop and trims it to the image's aspect ratio. The
// candidates are all sizes within a few pixels of `part`, and the sizes that the sensor's aspect
// ratio gives for each of its sides.
std::optional<AppliedCrop> FindAppliedCrop(Size sensor, Size image, Size part);

#pragma once

#include <optional>

#include "host/picture/geometry.h"
#include "platform/chi_metadata.h"

struct AppliedCrop {
    ChiRect crop;
    Size part; // what the node finds of it
};

// The crop that the camera's front end must have applied for the node to find that an image of this
// size shows `part` of a sensor of this size, whole pixels before any scaling; the centred crop
// that comes nearest where none gives it, nothing for sizes without area.
//
// The node fits the sensor's rectangle to that crop and then trims it to the image's aspect. What
// is tried is all near `part`, and what the sensor's own aspect makes of its sides.
std::optional<AppliedCrop> FindAppliedCrop(Size sensor, Size image, Size part);

#pragma once

#include <optional>

#include "platform/chi_metadata.h"
#include "tools/render_options.h"

// The crop that the camera's front end must have applied for the node to find that an image of this
// size shows `part` of a sensor of this size, whole pixels before any scaling; nothing where no
// centred crop gives it.
//
// The node fits the sensor's rectangle to that crop and then trims it to the image's aspect. What
// is tried is all near `part`, and what the sensor's own aspect makes of its sides.
std::optional<ChiRect> FindAppliedCrop(Size sensor, Size image, Size part);

#pragma once

#include "host/refocus/defocus_fields.h"

namespace refocus {

// Restores an estimate of the light above white that clipping removed from lamps and reflections,
// without which their discs would be dim and grey. Only clipped spots in dark surroundings are
// raised, because a sky, a white wall or a cloth is hardly brighter than white. A spot takes the
// hue of its rim, where the sensor was not saturated.
void RestoreHighlights(DefocusField& field);

} // namespace refocus

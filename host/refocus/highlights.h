#pragma once

#include "host/refocus/defocus_fields.h"

namespace refocus {

// Gives lamps and glints back the light that the picture's white level cut off, without which their
// discs would be dim and grey. Only bright spots in dark surroundings are lifted: a sky, a white
// wall or a cloth is no brighter than it looks. A lifted spot takes the hue of its rim, where the
// sensor was not yet full.
void RestoreHighlights(DefocusField& field);

} // namespace refocus

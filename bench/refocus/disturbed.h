#pragma once

#include <ostream>

namespace quality {

// What the engine makes of pairs that are not what their calibration says: 15 disturbances of each
// of 18 random scenes. Prints for each disturbance how many pairs were rendered, how many of those
// are wild, and how many were refused with which error. A wild picture is visibly blurred (by more
// than 8 levels) in more than a quarter of what its scene has in focus. Returns their number.
int PrintDisturbedPairs(std::ostream& out);

} // namespace quality

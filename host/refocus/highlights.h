#pragma once

#include "host/refocus/defocus_fields.h"

namespace refocus {

constexpr int kClippedLuma = 245; // code value from which a pixel counts as overexposed

// The disparity map (CV_8UC1) in which the bright pixels around clipped ones have their disparity,
// if that is nearer. A pixel on a highlight's rim shows more of the background, but nearly all its
// light is the highlight's: with the background's disparity a bright ring would remain around a
// blurred highlight.
cv::Mat WithWholeHighlights(const cv::Mat& luma, const cv::Mat& map);

// Restores an estimate of the light above white that clipping removed from highlights and
// reflections, without which their discs would be dim and grey. Only clipped spots in dark
// surroundings are raised, because a sky, a white wall or a cloth is hardly brighter than white. A
// spot takes the hue of its rim, where the sensor was not saturated.
void RestoreHighlights(DefocusField& field);

} // namespace refocus

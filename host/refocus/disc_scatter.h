#pragma once

#include <opencv2/core.hpp>

#include "host/refocus/defocus_fields.h"

namespace refocus {

// A field after every cell's light was spread over its disc.
struct BlurredField {
    cv::Mat light; // CV_32FC3, linear RGB, normalised by cover; 0 where cover is 0
    cv::Mat cover; // CV_32FC1, 0 to 1: how much of what lies behind is hidden
};

// Spreads each cell evenly over a disc of its radius, so that light is kept (scattering, as in
// Potmesil and Chakravarty, "A Lens and Aperture Camera Model for Synthetic Image Generation",
// 1981). Cells are layered by their order and the layers combined from near to far: each takes what
// the nearer ones left uncovered, so that a far disc never reaches over a nearer object. Cells
// beyond the border count as copies of the border's.
//
// The same bytes whatever the number of threads.
BlurredField ScatterDiscs(const DefocusField& field);

} // namespace refocus

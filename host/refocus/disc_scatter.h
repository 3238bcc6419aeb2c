#pragma once

#include <opencv2/core.hpp>

#include "host/refocus/defocus_fields.h"

namespace refocus {

// A field whose cells are spread over their discs.
struct BlurredField {
    cv::Mat light; // CV_32FC3, linear RGB, normalised by cover; 0 where cover is 0
    cv::Mat cover; // CV_32FC1, opacity, 0 to 1
};

// Spreads the light of each cell evenly over a disc of its radius, which preserves its sum
// (Potmesil and Chakravarty, "A Lens and Aperture Camera Model for Synthetic Image Generation",
// 1981). Cells are grouped into layers by their order. Layers are composited from near to far, each
// into what the nearer ones leave uncovered, so that a far disc never extends over a nearer object.
// The picture is mirrored beyond its border.
//
// The same bytes for any number of threads.
BlurredField ScatterDiscs(const DefocusField& field);

} // namespace refocus

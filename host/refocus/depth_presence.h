#pragma once

#include <opencv2/core.hpp>

#include "host/refocus/stereo_matching.h"

namespace refocus {

struct DepthPresence {
    double texturedShare = 0.0;   // pixels with structure to match, of all
    double consistentShare = 0.0; // of those, the ones both views agree on
    double range = 0.0; // pixels, between the 1st and 99th percentile of their disparities
};

// What a match tells about depth. `left` is the image that was matched, CV_8UC1.
DepthPresence MeasureDepthPresence(const cv::Mat& left, const Matches& matches);

// False for a pair to refuse: flat or black (no structure), unrelated (no agreement), or identical
// or flat in depth (no range).
bool HasDepth(const DepthPresence& presence);

} // namespace refocus

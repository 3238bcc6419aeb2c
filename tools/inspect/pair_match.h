#pragma once

#include <opencv2/core.hpp>

#include <array>
#include <vector>

#include "host/picture/image.h"

// How two small grey pictures of one scene go together, places by places.

// Small enough to search, large enough to tell: about 160 pixels on the longer side.
cv::Mat SmallLuma(const host::Image& image);

// U and V, CV_32FC1 each, at most 64 pixels on the longer side.
std::array<cv::Mat, 2> SmallChroma(const host::Image& image);

struct PlaceMatch {
    cv::Point at;        // middle of the place in the first picture
    cv::Point offset;    // of its best match in the second
    double likeness = 0; // normalised correlation, 1 for the same
};

// The best match of each place with structure; the second picture is brought to the first one's
// size before.
std::vector<PlaceMatch> MatchPlaces(const cv::Mat& first, const cv::Mat& second);

// How the places lie together: those of one scene move along one line, the direction in which the
// cameras stand apart, and stand still across it; of two scenes they match anywhere.
struct Fit {
    double together = 0; // share of the places that stand still across the line
    double aside = 0;    // how far they all stand across it, as a share of the picture's side
    std::size_t places = 0;
};

Fit FitOf(const std::vector<PlaceMatch>& matches, cv::Size size);

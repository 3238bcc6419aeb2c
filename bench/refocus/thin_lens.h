#pragma once

#include <opencv2/core.hpp>

#include "bench/refocus/scene.h"
#include "host/picture/rgb_image.h"

namespace quality {

// A lens that looks at a scene: it averages the views from all points of its disc, after Cook et
// al., "Distributed Ray Tracing", 1984. Seen from a point of the disc, what has disparity d moves
// by that point's place times radiusPerDisparity * (d - focus).
struct ThinLens {
    float radiusPerDisparity = 0.0f; // 0: a pinhole
    float focus = 0.0f;              // disparity, in widths
    int samples = 64;                // views, each also from another place within a pixel
};

// All in linear light, which ends encoded (sRGB) and clipped. The same bytes whatever the number of
// threads.
RgbImage Trace(const Scene& scene, cv::Size size, const ThinLens& lens);

// What a pinhole beside the main camera sees: each disparity moved left by itself.
RgbImage TraceAux(const Scene& scene, cv::Size size, int samples);

// Disparity in pixels (CV_32FC1) of what lies at each pixel's middle.
cv::Mat ExactDisparity(const Scene& scene, cv::Size size);

// Adds what a sensor adds: whole code values from -2 to 2, each as often.
void AddNoise(RgbImage& picture, unsigned seed);

} // namespace quality

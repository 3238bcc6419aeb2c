#pragma once

#include <opencv2/core.hpp>

#include "bench/refocus/scene.h"
#include "host/picture/rgb_image.h"

namespace quality {

// A thin lens averages the views from all points of its aperture (Cook et al., "Distributed Ray
// Tracing", 1984). From a point of the unit disc, a point of the scene with disparity d appears
// moved by that point times radiusPerDisparity * (d - focus).
struct ThinLens {
    float radiusPerDisparity = 0.0f; // 0: a pinhole
    float focus = 0.0f;              // disparity, in widths
    int samples = 64;                // views, each at another position within the pixels
};

// The scene through the lens, averaged in linear light, clipped and encoded as sRGB. The same bytes
// for any number of threads.
RgbImage Trace(const Scene& scene, cv::Size size, const ThinLens& lens);

// The view of a pinhole camera to the right of the main one: each point moved left by its
// disparity.
RgbImage TraceAux(const Scene& scene, cv::Size size, int samples);

// Disparity in pixels (CV_32FC1) at each pixel's centre.
cv::Mat ExactDisparity(const Scene& scene, cv::Size size);

// Adds uniformly distributed sensor noise of -most to most code values.
void AddNoise(RgbImage& picture, int most, unsigned seed);

} // namespace quality

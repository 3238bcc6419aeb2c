#pragma once

#include <opencv2/core.hpp>

#include "host/refocus/calibration.h"
#include "host/refocus/disparity_map.h"
#include "host/refocus/error.h"
#include "host/refocus/image.h"
#include "host/refocus/rectification.h"

namespace refocus {

// A picture's depth as the engine returns it.
struct DepthMap {
    cv::Mat bytes; // CV_8UC1, main image height x main image pitch; 0 beyond the width
    cv::Size size; // of the main image
    DisparityScale scale;
};

// All steps from the main image and the aux luma plane (CV_8UC1, any size) to the main disparity
// map: reduction, rectification, alignment, matching, filling, refinement of edges, smoothing of
// surfaces, upsampling. Returns kNone, kCalibrationGeometry, or kNoDepth or one of its reasons;
// `depth` is written only on success.
Error EstimateDepth(
    const Nv12View& mainImage, const cv::Mat& auxLuma, const Calibration& calibration,
    const ImageGeometry& geometry, int mainPitch, DepthMap& depth,
    const StepListener& done = [](const char*) {});

} // namespace refocus

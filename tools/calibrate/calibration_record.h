#pragma once

#include <opencv2/core.hpp>

#include <filesystem>

#include "host/picture/geometry.h"
#include "host/refocus/calibration.h"

// OpenCV's numbers of one camera.
struct LensMatrices {
    cv::Mat camera;     // 3x3
    cv::Mat distortion; // k1, k2, p1, p2 and up to four more: k3 to k6
};

// The engine's record of OpenCV's numbers, translation in mm. Throws UseError where the engine
// cannot take them.
refocus::Calibration RecordOf(const LensMatrices& main, Size mainSize, const LensMatrices& aux,
                              Size auxSize, const cv::Mat& rotation, const cv::Mat& translation);

// From the two files that OpenCV's stereo calibration writes: M1, D1, M2, D2 and R, T. `unit`: mm
// to a unit of T. Throws UseError.
refocus::Calibration ReadOpenCvFiles(const std::filesystem::path& intrinsics,
                                     const std::filesystem::path& extrinsics, Size mainSize,
                                     Size auxSize, double unit);

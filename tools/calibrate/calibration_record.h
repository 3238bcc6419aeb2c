#pragma once

#include <opencv2/core.hpp>

#include <filesystem>
#include <string>

#include <nlohmann/json_fwd.hpp>

#include "host/picture/geometry.h"
#include "host/refocus/calibration.h"

// The engine's calibration record: made from OpenCV's numbers, and shown.

// OpenCV's numbers of one camera.
struct LensMatrices {
    cv::Mat camera;     // 3x3
    cv::Mat distortion; // k1, k2, p1, p2 and up to four more: k3 to k6
};

// The record of these numbers, with the translation in mm; mount angle and nearest distance are
// left 0. Throws UseError if the engine does not accept them.
refocus::Calibration RecordOf(const LensMatrices& main, Size mainSize, const LensMatrices& aux,
                              Size auxSize, const cv::Mat& rotation, const cv::Mat& translation);

// The same from the two files that OpenCV's stereo calibration writes: M1, D1, M2, D2 and R, T.
// `unit`: mm for a unit of T. Throws UseError.
refocus::Calibration ReadOpenCvFiles(const std::filesystem::path& intrinsics,
                                     const std::filesystem::path& extrinsics, Size mainSize,
                                     Size auxSize, double unit);

// The distance in mm from which on the stand-in engine finds objects, if the record does not give
// a nearest one.
double NearestSearched(const refocus::Calibration& calibration);

// The calibration for a reader, and as JSON.
std::string ToText(const refocus::Calibration& calibration);
nlohmann::ordered_json ToJson(const refocus::Calibration& calibration);

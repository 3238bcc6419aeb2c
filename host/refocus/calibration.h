#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "engine/refocus_engine.h"
#include "host/refocus/error.h"
#include "platform/device_names.h"

// Calibration of the camera pair and its file.
//
// The file is kCalibrationBytes long, little-endian, doubles as IEEE 754 binary64:
//
//   offset  type
//        0  8 bytes     magic "RFCALIB2" (two cameras)
//        8  u32         version, 1
//       12  u32         0, ignored
//       16  camera      main camera, 104 bytes
//      120  camera      aux camera
//      224  f64 [9]     rotation, row by row
//      296  f64 [3]     translation, mm
//      320  i32         mount angle, degrees
//      324  u32         0, ignored
//      328  f64         nearest distance, mm; 0 if unknown
//      336  zeros
//     2044  u32         CRC-32 (polynomial 0xEDB88320 reflected) of all bytes before it
//
//   camera:
//        0  i32, i32    width, height in hundredths of a pixel
//        8  f64 [4]     fx, fy, cx, cy in pixels
//       40  f64 [6]     radial distortion k1 to k6 (rational model, k4 to k6 in the denominator)
//       88  f64 [2]     tangential distortion p1, p2
//
// Pixel (0, 0) has its centre at (0, 0). Axes are x right, y down, z into the scene. A point Xm of
// the main camera's frame is Xa = rotation * Xm + translation in the aux camera's, so that an aux
// camera to the right of the main one has a negative translation in x.
//
// Functions here are pure and may run on any thread.
namespace refocus {

constexpr std::size_t kCalibrationBytes = device::kCalibrationFileSize;

// The field order of this record and the next is the file's.
struct CameraCalibration {
    std::int32_t width = 0;  // hundredths of a pixel
    std::int32_t height = 0; // hundredths of a pixel
    double fx = 0.0;
    double fy = 0.0;
    double cx = 0.0;
    double cy = 0.0;
    std::array<double, 6> k{};
    std::array<double, 2> p{};

    bool operator==(const CameraCalibration&) const = default;
};

struct Calibration {
    CameraCalibration main;
    CameraCalibration aux;
    std::array<double, 9> rotation{1, 0, 0, 0, 1, 0, 0, 0, 1};
    std::array<double, 3> translation{}; // mm
    // The image degree that a device reports for images in the orientation of this calibration:
    // 0, 90, 180 or 270.
    std::int32_t mountAngle = 0;
    std::uint32_t reserved = 0;
    double nearestDistance = 0.0; // mm; bounds the disparity search, 0 lets the engine choose

    bool operator==(const Calibration&) const = default;
};

// kNone, or kCalibrationValues where a value is not finite or impossible for a pair of cameras.
Error ValidateCalibration(const Calibration& calibration);

// Reads a file's bytes and validates them; `calibration` is written only on success.
Error ParseCalibration(std::span<const std::uint8_t> bytes, Calibration& calibration);

// The bytes of a calibration's file. Does not validate, so that tests can write invalid ones.
std::array<std::uint8_t, kCalibrationBytes> WriteCalibration(const Calibration& calibration);

// A pair that needs no rectification: rows of both images correspond, both show the same field of
// view (the aux image may have another size), and neither lens distorts.
struct RectifiedPair {
    int mainWidth = 0; // pixels
    int mainHeight = 0;
    int auxWidth = 0;
    int auxHeight = 0;
    double focalLength = 0.0;     // main image pixels
    double baseline = 0.0;        // mm; positive: aux camera to the right of the main one
    double nearestDistance = 0.0; // mm; 0 if unknown
};

Calibration CalibrationOfRectifiedPair(const RectifiedPair& pair);

} // namespace refocus

#pragma once

// The dual-camera calibration file. Its bytes are the engine's; the node only moves them.

constexpr int kCalibrationFileSize = 2048;

// In the order in which they are tried: the device's own, written at the factory, then the one that
// all devices of the model share.
constexpr const char* kCalibrationPaths[] = {
    "/mnt/vendor/persist/camera/dualcam_cali.bin",
    "/vendor/etc/camera/dualcam_cali.bin",
};

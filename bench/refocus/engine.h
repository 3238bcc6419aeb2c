#pragma once

#include <string>

#include <opencv2/core.hpp>

#include "engine/refocus_engine.h"
#include "host/picture/image.h"
#include "host/refocus/calibration.h"
#include "host/refocus/image.h"

namespace quality {

// A photo of two identical, rectified cameras.
struct StereoPair {
    host::Image main;
    host::Image aux; // of the camera to the right of the main one

    cv::Size size() const { return {main.width(), main.height()}; }
};

// The luma plane (CV_8UC1), sharing the image's pixels.
cv::Mat LumaOf(const host::Image& image);

// The image as the engine's steps take it, sharing its pixels.
refocus::Nv12View ViewOf(const host::Image& image);

// One instance of the engine, calibrated for identical, rectified cameras. Throws
// std::runtime_error with the engine's words where a call fails.
class Engine {
public:
    explicit Engine(cv::Size size);
    ~Engine();
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    void Estimate(StereoPair& pair, TSL_DCR_FOCUSPARAM focus);
    // The disparity data of the pair, as many bytes as the main image's luma plane.
    void Fetch(cv::Mat& data);
    void Render(StereoPair& pair, const cv::Mat& data, TSL_DCR_FOCUSPARAM focus, int blurLevel,
                host::Image& output);

private:
    void* handle_ = nullptr;
};

TSL_DCR_FOCUSPARAM FocusAt(cv::Point point);

// The calibration of identical, rectified cameras of this image size.
refocus::Calibration CalibrationFor(cv::Size size);

// The engine's disparity for the pair, in main image pixels (CV_32FC1). The engine's functions
// return bytes; their scale comes from its steps. Throws std::runtime_error that begins with `name`
// where a call fails or the two differ in a byte.
cv::Mat EstimatedDisparity(StereoPair& pair, const std::string& name);

} // namespace quality

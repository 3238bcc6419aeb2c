#include "bench/refocus/engine.h"

#include <stdexcept>

#include <fmt/format.h>

#include "host/refocus/depth_estimator.h"
#include "host/refocus/error.h"

namespace quality {
namespace {

void Check(std::int64_t result, const char* call) {
    if (result != 0) {
        const refocus::ErrorText text = refocus::Describe(result);
        throw std::runtime_error(fmt::format("{}: {}: {}", call, text.name, text.sentence));
    }
}

// The image as the engine takes it; shares its pixels.
PLIM_OFFSCREEN DescriptorOf(host::Image& image) {
    PLIM_OFFSCREEN descriptor{};
    descriptor.u32Format = PLIM_PAF_NV12;
    descriptor.i32Width = image.width();
    descriptor.i32Height = image.height();
    for (int plane = 0; plane < 2; ++plane) {
        descriptor.pu8Plane[plane] = image.plane(plane);
        descriptor.i32Pitch[plane] = image.pitch();
    }
    return descriptor;
}

cv::Mat Estimated(StereoPair& pair) {
    const cv::Size size = pair.size();
    Engine engine(size);
    engine.Estimate(pair, FocusAt({size.width / 2, size.height / 2}));
    cv::Mat data(size.height, pair.main.pitch(), CV_8UC1);
    engine.Fetch(data);

    refocus::DepthMap depth;
    Check(
        refocus::Result(refocus::EstimateDepth(ViewOf(pair.main), LumaOf(pair.aux),
                                               CalibrationFor(size), {}, pair.main.pitch(), depth)),
        "EstimateDepth");
    if (cv::norm(data, depth.bytes, cv::NORM_INF) != 0.0) {
        throw std::runtime_error("the engine's functions and its steps differ in disparity");
    }
    cv::Mat disparity;
    depth.bytes.colRange(0, size.width)
        .convertTo(disparity, CV_32F, depth.scale.step, depth.scale.offset);
    return disparity;
}

} // namespace

refocus::Calibration CalibrationFor(cv::Size size) {
    // Focal length and baseline don't affect disparities in pixels; these are a phone's.
    return refocus::CalibrationOfRectifiedPair(
        {size.width, size.height, size.width, size.height, 0.8 * size.width, 12.0, 0.0});
}

cv::Mat LumaOf(const host::Image& image) {
    return {image.height(), image.width(), CV_8UC1, const_cast<std::uint8_t*>(image.plane(0)),
            static_cast<std::size_t>(image.pitch())};
}

refocus::Nv12View ViewOf(const host::Image& image) {
    const auto pitch = static_cast<std::size_t>(image.pitch());
    return {LumaOf(image),
            {image.height() / 2, image.width() / 2, CV_8UC2,
             const_cast<std::uint8_t*>(image.plane(1)), pitch}};
}

Engine::Engine(cv::Size size) {
    auto bytes = refocus::WriteCalibration(CalibrationFor(size));
    TSL_DCR_CALDATA data{bytes.data(), static_cast<std::int32_t>(bytes.size()), 0};
    Check(TSL_DCIR_Init(&handle_, kEngineModeCapture), "Init");
    Check(TSL_DCIR_SetCaliData(handle_, &data), "SetCaliData");
}

Engine::~Engine() {
    TSL_DCIR_Uninit(&handle_);
}

void Engine::Estimate(StereoPair& pair, TSL_DCR_FOCUSPARAM focus) {
    PLIM_OFFSCREEN main = DescriptorOf(pair.main);
    PLIM_OFFSCREEN aux = DescriptorOf(pair.aux);
    Check(TSL_DCIR_CalcDisparityData(handle_, &main, &aux, &focus), "CalcDisparityData");
}

void Engine::Fetch(cv::Mat& data) {
    auto size = static_cast<std::int32_t>(data.total());
    Check(TSL_DCIR_GetDisparityData(handle_, data.data, &size), "GetDisparityData");
}

void Engine::Render(StereoPair& pair, const cv::Mat& data, TSL_DCR_FOCUSPARAM focus, int blurLevel,
                    host::Image& output) {
    PLIM_OFFSCREEN main = DescriptorOf(pair.main);
    PLIM_OFFSCREEN target = DescriptorOf(output);
    TSL_DCR_BLURPARAM blur{blurLevel};
    Check(TSL_DCIR_Process(handle_, &main, data.data, static_cast<std::int32_t>(data.total()),
                           &blur, &focus, &target),
          "Process");
}

TSL_DCR_FOCUSPARAM FocusAt(cv::Point point) {
    TSL_DCR_FOCUSPARAM focus{};
    focus.ptFocus = {point.x, point.y};
    return focus;
}

cv::Mat EstimatedDisparity(StereoPair& pair, const std::string& name) {
    try {
        return Estimated(pair);
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(fmt::format("{}: {}", name, error.what()));
    }
}

} // namespace quality

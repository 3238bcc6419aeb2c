#include "bench/refocus/cost.h"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <limits>
#include <stdexcept>
#include <string>

#include <malloc.h>

#include <fmt/format.h>
#include <opencv2/imgproc.hpp>

#include "bench/refocus/engine.h"
#include "bench/refocus/scene.h"
#include "bench/refocus/thin_lens.h"
#include "host/picture/nv12.h"

namespace quality {
namespace {

constexpr int kBlurLevel = 100;
constexpr double kSigma = 30.0;

RgbImage Enlarged(const RgbImage& picture, cv::Size size, unsigned seed) {
    RgbImage result(size.width, size.height);
    const cv::Mat from(picture.height, picture.width, CV_8UC3,
                       const_cast<std::uint8_t*>(picture.bytes.data()));
    cv::Mat to(size, CV_8UC3, result.bytes.data());
    cv::resize(from, to, size, 0, 0, cv::INTER_CUBIC);
    AddNoise(result, 2, seed);
    return result;
}

// A synthetic scene, traced small and enlarged: the engine's time does not depend on detail.
StereoPair PairOf(cv::Size size) {
    constexpr int kTracedWidth = 800;
    constexpr int kSamples = 16;
    const cv::Size traced(kTracedWidth, kTracedWidth * size.height / size.width);
    const Scene scene = RandomScene(1, kTracedWidth);
    return {RgbToNv12(Enlarged(Trace(scene, traced, {0.0f, 0.0f, kSamples}), size, 1), 0),
            RgbToNv12(Enlarged(TraceAux(scene, traced, kSamples), size, 2), 0)};
}

// The buffers of one picture, as the engine's caller holds them, and the engine.
class Capture {
public:
    explicit Capture(cv::Size size)
        : pair_(PairOf(size)),
          output_(host::Image::Format::Nv12, size.width, size.height, size.width),
          disparity_(cv::Mat::zeros(size, CV_8UC1)), engine_(size),
          focus_(FocusAt({size.width / 2, size.height / 2})) {}

    void Take() {
        engine_.Estimate(pair_, focus_);
        engine_.Fetch(disparity_);
        engine_.Render(pair_, disparity_, focus_, kBlurLevel, output_);
    }

private:
    StereoPair pair_;
    host::Image output_;
    cv::Mat disparity_;
    Engine engine_;
    TSL_DCR_FOCUSPARAM focus_;
};

template <typename Work>
double Milliseconds(Work work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
        .count();
}

double Median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

std::string SizeName(cv::Size size) {
    return fmt::format("{:.0f} megapixels", size.area() / 1e6);
}

// A field of /proc/self/status, in kilobytes.
double StatusKilobytes(const std::string& name) {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        if (word == name + ":") {
            double value = 0.0;
            status >> value;
            return value;
        }
        status.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    }
    throw std::runtime_error(fmt::format("/proc/self/status has no {}", name));
}

} // namespace

Row MemoryRow(cv::Size size) {
    Capture({640, 480}).Take(); // starts the threads and loads the code that all pictures share
    Capture capture(size);
    malloc_trim(0);
    std::ofstream("/proc/self/clear_refs") << 5; // resets the recorded peak
    const double before = StatusKilobytes("VmRSS");
    if (StatusKilobytes("VmHWM") > before + 4096) {
        throw std::runtime_error("this system does not reset a process' peak of memory");
    }
    capture.Take();
    return {fmt::format("Peak memory, {}", SizeName(size)),
            (StatusKilobytes("VmHWM") - before) / 1000.0,
            "MB",
            fmt::format("one NV12 image of the size {:.0f} MB", size.area() * 1.5 / 1e6),
            Row::Better::kLess,
            150.0,
            100.0};
}

Row TimeRow(cv::Size size) {
    constexpr int kRuns = 7;
    Capture capture(size);
    cv::Mat frame(size, CV_8UC3);
    cv::randu(frame, 0, 256);
    cv::Mat blurred;
    const auto blur = [&] { cv::GaussianBlur(frame, blurred, {}, kSigma); };
    capture.Take();
    blur();
    std::vector<double> engine;
    std::vector<double> gaussian;
    std::vector<double> ratio;
    for (int i = 0; i < kRuns; ++i) {
        engine.push_back(Milliseconds([&] { capture.Take(); }));
        gaussian.push_back(Milliseconds(blur));
        ratio.push_back(engine.back() / gaussian.back());
    }
    return {
        fmt::format("One picture, {}, {} threads", SizeName(size), cv::getNumThreads()),
        Median(ratio),
        "x",
        fmt::format("engine {:.0f} ms, GaussianBlur {:.0f} ms", Median(engine), Median(gaussian)),
        Row::Better::kLess,
        0.6,
        0.4};
}

} // namespace quality

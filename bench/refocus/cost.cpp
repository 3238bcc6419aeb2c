#include "bench/refocus/cost.h"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <malloc.h>

#include <fmt/ostream.h>
#include <opencv2/imgproc.hpp>

#include "bench/refocus/engine.h"
#include "bench/refocus/scene.h"
#include "bench/refocus/thin_lens.h"
#include "host/picture/nv12.h"
#include "host/refocus/depth_estimator.h"
#include "host/refocus/renderer.h"

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

using StepTimes = std::vector<std::pair<std::string, double>>; // milliseconds, in their order

// The medians of several pictures, and their sum.
StepTimes TimeSteps(cv::Size size) {
    constexpr int kRuns = 5;
    const StereoPair pair = PairOf(size);
    const refocus::Nv12View main = ViewOf(pair.main);
    host::Image output = pair.main;
    refocus::Nv12View target = ViewOf(output);
    std::vector<std::vector<double>> times;
    StepTimes result;
    for (int run = 0; run < kRuns; ++run) {
        std::size_t step = 0;
        auto start = std::chrono::steady_clock::now();
        const auto done = [&](const char* name) {
            if (run == 0) {
                result.emplace_back(name, 0.0);
                times.emplace_back();
            }
            const auto now = std::chrono::steady_clock::now();
            times.at(step++).push_back(
                std::chrono::duration<double, std::milli>(now - start).count());
            start = now;
        };
        refocus::DepthMap depth;
        refocus::EstimateDepth(main, LumaOf(pair.aux), CalibrationFor(size), {}, size.width, depth,
                               done);
        const auto focus =
            refocus::FocusRangeOf(depth.bytes, FocusAt({size.width / 2, size.height / 2}));
        refocus::RenderBokeh(main, depth.bytes, depth.scale, focus, kBlurLevel, target, done);
    }
    double sum = 0.0;
    for (std::size_t step = 0; step < result.size(); ++step) {
        sum += result[step].second = Median(times[step]);
    }
    result.emplace_back("all", sum);
    return result;
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

void PrintStepTimes(std::ostream& out) {
    std::vector<StepTimes> columns;
    fmt::print(out, "{:<26}", "milliseconds");
    for (const int side : {2000, 4000, 8000}) {
        for (const int threads : {1, 2}) {
            const cv::Size size(side, side * 3 / 4);
            fmt::print(out, "{:>11.0f} MP x{}", size.area() / 1e6, threads);
            cv::setNumThreads(threads);
            columns.push_back(TimeSteps(size));
        }
    }
    for (std::size_t step = 0; step < columns.front().size(); ++step) {
        fmt::print(out, "\n{:<26}", columns.front()[step].first);
        for (const StepTimes& column : columns) {
            fmt::print(out, "{:>16.1f}", column.at(step).second);
        }
    }
    fmt::print(out, "\n");
}

} // namespace quality

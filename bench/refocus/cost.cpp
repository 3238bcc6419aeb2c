#include "bench/refocus/cost.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <fstream>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>

#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <opencv2/imgproc.hpp>

#include "bench/refocus/estimation.h"
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
    AddNoise(result, seed);
    return result;
}

// A made-up scene, traced small and enlarged: how long its pixels take doesn't depend on detail.
StereoPair PairOf(cv::Size size) {
    constexpr int kTracedWidth = 800;
    constexpr int kSamples = 16;
    const cv::Size traced(kTracedWidth, kTracedWidth * size.height / size.width);
    const Scene scene = MakeScene(0, kTracedWidth);
    return {RgbToNv12(Enlarged(Trace(scene, traced, {0.0f, 0.0f, kSamples}), size, 1), 0),
            RgbToNv12(Enlarged(TraceAux(scene, traced, kSamples), size, 2), 0)};
}

// One picture's buffers, as a caller has them, and the engine.
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
    return Number(size.area() / 1e6, "", 0) + " megapixels";
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
    return {"One picture, " + SizeName(size) + ", " + std::to_string(cv::getNumThreads()) +
                " threads",
            Median(ratio),
            "x",
            "engine " + Number(Median(engine), "ms", 0) + ", GaussianBlur " +
                Number(Median(gaussian), "ms", 0),
            Row::Better::kLess,
            1.2,
            0.6};
}

// A line of /proc/self/status, in kilobytes.
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
    throw std::runtime_error("/proc/self/status has no " + name);
}

double PeakMemoryOfOwnProcess(cv::Size size) {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) {
        throw std::runtime_error("no pipe for the process that measures memory");
    }
    const std::string width = std::to_string(size.width);
    const std::string height = std::to_string(size.height);
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDOUT_FILENO);
        execl("/proc/self/exe", "refocus_quality", kPeakMemoryOption, width.c_str(), height.c_str(),
              static_cast<char*>(nullptr));
        _exit(127);
    }
    close(ends[1]);
    std::string text;
    std::array<char, 64> part{};
    for (ssize_t count = 0; (count = read(ends[0], part.data(), part.size())) > 0;) {
        text.append(part.data(), static_cast<std::size_t>(count));
    }
    close(ends[0]);
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || status != 0) {
        throw std::runtime_error("the process that measures memory failed");
    }
    return std::stod(text);
}

} // namespace

double PeakMemoryMegabytes(cv::Size size) {
    Capture({640, 480}).Take(); // threads and code that are there once for all pictures
    Capture capture(size);
    malloc_trim(0);
    std::ofstream("/proc/self/clear_refs") << 5; // the peak starts anew from here
    const double before = StatusKilobytes("VmRSS");
    if (StatusKilobytes("VmHWM") > before + 4096) {
        throw std::runtime_error("this system does not reset a process' peak of memory");
    }
    capture.Take();
    return (StatusKilobytes("VmHWM") - before) / 1000.0;
}

std::vector<Row> CostRows(cv::Size size) {
    const double picture = size.area() * 1.5 / 1e6;
    return {TimeRow(size),
            {"Peak memory, " + SizeName(size), PeakMemoryOfOwnProcess(size), "MB",
             "one NV12 image of the size " + Number(picture, "MB", 0), Row::Better::kLess, 200.0,
             100.0}};
}

} // namespace quality

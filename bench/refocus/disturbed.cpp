#include "bench/refocus/disturbed.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

#include <fmt/ostream.h>
#include <opencv2/imgproc.hpp>

#include "bench/refocus/engine.h"
#include "bench/refocus/rendering.h"
#include "bench/refocus/scene.h"
#include "host/refocus/depth_estimator.h"
#include "host/refocus/error.h"
#include "host/refocus/renderer.h"

namespace quality {
namespace {

constexpr int kScenes = 18;
constexpr int kWidth = 480; // of the scenes, pixels
const std::string kUndisturbed = "none, for comparison";

// A main picture, what it has in focus, and an aux picture.
struct Case {
    cv::Mat luma, chroma, aux, core;
    cv::Point focus;
};

void Turn(cv::Mat& image, int quarters) {
    cv::rotate(image.clone(), image, quarters - 1);
}

void TurnBoth(Case& one, int quarters) {
    cv::Mat focus = cv::Mat::zeros(one.luma.size(), CV_8UC1);
    focus.at<std::uint8_t>(one.focus) = 255;
    for (cv::Mat* image : {&one.luma, &one.chroma, &one.aux, &one.core, &focus}) {
        Turn(*image, quarters);
    }
    cv::minMaxLoc(focus, nullptr, nullptr, nullptr, &one.focus);
}

void Shift(cv::Mat& image, double right, double down) {
    const cv::Matx23d map(1, 0, right, 0, 1, down);
    cv::warpAffine(image.clone(), image, map, image.size(), cv::INTER_LINEAR, cv::BORDER_REPLICATE);
}

void AddNoise(cv::Mat& image, double deviation) {
    cv::Mat noise(image.size(), CV_16SC1);
    cv::RNG(7).fill(noise, cv::RNG::NORMAL, 0, deviation);
    cv::add(image, noise, image, cv::noArray(), CV_8U);
}

using Disturbance = std::pair<std::string, std::function<void(Case&, const cv::Mat& otherScene)>>;

std::vector<Disturbance> Disturbances() {
    using Mat = cv::Mat;
    return {
        {kUndisturbed, [](Case&, const Mat&) {}},
        {"both turned by 90", [](Case& c, const Mat&) { TurnBoth(c, 1); }},
        {"both turned by 180", [](Case& c, const Mat&) { TurnBoth(c, 2); }},
        {"both turned by 270", [](Case& c, const Mat&) { TurnBoth(c, 3); }},
        {"aux turned by 90", [](Case& c, const Mat&) { Turn(c.aux, 1); }},
        {"aux turned by 180", [](Case& c, const Mat&) { Turn(c.aux, 2); }},
        {"aux turned by 270", [](Case& c, const Mat&) { Turn(c.aux, 3); }},
        {"aux mirrored", [](Case& c, const Mat&) { cv::flip(c.aux.clone(), c.aux, 1); }},
        {"aux 12 rows down", [](Case& c, const Mat&) { Shift(c.aux, 0, 12); }},
        {"identical", [](Case& c, const Mat&) { c.luma.copyTo(c.aux); }},
        {"exchanged", [](Case& c, const Mat&) { cv::swap(c.luma, c.aux); }},
        {"unrelated", [](Case& c, const Mat& other) { other.copyTo(c.aux); }},
        {"aux 40 rows down", [](Case& c, const Mat&) { Shift(c.aux, 0, 40); }},
        {"aux 150 columns left", [](Case& c, const Mat&) { Shift(c.aux, -150, 0); }},
        {"aux with noise of 30", [](Case& c, const Mat&) { AddNoise(c.aux, 30); }},
        {"aux at 0.3 of exposure", [](Case& c, const Mat&) { c.aux *= 0.3; }},
    };
}

// The error's name, "wild" or "rendered".
std::string OutcomeOf(Case& one) {
    const refocus::Nv12View input{one.luma, one.chroma};
    refocus::DepthMap depth;
    const refocus::Error error = refocus::EstimateDepth(
        input, one.aux, CalibrationFor(one.luma.size()), {}, one.luma.cols, depth);
    if (error != refocus::Error::kNone) {
        return refocus::Describe(refocus::Result(error)).name;
    }
    refocus::Nv12View output{one.luma.clone(), one.chroma.clone()};
    refocus::RenderBokeh(input, depth.bytes, depth.scale,
                         refocus::FocusRangeOf(depth.bytes, FocusAt(one.focus)), 100, output);
    cv::Mat difference;
    cv::absdiff(one.luma, output.luma, difference);
    return cv::countNonZero((difference > 8) & one.core) > cv::countNonZero(one.core) / 4
               ? "wild"
               : "rendered";
}

} // namespace

int PrintDisturbedPairs(std::ostream& out) {
    std::vector<ScenePhoto> photos;
    for (std::uint32_t seed = 1; seed <= kScenes; ++seed) {
        photos.push_back(Photograph(RandomScene(seed, kWidth), {kWidth, kWidth * 3 / 4}));
    }
    int wild = 0;
    for (const auto& [name, disturb] : Disturbances()) {
        std::map<std::string, int> outcomes;
        for (std::size_t i = 0; i < photos.size(); ++i) {
            const ScenePhoto& photo = photos[i];
            const refocus::Nv12View main = ViewOf(photo.pair.main);
            Case one{main.luma.clone(), main.chroma.clone(), LumaOf(photo.pair.aux).clone(),
                     InFocusCore(photo), photo.focus};
            disturb(one, LumaOf(photos[(i + 1) % photos.size()].pair.aux));
            ++outcomes[OutcomeOf(one)];
        }
        wild += name == kUndisturbed ? 0 : outcomes["wild"];
        fmt::print(out, "{:<24}", name);
        for (const auto& [outcome, count] : outcomes) {
            fmt::print(out, "{}", count > 0 ? fmt::format("  {} {}", count, outcome) : "");
        }
        fmt::print(out, "\n");
    }
    fmt::print(out, "{} wild pictures\n", wild);
    return wild;
}

} // namespace quality

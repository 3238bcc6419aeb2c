#include "bench/refocus/rendering.h"

#include <array>
#include <cmath>
#include <numeric>
#include <tuple>

#include <fmt/ostream.h>
#include <opencv2/imgproc.hpp>

#include "bench/refocus/thin_lens.h"
#include "host/picture/nv12.h"
#include "host/picture/similarity.h"
#include "host/refocus/circle_of_confusion.h"
#include "host/refocus/renderer.h"

namespace quality {
namespace {

constexpr int kBlurLevel = 100;
constexpr int kPinholeSamples = 25;
constexpr int kLensSamples = 300;
constexpr double kWrongShare = 0.003; // of the width; a larger error of disparity is wrong

// A disparity map in the engine's 8 bits. The scale is always that of the scene's exact disparity,
// so that exact and estimated disparities have equal radii.
struct QuantizedDisparity {
    cv::Mat map; // CV_8UC1
    refocus::DisparityScale scale;
    refocus::FocusRange focus;

    QuantizedDisparity(const cv::Mat& disparity, const cv::Mat& exact, cv::Point focusPoint) {
        double low = 0.0;
        double high = 0.0;
        cv::minMaxLoc(exact, &low, &high);
        scale = {low, (high - low) / 255.0};
        disparity.convertTo(map, CV_8U, 1.0 / scale.step, -scale.offset / scale.step);
        focus = refocus::FocusRangeOf(map, FocusAt(focusPoint));
    }
    double focusDisparity() const {
        return scale.offset + scale.step * (focus.low + focus.high) / 2.0;
    }
    double radiusPerDisparity() const {
        return refocus::RadiusPerDisparity(scale, kBlurLevel, map.cols);
    }
    // Signed radii in pixels, positive: nearer than the focus. CV_32FC1.
    cv::Mat Radii() const {
        cv::Mat radii;
        const double gain = radiusPerDisparity();
        map.convertTo(radii, CV_32F, gain * scale.step, gain * (scale.offset - focusDisparity()));
        return radii;
    }
};

// One plane of the blend, interpolated between copies that are blurred by evenly spaced radii.
void BlendPlane(const cv::Mat& plane, const cv::Mat& radii, cv::Mat& result) {
    constexpr float kStep = 1.5f; // pixels of radius between two copies
    cv::Mat source;
    plane.convertTo(source, CV_MAKETYPE(CV_32F, plane.channels()));
    double largest = 0.0;
    cv::minMaxLoc(radii, nullptr, &largest);
    cv::Mat sum = cv::Mat::zeros(source.size(), source.type());
    for (int i = 0; i <= cvCeil(largest / kStep); ++i) {
        cv::Mat blurred;
        if (i == 0) {
            blurred = source;
        } else {
            cv::GaussianBlur(source, blurred, {}, kStep * static_cast<float>(i) / 2.0f);
        }
        // Linear interpolation: 1 at the copy's radius, 0 at the radii of its neighbours.
        cv::Mat share = 1.0f - cv::abs(radii / kStep - i);
        share = cv::max(share, 0.0f);
        cv::Mat shares;
        cv::merge(std::vector<cv::Mat>(static_cast<std::size_t>(plane.channels()), share), shares);
        sum += blurred.mul(shares);
    }
    sum.convertTo(result, CV_8U);
}

cv::Mat CoreOf(const cv::Mat& radii) {
    constexpr float kSharp = 0.4f; // pixels
    const int margin = std::max(4, radii.cols / 100);
    double nearest = 0.0;
    cv::minMaxLoc(radii, nullptr, &nearest);
    const auto grown = [](const cv::Mat& mask, int by) {
        cv::Mat result;
        cv::dilate(mask, result,
                   cv::getStructuringElement(cv::MORPH_ELLIPSE, {2 * by + 1, 2 * by + 1}));
        return result;
    };
    return ~(grown(cv::abs(radii) > kSharp, margin) |
             grown(radii > kSharp, margin + cvCeil(std::max(nearest, 0.0))));
}

// Differing pixels within the mask. A chroma pixel counts where the mask includes all four of luma.
int Differing(const host::Image& a, const host::Image& b, const cv::Mat& mask) {
    const refocus::Nv12View va = ViewOf(a);
    const refocus::Nv12View vb = ViewOf(b);
    cv::Mat half;
    cv::resize(mask, half, va.chroma.size(), 0, 0, cv::INTER_AREA);
    cv::Mat parts[2];
    cv::Mat difference;
    cv::absdiff(va.chroma, vb.chroma, difference);
    cv::split(difference, parts);
    return cv::countNonZero((va.luma != vb.luma) & mask) +
           cv::countNonZero((parts[0] | parts[1]) & (half == 255));
}

struct SceneFigures {
    std::string name;
    Fidelity exact; // of the engine's rendering with exact and with estimated disparity
    Fidelity estimated;
    Fidelity exactBlend; // of the blend
    Fidelity estimatedBlend;
    double wrongDisparity = 0.0; // percent of the pixels
    int core = 0;
    int changedInCore = 0;
};

SceneFigures MeasureScene(ScenePhoto& photo, const PictureFolder& pictures) {
    SceneFigures figures;
    figures.name = photo.name;
    const auto compare = [&](const cv::Mat& disparity, const char* kind) {
        const host::Image rendered = RenderedBy(photo, disparity);
        const host::Image blend = GaussianBlend(photo, disparity);
        pictures.Write(fmt::format("{}-rendered-{}", photo.name, kind), rendered);
        pictures.Write(fmt::format("{}-blend-{}", photo.name, kind), blend);
        pictures.Write(fmt::format("{}-disparity-{}", photo.name, kind), disparity, "pixels");
        return std::pair(Compare(rendered, photo), Compare(blend, photo));
    };
    pictures.Write(photo.name + "-main", photo.pair.main);
    pictures.Write(photo.name + "-aux", photo.pair.aux);
    pictures.Write(photo.name + "-traced", photo.traced);
    const cv::Mat disparity = EstimatedDisparity(photo.pair, photo.name);
    std::tie(figures.exact, figures.exactBlend) = compare(photo.disparity, "exact");
    std::tie(figures.estimated, figures.estimatedBlend) = compare(disparity, "estimated");
    const cv::Mat wrong = cv::abs(disparity - photo.disparity) > kWrongShare * disparity.cols;
    figures.wrongDisparity = 100.0 * cv::countNonZero(wrong) / static_cast<double>(wrong.total());

    const cv::Mat core = InFocusCore(photo);
    figures.core = cv::countNonZero(core);
    figures.changedInCore = Differing(photo.pair.main, RenderedBy(photo, photo.disparity), core);
    return figures;
}

// A figure of the table of scenes, of the engine and, if not null, of the blend.
struct Column {
    const char* title;
    int decimals;
    double (*engine)(const SceneFigures&);
    double (*blend)(const SceneFigures&);

    // The lower, the worse: the distance to the blend, or that of the figure from 0.
    double Rank(const SceneFigures& scene) const {
        return blend != nullptr ? engine(scene) - blend(scene) : -std::abs(engine(scene));
    }
};

const std::array kColumns{
    Column{"exact, dB", 2, [](const SceneFigures& f) { return f.exact.luma; },
           [](const SceneFigures& f) { return f.exactBlend.luma; }},
    Column{"estimated, dB", 2, [](const SceneFigures& f) { return f.estimated.luma; },
           [](const SceneFigures& f) { return f.estimatedBlend.luma; }},
    Column{"its edges, dB", 2, [](const SceneFigures& f) { return f.estimated.edges; },
           [](const SceneFigures& f) { return f.estimatedBlend.edges; }},
    Column{"its chroma, dB", 2, [](const SceneFigures& f) { return f.estimated.chroma; },
           [](const SceneFigures& f) { return f.estimatedBlend.chroma; }},
    Column{"its SSIM", 3, [](const SceneFigures& f) { return f.estimated.ssim; },
           [](const SceneFigures& f) { return f.estimatedBlend.ssim; }},
    Column{"its luma shift", 2, [](const SceneFigures& f) { return f.estimated.brightness; },
           nullptr},
    Column{"wrong depth, %", 2, [](const SceneFigures& f) { return f.wrongDisparity; }, nullptr},
};

double Mean(const std::vector<SceneFigures>& scenes, double (*figure)(const SceneFigures&)) {
    const auto add = [&](double sum, const SceneFigures& scene) { return sum + figure(scene); };
    return std::accumulate(scenes.begin(), scenes.end(), 0.0, add) /
           static_cast<double>(scenes.size());
}

const SceneFigures& Worst(const std::vector<SceneFigures>& scenes, const Column& column) {
    return *std::min_element(scenes.begin(), scenes.end(),
                             [&](const SceneFigures& a, const SceneFigures& b) {
                                 return column.Rank(a) < column.Rank(b);
                             });
}

// "31.07 (+4.50)"
std::string CellOf(const Column& column, const std::vector<SceneFigures>& scenes) {
    const double engine = Mean(scenes, column.engine);
    const std::string above =
        column.blend == nullptr
            ? ""
            : fmt::format(" ({:+.{}f})", engine - Mean(scenes, column.blend), column.decimals);
    return fmt::format("{:.{}f}{}", engine, column.decimals, above);
}

Row RowOf(const char* what, const Column& column, const std::vector<SceneFigures>& scenes,
          double must, double aim) {
    const double engine = Mean(scenes, column.engine);
    const double blend = Mean(scenes, column.blend);
    const SceneFigures& worst = Worst(scenes, column);
    return {what,
            engine - blend,
            "dB",
            fmt::format("engine {:.2f} dB, Gaussian blend {:.2f} dB, worst {:+.2f} dB in {}",
                        engine, blend, column.Rank(worst), worst.name),
            Row::Better::kMore,
            must,
            aim};
}

} // namespace

ScenePhoto Photograph(const Scene& scene, cv::Size size) {
    ScenePhoto photo;
    photo.name = scene.name;
    const auto width = static_cast<float>(size.width);
    photo.focus = {cvFloor(scene.focus.x * width), cvFloor(scene.focus.y * width)};
    photo.disparity = ExactDisparity(scene, size);
    const QuantizedDisparity exact(photo.disparity, photo.disparity, photo.focus);
    RgbImage main = Trace(scene, size, {0.0f, 0.0f, kPinholeSamples});
    RgbImage aux = TraceAux(scene, size, kPinholeSamples);
    AddNoise(main, scene.noise, 1);
    AddNoise(aux, scene.noise, 2);
    photo.pair = {RgbToNv12(main, 0), RgbToNv12(aux, 0)};
    photo.traced =
        RgbToNv12(Trace(scene, size,
                        {static_cast<float>(exact.radiusPerDisparity()),
                         static_cast<float>(exact.focusDisparity()) / width, kLensSamples}),
                  0);
    return photo;
}

host::Image RenderedBy(const ScenePhoto& photo, const cv::Mat& disparity) {
    const QuantizedDisparity bytes(disparity, photo.disparity, photo.focus);
    host::Image output = photo.pair.main;
    refocus::Nv12View view = ViewOf(output);
    refocus::RenderBokeh(ViewOf(photo.pair.main), bytes.map, bytes.scale, bytes.focus, kBlurLevel,
                         view);
    return output;
}

host::Image GaussianBlend(const ScenePhoto& photo, const cv::Mat& disparity) {
    const cv::Mat radii =
        cv::abs(QuantizedDisparity(disparity, photo.disparity, photo.focus).Radii());
    host::Image output = photo.pair.main;
    const refocus::Nv12View from = ViewOf(photo.pair.main);
    refocus::Nv12View to = ViewOf(output);
    BlendPlane(from.luma, radii, to.luma);
    cv::Mat half;
    cv::resize(radii, half, from.chroma.size(), 0, 0, cv::INTER_AREA);
    BlendPlane(from.chroma, half / 2.0, to.chroma);
    return output;
}

cv::Mat InFocusCore(const ScenePhoto& photo) {
    return CoreOf(QuantizedDisparity(photo.disparity, photo.disparity, photo.focus).Radii());
}

Fidelity Compare(const host::Image& picture, const ScenePhoto& photo) {
    const cv::Mat luma = LumaOf(picture);
    const cv::Mat traced = LumaOf(photo.traced);
    return {Psnr(luma, traced, {}), Psnr(luma, traced, AlongDepthEdges(photo.disparity)),
            Psnr(ViewOf(picture).chroma, ViewOf(photo.traced).chroma, {}),
            MeanSsim(luma, traced, {}), cv::mean(luma)[0] - cv::mean(traced)[0]};
}

cv::Mat AlongDepthEdges(const cv::Mat& disparity) {
    double low = 0.0;
    double high = 0.0;
    cv::minMaxLoc(disparity, &low, &high);
    const auto size = std::max(1, disparity.cols / 100) * 2 + 1;
    cv::Mat steps;
    cv::morphologyEx(disparity, steps, cv::MORPH_GRADIENT,
                     cv::getStructuringElement(cv::MORPH_CROSS, {3, 3}));
    cv::Mat band;
    cv::dilate(steps > (high - low) / 20.0, band,
               cv::getStructuringElement(cv::MORPH_ELLIPSE, {size, size}));
    return band;
}

std::vector<Row> RenderingRows(std::uint32_t first, int count, int width, std::ostream& out,
                               const PictureFolder& pictures) {
    const cv::Size size(width, cvRound(static_cast<float>(width) * kSceneHeight) / 2 * 2);
    fmt::print(out, "{} ray-traced scenes at {}x{}; in brackets: above the Gaussian blend\n{:<14}",
               count, size.width, size.height, "");
    for (const Column& column : kColumns) {
        fmt::print(out, "{:>16}", column.title);
    }
    const auto print = [&out](const std::string& name, const auto& scenesOf) {
        fmt::print(out, "\n{:<14}", name);
        for (const Column& column : kColumns) {
            fmt::print(out, "{:>16}", CellOf(column, scenesOf(column)));
        }
        out.flush();
    };
    std::vector<SceneFigures> scenes;
    for (int i = 0; i < count; ++i) {
        ScenePhoto photo =
            Photograph(RandomScene(first + static_cast<std::uint32_t>(i), width), size);
        scenes.push_back(MeasureScene(photo, pictures));
        print(photo.name, [&](const Column&) { return std::vector{scenes.back()}; });
    }
    print("mean", [&](const Column&) { return scenes; });
    print("worst of each",
          [&](const Column& column) { return std::vector{Worst(scenes, column)}; });
    fmt::print(out, "\n");
    const auto sum = [&scenes](int SceneFigures::*figure) {
        return std::accumulate(scenes.begin(), scenes.end(), 0,
                               [&](int total, const auto& one) { return total + one.*figure; });
    };
    return {RowOf("Scenes, exact disparity", kColumns[0], scenes, 6.5, 8.0),
            RowOf("Scenes, estimated disparity, whole", kColumns[1], scenes, 5.5, 7.0),
            RowOf("Scenes, estimated disparity, depth edges", kColumns[2], scenes, 3.5, 4.5),
            {"Scenes, in-focus core: bytes changed",
             static_cast<double>(sum(&SceneFigures::changedInCore)), "",
             fmt::format("of {} pixels in it", sum(&SceneFigures::core))}};
}

} // namespace quality

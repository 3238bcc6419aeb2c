#include "bench/refocus/rendering.h"

#include <cmath>
#include <tuple>

#include <fmt/ostream.h>
#include <opencv2/imgproc.hpp>

#include "bench/refocus/thin_lens.h"
#include "host/picture/nv12.h"
#include "host/refocus/circle_of_confusion.h"
#include "host/refocus/renderer.h"

namespace quality {
namespace {

constexpr int kBlurLevel = 100;
constexpr int kPinholeSamples = 64;
constexpr int kLensSamples = 900;

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

refocus::Nv12View ViewOf(const host::Image& image) {
    const auto pitch = static_cast<std::size_t>(image.pitch());
    return {LumaOf(image),
            {image.height() / 2, image.width() / 2, CV_8UC2,
             const_cast<std::uint8_t*>(image.plane(1)), pitch}};
}

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

// Pixels that must keep their bytes: in focus, at a margin from what is out of focus, and from
// nearer objects also at the distance of their largest disc.
cv::Mat InFocusCore(const cv::Mat& radii) {
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

int DifferingAtLevel0(ScenePhoto& photo) {
    const cv::Size size = photo.pair.size();
    Engine engine(size);
    const TSL_DCR_FOCUSPARAM focus = FocusAt(photo.focus);
    engine.Estimate(photo.pair, focus);
    cv::Mat data(size.height, photo.pair.main.pitch(), CV_8UC1);
    engine.Fetch(data);
    host::Image output(host::Image::Format::Nv12, size.width, size.height, photo.pair.main.pitch());
    engine.Render(photo.pair, data, focus, 0, output);
    return Differing(photo.pair.main, output, cv::Mat(size, CV_8UC1, cv::Scalar(255)));
}

// PSNR against the traced picture.
struct PsnrOfBoth {
    double engine = 0.0;
    double blend = 0.0;

    double gain() const { return engine - blend; }
};

struct SceneFigures {
    PsnrOfBoth exact;
    PsnrOfBoth estimated;
    PsnrOfBoth edges;
    int core = 0;
    int touchedInCore = 0;
    int touchedAtLevel0 = 0;
};

SceneFigures MeasureScene(ScenePhoto& photo, const PictureFolder& pictures) {
    SceneFigures figures;
    const auto compare = [&](const cv::Mat& disparity, const char* kind, const cv::Mat& mask) {
        const host::Image rendered = RenderedBy(photo, disparity);
        const host::Image blend = GaussianBlend(photo, disparity);
        pictures.Write(photo.name + "-rendered-" + kind, rendered);
        pictures.Write(photo.name + "-blend-" + kind, blend);
        pictures.Write(photo.name + "-disparity-" + kind, disparity, "pixels");
        return std::pair(
            PsnrOfBoth{Psnr(rendered, photo.traced), Psnr(blend, photo.traced)},
            PsnrOfBoth{Psnr(rendered, photo.traced, mask), Psnr(blend, photo.traced, mask)});
    };
    pictures.Write(photo.name + "-main", photo.pair.main);
    pictures.Write(photo.name + "-aux", photo.pair.aux);
    pictures.Write(photo.name + "-traced", photo.traced);
    const cv::Mat edges = AlongDepthEdges(photo.disparity);
    figures.exact = compare(photo.disparity, "exact", edges).first;
    std::tie(figures.estimated, figures.edges) =
        compare(EstimatedDisparity(photo.pair, photo.name), "estimated", edges);

    const QuantizedDisparity exact(photo.disparity, photo.disparity, photo.focus);
    const cv::Mat core = InFocusCore(exact.Radii());
    figures.core = cv::countNonZero(core);
    figures.touchedInCore = Differing(photo.pair.main, RenderedBy(photo, photo.disparity), core);
    figures.touchedAtLevel0 = DifferingAtLevel0(photo);
    return figures;
}

void PrintScene(std::ostream& out, const std::string& name, const SceneFigures& figures) {
    fmt::print(out, "{:<24}", name);
    for (const PsnrOfBoth& psnr : {figures.exact, figures.estimated, figures.edges}) {
        fmt::print(out, "{:10.2f} ({:+.2f})", psnr.engine, psnr.gain());
    }
    fmt::print(out, "{:10}\n", figures.core);
    out.flush();
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
    AddNoise(main, 1);
    AddNoise(aux, 2);
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

double Psnr(const host::Image& a, const host::Image& b, const cv::Mat& mask) {
    const double distance = cv::norm(LumaOf(a), LumaOf(b), cv::NORM_L2SQR, mask);
    const double count = mask.empty() ? a.width() * a.height() : cv::countNonZero(mask);
    return 10.0 * std::log10(255.0 * 255.0 * count / std::max(distance, 1e-9));
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

std::vector<Row> RenderingRows(int width, std::ostream& out, const PictureFolder& pictures) {
    const cv::Size size(width, cvRound(static_cast<float>(width) * kSceneHeight) / 2 * 2);
    fmt::print(out,
               "Ray-traced scenes at {}x{}, luma PSNR in dB (above the Gaussian blend):\n"
               "scene                            exact         estimated    its depth edges   "
               "in-focus core, pixels\n",
               size.width, size.height);
    SceneFigures mean;
    for (int i = 0; i < kSceneCount; ++i) {
        ScenePhoto photo = Photograph(MakeScene(i, width), size);
        const SceneFigures figures = MeasureScene(photo, pictures);
        PrintScene(out, photo.name, figures);
        const auto add = [](PsnrOfBoth& sum, const PsnrOfBoth& one) {
            sum.engine += one.engine / kSceneCount;
            sum.blend += one.blend / kSceneCount;
        };
        add(mean.exact, figures.exact);
        add(mean.estimated, figures.estimated);
        add(mean.edges, figures.edges);
        mean.core += figures.core;
        mean.touchedInCore += figures.touchedInCore;
        mean.touchedAtLevel0 += figures.touchedAtLevel0;
    }
    const auto row = [](const char* what, const PsnrOfBoth& beside, double must, double aim) {
        return Row{
            what,
            beside.gain(),
            "dB",
            fmt::format("engine {:.2f} dB, Gaussian blend {:.2f} dB", beside.engine, beside.blend),
            Row::Better::kMore,
            must,
            aim};
    };
    return {row("Scenes, exact disparity", mean.exact, 5.5, 8.0),
            row("Scenes, estimated disparity, whole", mean.estimated, 4.0, 6.0),
            row("Scenes, estimated disparity, depth edges", mean.edges, 2.0, 4.5),
            {"Scenes, in-focus core: bytes changed", static_cast<double>(mean.touchedInCore), "",
             fmt::format("of {} pixels in it", mean.core)},
            {"Scenes, blur level 0: bytes changed", static_cast<double>(mean.touchedAtLevel0), "",
             fmt::format("of {} pixels", kSceneCount * size.area())}};
}

} // namespace quality

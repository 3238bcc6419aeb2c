#include "tools/compare/difference.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <string_view>

#include <fmt/format.h>

#include "host/picture/similarity.h"
#include "tools/compare/matrix.h"
#include "tools/files/json_text.h"

namespace {

// The samples of one plane in both pictures.
struct PlanePair {
    std::string name;
    cv::Mat a;
    cv::Mat b;
    int cell;     // a sample stands for a square of this many pixels on a side
    cv::Mat mask; // the samples to compare; empty: all

    cv::Mat Difference() const {
        cv::Mat difference;
        cv::absdiff(a, b, difference);
        if (!mask.empty()) {
            difference.setTo(0, ~mask);
        }
        return difference;
    }
};

// The mask at the resolution of the samples, of which each stands for a cell of pixels. Empty if
// the mask leaves nothing out.
cv::Mat SampleMask(const host::Image& mask, cv::Size samples) {
    if (mask.width() == 0) {
        return {};
    }
    constexpr int kLeastCompared = 128;
    cv::Mat compared = MatrixOf(mask, 0) >= kLeastCompared;
    if (compared.size() != samples) {
        cv::resize(compared, compared, samples, 0, 0, cv::INTER_AREA);
        // The mean over a cell is positive if one of its pixels is compared.
        compared = compared > 0;
    }
    return compared;
}

// `names`: a letter for each channel of the matrices.
void AddPlanes(std::vector<PlanePair>& planes, std::string_view names, const cv::Mat& a,
               const cv::Mat& b, int cell, const host::Image& mask) {
    std::vector<cv::Mat> channelsA;
    std::vector<cv::Mat> channelsB;
    cv::split(a, channelsA);
    cv::split(b, channelsB);
    const cv::Mat compared = SampleMask(mask, a.size());
    for (std::size_t i = 0; i < names.size(); ++i) {
        planes.push_back({std::string(1, names[i]), channelsA[i], channelsB[i], cell, compared});
    }
}

std::vector<PlanePair> PlanesOf(const host::Image& a, const host::Image& b,
                                const host::Image& mask) {
    std::vector<PlanePair> planes;
    AddPlanes(planes, "Y", MatrixOf(a, 0), MatrixOf(b, 0), 1, mask);
    if (a.format() == host::Image::Format::Nv12) {
        AddPlanes(planes, "UV", MatrixOf(a, 1), MatrixOf(b, 1), 2, mask);
    }
    return planes;
}

std::vector<PlanePair> PlanesOf(const RgbImage& a, const RgbImage& b, const host::Image& mask) {
    std::vector<PlanePair> planes;
    AddPlanes(planes, "RGB", MatrixOf(a), MatrixOf(b), 1, mask);
    return planes;
}

// `difference`: the plane's, without padding and not zero everywhere.
DifferingPixel FirstDifference(const PlanePair& plane, const cv::Mat& difference) {
    const auto at = static_cast<int>(
        std::find_if(difference.datastart, difference.dataend, [](auto v) { return v != 0; }) -
        difference.datastart);
    const int x = at % difference.cols;
    const int y = at / difference.cols;
    return {x * plane.cell, y * plane.cell, plane.name, plane.a.at<std::uint8_t>(y, x),
            plane.b.at<std::uint8_t>(y, x)};
}

// RGB pictures have no plane of luma.
PlanePair LumaOf(const std::vector<PlanePair>& planes) {
    PlanePair luma = planes.front();
    if (luma.name == "R") {
        const auto grey = [&planes](cv::Mat PlanePair::*side) {
            const cv::Mat channels[] = {planes[0].*side, planes[1].*side, planes[2].*side};
            cv::Mat picture;
            cv::merge(channels, std::size(channels), picture);
            cv::cvtColor(picture, picture, cv::COLOR_RGB2GRAY);
            return picture;
        };
        luma.a = grey(&PlanePair::a);
        luma.b = grey(&PlanePair::b);
    }
    return luma;
}

PictureDifference CompareAll(const std::vector<PlanePair>& planes, bool similarity) {
    PictureDifference result;
    for (const PlanePair& plane : planes) {
        const cv::Mat difference = plane.Difference();
        PlaneDifference& entry = result.planes.emplace_back();
        entry.plane = plane.name;
        entry.samples = plane.mask.empty()
                            ? difference.total()
                            : static_cast<std::uint64_t>(cv::countNonZero(plane.mask));
        entry.differing = static_cast<std::uint64_t>(cv::countNonZero(difference));
        if (entry.differing == 0) {
            continue;
        }
        double largest = 0;
        cv::minMaxLoc(difference, nullptr, &largest);
        entry.largest = static_cast<int>(largest);
        entry.psnr = Psnr(plane.a, plane.b, plane.mask);
        const DifferingPixel pixel = FirstDifference(plane, difference);
        // Chroma is compared after luma, but its first difference may be nearer to the upper left
        // corner.
        if (!result.first ||
            std::pair(pixel.y, pixel.x) < std::pair(result.first->y, result.first->x)) {
            result.first = pixel;
        }
    }
    if (similarity) {
        const PlanePair luma = LumaOf(planes);
        // The index is computed only where pictures differ: it costs more than all the rest.
        result.ssim = result.identical() ? 1 : MeanSsim(luma.a, luma.b, luma.mask);
    }
    return result;
}

host::Image MapAll(const std::vector<PlanePair>& planes) {
    cv::Mat map;
    for (const PlanePair& plane : planes) {
        cv::Mat difference = plane.Difference();
        if (plane.cell > 1) {
            // A chroma sample's difference is shown on all pixels that it stands for.
            cv::resize(difference, difference, {}, plane.cell, plane.cell, cv::INTER_NEAREST);
        }
        if (map.empty()) {
            map = difference;
            continue;
        }
        // An odd last row has no chroma, an odd last column shares it with nothing.
        const cv::Rect shared(0, 0, std::min(map.cols, difference.cols),
                              std::min(map.rows, difference.rows));
        cv::Mat part = map(shared);
        cv::max(part, difference(shared), part);
    }
    // A screen shows no more. The reduction keeps maxima, so that a single differing pixel stays
    // visible.
    constexpr int kLongestSide = 2000;
    const int reduction = (std::max(map.cols, map.rows) + kLongestSide - 1) / kLongestSide;
    const cv::Size size((map.cols + reduction - 1) / reduction,
                        (map.rows + reduction - 1) / reduction);
    if (reduction > 1) {
        // The map is filled up to whole squares with zeros, which change no maximum.
        cv::copyMakeBorder(map, map, 0, size.height * reduction - map.rows, 0,
                           size.width * reduction - map.cols, cv::BORDER_CONSTANT);
        // Dilation with its anchor in the corner puts a square's maximum where the resizing takes
        // its one sample of the square.
        cv::dilate(map, map, cv::Mat::ones(reduction, reduction, CV_8UC1), {0, 0});
        cv::resize(map, map, size, 0, 0, cv::INTER_NEAREST);
    }
    host::Image image(host::Image::Format::Y8, size.width, size.height, size.width);
    map.copyTo(cv::Mat(size, CV_8UC1, image.plane(0)));
    return image;
}

} // namespace

PictureDifference Compare(const host::Image& a, const host::Image& b, const host::Image& mask,
                          bool similarity) {
    return CompareAll(PlanesOf(a, b, mask), similarity);
}

PictureDifference Compare(const RgbImage& a, const RgbImage& b, const host::Image& mask) {
    return CompareAll(PlanesOf(a, b, mask), true);
}

std::optional<double> PictureDifference::psnr() const {
    std::optional<double> lowest;
    for (const PlaneDifference& plane : planes) {
        if (plane.psnr) {
            lowest = std::min(*plane.psnr, lowest.value_or(*plane.psnr));
        }
    }
    return lowest;
}

std::string ToText(const PictureDifference& difference) {
    if (difference.identical()) {
        return "identical\n";
    }
    const DifferingPixel& first = *difference.first;
    std::string text = fmt::format("first difference at {},{}: {} {}, {}\n", first.x, first.y,
                                   first.plane, first.a, first.b);
    for (const PlaneDifference& plane : difference.planes) {
        text += plane.psnr
                    ? fmt::format("{}: {} of {} differ ({:.3g} %), by {} at most, PSNR {:.2f} dB\n",
                                  plane.plane, plane.differing, plane.samples, 100 * plane.share(),
                                  plane.largest, *plane.psnr)
                    : fmt::format("{}: identical\n", plane.plane);
    }
    return difference.ssim ? text + fmt::format("SSIM of luma {:.4f}\n", *difference.ssim) : text;
}

Json ToJson(const PictureDifference& difference) {
    Json planes = Json::array();
    for (const PlaneDifference& plane : difference.planes) {
        planes.push_back({{"plane", plane.plane},
                          {"samples", plane.samples},
                          {"differing", plane.differing},
                          {"largest", plane.largest},
                          {"psnr", OrNull(plane.psnr)}});
    }
    Json first = nullptr;
    if (const auto& pixel = difference.first) {
        first = {{"x", pixel->x},
                 {"y", pixel->y},
                 {"plane", pixel->plane},
                 {"values", {pixel->a, pixel->b}}};
    }
    return {{"identical", difference.identical()},
            {"first", first},
            {"planes", planes},
            {"ssim", OrNull(difference.ssim)}};
}

host::Image DifferenceMap(const host::Image& a, const host::Image& b, const host::Image& mask) {
    return MapAll(PlanesOf(a, b, mask));
}

host::Image DifferenceMap(const RgbImage& a, const RgbImage& b, const host::Image& mask) {
    return MapAll(PlanesOf(a, b, mask));
}

RgbImage HeatMap(const host::Image& differenceMap) {
    const cv::Mat differences = MatrixOf(differenceMap, 0);
    return FalseColour(differences, differences > 0, "difference");
}

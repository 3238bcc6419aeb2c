#include "bench/refocus/thin_lens.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

#include "host/refocus/colour.h"
#include "host/refocus/image.h"

namespace quality {
namespace {

// A pinhole camera displaced from the main one. In its image a point shift by
// shift * (disparity - focus), so that points of the focus disparity stay where they are.
struct View {
    cv::Point2f shift{0.0f, 0.0f};
    float focus = 0.0f;
    cv::Point2f within{0.5f, 0.5f}; // position of the ray within its pixel
};

struct Hit {
    float disparity = -1.0f; // nothing hit
    cv::Vec3f light;
};

// The disparity of the plane as a function of the view's image coordinates. A ray through `seen`
// meets the plane where seen = at + shift * (disparity(at) - focus); the solution is linear again.
Plane AlongView(const Plane& plane, const View& view) {
    const float slope = plane.perX * view.shift.x + plane.perY * view.shift.y;
    const float scale = 1.0f / (1.0f + slope);
    return {(plane.atOrigin + slope * view.focus) * scale, plane.perX * scale, plane.perY * scale};
}

// Intersects the rays of a row of pixels with a surface: they meet its texture in a straight line.
void HitRow(const Surface& surface, const View& view, int y, std::vector<Hit>& row) {
    const float pixel = 1.0f / static_cast<float>(row.size());
    const Plane seen = AlongView(surface.plane(), view);
    const cv::Point2f start(view.within.x * pixel, (static_cast<float>(y) + view.within.y) * pixel);
    const float d0 = seen.At(start.x, start.y);
    const float dStep = seen.perX * pixel;
    const float density = surface.texelsPerWidth();
    const cv::Point2f at = (start - view.shift * (d0 - view.focus) - surface.origin()) * density;
    const cv::Point2f step = (cv::Point2f(pixel, 0.0f) - view.shift * dStep) * density;
    const cv::Mat& texels = surface.texels();
    const int last = static_cast<int>(row.size()) - 1;
    const float width = static_cast<float>(texels.cols);
    const int from = std::clamp(cvFloor(-at.x / step.x), 0, last + 1);
    const int to = std::clamp(cvCeil((width - at.x) / step.x), -1, last);
    for (int x = from; x <= to; ++x) {
        const auto along = static_cast<float>(x);
        const int column = cvFloor(at.x + along * step.x);
        const int line = cvFloor(at.y + along * step.y);
        if (static_cast<unsigned>(column) >= static_cast<unsigned>(texels.cols) ||
            static_cast<unsigned>(line) >= static_cast<unsigned>(texels.rows)) {
            continue;
        }
        const auto& texel = texels.ptr<cv::Vec4f>(line)[column];
        const float disparity = d0 + along * dStep;
        Hit& hit = row[static_cast<std::size_t>(x)];
        if (texel[3] >= 0.5f && disparity > hit.disparity) {
            hit = {disparity, {texel[0], texel[1], texel[2]}};
        }
    }
}

void TraceRow(const Scene& scene, const View& view, int y, std::vector<Hit>& row) {
    std::fill(row.begin(), row.end(), Hit{});
    for (const Surface& surface : scene.surfaces) {
        HitRow(surface, view, y, row);
    }
}

std::uint8_t Encode(float light) {
    const double clipped = std::clamp(static_cast<double>(light), 0.0, 1.0);
    return static_cast<std::uint8_t>(255.0 * refocus::SrgbOfLinear(clipped) + 0.5);
}

RgbImage TraceViews(const Scene& scene, cv::Size size, const std::vector<View>& views) {
    RgbImage picture(size.width, size.height);
    refocus::ForEachRow(size.height, [&](int y) {
        std::vector<Hit> hits(static_cast<std::size_t>(size.width));
        std::vector<cv::Vec3f> sum(hits.size());
        for (const View& view : views) {
            TraceRow(scene, view, y, hits);
            for (std::size_t x = 0; x < hits.size(); ++x) {
                sum[x] += hits[x].light;
            }
        }
        const float share = scene.exposure / static_cast<float>(views.size());
        for (int x = 0; x < size.width; ++x) {
            const cv::Vec3f light = sum[static_cast<std::size_t>(x)] * share;
            picture.Set(x, y, {Encode(light[0]), Encode(light[1]), Encode(light[2])});
        }
    });
    return picture;
}

// Evenly spread points in the unit square: Roberts' additive sequence of the plastic number.
cv::Point2f WithinPixel(int i) {
    constexpr double kPlastic = 1.32471795724474602596;
    const double x = 0.5 + i / kPlastic;
    const double y = 0.5 + i / (kPlastic * kPlastic);
    return {static_cast<float>(x - std::floor(x)), static_cast<float>(y - std::floor(y))};
}

// Evenly spread points in the unit disc: Vogel's spiral.
cv::Point2f OnDisc(int i, int count) {
    const double radius = std::sqrt((i + 0.5) / count);
    const double angle = i * std::numbers::pi * (3.0 - std::sqrt(5.0));
    return {static_cast<float>(radius * std::cos(angle)),
            static_cast<float>(radius * std::sin(angle))};
}

} // namespace

RgbImage Trace(const Scene& scene, cv::Size size, const ThinLens& lens) {
    std::vector<View> views;
    views.reserve(static_cast<std::size_t>(lens.samples));
    for (int i = 0; i < lens.samples; ++i) {
        views.push_back(
            {lens.radiusPerDisparity * OnDisc(i, lens.samples), lens.focus, WithinPixel(i)});
    }
    return TraceViews(scene, size, views);
}

RgbImage TraceAux(const Scene& scene, cv::Size size, int samples) {
    std::vector<View> views;
    views.reserve(static_cast<std::size_t>(samples));
    for (int i = 0; i < samples; ++i) {
        views.push_back({{-1.0f, 0.0f}, 0.0f, WithinPixel(i)});
    }
    return TraceViews(scene, size, views);
}

cv::Mat ExactDisparity(const Scene& scene, cv::Size size) {
    cv::Mat disparity(size, CV_32FC1);
    refocus::ForEachRow(size.height, [&](int y) {
        std::vector<Hit> hits(static_cast<std::size_t>(size.width));
        TraceRow(scene, {}, y, hits);
        float* row = disparity.ptr<float>(y);
        for (std::size_t x = 0; x < hits.size(); ++x) {
            row[x] = hits[x].disparity * static_cast<float>(size.width);
        }
    });
    return disparity;
}

void AddNoise(RgbImage& picture, int most, unsigned seed) {
    cv::Mat bytes(1, static_cast<int>(picture.bytes.size()), CV_8UC1, picture.bytes.data());
    cv::Mat noise(bytes.size(), CV_16SC1);
    cv::RNG(seed).fill(noise, cv::RNG::UNIFORM, -most, most + 1);
    cv::add(bytes, noise, bytes, cv::noArray(), CV_8U);
}

} // namespace quality

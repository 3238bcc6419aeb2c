#include "host/refocus/highlights.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "host/refocus/image.h"
#include "host/refocus/image_memory.h"

namespace refocus {
namespace {

constexpr float kGain = 3.0f;    // light added to a highlight, as a multiple of white
constexpr int kWindowShare = 24; // a highlight's surroundings are a square of 1/24 of the width
constexpr int kRim = 4;          // cells from a highlight's centre to beyond its rim
// Mean light of the surroundings up to which a clipped cell is raised fully, and from which it is
// not raised at all.
constexpr float kDark = 0.10f;
constexpr float kBright = 0.25f;
// Radius in cells up to which a disc is too small to show light above white, which its highlight
// would only lend to its outline, and from which a highlight is raised fully.
constexpr float kSharpDisc = 1.0f;
constexpr float kFullDisc = 3.0f;

float Brightest(const cv::Vec3f& light) {
    return std::max({light[0], light[1], light[2]});
}

// Mean colour of the cells around a highlight's, less that of the surroundings, scaled to a
// brightest component of 1. Saturated colours weigh more. The rim is partly clipped and paler than
// the highlight, so the result is made more saturated.
cv::Vec3f RimHue(const DefocusField& field, const cv::Vec3f& surroundings, cv::Point at) {
    cv::Vec3f sum = field.light.at<cv::Vec3f>(at) * 0.02f;
    const cv::Rect around = cv::Rect(at.x - kRim, at.y - kRim, 2 * kRim + 1, 2 * kRim + 1) &
                            cv::Rect({}, field.light.size());
    for (int y = around.y; y < around.br().y; ++y) {
        for (int x = around.x; x < around.br().x; ++x) {
            if (field.clipped.at<std::uint8_t>(y, x) < 255 && field.weight.at<float>(y, x) > 0.0f) {
                const cv::Vec3f light = field.light.at<cv::Vec3f>(y, x) - surroundings;
                const float saturation =
                    Brightest(light) - std::max(0.0f, std::min({light[0], light[1], light[2]}));
                for (int i = 0; i < 3; ++i) {
                    sum[i] += std::max(0.0f, light[i]) * saturation * field.weight.at<float>(y, x);
                }
            }
        }
    }
    const float brightest = Brightest(sum);
    if (brightest <= 0.0f) {
        return cv::Vec3f::all(1.0f);
    }
    const cv::Vec3f hue = sum / brightest;
    return hue.mul({std::sqrt(hue[0]), std::sqrt(hue[1]), std::sqrt(hue[2])});
}

} // namespace

cv::Mat WithWholeHighlights(const cv::Mat& luma, const cv::Mat& map) {
    constexpr int kBrightLuma = 128;
    cv::Mat result = NewImage(map.size(), CV_8UC1);
    ForEachStripe(map.rows, [&](const cv::Range& rows) {
        const cv::Range read(std::max(0, rows.start - 2), std::min(map.rows, rows.end + 2));
        const cv::Range inner(rows.start - read.start, rows.end - read.start);
        cv::Mat target = result.rowRange(rows);
        map.rowRange(rows).copyTo(target);
        const cv::Mat clipped = luma.rowRange(read) >= kClippedLuma;
        if (cv::countNonZero(clipped) == 0) {
            return;
        }
        // The outline of an object before a light is clipped, too, but continues into dark pixels
        // of its depth. There the light's depth is taken, the smallest of the clipped neighbours'.
        cv::Mat dark = map.rowRange(read) & (luma.rowRange(read) < kBrightLuma);
        cv::dilate(dark, dark, cv::Mat());
        cv::Mat farthest = map.rowRange(read) | ~clipped;
        cv::erode(farthest, farthest, cv::Mat());
        cv::Mat highlights = map.rowRange(read) & clipped;
        farthest.copyTo(highlights, clipped & (highlights <= dark));
        highlights.rowRange(inner).copyTo(target, clipped.rowRange(inner));
        cv::dilate(highlights, highlights, cv::Mat());
        highlights = highlights.rowRange(inner);
        highlights &= luma.rowRange(rows) >= kBrightLuma;
        cv::max(highlights, target, target);
    });
    return result;
}

void RestoreHighlights(DefocusField& field) {
    if (cv::countNonZero(field.clipped) == 0) {
        return;
    }
    const int window = std::max(5, field.clipped.cols / kWindowShare) | 1;
    cv::Mat around = NewImage(field.light.size(), CV_32FC3);
    cv::boxFilter(field.light, around, CV_32F, {window, window}, {-1, -1}, true,
                  cv::BORDER_REPLICATE);
    std::vector<std::pair<cv::Point, cv::Vec3f>> lifts; // all are computed before any is added
    for (int y = 0; y < field.light.rows; ++y) {
        for (int x = 0; x < field.light.cols; ++x) {
            const float clipped = static_cast<float>(field.clipped.at<std::uint8_t>(y, x)) / 255.0f;
            const cv::Vec3f& light = around.at<cv::Vec3f>(y, x);
            const float mean = (light[0] + light[1] + light[2]) / 3.0f;
            const float spread = std::clamp(
                (field.radius.at<float>(y, x) - kSharpDisc) / (kFullDisc - kSharpDisc), 0.0f, 1.0f);
            const float gate =
                spread * std::clamp((kBright - mean) / (kBright - kDark), 0.0f, 1.0f);
            if (clipped > 0.0f && gate > 0.0f) {
                lifts.emplace_back(cv::Point(x, y), (RimHue(field, light, {x, y}) * (1.0f + kGain) -
                                                     field.light.at<cv::Vec3f>(y, x)) *
                                                        (clipped * gate));
            }
        }
    }
    for (const auto& [at, lift] : lifts) {
        field.light.at<cv::Vec3f>(at) += lift;
    }
}

} // namespace refocus

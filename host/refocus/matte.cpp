#include "host/refocus/matte.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>

#include "host/refocus/colour.h"
#include "host/refocus/image.h"
#include "host/refocus/image_memory.h"

namespace refocus {
namespace {

constexpr float kMinShare = 0.02f;
// Difference in luma between subject and background up to which a pixel's luma is ignored, and from
// which it alone decides.
constexpr float kLowContrast = 16.0f;
constexpr float kHighContrast = 48.0f;

// Weighted mean luma of a field's 5x5 cells around one.
float MeanLuma(const cv::Mat& light, const cv::Mat& weight, cv::Point at) {
    const cv::Rect around = cv::Rect(at.x - 2, at.y - 2, 5, 5) & cv::Rect({}, light.size());
    float sum = 0.0f;
    float total = 0.0f;
    for (int y = around.y; y < around.br().y; ++y) {
        for (int x = around.x; x < around.br().x; ++x) {
            const float share = weight.at<float>(y, x);
            if (share > 0.0f) {
                sum += share * YuvOf(light.at<cv::Vec3f>(y, x))[0];
                total += share;
            }
        }
    }
    return total > 0.0f ? sum / total : 0.0f;
}

} // namespace

Matte MakeMatte(const DefocusFields& fields) {
    const cv::Size size = fields.sharpWeight.size();
    cv::Mat sharp = NewImage(size, CV_32FC1);
    cv::Mat far = NewImage(size, CV_32FC1);
    cv::boxFilter(fields.sharpWeight, sharp, CV_32F, {3, 3});
    cv::boxFilter(fields.far.weight, far, CV_32F, {3, 3});
    Matte matte{NewImage(size, CV_32FC1), NewImage(size, CV_32FC1), NewImage(size, CV_32FC1),
                NewImage(size, CV_8UC1)};
    ForEachRow(size.height, [&](int y) {
        for (int x = 0; x < size.width; ++x) {
            const float sum = sharp.at<float>(y, x) + far.at<float>(y, x);
            const float share = sum > kMinShare ? far.at<float>(y, x) / sum : 1.0f;
            matte.far.at<float>(y, x) = share;
            const bool outline = share > kMinShare && share < 1.0f - kMinShare;
            matte.onOutline.at<std::uint8_t>(y, x) = outline ? 255 : 0;
            matte.sharpLuma.at<float>(y, x) =
                outline ? MeanLuma(fields.sharpLight, fields.sharpWeight, {x, y}) : 0.0f;
            matte.farLuma.at<float>(y, x) =
                outline ? MeanLuma(fields.far.light, fields.far.weight, {x, y}) : 0.0f;
        }
    });
    return matte;
}

float MatteShare(float luma, float own, float far, float sharpLuma, float farLuma) {
    const float contrast = farLuma - sharpLuma;
    const float confidence = std::clamp(
        (std::abs(contrast) - kLowContrast) / (kHighContrast - kLowContrast), 0.0f, 1.0f);
    float share = far;
    if (confidence > 0.0f) {
        const float byLuma = std::clamp((luma - sharpLuma) / contrast, 0.0f, 1.0f);
        share += confidence * (byLuma - share);
    }
    // Fades to the disparity's own share at a cell and a half from the outline, where far is 0
    // or 1.
    const float onOutline = std::min(1.0f, 10.0f * far * (1.0f - far));
    return own + onOutline * (share - own);
}

} // namespace refocus

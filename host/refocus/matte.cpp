#include "host/refocus/matte.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>

#include "host/refocus/colour.h"

namespace refocus {
namespace {

constexpr float kLeastShare = 0.02f;
constexpr float kVagueContrast = 16.0f; // levels between subject and background: up to here the
constexpr float kClearContrast = 48.0f; // luma tells nothing, from here on it tells all

// Mean luma of a field's cells around one, by weight.
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
    cv::Mat sharp, far;
    cv::boxFilter(fields.sharpWeight, sharp, CV_32F, {3, 3});
    cv::boxFilter(fields.far.weight, far, CV_32F, {3, 3});
    Matte matte{cv::Mat::zeros(size, CV_32FC1), cv::Mat::zeros(size, CV_32FC1),
                cv::Mat::zeros(size, CV_32FC1), cv::Mat::zeros(size, CV_8UC1)};
    cv::parallel_for_(cv::Range(0, size.height), [&](const cv::Range& range) {
        for (int y = range.start; y < range.end; ++y) {
            for (int x = 0; x < size.width; ++x) {
                const float sum = sharp.at<float>(y, x) + far.at<float>(y, x);
                const float share = sum > kLeastShare ? far.at<float>(y, x) / sum : 1.0f;
                matte.far.at<float>(y, x) = share;
                if (share > kLeastShare && share < 1.0f - kLeastShare) {
                    matte.onOutline.at<std::uint8_t>(y, x) = 255;
                    matte.sharpLuma.at<float>(y, x) =
                        MeanLuma(fields.sharpLight, fields.sharpWeight, {x, y});
                    matte.farLuma.at<float>(y, x) =
                        MeanLuma(fields.far.light, fields.far.weight, {x, y});
                }
            }
        }
    });
    return matte;
}

float MatteShare(float luma, float own, float far, float sharpLuma, float farLuma) {
    const float contrast = farLuma - sharpLuma;
    const float clear = std::clamp(
        (std::abs(contrast) - kVagueContrast) / (kClearContrast - kVagueContrast), 0.0f, 1.0f);
    float share = far;
    if (clear > 0.0f) {
        const float told = std::clamp((luma - sharpLuma) / contrast, 0.0f, 1.0f);
        share += clear * (told - share);
    }
    const float near = std::min(1.0f, 10.0f * far * (1.0f - far)); // 0 a cell and a half away
    return own + near * (share - own);
}

} // namespace refocus

#include "host/refocus/colour.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace refocus {
namespace {

std::array<float, 256> MakeDecoding() {
    std::array<float, 256> table{};
    for (std::size_t i = 0; i < table.size(); ++i) {
        const double code = static_cast<double>(i) / 255.0;
        table[i] = static_cast<float>(code <= 0.04045 ? code / 12.92
                                                      : std::pow((code + 0.055) / 1.055, 2.4));
    }
    return table;
}

constexpr std::size_t kEncodingSteps = 4096;

// Code value (0 to 255) of equally spaced light.
std::array<float, kEncodingSteps + 1> MakeEncoding() {
    std::array<float, kEncodingSteps + 1> table{};
    for (std::size_t i = 0; i < table.size(); ++i) {
        const double light = static_cast<double>(i) / kEncodingSteps;
        const double code =
            light <= 0.0031308 ? light * 12.92 : 1.055 * std::pow(light, 1.0 / 2.4) - 0.055;
        table[i] = static_cast<float>(255.0 * code);
    }
    return table;
}

float Encode(float light) {
    static const auto table = MakeEncoding();
    const float at = std::clamp(light, 0.0f, 1.0f) * static_cast<float>(kEncodingSteps);
    const std::size_t i = std::min(static_cast<std::size_t>(at), kEncodingSteps - 1);
    return table[i] + (at - static_cast<float>(i)) * (table[i + 1] - table[i]);
}

float Decode(float code) {
    static const auto table = MakeDecoding();
    return table[static_cast<std::size_t>(std::clamp(code + 0.5f, 0.0f, 255.0f))];
}

} // namespace

cv::Vec3f LightOf(std::uint8_t luma, std::uint8_t u, std::uint8_t v) {
    const auto y = static_cast<float>(luma);
    const float cb = static_cast<float>(u) - 128.0f;
    const float cr = static_cast<float>(v) - 128.0f;
    return {Decode(y + 1.402f * cr), Decode(y - 0.344136f * cb - 0.714136f * cr),
            Decode(y + 1.772f * cb)};
}

cv::Mat ToYuv(const cv::Mat& light) {
    cv::Mat yuv(light.size(), CV_32FC3);
    cv::parallel_for_(cv::Range(0, light.rows), [&](const cv::Range& range) {
        for (int row = range.start; row < range.end; ++row) {
            const auto* in = light.ptr<cv::Vec3f>(row);
            auto* out = yuv.ptr<cv::Vec3f>(row);
            for (int x = 0; x < light.cols; ++x) {
                const float r = Encode(in[x][0]);
                const float g = Encode(in[x][1]);
                const float b = Encode(in[x][2]);
                const float y = 0.299f * r + 0.587f * g + 0.114f * b;
                out[x] = {y, 128.0f + (b - y) / 1.772f, 128.0f + (r - y) / 1.402f};
            }
        }
    });
    return yuv;
}

} // namespace refocus

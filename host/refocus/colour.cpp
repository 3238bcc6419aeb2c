#include "host/refocus/colour.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace refocus {
namespace {

std::array<float, 256> MakeDecoding() {
    std::array<float, 256> table{};
    for (std::size_t i = 0; i < table.size(); ++i) {
        table[i] = static_cast<float>(LinearOfSrgb(static_cast<double>(i) / 255.0));
    }
    return table;
}

constexpr std::size_t kEncodingSteps = 4096;

// Code values of equally spaced light.
std::array<float, kEncodingSteps + 1> MakeEncoding() {
    std::array<float, kEncodingSteps + 1> table{};
    for (std::size_t i = 0; i < table.size(); ++i) {
        table[i] =
            static_cast<float>(255.0 * SrgbOfLinear(static_cast<double>(i) / kEncodingSteps));
    }
    return table;
}

const std::array<float, 256> kDecoding = MakeDecoding();
const std::array<float, kEncodingSteps + 1> kEncoding = MakeEncoding();

// Linear interpolation between whole code values.
float Decode(float code) {
    const float at = std::clamp(code, 0.0f, 255.0f);
    const std::size_t i = std::min(static_cast<std::size_t>(at), std::size_t{254});
    return kDecoding[i] + (at - static_cast<float>(i)) * (kDecoding[i + 1] - kDecoding[i]);
}

} // namespace

double LinearOfSrgb(double code) {
    return code <= 0.04045 ? code / 12.92 : std::pow((code + 0.055) / 1.055, 2.4);
}

double SrgbOfLinear(double light) {
    return light <= 0.0031308 ? light * 12.92 : 1.055 * std::pow(light, 1.0 / 2.4) - 0.055;
}

const float* LightOfCodes() {
    return kDecoding.data();
}

float CodeOf(float light) {
    const float at = std::clamp(light, 0.0f, 1.0f) * static_cast<float>(kEncodingSteps);
    const std::size_t i = std::min(static_cast<std::size_t>(at), kEncodingSteps - 1);
    return kEncoding[i] + (at - static_cast<float>(i)) * (kEncoding[i + 1] - kEncoding[i]);
}

cv::Vec3f LightOf(float luma, float u, float v) {
    const float cb = u - 128.0f;
    const float cr = v - 128.0f;
    return {Decode(luma + 1.402f * cr), Decode(luma - 0.344136f * cb - 0.714136f * cr),
            Decode(luma + 1.772f * cb)};
}

cv::Vec3f YuvOf(cv::Vec3f light) {
    const float r = CodeOf(light[0]);
    const float g = CodeOf(light[1]);
    const float b = CodeOf(light[2]);
    const float y = 0.299f * r + 0.587f * g + 0.114f * b;
    return {y, 128.0f + (b - y) / 1.772f, 128.0f + (r - y) / 1.402f};
}

} // namespace refocus

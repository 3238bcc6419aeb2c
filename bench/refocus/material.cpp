#include "bench/refocus/material.h"

#include <algorithm>
#include <cmath>

#include "host/refocus/colour.h"

namespace quality {
namespace {

std::uint32_t Scatter(std::uint32_t value) {
    value ^= value >> 16;
    value *= 0x7feb352dU;
    value ^= value >> 15;
    value *= 0x846ca68bU;
    return value ^ (value >> 16);
}

float Unit(std::uint32_t bits) {
    return static_cast<float>(bits >> 8) * 0x1p-24f;
}

float Lattice(int x, int y, std::uint32_t seed) {
    const auto column = static_cast<std::uint32_t>(x);
    const auto row = static_cast<std::uint32_t>(y);
    return Unit(Scatter(column + Scatter(row + Scatter(seed))));
}

float Smooth(float t) {
    return t * t * (3.0f - 2.0f * t);
}

float Fraction(float value) {
    return value - std::floor(value);
}

} // namespace

cv::Vec3f Light(int red, int green, int blue) {
    const auto decode = [](int code) {
        return static_cast<float>(refocus::LinearOfSrgb(code / 255.0));
    };
    return {decode(red), decode(green), decode(blue)};
}

float Noise(float x, float y, std::uint32_t seed) {
    const int column = cvFloor(x);
    const int row = cvFloor(y);
    const float across = Smooth(x - static_cast<float>(column));
    const float down = Smooth(y - static_cast<float>(row));
    const auto mix = [](float a, float b, float share) { return a + share * (b - a); };
    return mix(mix(Lattice(column, row, seed), Lattice(column + 1, row, seed), across),
               mix(Lattice(column, row + 1, seed), Lattice(column + 1, row + 1, seed), across),
               down);
}

float Cloud(float x, float y, std::uint32_t seed, int octaves) {
    float sum = 0.0f;
    float total = 0.0f;
    float weight = 1.0f;
    for (int i = 0; i < octaves; ++i) {
        sum += weight * Noise(x, y, seed + static_cast<std::uint32_t>(i));
        total += weight;
        weight *= 0.6f;
        x *= 2.03f;
        y *= 2.03f;
    }
    return sum / total;
}

cv::Vec3f Plaster(float x, float y, const cv::Vec3f& colour, std::uint32_t seed) {
    const float stains = Cloud(x * 6.0f, y * 6.0f, seed, 4);
    const float grain = Cloud(x * 90.0f, y * 90.0f, seed + 50, 3);
    return colour * ((0.6f + 0.8f * stains) * (0.7f + 0.6f * grain));
}

cv::Vec3f Bricks(float x, float y, std::uint32_t seed) {
    constexpr float kWidth = 0.075f;
    constexpr float kHeight = 0.03f;
    constexpr float kJoint = 0.0035f;
    const int row = cvFloor(y / kHeight);
    const float shifted = x + (row % 2 == 0 ? 0.0f : kWidth / 2.0f);
    const int column = cvFloor(shifted / kWidth);
    const float grain = 0.6f + 0.8f * Cloud(x * 110.0f, y * 110.0f, seed, 4);
    const bool joint =
        Fraction(shifted / kWidth) * kWidth < kJoint || Fraction(y / kHeight) * kHeight < kJoint;
    if (joint) {
        return Light(176, 168, 155) * grain;
    }
    const float tone = Lattice(column, row, seed + 9);
    return (Light(120, 58, 42) + tone * Light(110, 72, 52)) * grain;
}

cv::Vec3f Wood(float x, float y, const cv::Vec3f& colour, std::uint32_t seed) {
    const float rings = Cloud(x * 2.0f, y * 26.0f, seed, 4);
    const float fibre = Cloud(x * 24.0f, y * 300.0f, seed + 20, 3);
    const float line = 0.5f + 0.5f * std::sin(70.0f * rings);
    return colour * ((0.55f + 0.35f * line + 0.3f * rings) * (0.65f + 0.7f * fibre));
}

cv::Vec3f Cloth(float x, float y, const cv::Vec3f& colour, std::uint32_t seed) {
    const float folds = Cloud(x * 7.0f + 2.0f * y, y * 2.5f, seed, 3);
    const float yarn = Noise(x * 330.0f, y * 200.0f, seed + 30);
    const float blotch = Cloud(x * 50.0f, y * 50.0f, seed + 60, 3);
    return colour * ((0.25f + 1.3f * folds * folds) * (0.65f + 0.5f * yarn + 0.3f * blotch));
}

cv::Vec3f Foliage(float x, float y, std::uint32_t seed) {
    const float depth = Cloud(x * 9.0f, y * 9.0f, seed, 3);
    const float leaf = Cloud(x * 45.0f, y * 45.0f, seed + 70, 3);
    const float sun = std::clamp((leaf - 0.45f) * 5.0f, 0.0f, 1.0f);
    const cv::Vec3f shade = Light(26, 42, 18) + depth * Light(52, 74, 30);
    return shade + sun * depth * Light(170, 190, 90);
}

cv::Vec3f Print(float x, float y, const cv::Vec3f& colour, std::uint32_t seed) {
    constexpr float kLine = 0.016f;
    const int line = cvFloor(y / kLine);
    const float within = Fraction(y / kLine);
    const bool word = Noise(x * 90.0f, static_cast<float>(line) * 7.3f, seed) > 0.33f;
    const float strokes = Noise(x * 420.0f, y * 300.0f, seed + 5);
    const bool ink = word && within > 0.3f && within < 0.75f && strokes > 0.42f;
    return ink ? Light(40, 38, 44)
               : colour * (0.92f + 0.16f * Cloud(x * 40.0f, y * 40.0f, seed, 3));
}

float Random::Between(float low, float high) {
    state_ = state_ * 6364136223846793005ULL + 1442695040888963407ULL;
    return low + (high - low) * Unit(static_cast<std::uint32_t>(state_ >> 32));
}

} // namespace quality

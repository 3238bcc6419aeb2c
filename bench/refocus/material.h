#pragma once

#include <cstdint>

#include "bench/refocus/scene.h"

// Procedural textures of the synthetic scenes. All are functions of a position, in widths of the
// image, and a seed.
namespace quality {

// Linear light of sRGB code values from 0 to 255.
cv::Vec3f Light(int red, int green, int blue);

// Value noise, 0 to 1, on a lattice of distance 1.
float Noise(float x, float y, std::uint32_t seed);
// Fractal noise, 0 to 1: the sum of octaves of value noise.
float Cloud(float x, float y, std::uint32_t seed, int octaves = 5);

inline cv::Vec4f Opaque(const cv::Vec3f& light) {
    return {light[0], light[1], light[2], 1.0f};
}
inline cv::Vec4f Clear() {
    return {};
}
inline cv::Vec4f OpaqueIf(bool covers, const cv::Vec3f& light) {
    return covers ? Opaque(light) : Clear();
}

cv::Vec3f Plaster(float x, float y, const cv::Vec3f& colour, std::uint32_t seed);
cv::Vec3f Bricks(float x, float y, std::uint32_t seed);
cv::Vec3f Wood(float x, float y, const cv::Vec3f& colour, std::uint32_t seed); // grain along x
cv::Vec3f Cloth(float x, float y, const cv::Vec3f& colour, std::uint32_t seed);
cv::Vec3f Foliage(float x, float y, std::uint32_t seed);
// Lines of words, dark on the colour.
cv::Vec3f Print(float x, float y, const cv::Vec3f& colour, std::uint32_t seed);

// Pseudo-random numbers, the same on every machine.
class Random {
public:
    explicit Random(std::uint32_t seed) : state_(seed) {}
    float Between(float low, float high);

private:
    std::uint64_t state_;
};

} // namespace quality

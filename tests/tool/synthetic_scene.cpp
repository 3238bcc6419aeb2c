#include "tests/tool/synthetic_scene.h"

#include <algorithm>
#include <cmath>
#include <random>

namespace {

std::uint32_t Hash(std::uint32_t x, std::uint32_t y, std::uint32_t seed) {
    std::uint32_t hash = x * 2654435761u ^ y * 2246822519u ^ seed * 3266489917u;
    hash = (hash ^ (hash >> 15)) * 2246822519u;
    hash = (hash ^ (hash >> 13)) * 3266489917u;
    return hash ^ (hash >> 16);
}

// Value noise between 0 and 1.
double Noise(double x, double y, std::uint32_t seed) {
    const double fx = std::floor(x);
    const double fy = std::floor(y);
    const auto corner = [&](int dx, int dy) {
        const auto ix = static_cast<std::uint32_t>(static_cast<std::int64_t>(fx) + dx);
        const auto iy = static_cast<std::uint32_t>(static_cast<std::int64_t>(fy) + dy);
        return Hash(ix, iy, seed) / 4294967295.0;
    };
    const auto smooth = [](double t) { return t * t * (3 - 2 * t); };
    const double sx = smooth(x - fx);
    const double sy = smooth(y - fy);
    const double upper = corner(0, 0) + (corner(1, 0) - corner(0, 0)) * sx;
    const double lower = corner(0, 1) + (corner(1, 1) - corner(0, 1)) * sx;
    return upper + (lower - upper) * sy;
}

double Fractal(double x, double y, std::uint32_t seed) {
    double sum = 0;
    double weight = 0.5;
    for (std::uint32_t octave = 0; octave < 6; ++octave) {
        sum += weight * Noise(x, y, seed + octave * 101);
        weight *= 0.62;
        x *= 2.1;
        y *= 2.1;
    }
    return std::clamp(sum / 1.2, 0.0, 1.0);
}

} // namespace

bool SyntheticScene::Layer::Covers(double px, double py) const {
    const double dx = (px - x) / radiusX;
    const double dy = (py - y) / radiusY;
    return ellipse ? dx * dx + dy * dy < 1 : std::abs(dx) < 1 && std::abs(dy) < 1;
}

SyntheticScene::SyntheticScene(std::uint32_t seed) : seed_(seed) {
    std::mt19937 random(seed);
    const auto between = [&random](double low, double high) {
        return low + (high - low) * (static_cast<double>(random()) / 4294967296.0);
    };
    const int things = 2 + static_cast<int>(random() % 4);
    for (int i = 0; i <= things; ++i) {
        Layer layer;
        layer.disparity =
            i == things ? between(0.004, 0.012) : between(0.018, 0.03) + 0.008 * (things - i);
        layer.ellipse = random() % 2 == 0;
        layer.x = between(0.1, 0.9);
        layer.y = between(0.1, 0.7);
        layer.radiusX = between(0.08, 0.22);
        layer.radiusY = between(0.08, 0.25);
        layer.texture = static_cast<std::uint32_t>(random());
        layer.scale = between(4, 12);
        for (int c = 0; c < 3; ++c) {
            layer.first[c] = between(20, 235);
            layer.second[c] = between(20, 235);
        }
        layers_.push_back(layer);
    }
    for (double& gain : gain_) {
        gain = between(0.96, 1.04);
    }
}

const SyntheticScene::Layer& SyntheticScene::LayerAt(double x, double y, const View& view,
                                                     double& u, double& v) const {
    for (std::size_t i = 0; i < layers_.size(); ++i) {
        const Layer& layer = layers_[i];
        u = x + view.panX + (view.aux ? layer.disparity : 0) - (i == 0 ? view.walkX : 0);
        v = y + view.panY - (i == 0 ? view.walkY : 0);
        if (i + 1 == layers_.size() || layer.Covers(u, v)) {
            return layer;
        }
    }
    return layers_.back();
}

Colour SyntheticScene::ColourOf(const Layer& layer, double u, double v, double grain) {
    const double mix = Noise(u * layer.scale * 0.7, v * layer.scale * 0.7, layer.texture + 7);
    const double light = 0.45 + 0.9 * Fractal(u * layer.scale, v * layer.scale, layer.texture);
    Colour colour{};
    for (std::size_t c = 0; c < colour.size(); ++c) {
        const double base = layer.first[c] + (layer.second[c] - layer.first[c]) * mix;
        colour[c] = static_cast<std::uint8_t>(std::clamp(base * light + grain, 0.0, 255.0));
    }
    return colour;
}

RgbImage SyntheticScene::Paint(int width, int height, const View& view) const {
    RgbImage picture(width, height);
    const std::uint32_t sensor = seed_ + (view.aux ? 1u : 2u);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            double u = 0;
            double v = 0;
            const Layer& layer = LayerAt((x + 0.5) / width, (y + 0.5) / width, view, u, v);
            const std::uint32_t hash =
                Hash(static_cast<std::uint32_t>(x), static_cast<std::uint32_t>(y), sensor);
            Colour colour = ColourOf(layer, u, v, static_cast<double>(hash % 9) - 4);
            if (view.aux) {
                for (std::size_t c = 0; c < colour.size(); ++c) {
                    colour[c] = static_cast<std::uint8_t>(std::min(colour[c] * gain_[c], 255.0));
                }
            }
            picture.Set(x, y, colour);
        }
    }
    return picture;
}

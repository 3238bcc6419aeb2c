#include <algorithm>
#include <cmath>
#include <cstdlib>

#include <fmt/format.h>

#include "bench/refocus/material.h"
#include "bench/refocus/scene.h"
#include "bench/refocus/thin_lens.h"

namespace quality {
namespace {

constexpr int kTexelsPerPixel = 2;
constexpr float kMargin = 0.06f; // beyond the border, where aux camera and lens see more

const cv::Rect2f kEverywhere(-kMargin, -kMargin, 1 + 2 * kMargin, kSceneHeight + 2 * kMargin);

class Builder {
public:
    Builder(std::string name, float exposure, int noise, int imageWidth)
        : scene_{std::move(name), {}, {}, exposure, noise}, density_(kTexelsPerPixel * imageWidth) {
    }

    Surface& Add(const Plane& plane, const cv::Rect2f& bounds = kEverywhere) {
        return scene_.surfaces.emplace_back(plane, bounds, density_);
    }
    void Add(const Plane& plane, const cv::Rect2f& bounds, const Paint& paint) {
        Add(plane, bounds).Fill(paint);
    }
    Scene Done() { return std::move(scene_); }

private:
    Scene scene_;
    int density_;
};

struct Ellipse {
    cv::Point2f centre;
    float across; // half axes
    float down;

    // Length 1 on the ellipse, less inside.
    cv::Point2f Relative(float x, float y) const {
        return {(x - centre.x) / across, (y - centre.y) / down};
    }
    bool Holds(float x, float y) const {
        const cv::Point2f at = Relative(x, y);
        return at.dot(at) <= 1.0f;
    }
    cv::Rect2f Bounds() const { return {centre.x - across, centre.y - down, 2 * across, 2 * down}; }
    // Brightness of a ball lit from the upper left.
    float Shade(float x, float y) const {
        const cv::Point2f at = Relative(x, y);
        const float front = std::sqrt(std::max(0.0f, 1.0f - at.dot(at)));
        return 0.25f + 0.85f * std::max(0.0f, -0.45f * at.x - 0.4f * at.y + 0.8f * front);
    }
};

// Quadratic curve.
std::vector<cv::Point2f> Curve(cv::Point2f from, cv::Point2f over, cv::Point2f to) {
    constexpr int kParts = 24;
    std::vector<cv::Point2f> line;
    for (int i = 0; i <= kParts; ++i) {
        const float t = static_cast<float>(i) / kParts;
        line.push_back((1 - t) * (1 - t) * from + 2 * t * (1 - t) * over + t * t * to);
    }
    return line;
}

cv::Vec3f Skin(const Ellipse& head, float x, float y) {
    const cv::Point2f at = head.Relative(x, y);
    const auto near = [&at](float u, float v, float across, float down) {
        return std::hypot((std::abs(at.x) - u) / across, (at.y - v) / down) < 1.0f;
    };
    const float grain = 0.8f + 0.4f * Cloud(x * 130.0f, y * 130.0f, 3, 3);
    const float light = head.Shade(x, y) * grain;
    if (near(0.36f, -0.04f, 0.06f, 0.05f)) {
        return Light(40, 30, 26) * light;
    }
    if (near(0.36f, -0.04f, 0.16f, 0.06f)) {
        return Light(235, 230, 225) * light;
    }
    if (near(0.36f, -0.2f, 0.2f, 0.035f)) {
        return Light(70, 45, 30) * light;
    }
    if (near(0.0f, 0.52f, 0.26f, 0.06f)) {
        return Light(165, 70, 66) * light;
    }
    const float nose = at.x > 0.0f && at.x < 0.12f && at.y > -0.1f && at.y < 0.28f ? 0.75f : 1.0f;
    const float flush = near(0.5f, 0.28f, 0.2f, 0.16f) ? 0.9f : 1.0f;
    return Light(226, 176, 146).mul({1.0f, flush, flush}) * (light * nose);
}

// Head, shoulders and hair with single strands that stand off.
void AddPerson(Builder& builder, float disparity, const Ellipse& head, const cv::Vec3f& coat,
               Random& random) {
    const cv::Point2f c = head.centre;
    const auto shoulder = [c, &head](float x, float y) {
        const float below = (y - c.y) / head.down;
        const float half = below < 1.2f ? 0.45f : 0.45f + 2.0f * std::sqrt((below - 1.2f) / 2.5f);
        return below > 0.6f && std::abs(x - c.x) < std::min(half, 2.1f) * head.across;
    };
    const cv::Vec3f hair = Light(84, 54, 34) * random.Between(0.4f, 3.0f);
    const auto strand = [hair](float x, float y) {
        return Opaque(hair * (0.4f + 1.5f * Noise(x * 350.0f, y * 60.0f, 11)));
    };
    const Ellipse cap{c - cv::Point2f(0.0f, 0.25f * head.down), 1.2f * head.across,
                      1.08f * head.down};
    Surface& back =
        builder.Add({disparity - 0.0006f}, {c.x - 2.6f * head.across, c.y - 2.2f * head.down,
                                            5.2f * head.across, 4.4f * head.down});
    back.Fill([&](float x, float y) { return cap.Holds(x, y) ? strand(x, y) : Clear(); });
    for (int i = 0; i < 150; ++i) {
        const float angle = random.Between(-3.6f, 0.46f); // over the head, from ear to ear
        const cv::Point2f out(std::cos(angle) * head.across, std::sin(angle) * head.down);
        const float length = random.Between(1.15f, 1.6f);
        const cv::Point2f falls(random.Between(-0.35f, 0.35f) * head.across,
                                random.Between(0.0f, 0.7f) * head.down);
        back.Stroke(Curve(c + 0.95f * out, c + 1.35f * out, c + length * out + falls), 0.002f,
                    0.0008f, strand);
    }
    builder.Add({disparity}, {c.x - 2.2f * head.across, c.y, 4.4f * head.across, 1.0f},
                [&](float x, float y) {
                    const bool neck = y < c.y + 1.25f * head.down;
                    const cv::Vec3f colour =
                        neck ? Light(190, 140, 112) * 0.6f : Cloth(x, y, coat, 21);
                    return OpaqueIf(shoulder(x, y), colour);
                });
    builder.Add({disparity + 0.0008f}, head.Bounds(), [&](float x, float y) {
        const bool fringe = head.Relative(x, y).y < -0.62f + 0.12f * Noise(x * 150.0f, 0.0f, 8);
        return head.Holds(x, y) && !fringe ? Opaque(Skin(head, x, y)) : Clear();
    });
}

// A leaf with a rib, from its stem to its tip.
void AddLeaf(Surface& surface, cv::Point2f stem, cv::Point2f tip, float width,
             const cv::Vec3f& colour) {
    const cv::Point2f along = tip - stem;
    const float length = static_cast<float>(cv::norm(along));
    const cv::Point2f unit = along * (1.0f / length);
    surface.Fill([=](float x, float y) {
        const cv::Point2f at = cv::Point2f(x, y) - stem;
        const float t = at.dot(unit) / length;
        const float off = (at.x * unit.y - at.y * unit.x) / width;
        if (t < 0.0f || t > 1.0f || std::abs(off) > std::sin(3.14159f * std::pow(t, 0.8f)) / 2) {
            return Clear();
        }
        const float rib = std::abs(off) < 0.035f ? 1.7f : 1.0f;
        const float vein = 0.9f + 0.2f * std::sin(60.0f * (t + 0.6f * std::abs(off)));
        const float side = off > 0.0f ? 1.1f : 0.8f;
        return Opaque(colour * (rib * vein * side * (0.6f + 0.8f * Cloud(x * 70, y * 70, 14, 3))));
    });
}

// A twig along a curve, with leaves at both sides.
void AddTwig(Builder& builder, float disparity, const std::vector<cv::Point2f>& line,
             std::uint32_t seed) {
    Random random(seed);
    cv::Point2f low = line[0];
    cv::Point2f high = line[0];
    for (const cv::Point2f& point : line) {
        low = {std::min(low.x, point.x), std::min(low.y, point.y)};
        high = {std::max(high.x, point.x), std::max(high.y, point.y)};
    }
    const cv::Point2f reach(0.12f, 0.12f);
    Surface& twig = builder.Add({disparity}, cv::Rect2f(low - reach, high + reach));
    twig.Stroke(line, 0.006f, 0.003f, [](float x, float y) {
        return Opaque(Light(110, 84, 56) * (0.5f + Noise(x * 200, y * 200, 15)));
    });
    for (std::size_t i = 3; i < line.size(); i += 3) {
        for (const float side : {-1.0f, 1.0f}) {
            const cv::Point2f ahead = (line[i] - line[i - 1]) * 2.0f;
            const cv::Point2f across(-ahead.y * side * 1.5f, ahead.x * side * 1.5f);
            const float size =
                random.Between(0.75f, 1.15f) * 0.09f / static_cast<float>(cv::norm(ahead + across));
            const auto tone = static_cast<int>(random.Between(0.0f, 50.0f));
            AddLeaf(twig, line[i], line[i] + (ahead + across) * size, 0.034f,
                    Light(84 + tone, 132 + tone, 46));
        }
    }
}

// A glazed vessel of a height and a profile (half the width by the share of the height).
void AddVessel(Builder& builder, const Plane& plane, cv::Point2f foot, float height,
               const std::function<float(float)>& profile, const cv::Vec3f& colour,
               std::uint32_t seed) {
    const cv::Rect2f bounds(foot.x - 0.12f, foot.y - height, 0.24f, height);
    builder.Add({plane.At(foot.x, foot.y)}, bounds, [&](float x, float y) {
        const float up = (foot.y - y) / height;
        const float across = (x - foot.x) / std::max(profile(up), 1e-4f);
        if (std::abs(across) > 1.0f || up < 0.0f || up > 1.0f) {
            return Clear();
        }
        const float front = std::sqrt(1.0f - across * across);
        const float light = 0.2f + 0.8f * std::max(0.0f, 0.75f * front - 0.5f * across);
        const float shine = std::pow(std::max(0.0f, 1.0f - std::abs(across + 0.45f) * 3.0f), 3.0f);
        const bool stripe = std::abs(up - 0.7f) < 0.03f || std::abs(up - 0.6f) < 0.012f;
        const cv::Vec3f glaze = stripe ? Light(60, 70, 120) : colour;
        const float speckle = 0.75f + 0.5f * Cloud(x * 120, y * 120, seed, 4);
        return Opaque(glaze * (light * speckle) + cv::Vec3f::all(0.35f * shine));
    });
}

// A printed card.
struct Card {
    cv::Point2f centre;
    float rotation;
    Plane plane;
    cv::Vec3f colour;
};

void AddCard(Builder& builder, const Card& card, std::uint32_t seed) {
    constexpr float kAcross = 0.105f;
    constexpr float kDown = 0.145f;
    constexpr float kCorner = 0.018f;
    const cv::Rect2f bounds(card.centre.x - 0.2f, card.centre.y - 0.2f, 0.4f, 0.4f);
    const float cosine = std::cos(card.rotation);
    const float sine = std::sin(card.rotation);
    builder.Add(card.plane, bounds, [&](float x, float y) {
        const cv::Point2f off(x - card.centre.x, y - card.centre.y);
        const float u = off.x * cosine + off.y * sine;
        const float v = off.y * cosine - off.x * sine;
        const float corner = std::hypot(std::max(std::abs(u) - kAcross + kCorner, 0.0f),
                                        std::max(std::abs(v) - kDown + kCorner, 0.0f));
        if (corner > kCorner) {
            return Clear();
        }
        const bool edge = std::abs(u) > 0.092f || std::abs(v) > 0.132f;
        const bool diamond = std::abs(u) / 0.05f + std::abs(v + 0.05f) / 0.065f < 1.0f;
        const cv::Vec3f paper = Light(238, 232, 220);
        return Opaque(edge        ? paper * (0.9f + 0.2f * Noise(x * 200, y * 200, seed))
                      : diamond   ? Cloth(u, v, card.colour, seed) * 2.0f
                      : v > 0.03f ? Print(u, v, paper, seed)
                                  : Plaster(u, v, card.colour * 0.5f + paper * 0.4f, seed));
    });
}

cv::Vec3f RandomColour(Random& random, float low, float high) {
    return {random.Between(low, high), random.Between(low, high), random.Between(low, high)};
}

bool Chance(Random& random, float share) {
    return random.Between(0.0f, 1.0f) < share;
}

int Whole(Random& random, int low, int high) {
    return std::min(
        high, cvFloor(random.Between(static_cast<float>(low), static_cast<float>(high) + 1.0f)));
}

// One of the textures, of a random colour, scale and seed.
Paint RandomTexture(Random& random) {
    const cv::Vec3f colour = RandomColour(random, 0.05f, 0.8f);
    const float scale = random.Between(0.5f, 1.6f);
    const auto seed = static_cast<std::uint32_t>(Whole(random, 1, 100000));
    switch (Whole(random, 0, 6)) {
    case 0:
        return
            [=](float x, float y) { return Opaque(Plaster(x * scale, y * scale, colour, seed)); };
    case 1:
        return [=](float x, float y) { return Opaque(Bricks(x * scale, y * scale, seed)); };
    case 2:
        return [=](float x, float y) { return Opaque(Wood(x * scale, y * scale, colour, seed)); };
    case 3:
        return [=](float x, float y) {
            return Opaque(Cloth(x * scale, y * scale, colour, seed) * 1.5f);
        };
    case 4:
        return [=](float x, float y) { return Opaque(Foliage(x * scale, y * scale, seed)); };
    case 5:
        return [=](float x, float y) {
            return Opaque(Print(x * scale, y * scale, colour + cv::Vec3f::all(0.2f), seed));
        };
    default: // smooth, with hardly anything to match
        return [=](float x, float y) {
            return Opaque(colour * (0.5f + Cloud(x * 2 * scale, y * 3 * scale, seed, 3)));
        };
    }
}

// A wall of bricks with rows of windows, some of them lit.
Paint Facade(Random& random) {
    const auto seed = static_cast<std::uint32_t>(Whole(random, 1, 100000));
    const cv::Size2f bay(random.Between(0.04f, 0.12f), random.Between(0.05f, 0.14f));
    const float lit = random.Between(0.2f, 1.0f);
    const float bright = random.Between(0.3f, 4.0f);
    return [=](float x, float y) {
        const float column = std::floor((x + 1) / bay.width);
        const float row = std::floor((y + 1) / bay.height);
        const float u = std::abs((x + 1) / bay.width - column - 0.5f);
        const float v = std::abs((y + 1) / bay.height - row - 0.5f);
        if (u > 0.3f || v > 0.35f) {
            return Opaque(Bricks(x * 2, y * 2, seed));
        }
        const bool bar = u < 0.03f || u > 0.25f || v > 0.3f;
        const bool glows = Noise(column * 5.3f, row * 3.1f, seed + 1) < lit;
        return Opaque(bar     ? Light(230, 226, 220)
                      : glows ? Light(236, 190, 110) * bright
                              : Light(58, 70, 84) * (0.6f + Cloud(x * 20, y * 20, seed + 2)));
    };
}

// An object of a random kind at a random place.
void AddObject(Builder& builder, const Plane& plane, Random& random) {
    const cv::Point2f at(random.Between(0.05f, 0.95f), random.Between(0.1f, 0.65f));
    const auto seed = static_cast<std::uint32_t>(Whole(random, 1, 100000));
    const cv::Vec3f colour = RandomColour(random, 0.1f, 0.9f);
    const float size = random.Between(0.5f, 1.5f);
    switch (Whole(random, 0, 4)) {
    case 0:
        AddCard(builder, {at, random.Between(-0.6f, 0.6f), plane, colour}, seed);
        break;
    case 1: {
        const Ellipse ball{at, 0.09f * size, 0.09f * size};
        const Paint texture = RandomTexture(random);
        builder.Add(plane, ball.Bounds(), [&](float x, float y) {
            const cv::Vec4f paint = texture(x, y) * ball.Shade(x, y);
            return OpaqueIf(ball.Holds(x, y), {paint[0], paint[1], paint[2]});
        });
        break;
    }
    case 2: {
        const float waist = random.Between(-1.0f, 1.0f);
        AddVessel(
            builder, plane, at + cv::Point2f(0.0f, 0.1f), 0.22f * size,
            [=](float up) { return size * (0.045f + 0.02f * std::sin(6.0f * up * waist)); }, colour,
            seed);
        break;
    }
    case 3: {
        const cv::Point2f over(random.Between(0.2f, 0.8f), random.Between(0.2f, 0.6f));
        const float side = Chance(random, 0.5f) ? -0.05f : 1.05f;
        AddTwig(builder, plane.At(at.x, at.y), Curve({side, random.Between(0.0f, 0.8f)}, over, at),
                seed);
        break;
    }
    default: { // a post or trunk
        const Paint texture = RandomTexture(random);
        const float lean = random.Between(-0.1f, 0.1f);
        builder.Add({plane.At(at.x, at.y)}, {at.x - 0.25f, -kMargin, 0.5f, 0.9f})
            .Stroke({{at.x - lean, -kMargin}, {at.x + lean, 0.81f}}, 0.05f * size, 0.08f * size,
                    texture);
    }
    }
}

// Bars, sticks or wires at one disparity.
void AddThinObjects(Builder& builder, float disparity, Random& random) {
    Surface& surface = builder.Add({disparity});
    const Paint texture = RandomTexture(random);
    const float width = random.Between(0.002f, 0.014f);
    if (Chance(random, 0.4f)) {
        const float lean = random.Between(-0.05f, 0.05f);
        const float distance = random.Between(0.06f, 0.2f);
        for (float x = -0.05f; x < 1.05f; x += distance) {
            surface.Stroke({{x, -kMargin}, {x + lean, 0.81f}}, width, width, texture);
        }
        return;
    }
    for (int i = Whole(random, 1, 5); i > 0; --i) {
        const cv::Point2f from(random.Between(-0.05f, 1.05f), random.Between(-0.05f, 0.4f));
        const cv::Point2f to(random.Between(-0.05f, 1.05f), random.Between(0.3f, 0.8f));
        const cv::Point2f bend(random.Between(-0.1f, 0.1f), random.Between(-0.1f, 0.1f));
        surface.Stroke(Curve(from, (from + to) * 0.5f + bend, to), width,
                       width * random.Between(0.4f, 1.0f), texture);
    }
}

// Lamps of one depth, each brightest at its centre.
void AddLamps(Builder& builder, float disparity, float exposure, Random& random) {
    Surface& lamps = builder.Add({disparity});
    for (int i = Whole(random, 2, 12); i > 0; --i) {
        const float radius = random.Between(0.002f, 0.008f);
        const cv::Vec3f hue = RandomColour(random, 0.15f, 1.0f);
        const cv::Vec3f colour = hue * (random.Between(2.0f, 12.0f) / exposure);
        const cv::Point2f at(random.Between(-0.05f, 1.05f), random.Between(-0.02f, 0.77f));
        lamps.Stroke({at, at}, 2 * radius, 2 * radius, [=](float x, float y) {
            const float out = std::hypot(x - at.x, y - at.y) / radius;
            return Opaque(colour * (0.08f + 0.92f * std::max(0.0f, 1.0f - out * out)));
        });
    }
}

// A random point whose disparity is among the smallest, the middle or the largest of the scene.
cv::Point2f FocusPoint(const Scene& scene, Random& random) {
    const cv::Size size(64, 48);
    const cv::Mat disparity = ExactDisparity(scene, size);
    cv::Mat order;
    cv::sortIdx(disparity.reshape(1, 1), order, cv::SORT_EVERY_ROW);
    const float depth =
        static_cast<float>(Whole(random, 0, 2)) * 0.4f + random.Between(0.05f, 0.15f);
    const int pixel = order.at<int>(cvFloor(depth * static_cast<float>(order.cols - 1)));
    const cv::Point2f at = cv::Point(pixel % size.width, pixel / size.width);
    return (at + cv::Point2f(0.5f, 0.5f)) * (1.0f / static_cast<float>(size.width));
}

} // namespace

Scene RandomScene(std::uint32_t seed, int imageWidth) {
    Random random(seed * 2654435761u);
    const bool night = Chance(random, 0.3f);
    const float exposure = night ? random.Between(0.04f, 0.2f) : random.Between(0.4f, 1.3f);
    Builder builder(fmt::format("scene {}", seed), exposure, Whole(random, 1, 3), imageWidth);

    const float far = random.Between(0.002f, 0.008f);
    const float near = random.Between(0.022f, 0.042f);
    builder.Add({far, random.Between(0.0f, 0.004f), 0.0f}, kEverywhere,
                Chance(random, 0.3f) ? Facade(random) : RandomTexture(random));
    if (Chance(random, 0.6f)) { // ground or table
        const float horizon = random.Between(0.3f, 0.6f);
        const float perY = (0.9f * near - far) / (kSceneHeight - horizon);
        builder.Add({far - perY * horizon, 0.0f, perY}, {-kMargin, horizon, 1.2f, 0.9f - horizon},
                    RandomTexture(random));
    }
    for (int i = Whole(random, 2, 6); i > 0; --i) {
        AddObject(builder,
                  {random.Between(far + 0.003f, near), random.Between(-0.004f, 0.004f),
                   random.Between(-0.003f, 0.003f)},
                  random);
    }
    if (Chance(random, 0.35f)) {
        const float size = random.Between(0.06f, 0.12f);
        const cv::Point2f head(random.Between(0.25f, 0.75f), random.Between(0.25f, 0.4f));
        const cv::Vec3f coat = RandomColour(random, 0.05f, 0.6f);
        AddPerson(builder, random.Between(far + 0.006f, near), {head, size, 1.35f * size}, coat,
                  random);
    }
    if (Chance(random, 0.5f)) {
        AddThinObjects(builder, random.Between(far + 0.003f, near + 0.004f), random);
    }
    if (Chance(random, night ? 0.9f : 0.25f)) {
        for (int i = Whole(random, 1, 3); i > 0; --i) {
            AddLamps(builder, random.Between(far + 0.0005f, 0.6f * near), exposure, random);
        }
    }
    Scene scene = builder.Done();
    scene.focus = FocusPoint(scene, random);
    return scene;
}

} // namespace quality

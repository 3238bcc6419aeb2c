#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <stdexcept>

#include "bench/refocus/material.h"
#include "bench/refocus/scene.h"

namespace quality {
namespace {

constexpr int kTexelsPerPixel = 2;
constexpr float kMargin = 0.06f; // what the aux camera and the lens see beyond the border

const cv::Rect2f kEverywhere(-kMargin, -kMargin, 1 + 2 * kMargin, kSceneHeight + 2 * kMargin);

class Builder {
public:
    Builder(std::string name, cv::Point2f focus, int imageWidth)
        : scene_{std::move(name), {}, focus}, density_(kTexelsPerPixel * imageWidth) {}

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

// A place relative to an ellipse: inside up to length 1.
struct Ellipse {
    cv::Point2f centre;
    float across; // half axes
    float down;

    cv::Point2f Relative(float x, float y) const {
        return {(x - centre.x) / across, (y - centre.y) / down};
    }
    bool Holds(float x, float y) const {
        const cv::Point2f at = Relative(x, y);
        return at.dot(at) <= 1.0f;
    }
    cv::Rect2f Bounds() const { return {centre.x - across, centre.y - down, 2 * across, 2 * down}; }
    // Brightness as of a ball lit from the upper left.
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

// Head, shoulders and hair with single strands that stand off, all lit by `light`.
void AddPerson(Builder& builder, float disparity, const Ellipse& head, const cv::Vec3f& coat,
               const cv::Vec3f& light) {
    const cv::Point2f c = head.centre;
    const auto shoulder = [c, &head](float x, float y) {
        const float below = (y - c.y) / head.down;
        const float half = below < 1.2f ? 0.45f : 0.45f + 2.0f * std::sqrt((below - 1.2f) / 2.5f);
        return below > 0.6f && std::abs(x - c.x) < std::min(half, 2.1f) * head.across;
    };
    const cv::Vec3f hair = Light(84, 54, 34).mul(light);
    const auto strand = [hair](float x, float y) {
        return Opaque(hair * (0.4f + 1.5f * Noise(x * 350.0f, y * 60.0f, 11)));
    };
    const Ellipse cap{c - cv::Point2f(0.0f, 0.25f * head.down), 1.2f * head.across,
                      1.08f * head.down};
    Surface& back =
        builder.Add({disparity - 0.0006f}, {c.x - 2.6f * head.across, c.y - 2.2f * head.down,
                                            5.2f * head.across, 4.4f * head.down});
    back.Fill([&](float x, float y) { return cap.Holds(x, y) ? strand(x, y) : Clear(); });
    Random random(5);
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
                    return OpaqueIf(shoulder(x, y), colour.mul(light));
                });
    builder.Add({disparity + 0.0008f}, head.Bounds(), [&](float x, float y) {
        const bool fringe = head.Relative(x, y).y < -0.62f + 0.12f * Noise(x * 150.0f, 0.0f, 8);
        return head.Holds(x, y) && !fringe ? Opaque(Skin(head, x, y).mul(light)) : Clear();
    });
}

// Thin hair before a busy garden, a stick held before the chest.
Scene Portrait(int imageWidth) {
    Builder builder("portrait", {0.5f, 0.33f}, imageWidth);
    builder.Add({0.004f}, kEverywhere, [](float x, float y) {
        const float ragged = 0.12f * Cloud(x * 8, y * 8, 2) + 0.05f * Cloud(x * 60, y * 60, 3);
        const float sky = std::clamp((0.18f - y + ragged) * 90, 0.0f, 1.0f);
        return Opaque(Foliage(x, y, 1) * (1.0f - sky) + sky * Light(196, 214, 236));
    });
    builder.Add({0.0115f, -0.01f, 0.0f}, {-kMargin, 0.05f, 0.4f, 0.8f},
                [](float x, float y) { return OpaqueIf(y > 0.1f + 0.2f * x, Bricks(x, y, 2)); });
    Surface& trunk = builder.Add({0.012f}, {0.7f, -kMargin, 0.25f, 0.9f});
    const auto bark = [](float x, float y) {
        return Opaque(Wood(y, x, Light(140, 112, 88), 4) * 0.8f);
    };
    trunk.Stroke(Curve({0.83f, 0.85f}, {0.8f, 0.4f}, {0.84f, -0.1f}), 0.07f, 0.045f, bark);
    trunk.Stroke(Curve({0.82f, 0.3f}, {0.86f, 0.2f}, {0.94f, 0.05f}), 0.03f, 0.008f, bark);
    AddPerson(builder, 0.027f, {{0.5f, 0.3f}, 0.085f, 0.115f}, Light(62, 92, 150), {1, 1, 1});
    builder.Add({0.031f}, {0.2f, 0.0f, 0.25f, 0.9f})
        .Stroke({{0.24f, 0.05f}, {0.41f, 0.85f}}, 0.005f, 0.011f,
                [](float x, float y) { return Opaque(Wood(y, x * 3, Light(214, 176, 120), 6)); });
    return builder.Done();
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
            const cv::Point2f aside(-ahead.y * side * 1.5f, ahead.x * side * 1.5f);
            const float size =
                random.Between(0.75f, 1.15f) * 0.09f / static_cast<float>(cv::norm(ahead + aside));
            const auto tone = static_cast<int>(random.Between(0.0f, 50.0f));
            AddLeaf(twig, line[i], line[i] + (ahead + aside) * size, 0.034f,
                    Light(84 + tone, 132 + tone, 46));
        }
    }
}

// A flower pot on a sill, seen through twigs close to the camera.
Scene NearForeground(int imageWidth) {
    Builder builder("near-foreground", {0.5f, 0.5f}, imageWidth);
    builder.Add({0.005f}, kEverywhere, [](float x, float y) {
        const bool frame = std::abs(x - 0.73f) < 0.16f && std::abs(y - 0.22f) < 0.17f;
        const bool picture = std::abs(x - 0.73f) < 0.14f && std::abs(y - 0.22f) < 0.15f;
        return Opaque(picture ? Foliage(x * 1.5f, y * 1.5f, 31)
                      : frame ? Wood(x, y, Light(120, 78, 46), 32)
                              : Plaster(x, y, Light(196, 182, 150), 33));
    });
    builder.Add({-0.0129f, 0.0f, 0.045f}, {-kMargin, 0.5f, 1.2f, 0.4f}, [](float x, float y) {
        return Opaque(Wood(x, 1.5f * y, Light(206, 188, 160), 34));
    });
    builder.Add({0.0155f}, {0.36f, 0.4f, 0.3f, 0.25f}, [](float x, float y) {
        const float half = 0.115f - 0.18f * (y - 0.43f) + (y < 0.46f ? 0.012f : 0.0f);
        const float across = (x - 0.5f) / half;
        const float band = std::abs(y - 0.54f) < 0.025f ? 0.55f + 0.45f * std::sin(160 * x) : 1.0f;
        const float shade =
            0.3f + 0.8f * std::sqrt(std::max(0.0f, 1 - (across + 0.3f) * (across + 0.3f) * 0.6f));
        return OpaqueIf(y > 0.43f && y < 0.63f && std::abs(across) < 1,
                        Plaster(x, y, Light(206, 110, 70), 35) * (shade * band));
    });
    const Ellipse cactus{{0.5f, 0.3f}, 0.075f, 0.15f};
    builder.Add({0.0152f}, cactus.Bounds(), [&](float x, float y) {
        const cv::Point2f at = cactus.Relative(x, y);
        const float rib = std::cos(
            9.0f * std::asin(std::clamp(at.x / std::sqrt(1.01f - at.y * at.y), -1.0f, 1.0f)));
        const bool thorn = rib > 0.9f && std::fmod(y, 0.014f) < 0.004f;
        const cv::Vec3f green =
            Light(78, 128, 70) * (0.6f + 0.4f * rib) * (0.7f + 0.6f * Cloud(x * 90, y * 90, 36, 3));
        return OpaqueIf(cactus.Holds(x, y),
                        (thorn ? Light(236, 226, 190) : green) * cactus.Shade(x, y));
    });
    AddTwig(builder, 0.036f, Curve({-0.05f, 0.7f}, {0.15f, 0.5f}, {0.42f, 0.45f}), 41);
    AddTwig(builder, 0.041f, Curve({1.05f, 0.1f}, {0.85f, 0.15f}, {0.62f, 0.08f}), 42);
    AddTwig(builder, 0.033f, Curve({0.98f, 0.8f}, {0.85f, 0.6f}, {0.7f, 0.5f}), 43);
    return builder.Done();
}

// A turned body of a height and a profile, standing where a table has its disparity.
void AddVessel(Builder& builder, const Plane& table, cv::Point2f foot, float height,
               const std::function<float(float)>& profile, const cv::Vec3f& colour,
               std::uint32_t seed) {
    const cv::Rect2f bounds(foot.x - 0.12f, foot.y - height, 0.24f, height);
    builder.Add({table.At(foot.x, foot.y)}, bounds, [&](float x, float y) {
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

// A set table that runs from close by to the wall.
Scene Table(int imageWidth) {
    Builder builder("table", {0.52f, 0.4f}, imageWidth);
    builder.Add({0.006f}, kEverywhere, [](float x, float y) {
        const float bay = std::fmod(x + 0.2f, 0.32f) - 0.16f;
        const bool frame = std::abs(bay) < 0.09f && std::abs(y - 0.12f) < 0.075f;
        const bool sheet = std::abs(bay) < 0.078f && std::abs(y - 0.12f) < 0.063f;
        return Opaque(sheet   ? Print(x * 0.8f, y * 0.8f, Light(226, 216, 190), 51)
                      : frame ? Wood(x, y, Light(92, 60, 40), 52)
                              : Plaster(x, y, Light(150, 168, 164), 53));
    });
    const Plane table{-0.0168f, 0.0f, 0.075f};
    builder.Add(table, {-kMargin, 0.33f, 1.2f, 0.6f}, [&](float x, float y) {
        const float depth = 0.02f / table.At(x, y);
        const float across = (x - 0.5f) * depth;
        const bool napkin = std::abs(across + 0.22f) < 0.13f && std::abs(depth - 0.82f) < 0.13f;
        const bool check = (cvFloor(across * 34) + cvFloor(depth * 34)) % 2 == 0;
        const bool board = std::abs(std::fmod(across + 2.0f, 0.14f)) < 0.004f;
        const cv::Vec3f wood = Wood(depth, across, Light(176, 124, 80), 54) * (board ? 0.3f : 1.0f);
        const cv::Vec3f cloth =
            Cloth(across, depth, check ? Light(190, 52, 48) : Light(236, 230, 220), 55) * 1.6f;
        return Opaque(napkin ? cloth : wood);
    });
    const auto cup = [](float up) { return 0.045f + 0.015f * up; };
    AddVessel(builder, table, {0.26f, 0.42f}, 0.1f, cup, Light(226, 214, 190), 61);
    AddVessel(
        builder, table, {0.52f, 0.5f}, 0.3f,
        [](float up) {
            return up < 0.6f ? 0.05f : std::max(0.016f, 0.05f - 0.14f * (up - 0.6f) / 0.2f * 0.25f);
        },
        Light(70, 120, 84), 62);
    AddVessel(
        builder, table, {0.76f, 0.46f}, 0.12f,
        [](float up) { return 0.03f + 0.05f * std::sqrt(std::max(0.0f, up)); }, Light(210, 150, 70),
        63);
    AddVessel(
        builder, table, {0.82f, 0.7f}, 0.2f, [](float up) { return 0.075f + 0.02f * up; },
        Light(214, 220, 226), 64);
    return builder.Done();
}

// A printed card: its place, turn, depth and lean.
struct Card {
    cv::Point2f centre;
    float turn;
    Plane plane;
    cv::Vec3f colour;
};

void AddCard(Builder& builder, const Card& card, std::uint32_t seed) {
    constexpr float kAcross = 0.105f;
    constexpr float kDown = 0.145f;
    constexpr float kCorner = 0.018f;
    const cv::Rect2f bounds(card.centre.x - 0.2f, card.centre.y - 0.2f, 0.4f, 0.4f);
    const float cosine = std::cos(card.turn);
    const float sine = std::sin(card.turn);
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

// Cards at many depths, leaning, before a cork board.
Scene Cards(int imageWidth) {
    Builder builder("cards", {0.44f, 0.4f}, imageWidth);
    builder.Add({0.006f, 0.001f, 0.0f}, kEverywhere, [](float x, float y) {
        const float crumb = Cloud(x * 75, y * 75, 71, 4);
        return Opaque(Light(184, 138, 90) *
                      (0.35f + 1.1f * crumb * (0.6f + 0.8f * Cloud(x * 5, y * 5, 72))));
    });
    const Card cards[] = {
        {{0.16f, 0.2f}, -0.2f, {0.009f, 0.006f, 0.0f}, Light(60, 110, 170)},
        {{0.74f, 0.18f}, 0.15f, {0.018f, -0.006f, 0.0f}, Light(196, 150, 50)},
        {{0.43f, 0.36f}, 0.06f, {0.0165f, 0.004f, 0.002f}, Light(176, 50, 60)},
        {{0.9f, 0.45f}, -0.12f, {0.0215f, 0.0f, 0.004f}, Light(90, 140, 80)},
        {{0.24f, 0.56f}, 0.3f, {0.0285f, -0.004f, 0.002f}, Light(120, 80, 150)},
        {{0.66f, 0.6f}, -0.35f, {0.036f, 0.0f, 0.004f}, Light(50, 140, 140)},
    };
    std::uint32_t seed = 80;
    for (const Card& card : cards) {
        AddCard(builder, card, seed += 7);
    }
    return builder.Done();
}

cv::Vec4f House(float x, float y) {
    const float roof = 0.22f - 0.55f * std::abs(x - 0.52f) + 0.06f;
    if (y > 0.2f && y < 0.5f && std::abs(x - 0.52f) < 0.2f) {
        const float bayX = std::fmod(x - 0.32f, 0.1f) - 0.05f;
        const float bayY = std::fmod(y - 0.2f, 0.15f) - 0.08f;
        const bool frame = std::abs(bayX) < 0.026f && std::abs(bayY) < 0.042f;
        const bool bar = std::abs(bayX) < 0.0025f || std::abs(bayY) < 0.0025f ||
                         std::abs(bayX) > 0.022f || std::abs(bayY) > 0.038f;
        return Opaque(frame && bar ? Light(236, 232, 224)
                      : frame      ? Light(58, 70, 84) * (0.6f + Cloud(x * 20, y * 20, 93))
                                   : Bricks(x * 2.4f, y * 2.4f, 91) * 1.1f);
    }
    const bool tiles = std::sin(y * 420.0f) + 0.6f * std::sin(x * 300.0f) > -0.3f;
    const float rise = 0.2f - 0.5f * (0.24f - std::abs(x - 0.52f));
    return OpaqueIf(std::abs(x - 0.52f) < 0.24f && y <= 0.2f && y > rise && roof > 0.0f,
                    Light(104, 62, 56) * (tiles ? 1.0f : 0.55f) *
                        (0.6f + 0.8f * Cloud(x * 60, y * 60, 92, 3)));
}

// A house far off, seen through a fence.
Scene FarFocusBehindBars(int imageWidth) {
    Builder builder("far-focus-behind-bars", {0.52f, 0.34f}, imageWidth);
    builder.Add({0.0025f}, kEverywhere, [](float x, float y) {
        const float hill = 0.3f + 0.1f * Cloud(x * 5, 0.0f, 94) - 0.05f;
        const float cloud = Cloud(x * 4, y * 9, 95, 6);
        const cv::Vec3f sky =
            Light(120, 164, 220) + std::max(0.0f, cloud - 0.45f) * Light(255, 250, 240) * 3.0f;
        return Opaque(y < hill ? sky : Foliage(x, y, 96));
    });
    builder.Add({0.0035f}, {0.25f, 0.0f, 0.55f, 0.55f}, House);
    builder.Add({-0.0205f, 0.0f, 0.05f}, {-kMargin, 0.47f, 1.2f, 0.4f}, [](float x, float y) {
        const float depth = 0.01f / (-0.0205f + 0.05f * y);
        const float across = (x - 0.5f) * depth;
        const bool path = std::abs(across + 0.05f) < 0.06f;
        const cv::Vec3f grass = Foliage(across * 1.6f, depth * 0.8f, 97) * 1.2f;
        return Opaque(path ? Plaster(across, depth, Light(190, 176, 150), 98) : grass);
    });
    const Ellipse crown{{0.86f, 0.27f}, 0.13f, 0.19f};
    Surface& tree = builder.Add({0.007f}, {0.7f, 0.05f, 0.32f, 0.6f});
    tree.Stroke({{0.86f, 0.3f}, {0.865f, 0.54f}}, 0.018f, 0.026f,
                [](float x, float y) { return Opaque(Wood(y, x, Light(120, 96, 74), 99)); });
    tree.Fill([&](float x, float y) {
        const cv::Point2f at = crown.Relative(x, y);
        const bool leaves =
            at.dot(at) < 0.5f + 0.9f * (Cloud(x * 34, y * 34, 100, 4) - 0.35f) * 2.0f;
        return OpaqueIf(leaves, Foliage(x, y, 101) * (0.6f + 0.6f * crown.Shade(x, y)));
    });
    Surface& fence = builder.Add({0.038f});
    const auto iron = [](float x, float y) {
        return Opaque(Light(70, 78, 76) * (0.4f + 1.3f * Cloud(x * 80, y * 80, 102, 4)));
    };
    for (float x = -0.04f; x < 1.06f; x += 0.118f) {
        fence.Stroke({{x, -0.05f}, {x + 0.008f, 0.8f}}, 0.012f, 0.012f, iron);
    }
    fence.Stroke({{-0.05f, 0.09f}, {1.05f, 0.082f}}, 0.016f, 0.016f, iron);
    fence.Stroke({{-0.05f, 0.64f}, {1.05f, 0.65f}}, 0.016f, 0.016f, iron);
    return builder.Done();
}

// Lamps of one depth, each brightest in its middle.
void AddLamps(Builder& builder, float disparity, Random& random) {
    const cv::Vec3f colours[] = {{1.0f, 0.62f, 0.25f},
                                 {0.9f, 0.95f, 1.0f},
                                 {1.0f, 0.16f, 0.1f},
                                 {0.2f, 0.9f, 0.45f},
                                 {0.3f, 0.5f, 1.0f}};
    const float radius = 0.0025f + 0.2f * disparity;
    Surface& lamps = builder.Add({disparity});
    for (int i = 0; i < 24; ++i) {
        const auto hue = static_cast<std::size_t>(random.Between(0.0f, 4.99f));
        const cv::Vec3f colour = colours[hue] * random.Between(2.0f, 12.0f);
        const cv::Point2f at(random.Between(-0.05f, 1.05f), random.Between(0.1f, 0.5f));
        lamps.Stroke({at, at}, 2 * radius, 2 * radius, [=](float x, float y) {
            const float out = std::hypot(x - at.x, y - at.y) / radius;
            return Opaque(colour * (0.08f + 0.92f * std::max(0.0f, 1.0f - out * out)));
        });
    }
}

// A person before the lights of a street, brighter than a picture can hold.
Scene NightLights(int imageWidth) {
    Builder builder("night-lights", {0.42f, 0.35f}, imageWidth);
    builder.Add({0.003f}, kEverywhere, [](float x, float y) {
        const float skyline = 0.2f + 0.22f * Noise(std::floor(x * 11) * 3.7f, 0.5f, 111);
        const bool window =
            std::fmod(x + 1, 0.022f) < 0.009f && std::fmod(y + 1, 0.03f) < 0.014f &&
            Noise(std::floor(x / 0.022f) * 5.3f, std::floor(y / 0.03f) * 3.1f, 112) > 0.55f;
        const cv::Vec3f house = window ? Light(236, 190, 110) : Bricks(x * 2, y * 2, 113) * 0.06f;
        const cv::Vec3f sky = Light(20, 26, 48) + Cloud(x * 4, y * 6, 114) * Light(26, 22, 40);
        return Opaque(y > skyline ? house : sky);
    });
    builder.Add({-0.0235f, 0.0f, 0.055f}, {-kMargin, 0.5f, 1.2f, 0.4f}, [](float x, float y) {
        const float wet = Cloud(x * 30, y * 8, 115, 3);
        return Opaque(Plaster(x, y, Light(58, 56, 64), 116) + wet * wet * Light(90, 70, 40) * 0.6f);
    });
    Random random(117);
    for (const float disparity : {0.004f, 0.007f, 0.011f}) {
        AddLamps(builder, disparity, random);
    }
    Surface& post = builder.Add({0.011f}, {0.7f, 0.0f, 0.2f, 0.7f});
    post.Stroke({{0.8f, 0.62f}, {0.8f, 0.14f}, {0.74f, 0.11f}}, 0.012f, 0.006f,
                [](float x, float y) {
                    return Opaque(Light(60, 58, 62) * (0.5f + Noise(x * 200, y * 200, 118)));
                });
    AddPerson(builder, 0.026f, {{0.42f, 0.32f}, 0.09f, 0.12f}, Light(150, 60, 52),
              {0.75f, 0.6f, 0.5f});
    return builder.Done();
}

} // namespace

Scene MakeScene(int number, int imageWidth) {
    Scene (*const makers[kSceneCount])(int) = {Portrait, NearForeground,     Table,
                                               Cards,    FarFocusBehindBars, NightLights};
    if (number < 0 || number >= kSceneCount || imageWidth < 1) {
        throw std::invalid_argument("no such scene");
    }
    return makers[number](imageWidth);
}

} // namespace quality

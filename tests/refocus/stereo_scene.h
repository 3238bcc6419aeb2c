#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "engine/refocus_engine.h"

// Made-up stereo pairs with known disparity, and NV12 memory that notices stray writes.
namespace stereo_scene {

constexpr std::uint8_t kGuard = 0xA7;

// An NV12 image with padding at each row and more rows behind each plane, all of it guard bytes.
class GuardedImage {
public:
    GuardedImage(int width, int height, int lumaPitch, int chromaPitch)
        : width_(width), height_(height), lumaPitch_(lumaPitch), chromaPitch_(chromaPitch),
          lumaBytes_(static_cast<std::size_t>(lumaPitch * (height + kRows)), kGuard),
          chromaBytes_(static_cast<std::size_t>(chromaPitch * (height / 2 + kRows)), kGuard) {}

    PLIM_OFFSCREEN Descriptor() {
        PLIM_OFFSCREEN image{};
        image.u32Format = PLIM_PAF_NV12;
        image.i32Width = width_;
        image.i32Height = height_;
        image.pu8Plane[0] = lumaBytes_.data();
        image.pu8Plane[1] = chromaBytes_.data();
        image.i32Pitch[0] = lumaPitch_;
        image.i32Pitch[1] = chromaPitch_;
        return image;
    }

    std::uint8_t& luma(int x, int y) {
        return lumaBytes_[static_cast<std::size_t>(y * lumaPitch_ + x)];
    }
    // Byte x of chroma row y: U at even, V at odd x.
    std::uint8_t& chroma(int x, int y) {
        return chromaBytes_[static_cast<std::size_t>(y * chromaPitch_ + x)];
    }
    int width() const { return width_; }
    int height() const { return height_; }

    void Fill(std::uint8_t value) {
        for (int y = 0; y < height_; ++y) {
            for (int x = 0; x < width_; ++x) {
                luma(x, y) = value;
                if (y < height_ / 2) {
                    chroma(x, y) = value;
                }
            }
        }
    }

    // Bytes outside the image that hold something else than they were made with.
    int DisturbedGuards() const {
        return Disturbed(lumaBytes_, lumaPitch_, height_) +
               Disturbed(chromaBytes_, chromaPitch_, height_ / 2);
    }

    // Pixels only, row after row, luma then chroma.
    std::vector<std::uint8_t> Pixels() const {
        std::vector<std::uint8_t> pixels;
        for (int y = 0; y < height_; ++y) {
            const auto row = lumaBytes_.begin() + static_cast<std::ptrdiff_t>(y) * lumaPitch_;
            pixels.insert(pixels.end(), row, row + width_);
        }
        for (int y = 0; y < height_ / 2; ++y) {
            const auto row = chromaBytes_.begin() + static_cast<std::ptrdiff_t>(y) * chromaPitch_;
            pixels.insert(pixels.end(), row, row + width_);
        }
        return pixels;
    }

private:
    static constexpr int kRows = 3; // guard rows behind each plane

    int Disturbed(const std::vector<std::uint8_t>& bytes, int pitch, int rows) const {
        int count = 0;
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            const int x = static_cast<int>(i) % pitch;
            const int y = static_cast<int>(i) / pitch;
            count += (x >= width_ || y >= rows) && bytes[i] != kGuard ? 1 : 0;
        }
        return count;
    }

    int width_;
    int height_;
    int lumaPitch_;
    int chromaPitch_;
    std::vector<std::uint8_t> lumaBytes_;
    std::vector<std::uint8_t> chromaBytes_;
};

// A background plane and, over the middle of the image, a nearer one.
struct TwoPlanes {
    int width = 320;
    int height = 240;
    int background = 6; // disparities, main image pixels
    int foreground = 22;

    bool InForeground(int x, int y) const {
        return x >= width / 4 && x < width * 3 / 4 && y >= height / 4 && y < height * 3 / 4;
    }
    int DisparityAt(int x, int y) const { return InForeground(x, y) ? foreground : background; }
};

// Blocks of 3x3 random grey: structure at every place, and unlike at every other. Light and dark
// enough for the scene's colours to stay within RGB.
class Texture {
public:
    explicit Texture(unsigned seed) : grey_(kSide * kSide) {
        std::mt19937 random(seed);
        for (std::uint8_t& value : grey_) {
            value = static_cast<std::uint8_t>(60 + random() % 120);
        }
    }
    std::uint8_t At(int x, int y) const {
        return grey_[static_cast<std::size_t>((y / 3 % kSide) * kSide + (x + 600) / 3 % kSide)];
    }

private:
    static constexpr int kSide = 512;
    std::vector<std::uint8_t> grey_;
};

struct Pair {
    GuardedImage main;
    GuardedImage aux;
};

// Main and aux view of the planes: a point at column x of the main image is at x - disparity of the
// aux one. Reddish foreground, bluish background.
inline Pair Render(const TwoPlanes& scene, int pitchPadding = 0) {
    const int pitch = scene.width + scene.width % 2 + pitchPadding;
    Pair pair{{scene.width, scene.height, pitch, pitch}, {scene.width, scene.height, pitch, pitch}};
    const Texture back(1);
    const Texture front(2);
    for (int y = 0; y < scene.height; ++y) {
        for (int x = 0; x < scene.width; ++x) {
            const bool inMain = scene.InForeground(x, y);
            pair.main.luma(x, y) = inMain ? front.At(x, y) : back.At(x, y);
            const bool inAux = scene.InForeground(x + scene.foreground, y);
            pair.aux.luma(x, y) =
                inAux ? front.At(x + scene.foreground, y) : back.At(x + scene.background, y);
            if (y < scene.height / 2) {
                const bool red = scene.InForeground(x, 2 * y);
                pair.main.chroma(x, y) = (x % 2 == 0) == red ? 100 : 160;
                pair.aux.chroma(x, y) = 128;
            }
        }
    }
    return pair;
}

} // namespace stereo_scene

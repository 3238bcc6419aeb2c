#include "host/picture/false_colour.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <string_view>

#include "host/picture/small_text.h"

namespace {

constexpr std::uint8_t kPaper = 255; // white, in each channel
constexpr Colour kInk{0, 0, 0};
constexpr Colour kNoNumber{128, 128, 128};

constexpr std::array<Colour, 7> kSteps{{{40, 30, 120},
                                        {30, 100, 220},
                                        {20, 190, 210},
                                        {70, 200, 80},
                                        {235, 220, 60},
                                        {240, 130, 30},
                                        {170, 20, 20}}};

struct Range {
    float low = 0;
    float high = 1;
};

Range RangeOf(const NumberMap& map) {
    Range range{INFINITY, -INFINITY};
    for (const float value : map.values) {
        if (std::isfinite(value)) {
            range.low = std::min(range.low, value);
            range.high = std::max(range.high, value);
        }
    }
    if (!(range.low <= range.high)) {
        return {};
    }
    if (range.low == range.high) { // a bar needs two ends
        range.high += 1;
    }
    return range;
}

Colour ColourAt(float share) {
    const float place = std::clamp(share, 0.0f, 1.0f) * static_cast<float>(kSteps.size() - 1);
    const auto step = std::min(static_cast<std::size_t>(place), kSteps.size() - 2);
    const float rest = place - static_cast<float>(step);
    Colour colour;
    for (std::size_t i = 0; i < colour.size(); ++i) {
        const auto from = static_cast<float>(kSteps[step][i]);
        const auto to = static_cast<float>(kSteps[step + 1][i]);
        colour[i] = static_cast<std::uint8_t>(std::lround(from + (to - from) * rest));
    }
    return colour;
}

// The distance of marks, 1, 2 or 5 times a power of ten, which gives about six of them.
double MarkStep(Range range) {
    const double rough = (static_cast<double>(range.high) - static_cast<double>(range.low)) / 6;
    const double power = std::pow(10.0, std::floor(std::log10(rough)));
    for (const double factor : {1.0, 2.0, 5.0}) {
        if (rough <= factor * power) {
            return factor * power;
        }
    }
    return 10 * power;
}

std::string MarkText(double value, double step) {
    const int decimals = std::max(0, static_cast<int>(-std::floor(std::log10(step))));
    char text[32];
    std::snprintf(text, sizeof text, "%.*f", decimals, value + 0.0);
    return text;
}

// Where the parts of the picture stand; everything grows with the map, so that it can be read on a
// picture shown in a window.
struct Layout {
    explicit Layout(const NumberMap& map) : dot(std::max(1, map.height / 400)) {
        margin = 6 * dot;
        barLeft = map.width + margin;
        barWidth = 14 * dot;
        barTop = margin + kGlyphHeight * dot + margin;
        barHeight = std::max(map.height - barTop - margin, 40 * dot);
        textLeft = barLeft + barWidth + 4 * dot;
    }

    int dot;
    int margin;
    int barLeft;
    int barWidth;
    int barTop;
    int barHeight;
    int textLeft;
};

void DrawMap(RgbImage& picture, const NumberMap& map, Range range) {
    for (int y = 0; y < map.height; ++y) {
        for (int x = 0; x < map.width; ++x) {
            const float value =
                map.values[static_cast<std::size_t>(y) * static_cast<std::size_t>(map.width) +
                           static_cast<std::size_t>(x)];
            picture.Set(x, y,
                        std::isfinite(value)
                            ? ColourAt((value - range.low) / (range.high - range.low))
                            : kNoNumber);
        }
    }
}

void DrawBar(RgbImage& picture, const Layout& layout) {
    for (int y = 0; y < layout.barHeight; ++y) {
        const Colour colour =
            ColourAt(1 - static_cast<float>(y) / static_cast<float>(layout.barHeight - 1));
        for (int x = 0; x < layout.barWidth; ++x) {
            picture.Set(layout.barLeft + x, layout.barTop + y, colour);
        }
    }
}

void DrawMarks(RgbImage& picture, const Layout& layout, Range range) {
    const double step = MarkStep(range);
    const auto low = static_cast<double>(range.low);
    const auto high = static_cast<double>(range.high);
    for (double k = std::ceil(low / step); k * step <= high; ++k) {
        const double share = (k * step - low) / (high - low);
        const int y =
            layout.barTop + static_cast<int>(std::lround((1 - share) * (layout.barHeight - 1)));
        for (int x = 0; x < 3 * layout.dot; ++x) {
            picture.Set(layout.barLeft + layout.barWidth + x, y, kInk);
        }
        DrawText(picture, layout.textLeft, y - kGlyphHeight * layout.dot / 2,
                 MarkText(k * step, step), kInk, layout.dot);
    }
}

int WidestMark(Range range, int dot) {
    const double step = MarkStep(range);
    return std::max(TextWidth(MarkText(static_cast<double>(range.low), step), dot),
                    TextWidth(MarkText(static_cast<double>(range.high), step), dot));
}

} // namespace

std::vector<Colour> FalseColourSteps() {
    return {kSteps.begin(), kSteps.end()};
}

RgbImage FalseColour(const NumberMap& map) {
    const Range range = RangeOf(map);
    const Layout layout(map);
    const int right = std::max(layout.textLeft + WidestMark(range, layout.dot),
                               layout.barLeft + TextWidth(map.unit, layout.dot));
    RgbImage picture(right + layout.margin,
                     std::max(map.height, layout.barTop + layout.barHeight + layout.margin));
    std::ranges::fill(picture.bytes, kPaper);
    DrawMap(picture, map, range);
    DrawBar(picture, layout);
    DrawMarks(picture, layout, range);
    DrawText(picture, layout.barLeft, layout.margin, map.unit, kInk, layout.dot);
    return picture;
}

#include "host/picture/false_colour.h"

#include <algorithm>
#include <array>
#include <cmath>

#include <fmt/core.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

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

// The distance between marks: 1, 2 or 5 times a power of ten, so that there are about six marks.
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
    return fmt::format("{:.{}f}", value + 0.0, decimals);
}

constexpr int kFont = cv::FONT_HERSHEY_PLAIN;

cv::Size TextSize(const std::string& text, int scale) {
    int belowBaseline = 0;
    return cv::getTextSize(text, kFont, scale, scale, &belowBaseline);
}

// Black, with its lower left corner at x, y.
void DrawText(RgbImage& picture, int x, int y, const std::string& text, int scale) {
    cv::Mat pixels(picture.height, picture.width, CV_8UC3, picture.bytes.data());
    cv::putText(pixels, text, {x, y}, kFont, scale, {}, scale, cv::LINE_AA);
}

// The places of the picture's parts. They grow with the map, so that the text of a large picture
// can still be read when a window shows it at a smaller scale.
struct Layout {
    explicit Layout(const NumberMap& map) : dot(std::max(1, map.height / 400)) {
        margin = 6 * dot;
        barLeft = map.width + margin;
        barWidth = 14 * dot;
        textHeight = TextSize("0", dot).height;
        barTop = margin + textHeight + margin;
        barHeight = std::max(map.height - barTop - margin, 40 * dot);
        textLeft = barLeft + barWidth + 4 * dot;
    }

    int dot; // the scale of lines and text
    int margin;
    int textHeight;
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
        DrawText(picture, layout.textLeft, y + layout.textHeight / 2, MarkText(k * step, step),
                 layout.dot);
    }
}

int WidestMark(Range range, int dot) {
    const double step = MarkStep(range);
    const auto width = [&](float value) {
        return TextSize(MarkText(static_cast<double>(value), step), dot).width;
    };
    return std::max(width(range.low), width(range.high));
}

} // namespace

std::vector<Colour> FalseColourSteps() {
    return {kSteps.begin(), kSteps.end()};
}

RgbImage FalseColour(const NumberMap& map) {
    const Range range = RangeOf(map);
    const Layout layout(map);
    const int right = std::max(layout.textLeft + WidestMark(range, layout.dot),
                               layout.barLeft + TextSize(map.unit, layout.dot).width);
    RgbImage picture(right + layout.margin,
                     std::max(map.height, layout.barTop + layout.barHeight + layout.margin));
    std::ranges::fill(picture.bytes, kPaper);
    DrawMap(picture, map, range);
    DrawBar(picture, layout);
    DrawMarks(picture, layout, range);
    DrawText(picture, layout.barLeft, layout.margin + layout.textHeight, map.unit, layout.dot);
    return picture;
}

host::Image DepthImage(const host::Image& main) {
    return {host::Image::Format::Y8, main.width(), main.height(), main.pitch()};
}

std::optional<RgbImage> DisparityPicture(const host::Image& depth, std::int32_t size) {
    if (size <= 0 || static_cast<std::size_t>(size) != depth.planeSize(0)) {
        return std::nullopt;
    }
    NumberMap map{depth.width(), depth.height(), {}, "disparity"};
    map.values.reserve(static_cast<std::size_t>(map.width) * static_cast<std::size_t>(map.height));
    for (int y = 0; y < map.height; ++y) {
        const std::uint8_t* row = depth.row(0, y);
        map.values.insert(map.values.end(), row, row + map.width);
    }
    return FalseColour(map);
}

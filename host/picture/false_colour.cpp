#include "host/picture/false_colour.h"

#include <algorithm>
#include <cmath>

#include <fmt/core.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "host/picture/text.h"

namespace {

constexpr std::uint8_t kPaper = 255; // white, in each channel
constexpr Colour kInk{0, 0, 0};
const cv::Scalar kNoNumber(128, 128, 128);

struct Range {
    double low = 0;
    double high = 1;
};

Range RangeOf(const cv::Mat& numbers, const cv::Mat& known) {
    Range range;
    if (cv::countNonZero(known) > 0) {
        cv::minMaxLoc(numbers, &range.low, &range.high, nullptr, nullptr, known);
    }
    if (range.low == range.high) { // a bar needs two ends
        range.high += 1;
    }
    return range;
}

cv::Mat Coloured(const cv::Mat& bytes) {
    cv::Mat colours;
    cv::applyColorMap(bytes, colours, cv::COLORMAP_TURBO);
    cv::cvtColor(colours, colours, cv::COLOR_BGR2RGB);
    return colours;
}

// Every level once, from top to bottom: the last first.
cv::Mat Levels(int count) {
    cv::Mat levels(count, 1, CV_8UC1);
    for (int i = 0; i < count; ++i) {
        levels.at<std::uint8_t>(i) =
            static_cast<std::uint8_t>(cvRound(255.0 * (count - 1 - i) / (count - 1)));
    }
    return levels;
}

// The distance between marks: 1, 2 or 5 times a power of ten, so that there are about six marks.
double MarkStep(Range range) {
    const double rough = (range.high - range.low) / 6;
    const double power = std::pow(10.0, std::floor(std::log10(rough)));
    for (const double factor : {1.0, 2.0, 5.0}) {
        if (rough <= factor * power) {
            return factor * power;
        }
    }
    return 10 * power;
}

std::string MarkText(double value, double step) {
    // A mark has as many decimals as the step. Adding 0 makes 0 of -0, which would show its sign.
    const int decimals = std::max(0, static_cast<int>(-std::floor(std::log10(step))));
    return fmt::format("{:.{}f}", value + 0.0, decimals);
}

// The places of the picture's parts. They grow with the map, so that the text of a large picture
// can still be read when a window shows it at a smaller scale.
struct Layout {
    explicit Layout(cv::Size map) : dot(std::max(1, map.height / 400)) {
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

void DrawMarks(RgbImage& picture, const Layout& layout, Range range) {
    const double step = MarkStep(range);
    const auto [low, high] = range;
    // Marks are counted, not added up: the rounding errors of a sum would move the last ones.
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
    // The widest text belongs to one of the ends: it has the most digits, or the sign.
    const double step = MarkStep(range);
    const auto width = [&](double value) { return TextSize(MarkText(value, step), dot).width; };
    return std::max(width(range.low), width(range.high));
}

} // namespace

std::vector<Colour> FalseColourSteps() {
    // The page's script interpolates between these, so that a page need not hold all 256.
    const cv::Mat steps = Coloured(Levels(17));
    std::vector<Colour> colours;
    for (int i = steps.rows - 1; i >= 0; --i) {
        const auto& step = steps.at<cv::Vec3b>(i);
        colours.push_back({step[0], step[1], step[2]});
    }
    return colours;
}

RgbImage FalseColour(const cv::Mat& numbers, const cv::Mat& known, const std::string& unit) {
    const Range range = RangeOf(numbers, known);
    const Layout layout(numbers.size());
    const int right = std::max(layout.textLeft + WidestMark(range, layout.dot),
                               layout.barLeft + TextSize(unit, layout.dot).width);
    RgbImage picture(right + layout.margin,
                     std::max(numbers.rows, layout.barTop + layout.barHeight + layout.margin));
    std::ranges::fill(picture.bytes, kPaper);
    cv::Mat pixels(picture.height, picture.width, CV_8UC3, picture.bytes.data());

    // OpenCV's colour maps have 256 steps, so that the known numbers are spread over a byte.
    const double scale = 255 / (range.high - range.low);
    cv::Mat levels;
    numbers.convertTo(levels, CV_8U, scale, -range.low * scale);
    cv::Mat colours = Coloured(levels);
    colours.setTo(kNoNumber, ~known);
    colours.copyTo(pixels(cv::Rect({}, numbers.size())));
    cv::repeat(Coloured(Levels(layout.barHeight)), 1, layout.barWidth,
               pixels(cv::Rect(layout.barLeft, layout.barTop, layout.barWidth, layout.barHeight)));
    DrawMarks(picture, layout, range);
    DrawText(picture, layout.barLeft, layout.margin + layout.textHeight, unit, layout.dot);
    return picture;
}

host::Image DepthImage(const host::Image& main) {
    return {host::Image::Format::Y8, main.width(), main.height(), main.pitch()};
}

std::optional<RgbImage> DisparityPicture(const host::Image& depth, std::int32_t size) {
    if (size <= 0 || static_cast<std::size_t>(size) != depth.planeSize(0)) {
        return std::nullopt;
    }
    const cv::Mat numbers(depth.height(), depth.width(), CV_8UC1,
                          const_cast<std::uint8_t*>(depth.plane(0)),
                          static_cast<std::size_t>(depth.pitch()));
    // The engine fills gaps in its disparity, so that every byte is a known number.
    return FalseColour(numbers, numbers >= 0, "disparity");
}

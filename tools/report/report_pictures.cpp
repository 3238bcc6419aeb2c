#include "tools/report/report_pictures.h"

#include <algorithm>
#include <cstdint>
#include <span>
#include <string_view>

#include "host/picture/image_file.h"
#include "host/picture/nv12.h"
#include "tools/compare/difference.h"

namespace {

constexpr int kJpegQuality = 92;

std::string Base64(std::span<const std::uint8_t> bytes) {
    constexpr std::string_view kDigits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const auto byte = [&](std::size_t at) -> std::uint32_t {
            return at < bytes.size() ? bytes[at] : 0;
        };
        const std::uint32_t group = byte(i) << 16 | byte(i + 1) << 8 | byte(i + 2);
        for (std::size_t digit = 0; digit < 4; ++digit) {
            const bool padding = i + digit > bytes.size();
            text += padding ? '=' : kDigits[group >> (18 - 6 * digit) & 63];
        }
    }
    return text;
}

Size Reduced(Size size) {
    const int longest = std::max(size.width, size.height);
    if (longest <= kReportSide) {
        return size;
    }
    const auto side = [longest](int pixels) {
        const std::int64_t scaled = std::int64_t{pixels} * kReportSide / longest;
        return std::max(static_cast<int>(scaled) / 2 * 2, 2);
    };
    return {side(size.width), side(size.height)};
}

std::string PngUri(const host::Image& grey) {
    return "data:image/png;base64," + Base64(EncodePng(grey));
}

// Of `full` pixels reduced to `reduced`, the one in the middle of those that place `i` stands for.
int SourceOf(int i, int full, int reduced) {
    return static_cast<int>((std::int64_t{2} * i + 1) * full / (std::int64_t{2} * reduced));
}

// Each place keeps a number that really stands there.
host::Image Sampled(const host::Image& grey, int width) {
    const Size size = Reduced({width, grey.height()});
    host::Image sampled(host::Image::Format::Y8, size.width, size.height, size.width);
    for (int y = 0; y < size.height; ++y) {
        const std::ptrdiff_t row = SourceOf(y, grey.height(), size.height);
        const std::uint8_t* from = grey.plane(0) + row * grey.pitch();
        std::uint8_t* to = sampled.plane(0) + static_cast<std::ptrdiff_t>(y) * size.width;
        for (int x = 0; x < size.width; ++x) {
            to[x] = from[SourceOf(x, width, size.width)];
        }
    }
    return sampled;
}

} // namespace

void AddPicture(Report& report, const std::string& name, const host::Image& image) {
    const Size full{image.width(), image.height()};
    const Size size = Reduced(full);
    const RgbImage picture = Nv12ToRgb(size.width == full.width && size.height == full.height
                                           ? image
                                           : ScaleNv12(image, size.width, size.height, 0));
    report.pictures.push_back(
        {name, full, "data:image/jpeg;base64," + Base64(EncodeJpeg(picture, kJpegQuality))});
}

void AddComparison(Report& report, const std::string& before, const host::Image& a,
                   const std::string& after, const host::Image& b) {
    if (a.width() != b.width() || a.height() != b.height()) {
        return;
    }
    const host::Image map = DifferenceMap(a, b);
    const int largest = *std::ranges::max_element(map.bytes());
    report.comparisons.push_back(
        {before, after, {{a.width(), a.height()}, PngUri(map), 0, largest}});
}

void SetDisparity(Report& report, const host::Image& disparity, int width) {
    int low = 255;
    int high = 0;
    const auto row = [&](int y) {
        return std::span(disparity.plane(0) + static_cast<std::ptrdiff_t>(y) * disparity.pitch(),
                         static_cast<std::size_t>(width));
    };
    for (int y = 0; y < disparity.height(); ++y) {
        const auto [lowest, highest] = std::ranges::minmax(row(y));
        low = std::min(low, int{lowest});
        high = std::max(high, int{highest});
    }
    report.disparity = {{width, disparity.height()}, PngUri(Sampled(disparity, width)), low, high};
    const auto& focus = report.overlays.focus;
    if (focus && focus->x >= 0 && focus->x < width && focus->y >= 0 &&
        focus->y < disparity.height()) {
        report.focusDisparity = row(focus->y)[static_cast<std::size_t>(focus->x)];
    }
}

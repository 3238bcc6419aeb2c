#include "host/picture/text.h"

#include <algorithm>

#include <opencv2/imgproc.hpp>

namespace {

constexpr int kFont = cv::FONT_HERSHEY_PLAIN;

cv::Mat MatrixOf(RgbImage& picture) {
    return {picture.height, picture.width, CV_8UC3, picture.bytes.data()};
}

} // namespace

RgbImage Reduced(const RgbImage& picture, int longestSide) {
    const double scale = static_cast<double>(longestSide) / std::max(picture.width, picture.height);
    if (scale >= 1) {
        return picture;
    }
    // The picture is copied, since OpenCV has no matrix over constant memory.
    RgbImage source = picture;
    RgbImage reduced(std::max(1, cvRound(picture.width * scale)),
                     std::max(1, cvRound(picture.height * scale)));
    cv::Mat pixels = MatrixOf(reduced);
    cv::resize(MatrixOf(source), pixels, pixels.size(), 0, 0, cv::INTER_AREA);
    return reduced;
}

cv::Size TextSize(const std::string& text, int scale) {
    int belowBaseline = 0;
    return cv::getTextSize(text, kFont, scale, scale, &belowBaseline);
}

void DrawText(RgbImage& picture, int x, int y, const std::string& text, int scale) {
    cv::putText(MatrixOf(picture), text, {x, y}, kFont, scale, {}, scale, cv::LINE_AA);
}

RgbImage ContactSheet(const std::vector<LabelledPicture>& pictures, int columns) {
    constexpr int kMargin = 8;
    constexpr int kTextScale = 1;
    cv::Size cell;
    for (const auto& [picture, text] : pictures) {
        cell.width = std::max({cell.width, picture.width, TextSize(text, kTextScale).width});
        cell.height = std::max(cell.height, picture.height);
    }
    const int label = TextSize("0", kTextScale).height + kMargin;
    const int count = static_cast<int>(pictures.size());
    RgbImage sheet(columns * (cell.width + kMargin) + kMargin,
                   (count + columns - 1) / columns * (label + cell.height + kMargin) + kMargin);
    std::ranges::fill(sheet.bytes, std::uint8_t{255});
    for (int i = 0; i < count; ++i) {
        const int x = kMargin + i % columns * (cell.width + kMargin);
        const int y = kMargin + i / columns * (label + cell.height + kMargin) + label;
        auto [picture, text] = pictures[static_cast<std::size_t>(i)];
        DrawText(sheet, x, y - kMargin / 2, text, kTextScale);
        if (picture.width > 0) {
            MatrixOf(picture).copyTo(
                MatrixOf(sheet)(cv::Rect(x, y, picture.width, picture.height)));
        }
    }
    return sheet;
}

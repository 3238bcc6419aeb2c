#include "tools/report/depth_of_field.h"

#include <algorithm>

#include <opencv2/imgproc.hpp>

#include "host/refocus/circle_of_confusion.h"
#include "host/refocus/disparity_map.h"
#include "tools/compare/matrix.h"

namespace {

constexpr int kShortestSide = 16; // of an image that the engine takes

// The values that differ from the focus by no more than what the table leaves sharp.
void SetSharp(DepthOfField& depth, const refocus::BlurTable& table, refocus::FocusRange focus) {
    const auto sharp = [&table](int value) {
        const auto i = static_cast<std::size_t>(value);
        return table.near[i] == 0 && table.far[i] == 0;
    };
    for (depth.low = focus.low; depth.low > 0 && sharp(depth.low - 1);) {
        --depth.low;
    }
    for (depth.high = focus.high; depth.high < 255 && sharp(depth.high + 1);) {
        ++depth.high;
    }
}

} // namespace

std::optional<DepthOfField> DepthOfFieldOf(const host::Image& disparity, int width,
                                           const DumpParameters& parameters) {
    if (std::min(width, disparity.height()) < kShortestSide) {
        return std::nullopt;
    }
    std::array<TSL_RECT, kFaceCapacity> faces{};
    TSL_DCR_FOCUSPARAM focus{};
    focus.ptFocus = {parameters.focusX, parameters.focusY};
    focus.pFaceRects = faces.data();
    for (const DumpedFace& face : parameters.faces) {
        if (focus.i32FaceNum < kFaceCapacity) {
            faces[static_cast<std::size_t>(focus.i32FaceNum++)] = {face.left, face.top, face.right,
                                                                   face.bottom};
        }
    }
    const cv::Mat map = MatrixOf(disparity, 0).colRange(0, width);
    const refocus::FocusRange range = refocus::FocusRangeOf(map, focus);
    // A dump does not tell the scale of its disparity. The largest radius depends on it in scenes
    // that are almost flat only; the scale here is the one of any deeper scene.
    const refocus::DisparityScale scale{0, width / 255.0};
    const auto table =
        refocus::MakeBlurTable(scale, range, std::clamp(parameters.blur, 0, 100), map.size(), 1);
    DepthOfField depth;
    depth.radius = table.radius;
    SetSharp(depth, table, range);
    return depth;
}

std::string PlaceOfDifference(const host::Image& a, const host::Image& b,
                              const host::Image& disparity, const DepthOfField& depth) {
    const cv::Mat lumaA = MatrixOf(a, 0);
    if (lumaA.size() != MatrixOf(b, 0).size() || disparity.width() < lumaA.cols ||
        disparity.height() != lumaA.rows) {
        return "";
    }
    cv::Mat differing;
    cv::absdiff(lumaA, MatrixOf(b, 0), differing);
    const cv::Mat map = MatrixOf(disparity, 0).colRange(0, lumaA.cols);
    cv::Mat sharp;
    cv::inRange(map, depth.low, depth.high, sharp);
    // Blurred pixels reach as far into sharp ones as the largest disc, and the other way round.
    const auto [nearest, farthest] = std::ranges::minmax(depth.radius);
    const int reach = 1 + static_cast<int>(std::max(-nearest, farthest));
    // The pixels with one of these within reach. A box filter takes the same time for any reach.
    const auto grown = [reach](const cv::Mat& pixels) {
        cv::Mat counts;
        cv::boxFilter(pixels & 1, counts, CV_16U, {2 * reach + 1, 2 * reach + 1}, {-1, -1}, false,
                      cv::BORDER_CONSTANT);
        return cv::Mat(counts > 0);
    };
    const auto share = [&differing](const cv::Mat& part) {
        return cv::countNonZero(differing & part) /
               std::max(1.0, 1.0 * cv::countNonZero(differing));
    };
    // A few pixels elsewhere must not hide where all others are.
    constexpr double kAlmostAll = 0.99;
    return share(grown(sharp) & grown(~sharp)) >= kAlmostAll ? ", within the blur's edge"
           : share(~sharp) >= kAlmostAll                     ? ", in what is blurred"
           : share(sharp) >= kAlmostAll                      ? ", in what is in focus"
                                                             : "";
}

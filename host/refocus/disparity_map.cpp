#include "host/refocus/disparity_map.h"

#include <algorithm>
#include <array>
#include <vector>

namespace refocus {
namespace {

// The central half of a face, each way; empty where the rectangle is no rectangle or leaves the
// image.
cv::Rect FaceCentre(const TSL_RECT& face, cv::Size size) {
    const auto width = static_cast<std::int64_t>(face.right) - face.left + 1;
    const auto height = static_cast<std::int64_t>(face.bottom) - face.top + 1;
    if (face.left < 0 || face.top < 0 || face.right >= size.width || face.bottom >= size.height ||
        width < 2 || height < 2) {
        return {};
    }
    return {static_cast<int>(face.left + width / 4), static_cast<int>(face.top + height / 4),
            static_cast<int>((width + 1) / 2), static_cast<int>((height + 1) / 2)};
}

} // namespace

DisparityScale ScaleFor(const cv::Mat& disparity, int factor) {
    std::vector<float> sorted(disparity.begin<float>(), disparity.end<float>());
    const auto few = static_cast<std::ptrdiff_t>(sorted.size() / 200);
    std::nth_element(sorted.begin(), sorted.begin() + few, sorted.end());
    const double low = sorted[static_cast<std::size_t>(few)];
    std::nth_element(sorted.begin(), sorted.end() - 1 - few, sorted.end());
    const double high = *(sorted.end() - 1 - few);
    const double step = std::max((high - low) / 255.0, 1.0 / 64.0);
    return {low * factor, step * factor};
}

cv::Mat ToValues(const cv::Mat& disparity, int factor, const DisparityScale& scale) {
    cv::Mat values;
    disparity.convertTo(values, CV_32F, factor / scale.step, -scale.offset / scale.step);
    cv::min(cv::max(values, 0.0), 255.0, values);
    return values;
}

FocusWindow FocusWindowOf(const TSL_DCR_FOCUSPARAM& focus, cv::Size size) {
    const cv::Point point(std::clamp(focus.ptFocus.x, 0, size.width - 1),
                          std::clamp(focus.ptFocus.y, 0, size.height - 1));
    for (int i = 0; i < focus.i32FaceNum; ++i) {
        const TSL_RECT& face = focus.pFaceRects[i];
        const bool inside = point.x >= face.left && point.x <= face.right && point.y >= face.top &&
                            point.y <= face.bottom;
        const cv::Rect centre = inside ? FaceCentre(face, size) : cv::Rect();
        if (!centre.empty()) {
            return {centre, true};
        }
    }
    const int reach = std::max(2, std::max(size.width, size.height) / 200);
    const cv::Rect square(point.x - reach, point.y - reach, 2 * reach + 1, 2 * reach + 1);
    return {square & cv::Rect({}, size), false};
}

FocusRange FocusRangeOf(const cv::Mat& map, const TSL_DCR_FOCUSPARAM& focus) {
    const FocusWindow window = FocusWindowOf(focus, map.size());
    std::array<int, 256> histogram{};
    for (int y = window.pixels.y; y < window.pixels.br().y; ++y) {
        const std::uint8_t* row = map.ptr<std::uint8_t>(y);
        for (int x = window.pixels.x; x < window.pixels.br().x; ++x) {
            ++histogram[row[x]];
        }
    }
    const auto percentile = [&](int percent) {
        const std::int64_t wanted = std::int64_t{window.pixels.area()} * percent / 100;
        int value = 0;
        for (std::int64_t below = histogram[0]; below <= wanted && value < 255;) {
            below += histogram[static_cast<std::size_t>(++value)];
        }
        return value;
    };
    return window.isFace ? FocusRange{percentile(10), percentile(90)}
                         : FocusRange{percentile(50), percentile(50)};
}

} // namespace refocus

#include "host/refocus/depth_presence.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <vector>

namespace refocus {
namespace {

// 255 where the mean horizontal step over a neighbourhood exceeds what sensor noise makes; only
// structure across the rows can be matched.
cv::Mat TexturedPixels(const cv::Mat& image) {
    cv::Mat gradient;
    cv::Sobel(image, gradient, CV_32F, 1, 0, 1); // difference of the two neighbours
    cv::Mat mean;
    cv::boxFilter(cv::abs(gradient), mean, CV_32F, {7, 7});
    return mean > 4.0;
}

double Percentile(std::vector<float>& values, double share) {
    const auto at = values.begin() +
                    static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

} // namespace

DepthPresence MeasureDepthPresence(const cv::Mat& left, const Matches& matches) {
    const cv::Mat textured = TexturedPixels(left);
    const cv::Mat trusted = textured & matches.consistent;
    std::vector<float> disparities;
    for (int y = 0; y < left.rows; ++y) {
        const float* disparity = matches.disparity.ptr<float>(y);
        const std::uint8_t* trust = trusted.ptr<std::uint8_t>(y);
        for (int x = 0; x < left.cols; ++x) {
            if (trust[x] != 0) {
                disparities.push_back(disparity[x]);
            }
        }
    }
    DepthPresence presence;
    const int texturedCount = cv::countNonZero(textured);
    presence.texturedShare = texturedCount / static_cast<double>(left.total());
    if (!disparities.empty()) {
        presence.consistentShare = static_cast<double>(disparities.size()) / texturedCount;
        presence.range = Percentile(disparities, 0.99) - Percentile(disparities, 0.01);
    }
    return presence;
}

bool HasDepth(const DepthPresence& presence) {
    return presence.texturedShare > 0.02 && presence.consistentShare > 0.4 && presence.range > 1.0;
}

} // namespace refocus

#include "bench/refocus/scene.h"

#include <algorithm>
#include <cmath>

#include "host/refocus/image.h"

namespace quality {

Surface::Surface(const Plane& plane, const cv::Rect2f& bounds, int texelsPerWidth)
    : plane_(plane), density_(static_cast<float>(texelsPerWidth)), origin_(bounds.tl()),
      texels_(cv::Mat::zeros(std::max(1, cvCeil(bounds.height * density_)),
                             std::max(1, cvCeil(bounds.width * density_)), CV_32FC4)) {}

cv::Point2f Surface::CentreOf(int column, int row) const {
    return origin_ +
           cv::Point2f(static_cast<float>(column) + 0.5f, static_cast<float>(row) + 0.5f) *
               (1.0f / density_);
}

void Surface::Fill(const Paint& paint) {
    refocus::ForEachRow(texels_.rows, [&](int row) {
        auto* texel = texels_.ptr<cv::Vec4f>(row);
        for (int column = 0; column < texels_.cols; ++column) {
            const cv::Point2f at = CentreOf(column, row);
            const cv::Vec4f painted = paint(at.x, at.y);
            if (painted[3] >= 0.5f) {
                texel[column] = painted;
            }
        }
    });
}

void Surface::Stroke(const std::vector<cv::Point2f>& line, float widthFrom, float widthTo,
                     const Paint& paint) {
    const auto segments = static_cast<float>(line.size() - 1);
    for (std::size_t i = 0; i + 1 < line.size(); ++i) {
        const cv::Point2f along = line[i + 1] - line[i];
        const int steps = std::max(1, cvCeil(cv::norm(along) * density_ * 2.0));
        for (int step = 0; step < steps; ++step) {
            const float part = static_cast<float>(step) / static_cast<float>(steps);
            const float share = (static_cast<float>(i) + part) / segments;
            const float radius = (widthFrom + share * (widthTo - widthFrom)) / 2.0f;
            const cv::Point2f centre = line[i] + part * along;
            const cv::Point2f from = (centre - cv::Point2f(radius, radius) - origin_) * density_;
            const cv::Point2f to = (centre + cv::Point2f(radius, radius) - origin_) * density_;
            const cv::Rect touched = cv::Rect(cv::Point(cvFloor(from.x), cvFloor(from.y)),
                                              cv::Point(cvFloor(to.x) + 1, cvFloor(to.y) + 1)) &
                                     cv::Rect({}, texels_.size());
            for (int row = touched.y; row < touched.br().y; ++row) {
                for (int column = touched.x; column < touched.br().x; ++column) {
                    const cv::Point2f at = CentreOf(column, row);
                    if (cv::norm(at - centre) <= radius) {
                        texels_.at<cv::Vec4f>(row, column) = paint(at.x, at.y);
                    }
                }
            }
        }
    }
}

} // namespace quality

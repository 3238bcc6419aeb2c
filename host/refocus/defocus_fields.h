#pragma once

#include <opencv2/core.hpp>

#include "host/refocus/circle_of_confusion.h"
#include "host/refocus/image.h"

namespace refocus {

// What lies out of focus on one side of the focus plane, as cells of cell x cell main image pixels.
struct DefocusField {
    cv::Mat light;   // CV_32FC3, mean linear RGB of the cell's pixels of this field
    cv::Mat weight;  // CV_32FC1, share of the cell that belongs to the field, 0 to 1
    cv::Mat radius;  // CV_32FC1, mean disc radius in cells
    cv::Mat order;   // CV_8UC1, mean disparity value: larger is nearer
    cv::Mat clipped; // CV_8UC1, 0 to 255: share of the field's pixels as bright as a code can tell
};

// The picture taken apart. A cell at an object's edge has a part in several fields, and none takes
// colour from another: that is what keeps halos away.
struct DefocusFields {
    DefocusField far;
    DefocusField near;
    cv::Mat sharpLight;  // CV_32FC3, mean linear RGB of the pixels in focus
    cv::Mat sharpWeight; // CV_32FC1
};

// The map with near objects grown by `reach` pixels. Their outlines' pixels show them and what lies
// behind at once: taken for what lies behind, they would stay as sharp lines where the object is
// blurred away.
cv::Mat GrowNear(const cv::Mat& map, const BlurTable& table, int reach);

// `map` is CV_8UC1 of the image's size, `grown` the same after GrowNear; pixels it was grown by are
// in no field. Cells at the right and lower border may be partial.
DefocusFields SplitFields(const Nv12View& image, const cv::Mat& map, const cv::Mat& grown,
                          const BlurTable& table, int cell);

} // namespace refocus

#pragma once

#include <opencv2/core.hpp>

#include "host/refocus/circle_of_confusion.h"
#include "host/refocus/image.h"

namespace refocus {

// What lies out of focus on one side of the focus plane, in cells of cell x cell main image pixels.
struct DefocusField {
    cv::Mat light;   // CV_32FC3, mean linear RGB of the cell's pixels of this field
    cv::Mat weight;  // CV_32FC1, share of the cell that belongs to the field, 0 to 1
    cv::Mat radius;  // CV_32FC1, mean disc radius in cells
    cv::Mat order;   // CV_8UC1, mean disparity value; larger is nearer
    cv::Mat clipped; // CV_8UC1, 0 to 255: share of the field's pixels that are overexposed
};

// The picture separated into layers. A cell on an object's outline has a share in several fields,
// each with the colour of its own pixels only, so that blurring one adds no halo of another.
struct DefocusFields {
    DefocusField far;
    DefocusField near;
    cv::Mat sharpLight;  // CV_32FC3, mean linear RGB of the pixels in focus
    cv::Mat sharpWeight; // CV_32FC1
};

// The map with strongly blurred near objects dilated by `radius` pixels. The pixels of an outline
// mix the object with its background; as background they would remain as a sharp line around the
// blurred object.
cv::Mat GrowNear(const cv::Mat& map, const BlurTable& table, int radius);

// `map` is CV_8UC1 of the image's size and `grown` the result of GrowNear; pixels that only `grown`
// counts as near belong to no field. Cells at the right and lower border may be partial.
DefocusFields SplitFields(const Nv12View& image, const cv::Mat& map, const cv::Mat& grown,
                          const BlurTable& table, int cell);

} // namespace refocus

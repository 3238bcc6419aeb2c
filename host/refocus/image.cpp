#include "host/refocus/image.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace refocus {
namespace {

void CopyRows(const PLIM_OFFSCREEN& from, const PLIM_OFFSCREEN& to, int plane, int rows) {
    for (std::ptrdiff_t row = 0; row < rows; ++row) {
        const std::uint8_t* source = from.pu8Plane[plane] + row * from.i32Pitch[plane];
        std::uint8_t* target = to.pu8Plane[plane] + row * to.i32Pitch[plane];
        if (source != target) {
            std::memcpy(target, source, static_cast<std::size_t>(from.i32Width));
        }
    }
}

} // namespace

Error CheckImage(const PLIM_OFFSCREEN* image) {
    if (image == nullptr) {
        return Error::kNullArgument;
    }
    if (image->u32Format != PLIM_PAF_NV12) {
        return Error::kImageFormat;
    }
    const int shorter = std::min(image->i32Width, image->i32Height);
    const int longer = std::max(image->i32Width, image->i32Height);
    if (shorter < kMinImageSide || longer > kMaxImageSide) {
        return Error::kImageSize;
    }
    for (int plane = 0; plane < 2; ++plane) {
        if (image->pu8Plane[plane] == nullptr) {
            return Error::kImagePlane;
        }
        // The size of the disparity data, pitch x height, must fit a signed 32-bit number.
        if (image->i32Pitch[plane] < image->i32Width ||
            image->i32Pitch[plane] > std::numeric_limits<std::int32_t>::max() / image->i32Height) {
            return Error::kImagePitch;
        }
    }
    return Error::kNone;
}

Nv12View ViewOf(const PLIM_OFFSCREEN& image) {
    return {cv::Mat(image.i32Height, image.i32Width, CV_8UC1, image.pu8Plane[0],
                    static_cast<std::size_t>(image.i32Pitch[0])),
            cv::Mat(image.i32Height / 2, image.i32Width / 2, CV_8UC2, image.pu8Plane[1],
                    static_cast<std::size_t>(image.i32Pitch[1]))};
}

void CopyImage(const PLIM_OFFSCREEN& from, const PLIM_OFFSCREEN& to) {
    CopyRows(from, to, 0, from.i32Height);
    CopyRows(from, to, 1, from.i32Height / 2);
}

int ReductionFactor(cv::Size size, int target) {
    const double longer = std::max(size.width, size.height);
    return std::max(1, static_cast<int>(std::lround(longer / target)));
}

cv::Mat ReduceLuma(const cv::Mat& luma, int factor) {
    if (factor == 1) {
        return luma;
    }
    const cv::Size size(luma.cols / factor, luma.rows / factor);
    cv::Mat reduced;
    cv::resize(luma(cv::Rect(0, 0, size.width * factor, size.height * factor)), reduced, size, 0, 0,
               cv::INTER_AREA);
    return reduced;
}

cv::Mat Mirrored(const cv::Mat& image) {
    cv::Mat result;
    cv::flip(image, result, 1);
    return result;
}

} // namespace refocus

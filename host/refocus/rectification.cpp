#include "host/refocus/rectification.h"

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>

#include "host/refocus/image.h"

namespace refocus {
namespace {

struct ReducedCamera {
    cv::Matx33d matrix;
    cv::Vec<double, 8> distortion; // k1 k2 p1 p2 k3 k4 k5 k6, OpenCV's order
};

cv::Size2d SensorSize(const CameraCalibration& camera) {
    return {camera.width / double{kCalibrationUnitsPerPixel},
            camera.height / double{kCalibrationUnitsPerPixel}};
}

// The intrinsics of an image of `size` that shows the centred `crop` of the sensor.
ReducedCamera Reduce(const CameraCalibration& camera, cv::Size crop, cv::Size size) {
    const cv::Size2d sensor = SensorSize(camera);
    cv::Size2d shown = crop;
    if (crop.empty()) {
        const double aspect = static_cast<double>(size.width) / size.height;
        shown.width = std::min(sensor.width, sensor.height * aspect);
        shown.height = std::min(sensor.height, sensor.width / aspect);
    }
    const double sx = size.width / shown.width;
    const double sy = size.height / shown.height;
    // Scaling keeps the image's outer edge, half a pixel outside the centre of the first pixel.
    const double cx = (camera.cx - (sensor.width - shown.width) / 2 + 0.5) * sx - 0.5;
    const double cy = (camera.cy - (sensor.height - shown.height) / 2 + 0.5) * sy - 0.5;
    return {{camera.fx * sx, 0, cx, 0, camera.fy * sy, cy, 0, 0, 1},
            {camera.k[0], camera.k[1], camera.p[0], camera.p[1], camera.k[2], camera.k[3],
             camera.k[4], camera.k[5]}};
}

// Equal lenses, parallel axes and a baseline along the rows: matching needs no resampling.
bool AlreadyRectified(const ReducedCamera& main, const ReducedCamera& aux,
                      const cv::Matx33d& rotation, const cv::Vec3d& translation) {
    const double lens = cv::norm(main.matrix - aux.matrix, cv::NORM_INF);
    const double angle = cv::norm(rotation - cv::Matx33d::eye(), cv::NORM_INF);
    const double offAxis = std::hypot(translation[1], translation[2]) / cv::norm(translation);
    return cv::norm(main.distortion) == 0.0 && cv::norm(aux.distortion) == 0.0 && lens < 0.1 &&
           angle < 1e-6 && offAxis < 1e-6;
}

cv::Size SwapIf(bool swap, cv::Size size) {
    return swap ? cv::Size(size.height, size.width) : size;
}

// Scales the focal length of a rectified camera about the centre of its image.
void Magnify(double factor, cv::Size size, cv::Matx34d& projection) {
    const cv::Vec2d centre((size.width - 1) / 2.0, (size.height - 1) / 2.0);
    for (int i = 0; i < 2; ++i) {
        projection(i, i) *= factor;
        projection(i, 2) = centre[i] + (projection(i, 2) - centre[i]) * factor;
        projection(i, 3) *= factor;
    }
}

// The position of each pixel of the main image on the rectified one.
void InverseMaps(const ReducedCamera& main, const cv::Matx33d& r1, const cv::Matx34d& p1,
                 cv::Size size, cv::Mat& mapX, cv::Mat& mapY) {
    cv::Mat points(size, CV_32FC2);
    points.forEach<cv::Vec2f>([](cv::Vec2f& point, const int* at) {
        point = {static_cast<float>(at[1]), static_cast<float>(at[0])};
    });
    cv::Mat rectified;
    cv::undistortPoints(points.reshape(2, size.area()), rectified, main.matrix, main.distortion, r1,
                        p1);
    cv::Mat planes[2];
    cv::split(rectified.reshape(2, size.height), planes);
    mapX = planes[0];
    mapY = planes[1];
}

cv::Mat Remap(const cv::Mat& image, const cv::Mat& mapX, const cv::Mat& mapY, int interpolation) {
    cv::Mat result;
    cv::remap(image, result, mapX, mapY, interpolation, cv::BORDER_REPLICATE);
    return result;
}

cv::Mat Rotated(const cv::Mat& image, int clockwise) {
    if (clockwise == 0) {
        return image;
    }
    cv::Mat result; // rotating in place would change the caller's pixels
    cv::rotate(image, result,
               clockwise == 90    ? cv::ROTATE_90_CLOCKWISE
               : clockwise == 180 ? cv::ROTATE_180
                                  : cv::ROTATE_90_COUNTERCLOCKWISE);
    return result;
}

} // namespace

ImageGeometry GeometryOf(const TSL_DCR_CAMERAIMAGEINFO& info, const Calibration& calibration) {
    return {{info.i32MainWidth_CropNoScale, info.i32MainHeight_CropNoScale},
            {info.i32AuxWidth_CropNoScale, info.i32AuxHeight_CropNoScale},
            (info.i32ImageDegree - calibration.mountAngle + 360) % 360};
}

Error CheckImageInfo(const TSL_DCR_CAMERAIMAGEINFO& info) {
    const auto [low, high] =
        std::minmax({info.i32MainWidth_CropNoScale, info.i32MainHeight_CropNoScale,
                     info.i32AuxWidth_CropNoScale, info.i32AuxHeight_CropNoScale});
    const bool crops = (low == 0 && high == 0) || low > 0;
    const int degree = info.i32ImageDegree;
    const bool turned = degree >= 0 && degree < 360 && degree % 90 == 0;
    return crops && turned ? Error::kNone : Error::kImageInfoValues;
}

Error CheckCrops(const ImageGeometry& geometry, const Calibration& calibration) {
    const bool swap = geometry.rotation % 180 != 0;
    const auto exceeds = [swap](cv::Size crop, const CameraCalibration& camera) {
        crop = SwapIf(swap, crop);
        // Trimming to an aspect ratio rounds, which may widen a crop by a few pixels.
        const cv::Size2d sensor = SensorSize(camera);
        return crop.width > sensor.width * 1.01 + 2 || crop.height > sensor.height * 1.01 + 2;
    };
    return exceeds(geometry.mainCrop, calibration.main) ||
                   exceeds(geometry.auxCrop, calibration.aux)
               ? Error::kImageInfoMismatch
               : Error::kNone;
}

std::optional<Rectification> Rectification::Make(const Calibration& calibration,
                                                 const ImageGeometry& geometry, cv::Size size) {
    const bool swap = geometry.rotation % 180 != 0;
    const cv::Size upright = SwapIf(swap, size);
    const ReducedCamera main = Reduce(calibration.main, SwapIf(swap, geometry.mainCrop), upright);
    const ReducedCamera aux = Reduce(calibration.aux, SwapIf(swap, geometry.auxCrop), upright);
    const cv::Matx33d rotation(calibration.rotation.data());
    const cv::Vec3d translation(calibration.translation.data());

    Rectification result;
    result.rotation_ = geometry.rotation;
    double focal = main.matrix(0, 0);
    if (AlreadyRectified(main, aux, rotation, translation)) {
        result.mirrored_ = translation[0] > 0;
    } else {
        cv::Matx33d r1, r2;
        cv::Matx34d p1, p2;
        cv::Matx44d q;
        cv::stereoRectify(main.matrix, main.distortion, aux.matrix, aux.distortion, upright,
                          rotation, translation, r1, r2, p1, p2, q, cv::CALIB_ZERO_DISPARITY, -1);
        // stereoRectify takes the wider lens' focal length, with which a narrower main image would
        // lose detail. The main camera's own also gives disparities in main image pixels.
        Magnify(main.matrix(0, 0) / p1(0, 0), upright, p1);
        Magnify(main.matrix(0, 0) / p2(0, 0), upright, p2);
        focal = p1(0, 0);
        if (!(focal > 1.0) || !std::isfinite(focal) || !cv::checkRange(p2)) {
            return std::nullopt;
        }
        result.vertical_ = std::abs(p2(1, 3)) > std::abs(p2(0, 3));
        result.mirrored_ = p2(result.vertical_ ? 1 : 0, 3) > 0;
        cv::initUndistortRectifyMap(main.matrix, main.distortion, r1, p1, upright, CV_32FC1,
                                    result.mainMapX_, result.mainMapY_);
        cv::initUndistortRectifyMap(aux.matrix, aux.distortion, r2, p2, upright, CV_32FC1,
                                    result.auxMapX_, result.auxMapY_);
        InverseMaps(main, r1, p1, upright, result.backMapX_, result.backMapY_);
    }
    if (calibration.nearestDistance > 0) {
        result.nearestDisparity_ = focal * cv::norm(translation) / calibration.nearestDistance;
    }
    return result;
}

cv::Mat Rectification::Rectify(const cv::Mat& image, const cv::Mat& mapX,
                               const cv::Mat& mapY) const {
    cv::Mat result = Rotated(image, (360 - rotation_) % 360);
    if (!mapX.empty()) {
        result = Remap(result, mapX, mapY, cv::INTER_LINEAR);
    }
    if (vertical_) {
        result = result.t();
    }
    return mirrored_ ? Mirrored(result) : result;
}

cv::Mat Rectification::Left(const cv::Mat& main) const {
    return Rectify(main, mainMapX_, mainMapY_);
}

cv::Mat Rectification::Right(const cv::Mat& aux) const {
    return Rectify(aux, auxMapX_, auxMapY_);
}

cv::Mat Rectification::ToMain(const cv::Mat& left) const {
    cv::Mat map = mirrored_ ? Mirrored(left) : left;
    if (vertical_) {
        map = map.t();
    }
    if (!isIdentity()) {
        map = Remap(map, backMapX_, backMapY_, cv::INTER_NEAREST);
    }
    return Rotated(map, rotation_);
}

} // namespace refocus

#pragma once

#include <opencv2/core.hpp>

#include <optional>

#include "engine/refocus_engine.h"
#include "host/refocus/calibration.h"

// Rectification: turns the reduced luma of both cameras into a left and a right image whose rows
// correspond and whose disparities (left column minus right column) are positive, and brings the
// result back onto the main image.
//
// Rectified images come from Bouguet's method as in OpenCV's stereoRectify, with the principal
// points aligned, so that disparity 0 lies at infinity. Pure; any thread.
namespace refocus {

// How reduced images lie against the calibration: which part of the sensor they show and how they
// are turned. One per picture.
struct ImageGeometry {
    cv::Size mainCrop; // sensor pixels along the image's axes; empty: all that its aspect allows
    cv::Size auxCrop;
    int turn = 0; // clockwise degrees by which the images are turned against the calibration
};

// Geometry from the caller's record, whose values CheckImageInfo found well.
ImageGeometry GeometryOf(const TSL_DCR_CAMERAIMAGEINFO& info, const Calibration& calibration);

// kNone where all four crop sizes are 0 (unknown) or all positive, and the degree is 0, 90, 180,
// 270.
Error CheckImageInfo(const TSL_DCR_CAMERAIMAGEINFO& info);

// kNone, or kImageInfoMismatch where a crop is larger than the sensor that was calibrated.
Error CheckCrops(const ImageGeometry& geometry, const Calibration& calibration);

class Rectification {
public:
    // For reduced images of `size`, main and aux alike. Nothing where the calibration can't be
    // rectified at that size.
    static std::optional<Rectification> Make(const Calibration& calibration,
                                             const ImageGeometry& geometry, cv::Size size);

    // Images (CV_8UC1) of the size given to Make, to match with one another.
    cv::Mat Left(const cv::Mat& main) const;
    cv::Mat Right(const cv::Mat& aux) const;

    // Brings a map (any single-channel type) on the left image back onto the reduced main image, by
    // nearest neighbour. Pixels of the main image that the left image doesn't show take its border.
    cv::Mat ToMain(const cv::Mat& left) const;

    // Disparity, in reduced pixels, of the calibration's nearest distance; 0 if unknown.
    double nearestDisparity() const { return nearestDisparity_; }
    // True where no pixel had to be resampled.
    bool isIdentity() const { return mainMapX_.empty(); }

private:
    cv::Mat Rectify(const cv::Mat& image, const cv::Mat& mapX, const cv::Mat& mapY) const;

    int turn_ = 0;
    bool vertical_ = false; // cameras above one another: rows and columns change roles
    bool mirrored_ = false; // aux camera on the main one's other side
    cv::Mat mainMapX_, mainMapY_, auxMapX_, auxMapY_; // empty for an already rectified pair
    cv::Mat backMapX_, backMapY_;
    double nearestDisparity_ = 0.0;
};

} // namespace refocus

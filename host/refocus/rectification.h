#pragma once

#include <opencv2/core.hpp>

#include <optional>

#include "engine/refocus_engine.h"
#include "host/refocus/calibration.h"

// Rectification: resamples the reduced luma of both cameras to a left and a right image whose rows
// correspond and whose disparities (left column minus right column) are positive, and maps results
// back onto the main image.
//
// The rectifying rotations are Bouguet's, as in OpenCV's stereoRectify, with aligned principal
// points, so that a point at infinity has disparity 0. All functions are pure and may run on any
// thread.
namespace refocus {

// How the images relate to the calibration: the part of the sensor that they show, and their
// rotation. One for each picture.
struct ImageGeometry {
    // The centred crop in sensor pixels along the image's axes; empty: the largest of its aspect.
    cv::Size mainCrop;
    cv::Size auxCrop;
    int rotation = 0; // clockwise degrees of the images against the calibration: 0, 90, 180, 270
};

// The geometry of a record that passed CheckImageInfo.
ImageGeometry GeometryOf(const TSL_DCR_CAMERAIMAGEINFO& info, const Calibration& calibration);

// kNone where all four crop sizes are 0 (unknown) or all are positive, and the degree is 0, 90, 180
// or 270; else kImageInfoValues.
Error CheckImageInfo(const TSL_DCR_CAMERAIMAGEINFO& info);

// kNone, or kImageInfoMismatch where a crop is larger than the calibrated sensor.
Error CheckCrops(const ImageGeometry& geometry, const Calibration& calibration);

class Rectification {
public:
    // For reduced images that both have `size`. Nothing where the calibration cannot be rectified
    // at that size.
    static std::optional<Rectification> Make(const Calibration& calibration,
                                             const ImageGeometry& geometry, cv::Size size);

    // The rectified images (8 bits, any number of channels) of images of the size given to Make.
    cv::Mat Left(const cv::Mat& main) const;
    cv::Mat Right(const cv::Mat& aux) const;

    // Maps a single-channel image that belongs to the left image back onto the reduced main image,
    // by nearest neighbour. Pixels of the main image outside the left one take its border's value.
    cv::Mat ToMain(const cv::Mat& left) const;

    // Disparity, in reduced pixels, of the calibration's nearest distance; 0 if unknown.
    double nearestDisparity() const { return nearestDisparity_; }
    // True where no pixel is resampled.
    bool isIdentity() const { return mainMapX_.empty(); }

private:
    cv::Mat Rectify(const cv::Mat& image, const cv::Mat& mapX, const cv::Mat& mapY) const;

    int rotation_ = 0;
    bool vertical_ = false; // the baseline runs along the columns: images are transposed
    bool mirrored_ = false; // the aux camera is on the main one's left: images are mirrored
    cv::Mat mainMapX_, mainMapY_, auxMapX_, auxMapY_; // empty for a rectified pair
    cv::Mat backMapX_, backMapY_;
    double nearestDisparity_ = 0.0;
};

} // namespace refocus

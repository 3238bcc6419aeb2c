#include "tools/calibrate/board_pictures.h"

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "host/picture/image_file.h"
#include "host/picture/text.h"

namespace {

// In pixels. A page of photos at full size would be too large.
constexpr int kWidest = 1200;
const cv::Scalar kLineColours[] = {{255, 80, 80}, {80, 220, 80}, {90, 150, 255}};

cv::Mat ReadPhoto(const std::filesystem::path& path) {
    RgbImage picture = ReadImageFile(path);
    // The clone outlives the picture, whose memory the matrix shares.
    return cv::Mat(picture.height, picture.width, CV_8UC3, picture.bytes.data()).clone();
}

RgbImage ToPicture(const cv::Mat& rgb) {
    RgbImage picture(rgb.cols, rgb.rows);
    rgb.copyTo(cv::Mat(rgb.rows, rgb.cols, CV_8UC3, picture.bytes.data()));
    return picture;
}

} // namespace

RgbImage CornersPicture(const std::filesystem::path& photo, const std::vector<cv::Point2f>& corners,
                        const Board& board) {
    cv::Mat rgb = ReadPhoto(photo);
    cv::drawChessboardCorners(rgb, {board.columns, board.rows}, corners, true);
    return Reduced(ToPicture(rgb), kWidest);
}

RgbImage EpipolarPicture(const BoardCalibration& calibration, const BoardView& view) {
    const cv::Mat photos[] = {ReadPhoto(view.main), ReadPhoto(view.aux)};
    const cv::Size size = photos[0].size();
    cv::Mat rotations[2];
    cv::Mat projections[2];
    cv::Mat reprojection;
    cv::stereoRectify(calibration.main.camera, calibration.main.distortion, calibration.aux.camera,
                      calibration.aux.distortion, size, calibration.rotation,
                      calibration.translation, rotations[0], rotations[1], projections[0],
                      projections[1], reprojection);
    cv::Mat rectified[2];
    for (int i = 0; i < 2; ++i) {
        const LensMatrices& lens = i == 0 ? calibration.main : calibration.aux;
        cv::Mat columns;
        cv::Mat rows;
        cv::initUndistortRectifyMap(lens.camera, lens.distortion, rotations[i], projections[i],
                                    size, CV_32FC1, columns, rows);
        cv::remap(photos[i], rectified[i], columns, rows, cv::INTER_LINEAR);
    }
    // Epipolar lines run along the line between the cameras: along columns if one is above the
    // other.
    const auto& shift = calibration.translation;
    const bool above = std::abs(shift.at<double>(1)) > std::abs(shift.at<double>(0));
    cv::Mat both;
    (above ? cv::vconcat(rectified[0], rectified[1], both)
           : cv::hconcat(rectified[0], rectified[1], both));
    RgbImage picture = Reduced(ToPicture(both), 2 * kWidest);
    const cv::Mat pixels(picture.height, picture.width, CV_8UC3, picture.bytes.data());
    constexpr int kLines = 24;
    for (int i = 1; i < kLines; ++i) {
        // The lines' colours change, so that one can be followed across both photos.
        const int at = i * (above ? pixels.cols : pixels.rows) / kLines;
        const cv::Point end =
            above ? cv::Point(at, pixels.rows - 1) : cv::Point(pixels.cols - 1, at);
        cv::line(pixels, above ? cv::Point(at, 0) : cv::Point(0, at), end,
                 kLineColours[static_cast<std::size_t>(i) % std::size(kLineColours)]);
    }
    return picture;
}

RgbImage CoveragePicture(const BoardCalibration& calibration) {
    const refocus::CameraCalibration& camera = calibration.calibration.main;
    cv::Mat frame(camera.height / 100, camera.width / 100, CV_8UC3, cv::Scalar::all(48));
    std::size_t used = 0;
    for (const BoardView& view : calibration.views) {
        for (const cv::Point2f& corner : view.mainCorners) {
            cv::circle(frame, corner, std::max(frame.cols / 250, 2),
                       kLineColours[used % std::size(kLineColours)], cv::FILLED, cv::LINE_AA);
        }
        used += view.mainCorners.empty() ? 0 : 1;
    }
    return Reduced(ToPicture(frame), kWidest);
}

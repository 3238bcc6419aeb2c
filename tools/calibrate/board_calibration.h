#pragma once

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "host/refocus/calibration.h"
#include "tools/calibrate/calibration_record.h"

// Calibration of a camera pair from photos of a chessboard, by Zhang's method as in OpenCV's
// calibrateCamera and stereoCalibrate.

struct Board {
    int columns = 9; // inner corners in a row
    int rows = 6;
    double square = 25; // side in mm
};

struct BoardView {
    std::filesystem::path main;
    std::filesystem::path aux;
    std::string dropped;  // the reason why the view is not used; empty if it is used
    double mainError = 0; // root mean square reprojection error of the corners, in pixels
    double auxError = 0;
    std::vector<cv::Point2f> mainCorners; // pixels of the photos; none if the view is not used
    std::vector<cv::Point2f> auxCorners;
};

struct BoardCalibration {
    refocus::Calibration calibration; // mount angle and nearest distance are left 0
    LensMatrices main;                // OpenCV's numbers, from which the record is made
    LensMatrices aux;
    cv::Mat rotation;
    cv::Mat translation;
    std::vector<BoardView> views;
    double error = 0;   // of all used views together, in pixels
    double nearest = 0; // mm from the main camera to the nearest board
};

// Each pair of photos, main and aux, is one view of the board at one moment; all photos of a camera
// have the same size. A view is dropped if the whole board is not found in both photos or if its
// reprojection error stands out. Throws UseError if fewer than three views remain, if the
// views fit each camera but not the pair, or if a photo cannot be read.
BoardCalibration CalibrateFromBoards(
    const std::vector<std::pair<std::filesystem::path, std::filesystem::path>>& photos,
    const Board& board);

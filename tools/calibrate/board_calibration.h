#pragma once

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "host/picture/geometry.h"
#include "host/refocus/calibration.h"

// Calibration of a camera pair from photos of a chessboard, by Zhang's method as in OpenCV's
// calibrateCamera and stereoCalibrate.

struct Board {
    int columns = 9; // inner corners
    int rows = 6;
    double square = 25; // mm
};

struct BoardView {
    std::filesystem::path main;
    std::filesystem::path aux;
    std::string dropped;  // why it is not used; empty for a view that is
    double mainError = 0; // root of the mean squared distance of corners from where they should be
    double auxError = 0;  // in pixels
};

struct BoardCalibration {
    refocus::Calibration calibration; // mount angle and nearest distance are left 0
    std::vector<BoardView> views;
    double error = 0; // of all used views together, pixels
};

// The photos of a view are of one moment; all of one camera have the same size. Views without a
// whole board in both photos, and views that fit the others badly, are dropped. Throws UseError
// where fewer than three remain or a photo cannot be read.
BoardCalibration CalibrateFromBoards(
    const std::vector<std::pair<std::filesystem::path, std::filesystem::path>>& photos,
    const Board& board);

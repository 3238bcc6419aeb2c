#pragma once

#include "host/picture/rgb_image.h"
#include "tools/calibrate/board_calibration.h"

// Pictures that show what a calibration from boards rests on, at most 1200 pixels a side of each
// photo. They read the photos again, and throw UseError if that fails.

// A photo with the board's corners, joined in their order.
RgbImage CornersPicture(const std::filesystem::path& photo, const std::vector<cv::Point2f>& corners,
                        const Board& board);

// Both photos of a view, rectified, side by side, or one above the other for cameras above one
// another: where the calibration is right, a drawn line crosses the same points in both.
RgbImage EpipolarPicture(const BoardCalibration& calibration, const BoardView& view);

// The corners of all used views in the main camera's frame. What no board has covered is guessed.
RgbImage CoveragePicture(const BoardCalibration& calibration);

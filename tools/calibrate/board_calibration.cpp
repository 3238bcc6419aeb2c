#include "tools/calibrate/board_calibration.h"

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <optional>

#include <fmt/format.h>

#include "host/picture/errors.h"
#include "host/picture/image_file.h"
#include "tools/calibrate/calibration_record.h"

namespace fs = std::filesystem;

namespace {

// In general Zhang's method needs three views of different directions to find a camera's intrinsic
// parameters.
constexpr std::size_t kFewestViews = 3;
// A view is dropped if its error exceeds this multiple of the median, unless it is small anyway.
constexpr double kWorstOfMedian = 3.0;
constexpr double kAlwaysGood = 0.5; // pixels

constexpr char kMisfit[] = "fits badly";
constexpr char kOrderHint[] = "\n  do --main and --aux name the photos in the same order?";

using Corners = std::vector<cv::Point2f>;

// The board as both cameras see it in one view.
struct Detection {
    std::size_t view = 0;
    Corners main;
    Corners aux;
};

struct Sizes {
    cv::Size main;
    cv::Size aux;
};

cv::Mat ReadGrey(const fs::path& path, cv::Size& size) {
    RgbImage picture = ReadImageFile(path);
    const cv::Mat rgb(picture.height, picture.width, CV_8UC3, picture.bytes.data());
    if (size.empty()) {
        size = rgb.size();
    }
    if (rgb.size() != size) {
        Refuse(path.string(),
               fmt::format("{}x{} as the camera's first photo", size.width, size.height),
               fmt::format("{}x{}", rgb.cols, rgb.rows));
    }
    cv::Mat grey;
    cv::cvtColor(rgb, grey, cv::COLOR_RGB2GRAY);
    return grey;
}

std::optional<Corners> FindCorners(const cv::Mat& grey, const Board& board) {
    Corners corners;
    // The fast check gives up on photos without a board, for which the full search takes long.
    const bool found = cv::findChessboardCorners(
        grey, {board.columns, board.rows}, corners,
        cv::CALIB_CB_ADAPTIVE_THRESH | cv::CALIB_CB_NORMALIZE_IMAGE | cv::CALIB_CB_FAST_CHECK);
    if (!found) {
        return std::nullopt;
    }
    // The search window stays within the squares around a corner.
    const double step = cv::norm(corners[1] - corners[0]);
    const int reach = std::clamp(static_cast<int>(step / 3), 2, 11);
    cv::cornerSubPix(grey, corners, {reach, reach}, {-1, -1},
                     {cv::TermCriteria::EPS | cv::TermCriteria::COUNT, 40, 0.01});
    return corners;
}

// The detector may start at either end of the board, which looks the same upside down. Both photos
// must list the corners in one order.
void UnifyOrder(Detection& detection) {
    // The diagonals of the two boards point the same way if both start at the same end: cameras of
    // a phone are turned little against each other.
    const cv::Point2f main = detection.main.back() - detection.main.front();
    const cv::Point2f aux = detection.aux.back() - detection.aux.front();
    if (main.dot(aux) < 0) {
        std::ranges::reverse(detection.aux);
    }
}

std::vector<Detection> DetectBoards(std::vector<BoardView>& views, const Board& board,
                                    Sizes& sizes) {
    std::vector<Detection> detections;
    for (std::size_t i = 0; i < views.size(); ++i) {
        const auto main = FindCorners(ReadGrey(views[i].main, sizes.main), board);
        const auto aux = FindCorners(ReadGrey(views[i].aux, sizes.aux), board);
        if (main && aux) {
            detections.push_back({i, *main, *aux});
            UnifyOrder(detections.back());
        } else {
            views[i].dropped =
                fmt::format("no whole board of {}x{} inner corners in {}", board.columns,
                            board.rows, (main ? views[i].aux : views[i].main).filename().string());
        }
    }
    return detections;
}

std::vector<cv::Point3f> BoardPoints(const Board& board) {
    std::vector<cv::Point3f> points;
    for (int row = 0; row < board.rows; ++row) {
        for (int column = 0; column < board.columns; ++column) {
            points.emplace_back(static_cast<float>(column * board.square),
                                static_cast<float>(row * board.square), 0.0f);
        }
    }
    return points;
}

// The calibration of both cameras over the views that are left. Lengths are in mm.
struct Solution {
    LensMatrices main;
    LensMatrices aux;
    cv::Mat rotation;
    cv::Mat translation;
    cv::Mat1d errors; // a row for each view: main, aux
    double error = 0;
    double alone = 0;   // the larger error of the two cameras, each calibrated by itself
    double nearest = 0; // mm from the main camera to the nearest board's first corner
};

Solution Solve(const std::vector<Detection>& detections, const Board& board, const Sizes& sizes) {
    std::vector<Corners> main;
    std::vector<Corners> aux;
    for (const Detection& view : detections) {
        main.push_back(view.main);
        aux.push_back(view.aux);
    }
    const std::vector<std::vector<cv::Point3f>> points(detections.size(), BoardPoints(board));
    Solution solution;
    // Each camera is calibrated by itself first: solving both cameras and the pose between them at
    // once has so many unknowns that few views leave it unstable.
    const auto single = [&](const std::vector<Corners>& corners, cv::Size size,
                            LensMatrices& lens) {
        std::vector<cv::Mat> rotations;
        std::vector<cv::Mat> translations;
        // A third radial term needs more views than users usually take.
        const double error =
            cv::calibrateCamera(points, corners, size, lens.camera, lens.distortion, rotations,
                                translations, cv::CALIB_FIX_K3);
        solution.alone = std::max(solution.alone, error);
        if (&lens == &solution.main) {
            solution.nearest = INFINITY;
            for (const cv::Mat& translation : translations) {
                solution.nearest = std::min(solution.nearest, translation.at<double>(2));
            }
        }
    };
    single(main, sizes.main, solution.main);
    single(aux, sizes.aux, solution.aux);
    cv::Mat essential;
    cv::Mat fundamental;
    // The lenses are fixed, so that this step finds rotation and translation alone.
    solution.error = cv::stereoCalibrate(
        points, main, aux, solution.main.camera, solution.main.distortion, solution.aux.camera,
        solution.aux.distortion, sizes.main, solution.rotation, solution.translation, essential,
        fundamental, solution.errors, cv::CALIB_FIX_INTRINSIC);
    return solution;
}

// Drops the view with the largest error if it stands out. Returns false if none does.
bool DropWorst(const Solution& solution, std::vector<Detection>& detections,
               std::vector<BoardView>& views) {
    std::vector<double> errors;
    errors.reserve(static_cast<std::size_t>(solution.errors.rows));
    for (int i = 0; i < solution.errors.rows; ++i) {
        errors.push_back(std::max(solution.errors(i, 0), solution.errors(i, 1)));
    }
    // One view is dropped a round, since a wrong view bends the solution so that others seem wrong.
    const auto worst = std::ranges::max_element(errors);
    const auto at = worst - errors.begin();
    std::vector<double> sorted = errors;
    std::ranges::sort(sorted);
    const double median = sorted[sorted.size() / 2];
    if (*worst <= std::max(kAlwaysGood, kWorstOfMedian * median)) {
        return false;
    }
    views[detections[static_cast<std::size_t>(at)].view].dropped = fmt::format(
        "{}: {:.2f} pixels, the median of the views is {:.2f}", kMisfit, *worst, median);
    detections.erase(detections.begin() + at);
    return true;
}

// Every dropped view is named with its reason, since the photos are what the user can change.
[[noreturn]] void RefuseTooFew(const std::vector<BoardView>& views, std::size_t left) {
    std::string text = fmt::format("expected at least {} good views, found {}", kFewestViews, left);
    bool misfit = false;
    for (const BoardView& view : views) {
        if (!view.dropped.empty()) {
            text += fmt::format("\n  {}: {}", view.main.filename().string(), view.dropped);
            misfit = misfit || view.dropped.starts_with(kMisfit);
        }
    }
    throw UseError(text + (misfit ? kOrderHint : ""));
}

// Views of different moments fit each camera, but no pair of them.
void CheckOrder(const Solution& solution) {
    constexpr double kMostError = 2; // pixels
    // A pair that fits badly because its photos are blurred fits each camera badly as well.
    if (solution.error > kMostError && solution.alone < solution.error / 4) {
        throw UseError(fmt::format("expected views that fit a pair of cameras, found them {:.2f} "
                                   "pixels off, though each camera alone fits to {:.2f}{}",
                                   solution.error, solution.alone, kOrderHint));
    }
}

} // namespace

BoardCalibration CalibrateFromBoards(const std::vector<std::pair<fs::path, fs::path>>& photos,
                                     const Board& board) {
    BoardCalibration result;
    for (const auto& [main, aux] : photos) {
        result.views.push_back({.main = main, .aux = aux});
    }
    Sizes sizes;
    std::vector<Detection> detections = DetectBoards(result.views, board, sizes);
    Solution solution;
    // The loop ends, since every round but the last drops a view.
    do {
        if (detections.size() < kFewestViews) {
            RefuseTooFew(result.views, detections.size());
        }
        solution = Solve(detections, board, sizes);
    } while (DropWorst(solution, detections, result.views));
    CheckOrder(solution);
    result.nearest = solution.nearest;
    for (std::size_t i = 0; i < detections.size(); ++i) {
        BoardView& view = result.views[detections[i].view];
        view.mainError = solution.errors(static_cast<int>(i), 0);
        view.auxError = solution.errors(static_cast<int>(i), 1);
        view.mainCorners = std::move(detections[i].main);
        view.auxCorners = std::move(detections[i].aux);
    }
    result.error = solution.error;
    result.calibration =
        RecordOf(solution.main, {sizes.main.width, sizes.main.height}, solution.aux,
                 {sizes.aux.width, sizes.aux.height}, solution.rotation, solution.translation);
    result.main = solution.main;
    result.aux = solution.aux;
    result.rotation = solution.rotation;
    result.translation = solution.translation;
    return result;
}

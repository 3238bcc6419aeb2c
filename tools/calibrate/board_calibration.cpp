#include "tools/calibrate/board_calibration.h"

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <optional>

#include "host/picture/errors.h"
#include "host/picture/image_file.h"
#include "tools/calibrate/calibration_record.h"

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kFewestViews = 3;
constexpr double kWorstAgainstMiddle = 3.0; // of the views' errors
constexpr double kAlwaysGood = 0.5;         // pixels

using Corners = std::vector<cv::Point2f>;

struct Seen {
    std::size_t view = 0;
    Corners main;
    Corners aux;
};

struct Sizes {
    cv::Size main;
    cv::Size aux;
};

std::string Text(cv::Size size) {
    return std::to_string(size.width) + "x" + std::to_string(size.height);
}

cv::Mat ReadGrey(const fs::path& path, cv::Size& size) {
    RgbImage picture = ReadImageFile(path);
    const cv::Mat rgb(picture.height, picture.width, CV_8UC3, picture.bytes.data());
    if (size.empty()) {
        size = rgb.size();
    }
    if (rgb.size() != size) {
        throw UseError(path.string() + ": expected " + Text(size) +
                       " as the camera's first photo, found " + Text(rgb.size()));
    }
    cv::Mat grey;
    cv::cvtColor(rgb, grey, cv::COLOR_RGB2GRAY);
    return grey;
}

std::optional<Corners> FindCorners(const cv::Mat& grey, const Board& board) {
    Corners corners;
    const bool found = cv::findChessboardCorners(
        grey, {board.columns, board.rows}, corners,
        cv::CALIB_CB_ADAPTIVE_THRESH | cv::CALIB_CB_NORMALIZE_IMAGE | cv::CALIB_CB_FAST_CHECK);
    if (!found) {
        return std::nullopt;
    }
    // No farther than half a square of the smallest.
    const double step = cv::norm(corners[1] - corners[0]);
    const int reach = std::clamp(static_cast<int>(step / 3), 2, 11);
    cv::cornerSubPix(grey, corners, {reach, reach}, {-1, -1},
                     {cv::TermCriteria::EPS | cv::TermCriteria::COUNT, 40, 0.01});
    return corners;
}

// A board looks the same upside down: both photos must have counted it from the same end.
void CountAlike(Seen& seen) {
    const cv::Point2f main = seen.main.back() - seen.main.front();
    const cv::Point2f aux = seen.aux.back() - seen.aux.front();
    if (main.dot(aux) < 0) {
        std::ranges::reverse(seen.aux);
    }
}

std::vector<Seen> SeeBoards(std::vector<BoardView>& views, const Board& board, Sizes& sizes) {
    std::vector<Seen> seen;
    for (std::size_t i = 0; i < views.size(); ++i) {
        const auto main = FindCorners(ReadGrey(views[i].main, sizes.main), board);
        const auto aux = FindCorners(ReadGrey(views[i].aux, sizes.aux), board);
        if (main && aux) {
            seen.push_back({i, *main, *aux});
            CountAlike(seen.back());
        } else {
            views[i].dropped = "no whole board of " + std::to_string(board.columns) + "x" +
                               std::to_string(board.rows) + " inner corners in " +
                               (main ? views[i].aux : views[i].main).filename().string();
        }
    }
    return seen;
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

struct Solution {
    LensMatrices main;
    LensMatrices aux;
    cv::Mat rotation;
    cv::Mat translation;
    cv::Mat errors; // a row a view: main, aux
    double error = 0;
};

Solution Solve(const std::vector<Seen>& seen, const Board& board, const Sizes& sizes) {
    std::vector<Corners> main;
    std::vector<Corners> aux;
    for (const Seen& view : seen) {
        main.push_back(view.main);
        aux.push_back(view.aux);
    }
    const std::vector<std::vector<cv::Point3f>> points(seen.size(), BoardPoints(board));
    Solution solution;
    const auto single = [&](const std::vector<Corners>& corners, cv::Size size,
                            LensMatrices& lens) {
        std::vector<cv::Mat> rotations;
        std::vector<cv::Mat> translations;
        // Three radial terms take more views than boards usually give.
        cv::calibrateCamera(points, corners, size, lens.camera, lens.distortion, rotations,
                            translations, cv::CALIB_FIX_K3);
    };
    single(main, sizes.main, solution.main);
    single(aux, sizes.aux, solution.aux);
    cv::Mat essential;
    cv::Mat fundamental;
    solution.error = cv::stereoCalibrate(
        points, main, aux, solution.main.camera, solution.main.distortion, solution.aux.camera,
        solution.aux.distortion, sizes.main, solution.rotation, solution.translation, essential,
        fundamental, solution.errors, cv::CALIB_FIX_INTRINSIC);
    return solution;
}

double ErrorOf(const Solution& solution, int view) {
    return std::max(solution.errors.at<double>(view, 0), solution.errors.at<double>(view, 1));
}

// Drops the worst view that fits badly; false where all fit.
bool DropWorst(const Solution& solution, std::vector<Seen>& seen, std::vector<BoardView>& views) {
    std::vector<double> errors;
    errors.reserve(seen.size());
    for (int i = 0; i < solution.errors.rows; ++i) {
        errors.push_back(ErrorOf(solution, i));
    }
    const auto worst = std::ranges::max_element(errors);
    const auto at = worst - errors.begin();
    std::vector<double> sorted = errors;
    std::ranges::sort(sorted);
    const double limit = std::max(kAlwaysGood, kWorstAgainstMiddle * sorted[sorted.size() / 2]);
    if (*worst <= limit) {
        return false;
    }
    char text[80];
    std::snprintf(text, sizeof text, "fits badly: %.2f pixels, the middle view has %.2f", *worst,
                  sorted[sorted.size() / 2]);
    views[seen[static_cast<std::size_t>(at)].view].dropped = text;
    seen.erase(seen.begin() + at);
    return true;
}

[[noreturn]] void TooFew(const std::vector<BoardView>& views, std::size_t left) {
    std::string text = "expected at least " + std::to_string(kFewestViews) + " good views, found " +
                       std::to_string(left);
    for (const BoardView& view : views) {
        if (!view.dropped.empty()) {
            text += "\n  " + view.main.filename().string() + ": " + view.dropped;
        }
    }
    throw UseError(text);
}

} // namespace

BoardCalibration CalibrateFromBoards(const std::vector<std::pair<fs::path, fs::path>>& photos,
                                     const Board& board) {
    BoardCalibration result;
    for (const auto& [main, aux] : photos) {
        result.views.push_back({main, aux, "", 0, 0});
    }
    Sizes sizes;
    std::vector<Seen> seen = SeeBoards(result.views, board, sizes);
    Solution solution;
    do {
        if (seen.size() < kFewestViews) {
            TooFew(result.views, seen.size());
        }
        solution = Solve(seen, board, sizes);
    } while (DropWorst(solution, seen, result.views));
    for (std::size_t i = 0; i < seen.size(); ++i) {
        BoardView& view = result.views[seen[i].view];
        view.mainError = solution.errors.at<double>(static_cast<int>(i), 0);
        view.auxError = solution.errors.at<double>(static_cast<int>(i), 1);
    }
    result.error = solution.error;
    result.calibration =
        RecordOf(solution.main, {sizes.main.width, sizes.main.height}, solution.aux,
                 {sizes.aux.width, sizes.aux.height}, solution.rotation, solution.translation);
    return result;
}

#include "tools/inspect/block_matching.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "tools/compare/matrix.h"

namespace {

// Sides are in pixels. In a thumbnail noise averages out, and there is time to try every offset.
constexpr int kLumaSide = 160;
constexpr int kChromaSide = 64;
// Eight blocks fit along the longer side.
constexpr int kBlock = 20;
constexpr double kLeastDeviation = 4.0; // standard deviation in grey levels of a usable block

cv::Mat Thumbnail(const cv::Mat& picture, int longer) {
    const double scale = static_cast<double>(longer) / std::max(picture.cols, picture.rows);
    // A very long picture would lose its shorter side without the limit.
    const cv::Size size(std::max(8, cvRound(picture.cols * scale)),
                        std::max(8, cvRound(picture.rows * scale)));
    cv::Mat reduced;
    cv::resize(picture, reduced, size, 0, 0, scale < 1 ? cv::INTER_AREA : cv::INTER_LINEAR);
    return reduced;
}

cv::Mat ScaledTo(const cv::Mat& thumbnail, cv::Size size) {
    cv::Mat scaled = thumbnail;
    if (thumbnail.size() != size) {
        cv::resize(thumbnail, scaled, size, 0, 0,
                   thumbnail.cols > size.width ? cv::INTER_AREA : cv::INTER_LINEAR);
    }
    return scaled;
}

// The median of the offsets, and the share of them within two pixels of it.
struct Concentration {
    int median = 0;
    double share = 0;
};

Concentration Concentrate(std::vector<int> offsets) {
    constexpr int kTolerance = 2; // pixels
    if (offsets.empty()) {
        return {};
    }
    std::ranges::sort(offsets);
    // A median stands against the wrong matches that repeated patterns give.
    const int median = offsets[offsets.size() / 2];
    const auto near = std::ranges::count_if(
        offsets, [&](int offset) { return std::abs(offset - median) <= kTolerance; });
    return {median, static_cast<double>(near) / static_cast<double>(offsets.size())};
}

// The offset of the best match of each block with structure, by normalised correlation.
std::vector<cv::Point> MatchBlocks(const cv::Mat& first, const cv::Mat& second) {
    const cv::Mat other = ScaledTo(second, first.size());
    // Near objects have large disparities; across the line between the cameras little is expected.
    const int reachX = first.cols / 4;
    const int reachY = first.rows / 7;
    std::vector<cv::Point> offsets;
    for (int y = 2; y + kBlock <= first.rows - 2; y += kBlock) {
        for (int x = 2; x + kBlock <= first.cols - 2; x += kBlock) {
            const cv::Mat block = first(cv::Rect(x, y, kBlock, kBlock));
            cv::Scalar mean;
            cv::Scalar deviation;
            cv::meanStdDev(block, mean, deviation);
            if (deviation[0] < kLeastDeviation) {
                continue;
            }
            const cv::Rect window =
                cv::Rect(x - reachX, y - reachY, kBlock + 2 * reachX, kBlock + 2 * reachY) &
                cv::Rect(cv::Point(), other.size());
            cv::Mat correlation;
            // The correlation is normalised by mean and deviation, since each camera has its own
            // exposure.
            cv::matchTemplate(other(window), block, correlation, cv::TM_CCOEFF_NORMED);
            cv::Point best;
            cv::minMaxLoc(correlation, nullptr, nullptr, nullptr, &best);
            offsets.push_back(window.tl() + best - cv::Point(x, y));
        }
    }
    return offsets;
}

} // namespace

cv::Mat LumaThumbnail(const host::Image& image) {
    return Thumbnail(MatrixOf(image, 0), kLumaSide);
}

std::array<cv::Mat, 2> ChromaThumbnails(const host::Image& image) {
    cv::Mat chroma = Thumbnail(MatrixOf(image, 1), kChromaSide);
    chroma.convertTo(chroma, CV_32FC2);
    std::array<cv::Mat, 2> planes;
    cv::split(chroma, planes.data());
    return planes;
}

double MeanDifference(const cv::Mat& first, const cv::Mat& second) {
    cv::Mat difference;
    cv::absdiff(first, ScaledTo(second, first.size()), difference);
    return cv::mean(difference)[0];
}

EpipolarConsistency MeasureConsistency(const cv::Mat& first, const cv::Mat& second) {
    std::vector<int> across;
    std::vector<int> down;
    cv::Point total; // of the distances
    for (const cv::Point& offset : MatchBlocks(first, second)) {
        across.push_back(offset.x);
        down.push_back(offset.y);
        total += {std::abs(offset.x), std::abs(offset.y)};
    }
    const Concentration x = Concentrate(across);
    const Concentration y = Concentrate(down);
    const double right = 1.0 * x.median / first.cols;
    const double below = 1.0 * y.median / first.rows;
    // The offsets of a flat scene concentrate in both directions. Cameras mostly stand beside one
    // another, so that the vertical offsets decide unless the horizontal ones are clearly better.
    constexpr double kClearly = 0.15;
    const bool acrossDecides = x.share > y.share + kClearly;
    const bool alongColumns = total.y > 2 * total.x;
    return {acrossDecides ? x.share : y.share, std::abs(acrossDecides ? right : below), down.size(),
            alongColumns, alongColumns ? below : right};
}

#include "tools/inspect/pair_match.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cstdlib>

namespace {

constexpr int kLonger = 160;
constexpr int kChromaLonger = 64;
constexpr int kPlace = 20;
constexpr double kLeastDeviation = 4.0; // grey levels; less is no structure

cv::Mat Reduced(const cv::Mat& picture, int longer) {
    const double scale = static_cast<double>(longer) / std::max(picture.cols, picture.rows);
    const cv::Size size(std::max(8, cvRound(picture.cols * scale)),
                        std::max(8, cvRound(picture.rows * scale)));
    cv::Mat reduced;
    cv::resize(picture, reduced, size, 0, 0, scale < 1 ? cv::INTER_AREA : cv::INTER_LINEAR);
    return reduced;
}

// A view of the image's bytes, which OpenCV takes only as if it might write them.
cv::Mat Plane(const host::Image& image, int plane) {
    const int type = plane == 0 ? CV_8UC1 : CV_8UC2;
    const int columns = plane == 0 ? image.width() : image.width() / 2;
    return {image.planeRows(plane), columns, type, const_cast<std::uint8_t*>(image.plane(plane)),
            static_cast<std::size_t>(image.pitch())};
}

// Around which offset most places stand still, and how many of them.
struct Still {
    int middle = 0;
    double share = 0;
};

Still StillOf(std::vector<int> offsets) {
    constexpr int kTolerance = 2; // pixels
    if (offsets.empty()) {
        return {};
    }
    std::ranges::sort(offsets);
    const int middle = offsets[offsets.size() / 2];
    const auto still = std::ranges::count_if(
        offsets, [&](int offset) { return std::abs(offset - middle) <= kTolerance; });
    return {middle, static_cast<double>(still) / static_cast<double>(offsets.size())};
}

} // namespace

cv::Mat SmallLuma(const host::Image& image) {
    return Reduced(Plane(image, 0), kLonger);
}

std::array<cv::Mat, 2> SmallChroma(const host::Image& image) {
    cv::Mat small = Reduced(Plane(image, 1), kChromaLonger);
    small.convertTo(small, CV_32FC2);
    std::array<cv::Mat, 2> planes;
    cv::split(small, planes.data());
    return planes;
}

std::vector<PlaceMatch> MatchPlaces(const cv::Mat& first, const cv::Mat& second) {
    cv::Mat other = second;
    if (second.size() != first.size()) {
        cv::resize(second, other, first.size(), 0, 0,
                   second.cols > first.cols ? cv::INTER_AREA : cv::INTER_LINEAR);
    }
    const int reachX = first.cols / 4; // near things stand far aside
    const int reachY = first.rows / 7;
    std::vector<PlaceMatch> matches;
    for (int y = 2; y + kPlace <= first.rows - 2; y += kPlace) {
        for (int x = 2; x + kPlace <= first.cols - 2; x += kPlace) {
            const cv::Mat place = first(cv::Rect(x, y, kPlace, kPlace));
            cv::Scalar mean;
            cv::Scalar deviation;
            cv::meanStdDev(place, mean, deviation);
            if (deviation[0] < kLeastDeviation) {
                continue;
            }
            const cv::Rect window =
                cv::Rect(x - reachX, y - reachY, kPlace + 2 * reachX, kPlace + 2 * reachY) &
                cv::Rect(cv::Point(), other.size());
            cv::Mat likeness;
            cv::matchTemplate(other(window), place, likeness, cv::TM_CCOEFF_NORMED);
            PlaceMatch match;
            cv::Point best;
            cv::minMaxLoc(likeness, nullptr, &match.likeness, nullptr, &best);
            match.at = {x + kPlace / 2, y + kPlace / 2};
            match.offset = {window.x + best.x - x, window.y + best.y - y};
            matches.push_back(match);
        }
    }
    return matches;
}

Fit FitOf(const std::vector<PlaceMatch>& matches, cv::Size size) {
    std::vector<int> across;
    std::vector<int> down;
    for (const PlaceMatch& match : matches) {
        across.push_back(match.offset.x);
        down.push_back(match.offset.y);
    }
    const Still x = StillOf(across);
    const Still y = StillOf(down);
    // Of a scene without depth both stand still; cameras mostly stand beside one another.
    return x.share > y.share + 0.15
               ? Fit{x.share, std::abs(x.middle) * 1.0 / size.width, matches.size()}
               : Fit{y.share, std::abs(y.middle) * 1.0 / size.height, matches.size()};
}

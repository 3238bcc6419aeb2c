#include "host/refocus/stereo_matching.h"

#include <opencv2/calib3d.hpp> // filterSpeckles
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <vector>

#include "host/refocus/image.h"

namespace refocus {
namespace {

constexpr float kAgreement = 1.0f; // pixels
constexpr int kSpecklePixels = 12; // more would remove highlights

// Takes small connected components whose disparity differs from their surroundings for mismatches.
void RemoveSpeckles(Matches& matches) {
    constexpr int kFixedOne = 16; // filterSpeckles takes integers
    cv::Mat fixed;
    matches.disparity.convertTo(fixed, CV_16SC1, kFixedOne);
    constexpr int kRemoved = -32000;
    fixed.setTo(kRemoved, matches.consistent == 0);
    cv::filterSpeckles(fixed, kRemoved, kSpecklePixels, 2 * kFixedOne);
    matches.consistent.setTo(0, fixed == kRemoved);
}

// Tells occlusions from mismatches: a left pixel is visible in the right image if the disparity of
// some right pixel leads back to it.
void MarkOccluded(const cv::Mat& fromRight, const SearchRange& range, Matches& matches) {
    ForEachRow(fromRight.rows, [&](int y) {
        const float* rightRow = fromRight.ptr<float>(y);
        const std::uint8_t* consistent = matches.consistent.ptr<std::uint8_t>(y);
        std::uint8_t* occluded = matches.occluded.ptr<std::uint8_t>(y);
        for (int x = 0; x < fromRight.cols; ++x) {
            if (consistent[x] != 0) {
                continue;
            }
            const int first = std::max(0, x - range.minimum - range.count + 1);
            const int last = std::min(fromRight.cols - 1, x - range.minimum);
            bool visible = false;
            for (int i = first; i <= last && !visible; ++i) {
                visible = std::abs(rightRow[i] - static_cast<float>(x - i)) <= kAgreement;
            }
            occluded[x] = visible ? 0 : 255;
        }
    });
}

// 255 where the mean horizontal gradient of the neighbourhood exceeds that of sensor noise.
// Vertical gradients don't count: a search along rows needs structure along rows.
cv::Mat TexturedPixels(const cv::Mat& image) {
    cv::Mat gradient;
    cv::Sobel(image, gradient, CV_32F, 1, 0, 1); // difference of the two neighbours
    cv::Mat mean;
    cv::boxFilter(cv::abs(gradient), mean, CV_32F, {7, 7});
    return mean > 4.0;
}

bool IsTextured(double share) {
    return share > 0.02;
}

bool Agree(double share) {
    return share > 0.4;
}

bool MatchesWithDepth(const cv::Mat& left, const cv::Mat& right, const SearchRange& range) {
    return HasDepth(MeasureDepthPresence(left, MatchBothWays(left, right, range)));
}

// The value that `share` of the values lie below; reorders them.
double Percentile(std::vector<float>& values, double share) {
    const auto at = values.begin() +
                    static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

} // namespace

SearchRange SearchRangeFor(int width, double nearestDisparity) {
    const double wanted = nearestDisparity > 0 ? nearestDisparity + 2 : width / 6.0;
    const int minimum = -std::max(1, width / 200);
    const int maximum = static_cast<int>(std::ceil(std::clamp(wanted, 8.0, width / 4.0 + 8.0)));
    return {minimum, (maximum - minimum + 16) / 16 * 16};
}

SearchRange NarrowedRange(const cv::Mat& left, const cv::Mat& right, const SearchRange& range) {
    constexpr int kFactor = 4;
    const cv::Size size(left.cols / kFactor, left.rows / kFactor);
    if (std::min(size.width, size.height) < 32) {
        return range;
    }
    cv::Mat smallLeft, smallRight;
    cv::resize(left, smallLeft, size, 0, 0, cv::INTER_AREA);
    cv::resize(right, smallRight, size, 0, 0, cv::INTER_AREA);
    const Matches matches =
        MatchBothWays(smallLeft, smallRight,
                      {range.minimum / kFactor - 1, (range.count / kFactor + 17) / 16 * 16});
    constexpr double kMinConsistentShare = 0.1;
    if (cv::countNonZero(matches.consistent) < kMinConsistentShare * size.area()) {
        return range;
    }
    double least = 0.0;
    double most = 0.0;
    cv::minMaxLoc(matches.disparity, &least, &most, nullptr, nullptr, matches.consistent);
    constexpr int kMargin = 2 * kFactor;
    const int end = range.minimum + range.count;
    const int from = std::clamp(cvFloor(least * kFactor) - kMargin, range.minimum, end - 16);
    const int to = std::clamp(cvCeil(most * kFactor) + kMargin, from + 1, end);
    return {from, (to - from + 15) / 16 * 16};
}

Matches MatchBothWays(const cv::Mat& left, const cv::Mat& right, const SearchRange& range) {
    const ViewDisparities views = MatchSemiGlobally(left, right, range);
    Matches matches{views.left, cv::Mat::zeros(left.size(), CV_8UC1),
                    cv::Mat::zeros(left.size(), CV_8UC1)};
    ForEachRow(left.rows, [&](int y) {
        const float* leftRow = matches.disparity.ptr<float>(y);
        const float* rightRow = views.right.ptr<float>(y);
        std::uint8_t* consistent = matches.consistent.ptr<std::uint8_t>(y);
        for (int x = 0; x < left.cols; ++x) {
            if (leftRow[x] == kUnmatched) {
                continue;
            }
            const long partner = std::lround(static_cast<float>(x) - leftRow[x]);
            if (partner >= 0 && partner < left.cols &&
                std::abs(rightRow[partner] - leftRow[x]) <= kAgreement) {
                consistent[x] = 255;
            }
        }
    });
    RemoveSpeckles(matches);
    MarkOccluded(views.right, range, matches);
    return matches;
}

DepthPresence MeasureDepthPresence(const cv::Mat& left, const Matches& matches) {
    const cv::Mat textured = TexturedPixels(left);
    const cv::Mat trusted = textured & matches.consistent;
    std::vector<float> disparities;
    for (int y = 0; y < left.rows; ++y) {
        const float* disparity = matches.disparity.ptr<float>(y);
        const std::uint8_t* trust = trusted.ptr<std::uint8_t>(y);
        for (int x = 0; x < left.cols; ++x) {
            if (trust[x] != 0) {
                disparities.push_back(disparity[x]);
            }
        }
    }
    DepthPresence presence;
    const int texturedCount = cv::countNonZero(textured);
    presence.texturedShare = texturedCount / static_cast<double>(left.total());
    if (!disparities.empty()) {
        presence.consistentShare = static_cast<double>(disparities.size()) / texturedCount;
        presence.range = Percentile(disparities, 0.99) - Percentile(disparities, 0.01);
    }
    return presence;
}

bool HasDepth(const DepthPresence& presence) {
    return IsTextured(presence.texturedShare) && Agree(presence.consistentShare) &&
           presence.range > 1.0;
}

Error ReasonForNoDepth(const cv::Mat& left, const cv::Mat& right, const Matches& matches,
                       const SearchRange& range) {
    const auto textured = [](const cv::Mat& image) {
        return cv::countNonZero(TexturedPixels(image)) / static_cast<double>(image.total());
    };
    const DepthPresence presence = MeasureDepthPresence(left, matches);
    if (!IsTextured(presence.texturedShare) || !IsTextured(textured(right))) {
        return Error::kNoStructure;
    }
    if (MatchesWithDepth(Mirrored(left), Mirrored(right), range)) {
        return Error::kReversedPair;
    }
    for (const cv::RotateFlags rotation :
         {cv::ROTATE_90_CLOCKWISE, cv::ROTATE_90_COUNTERCLOCKWISE}) {
        cv::Mat rotatedLeft, rotatedRight;
        cv::rotate(left, rotatedLeft, rotation);
        cv::rotate(right, rotatedRight, rotation);
        if (MatchesWithDepth(rotatedLeft, rotatedRight, range)) {
            return Error::kRotatedPair;
        }
    }
    const SearchRange wide{-left.cols / 4, left.cols * 3 / 4 / 16 * 16};
    if (wide.count > 0 && MatchesWithDepth(left, right, wide)) {
        return Error::kBeyondSearch;
    }
    return Agree(presence.consistentShare) ? Error::kNoParallax : Error::kNoDepth;
}

} // namespace refocus

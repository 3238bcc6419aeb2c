#include "host/refocus/stereo_matching.h"

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>

namespace refocus {
namespace {

constexpr float kUnmatched = -1e6f;
constexpr float kAgreement = 1.0f;                       // pixels
constexpr int kFixedOne = cv::StereoMatcher::DISP_SCALE; // the matcher's fixed point
constexpr int kSpecklePixels = 60;

// Disparity seen from `left`, CV_32FC1, kUnmatched where none was found.
cv::Mat Match(const cv::Mat& left, const cv::Mat& right, const SearchRange& range) {
    // The matcher gives up on columns whose search would leave the right image: widen both.
    const int before = std::max(0, range.minimum + range.count);
    const int after = std::max(0, -range.minimum);
    cv::Mat wideLeft, wideRight;
    cv::copyMakeBorder(left, wideLeft, 0, 0, before, after, cv::BORDER_REPLICATE);
    cv::copyMakeBorder(right, wideRight, 0, 0, before, after, cv::BORDER_REPLICATE);

    constexpr int kBlock = 3;
    // Penalties for steps of one and of more disparities, per pixel of the block.
    const auto matcher = cv::StereoSGBM::create(
        range.minimum, range.count, kBlock, 8 * kBlock * kBlock, 24 * kBlock * kBlock,
        -1 /* left-right check is done below */, 31 /* clip of the gradient */,
        10 /* percent by which the best match must win */, 0, 0, cv::StereoSGBM::MODE_SGBM_3WAY);
    cv::Mat fixed;
    matcher->compute(wideLeft, wideRight, fixed);
    fixed = fixed(cv::Rect(before, 0, left.cols, left.rows));
    // The matcher writes what it did not find as just below the minimum.
    const cv::Mat unmatched = fixed < range.minimum * kFixedOne;
    cv::Mat disparity;
    fixed.convertTo(disparity, CV_32FC1, 1.0 / kFixedOne);
    disparity.setTo(kUnmatched, unmatched);
    return disparity;
}

cv::Mat Mirror(const cv::Mat& image) {
    cv::Mat result;
    cv::flip(image, result, 1);
    return result;
}

// Clears small islands whose disparity stands apart from their surroundings.
void DropSpeckles(Matches& matches) {
    cv::Mat fixed;
    matches.disparity.convertTo(fixed, CV_16SC1, kFixedOne);
    constexpr int kRemoved = -32000;
    fixed.setTo(kRemoved, matches.consistent == 0);
    cv::filterSpeckles(fixed, kRemoved, kSpecklePixels, 2 * kFixedOne);
    matches.consistent.setTo(0, fixed == kRemoved);
}

// A left pixel is shown in the right image if some pixel there points back to it.
void MarkOccluded(const cv::Mat& fromRight, const SearchRange& range, Matches& matches) {
    for (int y = 0; y < fromRight.rows; ++y) {
        const float* theirs = fromRight.ptr<float>(y);
        const std::uint8_t* consistent = matches.consistent.ptr<std::uint8_t>(y);
        std::uint8_t* occluded = matches.occluded.ptr<std::uint8_t>(y);
        for (int x = 0; x < fromRight.cols; ++x) {
            if (consistent[x] != 0) {
                continue;
            }
            const int first = std::max(0, x - range.minimum - range.count + 1);
            const int last = std::min(fromRight.cols - 1, x - range.minimum);
            bool shown = false;
            for (int i = first; i <= last && !shown; ++i) {
                shown = std::abs(theirs[i] - static_cast<float>(x - i)) <= kAgreement;
            }
            occluded[x] = shown ? 0 : 255;
        }
    }
}

} // namespace

SearchRange SearchRangeFor(int width, double nearestDisparity) {
    const double wanted = nearestDisparity > 0 ? nearestDisparity + 2 : width / 6.0;
    const int minimum = -std::max(1, width / 200);
    const int maximum = static_cast<int>(std::ceil(std::clamp(wanted, 8.0, width / 4.0 + 8.0)));
    return {minimum, (maximum - minimum + 16) / 16 * 16};
}

Matches MatchBothWays(const cv::Mat& left, const cv::Mat& right, const SearchRange& range) {
    Matches matches{Match(left, right, range), cv::Mat::zeros(left.size(), CV_8UC1),
                    cv::Mat::zeros(left.size(), CV_8UC1)};
    // Mirrored, the right image is a left one.
    const cv::Mat fromRight = Mirror(Match(Mirror(right), Mirror(left), range));
    for (int y = 0; y < left.rows; ++y) {
        const float* ours = matches.disparity.ptr<float>(y);
        const float* theirs = fromRight.ptr<float>(y);
        std::uint8_t* consistent = matches.consistent.ptr<std::uint8_t>(y);
        for (int x = 0; x < left.cols; ++x) {
            if (ours[x] == kUnmatched) {
                continue;
            }
            const long partner = std::lround(static_cast<float>(x) - ours[x]);
            if (partner >= 0 && partner < left.cols &&
                std::abs(theirs[partner] - ours[x]) <= kAgreement) {
                consistent[x] = 255;
            }
        }
    }
    DropSpeckles(matches);
    MarkOccluded(fromRight, range, matches);
    return matches;
}

} // namespace refocus

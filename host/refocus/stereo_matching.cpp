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
constexpr int kReduction = 4;      // of the first match, which bounds the search

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

// The value that `share` of the values lie below; reorders them.
double Percentile(std::vector<float>& values, double share) {
    const auto at = values.begin() +
                    static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

// What a match shows of depth.
struct DepthPresence {
    double texturedShare = 0.0;   // of all pixels: those with enough structure to be matched
    double consistentShare = 0.0; // of the textured pixels: those that both views agree on
    double range = 0.0; // pixels, between the 1st and 99th percentile of their disparities
};

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

// False for a pair to refuse: flat or black (no structure), unrelated (no agreement), or identical
// or of a plane parallel to the image (no range).
bool HasDepth(const DepthPresence& presence) {
    return IsTextured(presence.texturedShare) && Agree(presence.consistentShare) &&
           presence.range > 1.0;
}

bool LargeEnoughToReduce(const cv::Mat& image) {
    return std::min(image.cols, image.rows) >= 32 * kReduction;
}

// Matches at a quarter of the size, whose disparities are a quarter, too.
Matches MatchReduced(const cv::Mat& left, const cv::Mat& right, const SearchRange& range) {
    const cv::Size size(left.cols / kReduction, left.rows / kReduction);
    cv::Mat smallLeft, smallRight;
    cv::resize(left, smallLeft, size, 0, 0, cv::INTER_AREA);
    cv::resize(right, smallRight, size, 0, 0, cv::INTER_AREA);
    return MatchBothWays(
        smallLeft, smallRight,
        {range.minimum / kReduction - 1, (range.count / kReduction + 17) / 16 * 16});
}

double ConsistentShare(const Matches& matches) {
    return cv::countNonZero(matches.consistent) / static_cast<double>(matches.consistent.total());
}

// The pair as a wrong setup would need it, and the error that says so.
struct Setup {
    Error error;
    cv::Mat left;
    cv::Mat right;
};

std::vector<Setup> OtherSetups(const cv::Mat& left, const cv::Mat& right) {
    std::vector<Setup> setups{{Error::kReversedPair, Mirrored(left), Mirrored(right)}};
    for (const cv::RotateFlags rotation :
         {cv::ROTATE_90_CLOCKWISE, cv::ROTATE_90_COUNTERCLOCKWISE}) {
        Setup& setup = setups.emplace_back(Setup{Error::kRotatedPair, {}, {}});
        cv::rotate(left, setup.left, rotation);
        cv::rotate(right, setup.right, rotation);
    }
    return setups;
}

// The error of the setup in which more pixels match than in the given one, which is aligned; kNone
// where that is the best.
Error BetterSetup(const cv::Mat& left, const AlignedImage& right, const SearchRange& range) {
    constexpr double kMinLead = 0.01;
    double best = ConsistentShare(MatchReduced(left, right.aligned, range)) + kMinLead;
    Error error = Error::kNone;
    for (const Setup& setup : OtherSetups(left, right.seen)) {
        const double share = ConsistentShare(MatchReduced(setup.left, setup.right, range));
        if (share > best) {
            best = share;
            error = setup.error;
        }
    }
    return error;
}

bool MatchesWithDepth(const cv::Mat& left, const cv::Mat& right, const SearchRange& range) {
    return HasDepth(MeasureDepthPresence(left, MatchBothWays(left, right, range)));
}

} // namespace

SearchRange SearchRangeFor(int width, double nearestDisparity) {
    const double wanted = nearestDisparity > 0 ? nearestDisparity + 2 : width / 6.0;
    const int minimum = -std::max(1, width / 200);
    const int maximum = static_cast<int>(std::ceil(std::clamp(wanted, 8.0, width / 4.0 + 8.0)));
    return {minimum, (maximum - minimum + 16) / 16 * 16};
}

SearchRange NarrowedRange(const cv::Mat& left, const cv::Mat& right, const SearchRange& range) {
    if (!LargeEnoughToReduce(left)) {
        return range;
    }
    const Matches matches = MatchReduced(left, right, range);
    constexpr double kMinConsistentShare = 0.1;
    if (ConsistentShare(matches) < kMinConsistentShare) {
        return range;
    }
    double least = 0.0;
    double most = 0.0;
    cv::minMaxLoc(matches.disparity, &least, &most, nullptr, nullptr, matches.consistent);
    constexpr int kMargin = 2 * kReduction;
    const int end = range.minimum + range.count;
    const int from = std::clamp(cvFloor(least * kReduction) - kMargin, range.minimum, end - 16);
    const int to = std::clamp(cvCeil(most * kReduction) + kMargin, from + 1, end);
    return {from, (to - from + 15) / 16 * 16};
}

Matches MatchBothWays(const cv::Mat& left, const cv::Mat& right, const SearchRange& range) {
    const ViewDisparities views = MatchSemiGlobally(left, right, range);
    Matches matches{views.left, cv::Mat::zeros(left.size(), CV_8UC1)};
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
    return matches;
}

Error CheckDepth(const cv::Mat& left, const AlignedImage& right, const Matches& matches,
                 const SearchRange& range) {
    const auto textured = [](const cv::Mat& image) {
        return cv::countNonZero(TexturedPixels(image)) / static_cast<double>(image.total());
    };
    const DepthPresence presence = MeasureDepthPresence(left, matches);
    if (HasDepth(presence)) {
        // Repetitive or faint structure agrees in a wrong setup, too, but better in the right one.
        const bool doubtful = presence.consistentShare < 0.75 && LargeEnoughToReduce(left);
        return doubtful ? BetterSetup(left, right, range) : Error::kNone;
    }
    if (!IsTextured(presence.texturedShare) || !IsTextured(textured(right.seen))) {
        return Error::kNoStructure;
    }
    for (const Setup& setup : OtherSetups(left, right.seen)) {
        if (MatchesWithDepth(setup.left, setup.right, range)) {
            return setup.error;
        }
    }
    const SearchRange wide{-left.cols / 4, left.cols * 3 / 4 / 16 * 16};
    if (wide.count > 0 && MatchesWithDepth(left, right.seen, wide)) {
        return Error::kBeyondSearch;
    }
    return Agree(presence.consistentShare) ? Error::kNoParallax : Error::kNoDepth;
}

} // namespace refocus

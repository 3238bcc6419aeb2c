#include "host/refocus/alignment.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace refocus {
namespace {

constexpr int kCorners = 300;
constexpr int kPatchRadius = 5; // pixels; patches are 11x11
constexpr double kMinCorrelation = 0.75;
constexpr double kMinLead = 0.05;       // of the best correlation over that of any other place
constexpr double kInlierDistance = 0.5; // pixels
constexpr std::size_t kMinMatches = 24;
constexpr double kMinInlierShare = 0.35; // of the matches
constexpr int kReachShare = 16;      // the search across the rows reaches this part of the height
constexpr double kMinParallax = 1.0; // pixels; see HaveParallax
constexpr double kNegligibleShift = 0.2; // pixels at the worst corner; matching tolerates it
constexpr double kNegligibleGain = 0.02;

struct Match {
    cv::Point2f left;
    cv::Point2f right;
    double gain = 1.0;
    bool found = false;
};

cv::Rect PatchAt(cv::Point at) {
    return {at.x - kPatchRadius, at.y - kPatchRadius, 2 * kPatchRadius + 1, 2 * kPatchRadius + 1};
}

// The place within `area` of `image`, relative to it, where the patch's centre correlates best.
// `scores` receives the correlation at each place.
cv::Point BestMatch(const cv::Mat& patch, const cv::Mat& image, cv::Rect area, cv::Mat& scores) {
    const cv::Rect covered(area.x - kPatchRadius, area.y - kPatchRadius,
                           area.width + 2 * kPatchRadius, area.height + 2 * kPatchRadius);
    cv::matchTemplate(image(covered), patch, scores, cv::TM_CCOEFF_NORMED);
    cv::Point best;
    cv::minMaxLoc(scores, nullptr, nullptr, nullptr, &best);
    return best;
}

// False for a weak match and for one of a repetitive texture, which matches elsewhere as well.
// Overwrites the scores around the best place.
bool IsDistinct(cv::Mat& scores, cv::Point best) {
    const float score = scores.at<float>(best);
    const cv::Rect around(best.x - 2, 0, 5, scores.rows);
    scores(around & cv::Rect({}, scores.size())).setTo(-1.0);
    double second = -1.0;
    cv::minMaxLoc(scores, nullptr, &second);
    return static_cast<double>(score) > kMinCorrelation &&
           second < static_cast<double>(score) - kMinLead;
}

// Offset from the middle one at which a parabola through three neighbouring scores peaks.
float SubpixelPeak(float before, float middle, float after) {
    const float curve = before - 2.0f * middle + after;
    return curve < -1e-6f ? std::clamp(0.5f * (before - after) / curve, -0.5f, 0.5f) : 0.0f;
}

// The pair at full and at half size.
struct Pyramid {
    cv::Mat left, right, halfLeft, halfRight;
};

// Searches the whole range at half size, which is eight times cheaper, and refines the position at
// full size.
Match FindCorner(const Pyramid& pyramid, cv::Point corner, const SearchRange& range, int reach) {
    Match match;
    const cv::Point half(corner.x / 2, corner.y / 2);
    const cv::Rect inside(kPatchRadius, kPatchRadius, pyramid.halfRight.cols - 2 * kPatchRadius,
                          pyramid.halfRight.rows - 2 * kPatchRadius);
    const int last = half.x - range.minimum / 2 + 1;
    const int first = half.x - (range.minimum + range.count) / 2;
    const cv::Rect area =
        cv::Rect(first, half.y - reach / 2, last - first + 1, 2 * (reach / 2) + 1) & inside;
    if (!inside.contains(half) || area.width < 6 || area.height < 3) {
        return match;
    }
    cv::Mat scores;
    cv::Point best = BestMatch(pyramid.halfLeft(PatchAt(half)), pyramid.halfRight, area, scores);
    if (!IsDistinct(scores, best)) {
        return match;
    }
    const cv::Point guess = 2 * (best + area.tl()) + (corner - 2 * half);
    const cv::Rect fine(guess.x - 3, guess.y - 3, 7, 7);
    const cv::Rect fineInside(kPatchRadius, kPatchRadius, pyramid.right.cols - 2 * kPatchRadius,
                              pyramid.right.rows - 2 * kPatchRadius);
    if ((fine & fineInside) != fine || !fineInside.contains(corner)) {
        return match;
    }
    const cv::Mat patch = pyramid.left(PatchAt(corner));
    best = BestMatch(patch, pyramid.right, fine, scores);
    if (best.x == 0 || best.y == 0 || best.x == 6 || best.y == 6 ||
        static_cast<double>(scores.at<float>(best)) < kMinCorrelation) {
        return match;
    }
    const auto score = [&](int dx, int dy) { return scores.at<float>(best.y + dy, best.x + dx); };
    const cv::Point place = fine.tl() + best;
    match.left = corner;
    match.right = {
        static_cast<float>(place.x) + SubpixelPeak(score(-1, 0), score(0, 0), score(1, 0)),
        static_cast<float>(place.y) + SubpixelPeak(score(0, -1), score(0, 0), score(0, 1))};
    cv::Scalar meanLeft, meanRight, leftDeviation, rightDeviation;
    cv::meanStdDev(patch, meanLeft, leftDeviation);
    cv::meanStdDev(pyramid.right(PatchAt(place)), meanRight, rightDeviation);
    match.gain = (meanLeft[0] + 1.0) / (meanRight[0] + 1.0);
    match.found = true;
    return match;
}

std::vector<Match> FindCorners(const cv::Mat& left, const cv::Mat& right,
                               const SearchRange& range) {
    Pyramid pyramid{left, right, {}, {}};
    cv::resize(left, pyramid.halfLeft, {left.cols / 2, left.rows / 2}, 0, 0, cv::INTER_AREA);
    cv::resize(right, pyramid.halfRight, {left.cols / 2, left.rows / 2}, 0, 0, cv::INTER_AREA);
    std::vector<cv::Point2f> corners;
    cv::goodFeaturesToTrack(left, corners, kCorners, 0.005, left.cols / 50.0);
    const int reach = std::max(6, left.rows / kReachShare);
    std::vector<Match> matches(corners.size());
    cv::parallel_for_(cv::Range(0, static_cast<int>(corners.size())), [&](const cv::Range& some) {
        for (int i = some.start; i < some.end; ++i) {
            const auto at = static_cast<std::size_t>(i);
            matches[at] = FindCorner(pyramid, cv::Point(corners[at]), range, reach);
        }
    });
    std::erase_if(matches, [](const Match& match) { return !match.found; });
    return matches;
}

// offset, scale - 1 and roll that a match's vertical step depends on, by these regressors.
cv::Vec3d Regressors(const Match& match, cv::Size size) {
    return {1.0, static_cast<double>(match.right.y) - (size.height - 1) / 2.0,
            static_cast<double>(match.right.x) - (size.width - 1) / 2.0};
}

double VerticalShift(const Match& match) {
    return static_cast<double>(match.left.y) - static_cast<double>(match.right.y);
}

using Model = cv::Vec3d;

std::vector<const Match*> Inliers(const std::vector<Match>& matches, const Model& model,
                                  cv::Size size) {
    std::vector<const Match*> inliers;
    for (const Match& match : matches) {
        if (std::abs(Regressors(match, size).dot(model) - VerticalShift(match)) < kInlierDistance) {
            inliers.push_back(&match);
        }
    }
    return inliers;
}

Model LeastSquares(const std::vector<const Match*>& matches, cv::Size size) {
    cv::Matx33d normal = cv::Matx33d::zeros();
    cv::Vec3d right{};
    for (const Match* match : matches) {
        const cv::Vec3d regressors = Regressors(*match, size);
        normal += regressors * regressors.t();
        right += regressors * VerticalShift(*match);
    }
    // Damping keeps the system solvable where all matches lie close together.
    normal += cv::Matx33d::diag({1e-6, 1e-3, 1e-3});
    return normal.solve(right, cv::DECOMP_CHOLESKY);
}

std::vector<const Match*> LargestConsensus(const std::vector<Match>& matches, cv::Size size) {
    std::vector<const Match*> best;
    std::mt19937 random(1); // the standard fixes its sequence
    constexpr int kSamples = 200;
    for (int i = 0; i < kSamples; ++i) {
        std::vector<const Match*> sample(3);
        for (const Match*& match : sample) {
            match = &matches[random() % matches.size()];
        }
        auto inliers = Inliers(matches, LeastSquares(sample, size), size);
        if (inliers.size() > best.size()) {
            best = std::move(inliers);
        }
    }
    return best;
}

// True if the matches lie at several distances. Those of a pair that a quarter turn hides from the
// calibration do not: only one plane of it can be aligned, however far it was moved down.
bool HaveParallax(const std::vector<const Match*>& matches) {
    std::vector<float> disparities;
    disparities.reserve(matches.size());
    for (const Match* match : matches) {
        disparities.push_back(match->left.x - match->right.x);
    }
    std::sort(disparities.begin(), disparities.end());
    const std::size_t few = disparities.size() / 10;
    return static_cast<double>(disparities[disparities.size() - 1 - few] - disparities[few]) >
           kMinParallax;
}

} // namespace

Alignment EstimateAlignment(const cv::Mat& left, const cv::Mat& right, const SearchRange& range) {
    if (std::min(left.cols, left.rows) < 8 * kPatchRadius) {
        return {};
    }
    const std::vector<Match> matches = FindCorners(left, right, range);
    if (matches.size() < kMinMatches) {
        return {};
    }
    auto inliers = LargestConsensus(matches, left.size());
    if (inliers.size() < kMinMatches ||
        static_cast<double>(inliers.size()) <
            std::floor(kMinInlierShare * static_cast<double>(matches.size()))) {
        return {};
    }
    // Refit to all inliers, twice: the first model of many matches admits the remaining ones.
    Model model = LeastSquares(inliers, left.size());
    inliers = Inliers(matches, model, left.size());
    model = LeastSquares(inliers, left.size());
    if (std::abs(model[0]) > left.rows / (2.0 * kReachShare) && !HaveParallax(inliers)) {
        return {};
    }
    std::vector<double> gains;
    gains.reserve(inliers.size());
    for (const Match* match : inliers) {
        gains.push_back(match->gain);
    }
    const auto middle = gains.begin() + static_cast<std::ptrdiff_t>(gains.size() / 2);
    std::nth_element(gains.begin(), middle, gains.end());
    return {model[0], 1.0 + model[1], model[2], std::clamp(*middle, 0.25, 4.0),
            static_cast<int>(inliers.size())};
}

cv::Mat Align(const cv::Mat& right, const Alignment& alignment) {
    const double cx = (right.cols - 1) / 2.0;
    const double cy = (right.rows - 1) / 2.0;
    const double distance = std::abs(alignment.offset) + std::abs(alignment.scale - 1.0) * cy +
                            std::abs(alignment.roll) * cx;
    cv::Mat result = right;
    // Each step writes a new image, because `right` may share the caller's pixels.
    if (distance > kNegligibleShift) {
        const double s = alignment.scale;
        const double r = alignment.roll;
        // A similarity transform, although only vertical positions were measured: scale and roll
        // of a camera act along the rows as well.
        const cv::Matx23d map(s, -r, cx - s * cx + r * cy, //
                              r, s, cy - r * cx - s * cy + alignment.offset);
        cv::Mat moved;
        cv::warpAffine(right, moved, map, right.size(), cv::INTER_CUBIC, cv::BORDER_REPLICATE);
        result = moved;
    }
    if (std::abs(alignment.gain - 1.0) > kNegligibleGain) {
        cv::Mat brightened;
        result.convertTo(brightened, CV_8U, alignment.gain);
        result = brightened;
    }
    return result;
}

} // namespace refocus

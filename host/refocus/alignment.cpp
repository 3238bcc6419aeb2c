#include "host/refocus/alignment.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace refocus {
namespace {

constexpr int kCorners = 300;
constexpr int kReach = 5;            // a patch is 2 * kReach + 1 square
constexpr double kLeastScore = 0.75; // correlation
constexpr double kLead = 0.05;       // over the best place elsewhere
constexpr double kInlier = 0.5;      // pixels
constexpr int kLeastMatches = 24;
constexpr double kLeastShare = 0.35; // of the matches, to agree on a model
constexpr double kNoticed = 0.2;     // pixels at the worst corner; less doesn't hurt matching
constexpr double kNoticedGain = 0.02;

struct Match {
    cv::Point2f left;
    cv::Point2f right;
    double gain = 1.0;
    bool found = false;
};

cv::Rect PatchAt(cv::Point at) {
    return {at.x - kReach, at.y - kReach, 2 * kReach + 1, 2 * kReach + 1};
}

// Best place of a patch's middle within `area` of `image`; its score and lead in `score`.
cv::Point Find(const cv::Mat& patch, const cv::Mat& image, cv::Rect area, cv::Mat& scores) {
    const cv::Rect covered(area.x - kReach, area.y - kReach, area.width + 2 * kReach,
                           area.height + 2 * kReach);
    cv::matchTemplate(image(covered), patch, scores, cv::TM_CCOEFF_NORMED);
    cv::Point best;
    cv::minMaxLoc(scores, nullptr, nullptr, nullptr, &best);
    return best;
}

bool StandsOut(cv::Mat& scores, cv::Point best) {
    const float score = scores.at<float>(best);
    const cv::Rect around(best.x - 2, 0, 5, scores.rows);
    scores(around & cv::Rect({}, scores.size())).setTo(-1.0);
    double second = -1.0;
    cv::minMaxLoc(scores, nullptr, &second);
    return static_cast<double>(score) > kLeastScore && second < static_cast<double>(score) - kLead;
}

// Where a parabola through three scores has its top, from the middle one.
float Peak(float before, float middle, float after) {
    const float curve = before - 2.0f * middle + after;
    return curve < -1e-6f ? std::clamp(0.5f * (before - after) / curve, -0.5f, 0.5f) : 0.0f;
}

// A pair at full and half size.
struct Levels {
    cv::Mat left, right, halfLeft, halfRight;
};

// Searches at half size, then refines at full size.
Match FindCorner(const Levels& levels, cv::Point corner, const SearchRange& range, int reach) {
    Match match;
    const cv::Point half(corner.x / 2, corner.y / 2);
    const cv::Rect inside(kReach, kReach, levels.halfRight.cols - 2 * kReach,
                          levels.halfRight.rows - 2 * kReach);
    const int last = half.x - range.minimum / 2 + 1;
    const int first = half.x - (range.minimum + range.count) / 2;
    const cv::Rect area =
        cv::Rect(first, half.y - reach / 2, last - first + 1, 2 * (reach / 2) + 1) & inside;
    if (!inside.contains(half) || area.width < 6 || area.height < 3) {
        return match;
    }
    cv::Mat scores;
    cv::Point best = Find(levels.halfLeft(PatchAt(half)), levels.halfRight, area, scores);
    if (!StandsOut(scores, best)) {
        return match;
    }
    const cv::Point guess = 2 * (best + area.tl()) + (corner - 2 * half);
    const cv::Rect fine(guess.x - 3, guess.y - 3, 7, 7);
    const cv::Rect fineInside(kReach, kReach, levels.right.cols - 2 * kReach,
                              levels.right.rows - 2 * kReach);
    if ((fine & fineInside) != fine || !fineInside.contains(corner)) {
        return match;
    }
    const cv::Mat patch = levels.left(PatchAt(corner));
    best = Find(patch, levels.right, fine, scores);
    if (best.x == 0 || best.y == 0 || best.x == 6 || best.y == 6 ||
        static_cast<double>(scores.at<float>(best)) < kLeastScore) {
        return match;
    }
    const auto score = [&](int dx, int dy) { return scores.at<float>(best.y + dy, best.x + dx); };
    const cv::Point place = fine.tl() + best;
    match.left = corner;
    match.right = {static_cast<float>(place.x) + Peak(score(-1, 0), score(0, 0), score(1, 0)),
                   static_cast<float>(place.y) + Peak(score(0, -1), score(0, 0), score(0, 1))};
    cv::Scalar meanLeft, meanRight, leftDeviation, rightDeviation;
    cv::meanStdDev(patch, meanLeft, leftDeviation);
    cv::meanStdDev(levels.right(PatchAt(place)), meanRight, rightDeviation);
    match.gain = (meanLeft[0] + 1.0) / (meanRight[0] + 1.0);
    match.found = true;
    return match;
}

std::vector<Match> FindCorners(const cv::Mat& left, const cv::Mat& right,
                               const SearchRange& range) {
    Levels levels{left, right, {}, {}};
    cv::resize(left, levels.halfLeft, {left.cols / 2, left.rows / 2}, 0, 0, cv::INTER_AREA);
    cv::resize(right, levels.halfRight, {left.cols / 2, left.rows / 2}, 0, 0, cv::INTER_AREA);
    std::vector<cv::Point2f> corners;
    cv::goodFeaturesToTrack(left, corners, kCorners, 0.005, left.cols / 50.0);
    const int reach = std::max(6, left.rows / 40);
    std::vector<Match> matches(corners.size());
    cv::parallel_for_(cv::Range(0, static_cast<int>(corners.size())), [&](const cv::Range& some) {
        for (int i = some.start; i < some.end; ++i) {
            const auto at = static_cast<std::size_t>(i);
            matches[at] = FindCorner(levels, cv::Point(corners[at]), range, reach);
        }
    });
    std::erase_if(matches, [](const Match& match) { return !match.found; });
    return matches;
}

// offset, scale - 1 and roll that a match's vertical step depends on, by these factors.
cv::Vec3d Factors(const Match& match, cv::Size size) {
    return {1.0, static_cast<double>(match.right.y) - (size.height - 1) / 2.0,
            static_cast<double>(match.right.x) - (size.width - 1) / 2.0};
}

double Step(const Match& match) {
    return static_cast<double>(match.left.y) - static_cast<double>(match.right.y);
}

using Model = cv::Vec3d;

std::vector<const Match*> Agreeing(const std::vector<Match>& matches, const Model& model,
                                   cv::Size size) {
    std::vector<const Match*> agreeing;
    for (const Match& match : matches) {
        if (std::abs(Factors(match, size).dot(model) - Step(match)) < kInlier) {
            agreeing.push_back(&match);
        }
    }
    return agreeing;
}

Model LeastSquares(const std::vector<const Match*>& matches, cv::Size size) {
    cv::Matx33d normal = cv::Matx33d::zeros();
    cv::Vec3d right{};
    for (const Match* match : matches) {
        const cv::Vec3d factors = Factors(*match, size);
        normal += factors * factors.t();
        right += factors * Step(*match);
    }
    normal += cv::Matx33d::diag({1e-6, 1e-3, 1e-3}); // matches in one place tell of no turn
    return normal.solve(right, cv::DECOMP_CHOLESKY);
}

std::vector<const Match*> Consensus(const std::vector<Match>& matches, cv::Size size) {
    std::vector<const Match*> best;
    std::mt19937 random(1); // its sequence is the standard's, alike everywhere
    constexpr int kSamples = 200;
    for (int i = 0; i < kSamples; ++i) {
        std::vector<const Match*> sample(3);
        for (const Match*& match : sample) {
            match = &matches[random() % matches.size()];
        }
        auto agreeing = Agreeing(matches, LeastSquares(sample, size), size);
        if (agreeing.size() > best.size()) {
            best = std::move(agreeing);
        }
    }
    return best;
}

} // namespace

Alignment EstimateAlignment(const cv::Mat& left, const cv::Mat& right, const SearchRange& range) {
    if (std::min(left.cols, left.rows) < 8 * kReach) {
        return {};
    }
    const std::vector<Match> matches = FindCorners(left, right, range);
    if (matches.size() < kLeastMatches) {
        return {};
    }
    auto agreeing = Consensus(matches, left.size());
    if (agreeing.size() <
        std::max<std::size_t>(
            kLeastMatches,
            static_cast<std::size_t>(kLeastShare * static_cast<double>(matches.size())))) {
        return {};
    }
    Model model = LeastSquares(agreeing, left.size());
    agreeing = Agreeing(matches, model, left.size());
    model = LeastSquares(agreeing, left.size());
    std::vector<double> gains;
    gains.reserve(agreeing.size());
    for (const Match* match : agreeing) {
        gains.push_back(match->gain);
    }
    const auto middle = gains.begin() + static_cast<std::ptrdiff_t>(gains.size() / 2);
    std::nth_element(gains.begin(), middle, gains.end());
    return {model[0], 1.0 + model[1], model[2], std::clamp(*middle, 0.25, 4.0),
            static_cast<int>(agreeing.size())};
}

cv::Mat Align(const cv::Mat& right, const Alignment& alignment) {
    const double cx = (right.cols - 1) / 2.0;
    const double cy = (right.rows - 1) / 2.0;
    const double distance = std::abs(alignment.offset) + std::abs(alignment.scale - 1.0) * cy +
                            std::abs(alignment.roll) * cx;
    cv::Mat result = right;
    // Each step makes an image of its own: `right` may be the caller's.
    if (distance > kNoticed) {
        const double s = alignment.scale;
        const double r = alignment.roll;
        // A similarity, like the cameras' own error, though only its rows were measured.
        const cv::Matx23d map(s, -r, cx - s * cx + r * cy, //
                              r, s, cy - r * cx - s * cy + alignment.offset);
        cv::Mat moved;
        cv::warpAffine(right, moved, map, right.size(), cv::INTER_CUBIC, cv::BORDER_REPLICATE);
        result = moved;
    }
    if (std::abs(alignment.gain - 1.0) > kNoticedGain) {
        cv::Mat brightened;
        result.convertTo(brightened, CV_8U, alignment.gain);
        result = brightened;
    }
    return result;
}

} // namespace refocus

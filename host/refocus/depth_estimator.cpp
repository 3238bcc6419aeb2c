#include "host/refocus/depth_estimator.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>

#include "host/refocus/alignment.h"
#include "host/refocus/disparity_refinement.h"
#include "host/refocus/image.h"
#include "host/refocus/joint_upsampling.h"
#include "host/refocus/stereo_matching.h"

namespace refocus {
namespace {

constexpr int kMatchingWidth = 700; // columns, about

// The aux image at the reduced main image's size. ReduceLuma leaves out columns and rows of the
// main image that fill no block, all but its first `used` pixels; the same share of the aux image
// is left out here.
cv::Mat ReduceAux(const cv::Mat& luma, cv::Size mainSize, cv::Size used, cv::Size reducedSize) {
    const auto share = [](int length, int part, int whole) {
        return std::max(1,
                        static_cast<int>(std::lround(static_cast<double>(length) * part / whole)));
    };
    cv::Mat shown = luma(cv::Rect(0, 0, share(luma.cols, used.width, mainSize.width),
                                  share(luma.rows, used.height, mainSize.height)));
    if (shown.size() == reducedSize) {
        return shown;
    }
    const bool smaller = reducedSize.width <= shown.cols && reducedSize.height <= shown.rows;
    cv::Mat reduced;
    cv::resize(shown, reduced, reducedSize, 0, 0, smaller ? cv::INTER_AREA : cv::INTER_LINEAR);
    return reduced;
}

// A disparity for every pixel, from those that both views agree on.
cv::Mat Refine(const Matches& matches, const cv::Mat& left) {
    cv::Mat disparity = matches.disparity.clone();
    FillOcclusions(disparity, matches.consistent, matches.occluded);
    cv::medianBlur(disparity, disparity, 5);
    // A filled value counts less than a matched one.
    cv::Mat weight;
    constexpr double kFilledWeight = 0.3;
    matches.consistent.convertTo(weight, CV_32F, (1.0 - kFilledWeight) / 255.0, kFilledWeight);
    cv::Mat result = WeightedMedian(disparity, weight, left);
    // Removes single pixels whose brightness happens to be that of another surface.
    cv::medianBlur(result, result, 5);
    return result;
}

} // namespace

Error EstimateDepth(const cv::Mat& mainLuma, const cv::Mat& auxLuma, const Calibration& calibration,
                    const ImageGeometry& geometry, int mainPitch, DepthMap& depth) {
    const int factor = ReductionFactor(mainLuma.cols, kMatchingWidth);
    const cv::Mat main = ReduceLuma(mainLuma, factor);
    const auto rectification = Rectification::Make(calibration, geometry, main.size());
    if (!rectification) {
        return Error::kCalibrationGeometry;
    }
    const cv::Mat left = rectification->Left(main);
    const cv::Mat seen = rectification->Right(
        ReduceAux(auxLuma, mainLuma.size(), main.size() * factor, main.size()));
    const SearchRange range = SearchRangeFor(left.cols, rectification->nearestDisparity());
    const cv::Mat right = Align(seen, EstimateAlignment(left, seen, range));
    const Matches matches = MatchBothWays(left, right, range);
    if (!HasDepth(MeasureDepthPresence(left, matches))) {
        return Error::kNoDepth;
    }
    const cv::Mat disparity = rectification->ToMain(Refine(matches, left));

    DepthMap result;
    result.size = mainLuma.size();
    result.scale = ScaleFor(disparity, factor);
    result.bytes = cv::Mat::zeros(mainLuma.rows, mainPitch, CV_8UC1);
    cv::Mat pixels = result.bytes.colRange(0, mainLuma.cols);
    JointUpsample(ToValues(disparity, factor, result.scale), main, mainLuma, factor, pixels);
    depth = result;
    return Error::kNone;
}

} // namespace refocus

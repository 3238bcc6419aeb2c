#include "host/refocus/depth_estimator.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <vector>

#include "host/refocus/alignment.h"
#include "host/refocus/disparity_refinement.h"
#include "host/refocus/image.h"
#include "host/refocus/image_memory.h"
#include "host/refocus/joint_upsampling.h"
#include "host/refocus/stereo_matching.h"

namespace refocus {
namespace {

constexpr int kMatchingSide = 700; // pixels along the longer side, about

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

// The chroma of the main image at the size of the reduced luma, of which each pixel covers factor x
// factor pixels of luma.
cv::Mat ReduceChroma(const cv::Mat& chroma, cv::Size size, int factor) {
    // An odd size leaves the last column or row of luma without chroma.
    const cv::Size used(std::max(1, std::min(chroma.cols, size.width * factor / 2)),
                        std::max(1, std::min(chroma.rows, size.height * factor / 2)));
    // Interpolating between chroma pixels would mix the colours at edges.
    cv::Mat reduced;
    cv::resize(chroma(cv::Rect({}, used)), reduced, size, 0, 0,
               factor > 1 ? cv::INTER_AREA : cv::INTER_NEAREST);
    return reduced;
}

// A disparity for every pixel, from those that both views agree on.
cv::Mat Refine(const Matches& matches, const cv::Mat& guide) {
    cv::Mat disparity = matches.disparity.clone();
    FillGaps(disparity, matches.consistent, guide);
    // A filled value counts less than a matched one.
    cv::Mat weight;
    constexpr double kFilledWeight = 0.8;
    matches.consistent.convertTo(weight, CV_32F, (1.0 - kFilledWeight) / 255.0, kFilledWeight);
    cv::Mat result = WeightedMedian(disparity, weight, guide);
    // Removes single pixels whose brightness happens to be that of another surface.
    cv::medianBlur(result, result, 3);
    // Matching errs by a part of a pixel, differently at each pixel, which would blur a surface
    // unevenly.
    constexpr int kWindow = 7;           // pixels
    constexpr double kSameSurface = 0.7; // pixels of disparity, a deviation
    constexpr double kDistance = 4.0;    // pixels, a deviation
    cv::Mat smooth;
    cv::bilateralFilter(result, smooth, kWindow, kSameSurface, kDistance);
    return smooth;
}

} // namespace

Error EstimateDepth(const Nv12View& mainImage, const cv::Mat& auxLuma,
                    const Calibration& calibration, const ImageGeometry& geometry, int mainPitch,
                    DepthMap& depth, const StepListener& done) {
    const cv::Mat& mainLuma = mainImage.luma;
    const int factor = ReductionFactor(mainLuma.size(), kMatchingSide);
    const cv::Mat main = ReduceLuma(mainLuma, factor);
    const auto rectification = Rectification::Make(calibration, geometry, main.size());
    if (!rectification) {
        return Error::kCalibrationGeometry;
    }
    const cv::Mat left = rectification->Left(main);
    const cv::Mat seen = rectification->Right(
        ReduceAux(auxLuma, mainLuma.size(), main.size() * factor, main.size()));
    done("reduction");
    const SearchRange range = SearchRangeFor(left.cols, rectification->nearestDisparity());
    const cv::Mat right = Align(seen, EstimateAlignment(left, seen, range));
    done("alignment");
    const Matches matches = MatchBothWays(left, right, NarrowedRange(left, right, range));
    if (const Error error = CheckDepth(left, {seen, right}, matches, range);
        error != Error::kNone) {
        return error;
    }
    done("matching");
    cv::Mat guide;
    const cv::Mat chroma = rectification->Left(ReduceChroma(mainImage.chroma, main.size(), factor));
    cv::merge(std::vector{left, chroma}, guide);
    const cv::Mat disparity = rectification->ToMain(Refine(matches, guide));
    done("filling and edges");

    DepthMap result;
    result.size = mainLuma.size();
    result.scale = ScaleFor(disparity, factor);
    result.bytes = NewImage({mainPitch, mainLuma.rows}, CV_8UC1);
    result.bytes.colRange(mainLuma.cols, mainPitch).setTo(0);
    cv::Mat pixels = result.bytes.colRange(0, mainLuma.cols);
    JointUpsample(ToValues(disparity, factor, result.scale), main, mainLuma, factor, pixels);
    done("enlargement");
    depth = result;
    return Error::kNone;
}

} // namespace refocus

// Checks of what the images show, each by itself and compared with one another.

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <string>

#include <fmt/format.h>

#include "tools/compare/matrix.h"
#include "tools/inspect/block_matching.h"
#include "tools/inspect/checks.h"

namespace {

// As in file_checks.cpp, scripts/inspect-corruptions holds these limits.
constexpr double kOneScene = 0.6;         // smallest inlier share of two images of one scene
constexpr double kLargestOffset = 0.022;  // across the line of the cameras, for a pair in order
constexpr std::size_t kFewestMatches = 6; // with fewer nothing can be concluded

// The image of this role if it was read intact and is at least 16 pixels on each side; otherwise
// null.
const host::Image* IntactImage(const Inspection& inspection, DumpRole role) {
    for (const Problem problem : {Problem::kPitch, Problem::kHeight, Problem::kTruncated}) {
        if (inspection.Has(problem, role)) {
            return nullptr;
        }
    }
    constexpr int kLeastSide = 16;
    const auto& image = inspection.image(role);
    const bool large = image && std::min(image->width(), image->height()) >= kLeastSide;
    return large ? &*image : nullptr;
}

// The three NV12 images as far as they are intact.
struct IntactImages {
    explicit IntactImages(const Inspection& inspection)
        : main(IntactImage(inspection, DumpRole::kMain)),
          aux(IntactImage(inspection, DumpRole::kAux)),
          output(IntactImage(inspection, DumpRole::kOutput)) {}

    const host::Image* main;
    const host::Image* aux;
    const host::Image* output;
};

// Share of luma pixels that are equal; 0 for images of different sizes.
double ShareOfEqualPixels(const host::Image& a, const host::Image& b) {
    if (a.size() != b.size()) {
        return 0;
    }
    const cv::Mat first = MatrixOf(a, 0);
    const cv::Mat second = MatrixOf(b, 0);
    std::int64_t count = 0;
    cv::Mat equal;
    for (int y = 0; y < first.rows; ++y) { // by rows, which stay in the cache
        cv::compare(first.row(y), second.row(y), equal, cv::CMP_EQ);
        count += cv::countNonZero(equal);
    }
    return static_cast<double>(count) / static_cast<double>(first.total());
}

bool ShowsOtherScene(const EpipolarConsistency& consistency) {
    return consistency.matches >= kFewestMatches && consistency.inlierShare < kOneScene;
}

cv::Mat Centre(const cv::Mat& picture, double share) {
    const cv::Size size(cvRound(picture.cols * share), cvRound(picture.rows * share));
    return picture(
        cv::Rect({(picture.cols - size.width) / 2, (picture.rows - size.height) / 2}, size));
}

// Whether the centre of one image shows what all of the other does, as with cameras of different
// fields of view. Several sizes are tried, so that a stricter limit has to rule out chance.
bool MatchesOtherFieldOfView(const cv::Mat& first, const cv::Mat& second) {
    constexpr double kShares[] = {0.9, 0.85, 0.8, 0.75, 0.7, 0.65, 0.6};
    constexpr double kStrictShare = 0.7;
    constexpr std::size_t kEnoughMatches = 12;
    const auto good = [](const EpipolarConsistency& consistency) {
        return consistency.matches >= kEnoughMatches && consistency.inlierShare > kStrictShare &&
               consistency.offset < kLargestOffset;
    };
    return std::ranges::any_of(kShares, [&](double share) {
        return good(MeasureConsistency(first, Centre(second, share))) ||
               good(MeasureConsistency(Centre(first, share), second));
    });
}

// Whether the colours of the two agree clearly better with U and V exchanged in one of them.
bool HaveExchangedChroma(const host::Image* a, const host::Image* b) {
    if (a == nullptr || b == nullptr) {
        return false;
    }
    const std::array<cv::Mat, 2> first = ChromaThumbnails(*a);
    const std::array<cv::Mat, 2> second = ChromaThumbnails(*b);
    const double straight =
        MeanDifference(first[0], second[0]) + MeanDifference(first[1], second[1]);
    const double exchanged =
        MeanDifference(first[0], second[1]) + MeanDifference(first[1], second[0]);
    // Colours of less than that are noise, which agrees with anything.
    return straight > 2 && exchanged < 0.6 * straight;
}

// The disparities in the middle half of a face, without the farthest and the nearest tenth.
std::pair<int, int> DepthRange(const DumpedFace& face, const host::Image& disparity) {
    const int width = face.right - face.left + 1;
    const int height = face.bottom - face.top + 1;
    cv::Mat1b values =
        MatrixOf(disparity, 0)(cv::Range(face.top + height / 4, face.bottom - height / 4 + 1),
                               cv::Range(face.left + width / 4, face.right - width / 4 + 1))
            .clone()
            .reshape(1, 1);
    cv::sort(values, values, cv::SORT_EVERY_ROW | cv::SORT_ASCENDING);
    return {values(values.cols / 10), values(values.cols * 9 / 10)};
}

// How far from the focus, in steps of disparity, anything can be: 255, but if the focus lies in a
// face, the distance from the face's own range to the farther end.
int StepsOutOfFocus(const Inspection& inspection, const host::Image& main) {
    constexpr int kAll = 255;
    const host::Image* disparity = IntactImage(inspection, DumpRole::kDisparity);
    if (disparity == nullptr || inspection.Has(Problem::kDisparity) ||
        disparity->width() < main.width() || disparity->height() != main.height()) {
        return kAll;
    }
    const DumpParameters& parameters = *inspection.parameters;
    for (const DumpedFace& face : parameters.faces) {
        const bool inImage = face.left >= 0 && face.top >= 0 && face.right < main.width() &&
                             face.bottom < main.height();
        if (inImage && face.left <= parameters.focusX && parameters.focusX <= face.right &&
            face.top <= parameters.focusY && parameters.focusY <= face.bottom) {
            const auto [low, high] = DepthRange(face, *disparity);
            return std::max(low, kAll - high);
        }
    }
    return kAll;
}

// Whether the blur may be too weak to change a pixel. Its radius grows with the level, the size of
// the picture and the distance from the focus, and has no effect below about a pixel.
bool IsFaint(const Inspection& inspection, const host::Image& main) {
    const std::int64_t side = std::max(main.width(), main.height());
    // A radius of 1.3 pixels by the stand-in engine's formula, in which blur 100 and 255 steps make
    // a radius of 2.2 % of the longer side.
    constexpr std::int64_t kFaint = 6000L * 255;
    return inspection.parameters->blur * side * StepsOutOfFocus(inspection, main) < kFaint;
}

} // namespace

void CheckSwapped(Inspection& inspection) {
    const auto [main, aux, output] = IntactImages(inspection);
    if (main == nullptr || aux == nullptr || output == nullptr) {
        return;
    }
    // In focus the output has the main image's pixels, out of focus at least similar ones there. A
    // thumbnail hardly shows the blur, but it does show the parallax between the cameras.
    const cv::Mat thumbnail = LumaThumbnail(*output);
    const bool nearerToAux = MeanDifference(LumaThumbnail(*aux), thumbnail) <
                             0.7 * MeanDifference(LumaThumbnail(*main), thumbnail);
    const double ofMain = ShareOfEqualPixels(*main, *output);
    const double ofAux = ShareOfEqualPixels(*aux, *output);
    // Equal pixels are the stronger sign. Where the sizes allow it, they must agree with the
    // thumbnails.
    if (ofAux == 1 && ofMain < 1) {
        inspection.Report(Problem::kSwapped, std::nullopt,
                          "the output is the aux image: debug view 2, or main and aux image are "
                          "exchanged");
    } else if (nearerToAux && (main->size() != output->size() ||
                               (ofAux > ofMain && aux->size() == output->size()))) {
        inspection.Report(
            Problem::kSwapped, std::nullopt,
            fmt::format("the output is made from the image named aux ({:.0f} % of its "
                        "pixels) and not from that named main ({:.0f} %)",
                        100 * ofAux, 100 * ofMain));
    }
}

void CheckWritten(Inspection& inspection) {
    for (const DumpRole role :
         {DumpRole::kMain, DumpRole::kAux, DumpRole::kOutput, DumpRole::kDisparity}) {
        if (const host::Image* image = IntactImage(inspection, role)) {
            double lowest = 0;
            double highest = 0;
            cv::minMaxLoc(MatrixOf(*image, 0), &lowest, &highest);
            if (lowest == highest) {
                inspection.notes.push_back(
                    fmt::format("{} is {} all over: was it ever written?", RoleName(role), lowest));
            }
        }
    }
}

void CheckFallback(Inspection& inspection) {
    const auto [main, aux, output] = IntactImages(inspection);
    if (main == nullptr || output == nullptr || main->size() != output->size() ||
        !host::SamePixels(*main, *output)) {
        return;
    }
    if (inspection.parameters && IsFaint(inspection, *main)) {
        inspection.notes.push_back(fmt::format("the output equals the main image, which blur {} "
                                               "can leave unchanged at this size and focus",
                                               inspection.parameters->blur));
        return;
    }
    inspection.Report(Problem::kFallback, DumpRole::kOutput,
                      "the output is the main image, pixel for pixel: the node fell back to a "
                      "copy, or a debug view asked for it");
}

void CheckAuxRotation(Inspection& inspection) {
    const auto [main, aux, output] = IntactImages(inspection);
    if (main == nullptr || aux == nullptr) {
        return;
    }
    const cv::Mat first = LumaThumbnail(*main);
    const cv::Mat second = LumaThumbnail(*aux);
    EpipolarConsistency best = MeasureConsistency(first, second);
    // Images that match as they are stay so: a symmetric scene matches turned ones as well.
    if (!ShowsOtherScene(best)) {
        return;
    }
    int degrees = 0; // by which the aux image must be rotated, clockwise
    for (const auto& [code, clockwise] :
         {std::pair(cv::ROTATE_90_CLOCKWISE, 90), std::pair(cv::ROTATE_180, 180),
          std::pair(cv::ROTATE_90_COUNTERCLOCKWISE, 270)}) {
        cv::Mat rotated;
        cv::rotate(second, rotated, code);
        const EpipolarConsistency consistency = MeasureConsistency(first, rotated);
        if (consistency.inlierShare > best.inlierShare) {
            best = consistency;
            degrees = clockwise;
        }
    }
    if (degrees != 0 && !ShowsOtherScene(best)) {
        inspection.Report(Problem::kAuxRotated, DumpRole::kAux,
                          fmt::format("the aux image matches the main image only if it is rotated "
                                      "by {} degrees clockwise",
                                      degrees));
    }
}

namespace {

void CheckPair(Inspection& inspection, const host::Image& main, const host::Image& aux) {
    const cv::Mat first = LumaThumbnail(main);
    const cv::Mat second = LumaThumbnail(aux);
    const EpipolarConsistency consistency = MeasureConsistency(first, second);
    if (!ShowsOtherScene(consistency)) {
        if (consistency.matches >= kFewestMatches && consistency.offset > kLargestOffset) {
            inspection.Report(Problem::kMoment, DumpRole::kAux,
                              fmt::format("main and aux image are shifted by {:.0f} % of the "
                                          "picture, across the line of the cameras: not of one "
                                          "moment, or a camera module is out of place",
                                          100 * consistency.offset));
        }
    } else if (MatchesOtherFieldOfView(first, second)) {
        // This is no fault: the two cameras of a phone mostly have lenses of different focal
        // lengths.
        inspection.notes.emplace_back("main and aux image have different fields of view");
    } else {
        inspection.Report(Problem::kMoment, DumpRole::kAux,
                          "main and aux image do not show the same scene");
    }
}

} // namespace

std::string WrongSide(const host::Image& main, const host::Image& aux, int auxSide) {
    if (SamePixels(main, aux)) {
        return "main and aux image are one and the same";
    }
    // A share of the side, or 1.6 pixels of a thumbnail: below that the direction may be chance.
    constexpr double kLeastDisplacement = 0.01;
    const EpipolarConsistency pair = MeasureConsistency(LumaThumbnail(main), LumaThumbnail(aux));
    if (auxSide == 0 || std::abs(pair.displacement) < kLeastDisplacement) {
        return {};
    }
    if (pair.alongColumns) {
        return "objects are displaced along the columns, though the cameras stand side by side: "
               "both images are turned by 90 or 270 degrees against the calibration";
    }
    // What a camera further right shows lies further left.
    return pair.displacement * auxSide > 0 ? "objects are displaced to the wrong side: main and "
                                             "aux image are exchanged, or both "
                                             "turned by 180 degrees against the calibration"
                                           : std::string();
}

void CheckMoment(Inspection& inspection) {
    const auto [main, aux, output] = IntactImages(inspection);
    if (main != nullptr && aux != nullptr && !inspection.Has(Problem::kAuxRotated)) {
        CheckPair(inspection, *main, *aux);
    }
    if (main != nullptr && output != nullptr && !inspection.Has(Problem::kSwapped) &&
        ShowsOtherScene(MeasureConsistency(LumaThumbnail(*output), LumaThumbnail(*main)))) {
        inspection.Report(Problem::kMoment, DumpRole::kOutput,
                          "the output does not show the main image's scene");
    }
}

void CheckChroma(Inspection& inspection) {
    // Images of different scenes differ in colour anyway.
    if (inspection.Has(Problem::kMoment) || inspection.Has(Problem::kAuxRotated)) {
        return;
    }
    const auto [main, aux, output] = IntactImages(inspection);
    const bool fromAux = HaveExchangedChroma(main, aux);
    const bool fromOutput = HaveExchangedChroma(main, output);
    // A copy of the main image tells nothing of its own.
    const bool third = output != nullptr && !inspection.Has(Problem::kFallback);
    if (fromAux && !third) {
        inspection.Report(Problem::kChroma, std::nullopt,
                          "main and aux image disagree about U and V: they are exchanged in one of "
                          "them");
    } else if (fromAux || fromOutput) {
        const DumpRole file = fromAux && fromOutput ? DumpRole::kMain
                              : fromAux             ? DumpRole::kAux
                                                    : DumpRole::kOutput;
        inspection.Report(Problem::kChroma, file,
                          fmt::format("the colours of the {} image match the other images only "
                                      "with U and V exchanged",
                                      RoleName(file)));
    }
}

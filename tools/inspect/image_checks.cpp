// What the images of a set tell about one another.

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <string>

#include "tools/compare/difference.h"
#include "tools/inspect/checks.h"
#include "tools/inspect/pair_match.h"

namespace {

// Share of places that go together: of one scene more, of two scenes fewer.
constexpr double kOneScene = 0.6;
// How far the images may stand aside of the line of the cameras, as a share of the picture's side.
constexpr double kFarthestAside = 0.022;
constexpr std::size_t kFewestPlaces = 6; // with fewer nothing is said

// The image, where it is there, large enough to show something and its rows are as its name says.
const host::Image* Sound(const Inspection& inspection, DumpRole role) {
    for (const Problem problem : {Problem::kPitch, Problem::kHeight, Problem::kTruncated}) {
        if (inspection.Has(problem, role)) {
            return nullptr;
        }
    }
    constexpr int kLeastSide = 16;
    const auto& image = inspection.image(role);
    const bool shows = image && std::min(image->width(), image->height()) >= kLeastSide;
    return shows ? &*image : nullptr;
}

bool SameSize(const host::Image& a, const host::Image& b) {
    return a.width() == b.width() && a.height() == b.height();
}

// Share of luma pixels that are the same in both; 0 for images of different sizes.
double ShareOfSamePixels(const host::Image& a, const host::Image& b) {
    if (!SameSize(a, b)) {
        return 0;
    }
    const PlaneDifference luma = Compare(a, b).planes.front();
    return 1 - static_cast<double>(luma.differing) / static_cast<double>(luma.samples);
}

// Mean difference of the two at a size at which blur and noise count little.
double SmallDifference(const host::Image& a, const host::Image& b) {
    cv::Mat smallA = SmallLuma(a);
    cv::Mat smallB = SmallLuma(b);
    cv::resize(smallB, smallB, smallA.size(), 0, 0, cv::INTER_AREA);
    cv::Mat difference;
    cv::absdiff(smallA, smallB, difference);
    return cv::mean(difference)[0];
}

cv::Mat Turned(const cv::Mat& picture, int quarters) {
    constexpr int kCodes[] = {cv::ROTATE_90_CLOCKWISE, cv::ROTATE_180,
                              cv::ROTATE_90_COUNTERCLOCKWISE};
    cv::Mat turned;
    cv::rotate(picture, turned, kCodes[quarters - 1]);
    return turned;
}

Fit FitOf(const cv::Mat& first, const cv::Mat& second) {
    return FitOf(MatchPlaces(first, second), first.size());
}

bool OtherScene(const Fit& fit) {
    return fit.places >= kFewestPlaces && fit.together < kOneScene;
}

cv::Mat Middle(const cv::Mat& picture, double share) {
    const cv::Size size(cvRound(picture.cols * share), cvRound(picture.rows * share));
    return picture(
        cv::Rect({(picture.cols - size.width) / 2, (picture.rows - size.height) / 2}, size));
}

// Of cameras with different fields of view the middle of one shows what the other does. Among many
// tries chance finds something, so that here it must fit well.
bool FitsOtherField(const cv::Mat& first, const cv::Mat& second) {
    constexpr double kShares[] = {0.9, 0.85, 0.8, 0.75, 0.7, 0.65, 0.6};
    constexpr double kFitsWell = 0.7;
    constexpr std::size_t kEnoughPlaces = 12;
    const auto good = [](const Fit& fit) {
        return fit.places >= kEnoughPlaces && fit.together > kFitsWell &&
               fit.aside < kFarthestAside;
    };
    return std::ranges::any_of(kShares, [&](double share) {
        return good(FitOf(first, Middle(second, share))) ||
               good(FitOf(Middle(first, share), second));
    });
}

struct ChromaCost {
    double straight = 0; // mean difference, U with U and V with V
    double crossed = 0;  // U with V and V with U
};

ChromaCost CostOf(const host::Image& a, const host::Image& b) {
    const std::array<cv::Mat, 2> first = SmallChroma(a);
    std::array<cv::Mat, 2> second = SmallChroma(b);
    for (cv::Mat& plane : second) {
        cv::resize(plane, plane, first[0].size(), 0, 0, cv::INTER_AREA);
    }
    const auto cost = [](const cv::Mat& x, const cv::Mat& y) {
        cv::Mat difference;
        cv::absdiff(x, y, difference);
        return cv::mean(difference)[0];
    };
    return {cost(first[0], second[0]) + cost(first[1], second[1]),
            cost(first[0], second[1]) + cost(first[1], second[0])};
}

bool Crossed(const ChromaCost& cost) {
    return cost.straight > 2 && cost.crossed < 0.6 * cost.straight;
}

// The disparities that a face shows in its middle half, but for the farthest and nearest tenth.
std::pair<int, int> DepthOf(const DumpedFace& face, const host::Image& disparity) {
    const int width = face.right - face.left + 1;
    const int height = face.bottom - face.top + 1;
    std::vector<int> values;
    for (int y = face.top + height / 4; y <= face.bottom - height / 4; ++y) {
        const std::uint8_t* row =
            disparity.plane(0) + static_cast<std::ptrdiff_t>(y) * disparity.pitch();
        values.insert(values.end(), row + face.left + width / 4, row + face.right - width / 4 + 1);
    }
    std::ranges::sort(values);
    return {values[values.size() / 10], values[values.size() * 9 / 10]};
}

// How much of the disparity's 255 steps may lie out of focus: all, but for those of a face in which
// the focus lies.
int StepsOutOfFocus(const Inspection& inspection, const host::Image& main) {
    constexpr int kAll = 255;
    const host::Image* disparity = Sound(inspection, DumpRole::kDisparity);
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
            const auto [low, high] = DepthOf(face, *disparity);
            return std::max(low, kAll - high);
        }
    }
    return kAll;
}

// Blur grows with the level, the picture and the distance from the focus; below about a pixel it
// changes nothing.
bool IsFaint(const Inspection& inspection, const host::Image& main) {
    const std::int64_t side = std::max(main.width(), main.height());
    constexpr std::int64_t kFaint = 6000L * 255;
    return inspection.parameters->blur * side * StepsOutOfFocus(inspection, main) < kFaint;
}

bool IsOneValue(const host::Image& image) {
    for (int y = 0; y < image.height(); ++y) {
        const std::uint8_t* row = image.plane(0) + static_cast<std::ptrdiff_t>(y) * image.pitch();
        if (std::any_of(row, row + image.width(),
                        [&](std::uint8_t value) { return value != *image.plane(0); })) {
            return false;
        }
    }
    return true;
}

std::string Percent(double share) {
    return std::to_string(std::lround(100 * share)) + " %";
}

} // namespace

void CheckSwapped(Inspection& inspection) {
    const host::Image* main = Sound(inspection, DumpRole::kMain);
    const host::Image* aux = Sound(inspection, DumpRole::kAux);
    const host::Image* output = Sound(inspection, DumpRole::kOutput);
    if (main == nullptr || aux == nullptr || output == nullptr) {
        return;
    }
    const double ofMain = ShareOfSamePixels(*main, *output);
    const double ofAux = ShareOfSamePixels(*aux, *output);
    const double fromMain = SmallDifference(*main, *output);
    const double fromAux = SmallDifference(*aux, *output);
    // What is in focus is the main image's pixels; what is not is at least in their place.
    const bool likeAux = fromAux < 0.7 * fromMain && (ofAux > ofMain || !SameSize(*main, *output));
    if (ofAux == 1 && ofMain < 1) {
        inspection.findings.push_back(
            {Problem::kSwapped, std::nullopt,
             "the output is the aux image: debug view 2, or main and aux image have changed "
             "places"});
    } else if (likeAux && (SameSize(*aux, *output) || !SameSize(*main, *output))) {
        inspection.findings.push_back(
            {Problem::kSwapped, std::nullopt,
             "the output is made from the image named aux (" + Percent(ofAux) +
                 " of its pixels) and not from that named main (" + Percent(ofMain) + ")"});
    }
}

void CheckWritten(Inspection& inspection) {
    for (const DumpRole role :
         {DumpRole::kMain, DumpRole::kAux, DumpRole::kOutput, DumpRole::kDisparity}) {
        const host::Image* image = Sound(inspection, role);
        if (image != nullptr && IsOneValue(*image)) {
            inspection.notes.push_back(std::string(RoleName(role)) + " is " +
                                       std::to_string(*image->plane(0)) +
                                       " all over: was it ever written?");
        }
    }
}

void CheckFallback(Inspection& inspection) {
    const host::Image* main = Sound(inspection, DumpRole::kMain);
    const host::Image* output = Sound(inspection, DumpRole::kOutput);
    if (main == nullptr || output == nullptr || !SameSize(*main, *output) ||
        !Compare(*main, *output).identical()) {
        return;
    }
    if (inspection.parameters && IsFaint(inspection, *main)) {
        inspection.notes.push_back("the output is the main image, which blur " +
                                   std::to_string(inspection.parameters->blur) +
                                   " can leave as it is at this size and focus");
        return;
    }
    inspection.findings.push_back(
        {Problem::kFallback, DumpRole::kOutput,
         "the output is the main image, pixel for pixel: the node fell back to a copy, or a debug "
         "view asked for it"});
}

void CheckAuxRotation(Inspection& inspection) {
    const host::Image* main = Sound(inspection, DumpRole::kMain);
    const host::Image* aux = Sound(inspection, DumpRole::kAux);
    if (main == nullptr || aux == nullptr) {
        return;
    }
    const cv::Mat first = SmallLuma(*main);
    const cv::Mat second = SmallLuma(*aux);
    Fit best = FitOf(first, second);
    if (!OtherScene(best)) {
        return;
    }
    int quarters = 0; // by which the aux image has to be turned, clockwise
    for (int turn = 1; turn < 4; ++turn) {
        const Fit fit = FitOf(first, Turned(second, turn));
        if (fit.together > best.together) {
            best = fit;
            quarters = turn;
        }
    }
    if (quarters != 0 && !OtherScene(best)) {
        inspection.findings.push_back({Problem::kAuxRotated, DumpRole::kAux,
                                       "the aux image fits the main one only when turned by " +
                                           std::to_string(90 * quarters) + " degrees clockwise"});
    }
}

void CheckMoment(Inspection& inspection) {
    const host::Image* main = Sound(inspection, DumpRole::kMain);
    const host::Image* aux = Sound(inspection, DumpRole::kAux);
    const host::Image* output = Sound(inspection, DumpRole::kOutput);
    const auto report = [&](DumpRole role, const std::string& text) {
        inspection.findings.push_back({Problem::kMoment, role, text});
    };
    if (main != nullptr && aux != nullptr && !inspection.Has(Problem::kAuxRotated)) {
        const cv::Mat first = SmallLuma(*main);
        const cv::Mat second = SmallLuma(*aux);
        const Fit fit = FitOf(first, second);
        if (OtherScene(fit)) {
            if (FitsOtherField(first, second)) {
                inspection.notes.emplace_back("main and aux image have different fields of view");
            } else {
                report(DumpRole::kAux, "main and aux image do not show the same scene");
            }
        } else if (fit.places >= kFewestPlaces && fit.aside > kFarthestAside) {
            report(DumpRole::kAux,
                   "main and aux image are shifted by " + Percent(fit.aside) +
                       " of the picture, across the line of the cameras: not of one moment, or a "
                       "module out of its place");
        }
    }
    if (main != nullptr && output != nullptr && !inspection.Has(Problem::kSwapped) &&
        OtherScene(FitOf(SmallLuma(*output), SmallLuma(*main)))) {
        report(DumpRole::kOutput, "the output does not show the main image's scene");
    }
}

void CheckChroma(Inspection& inspection) {
    const host::Image* main = Sound(inspection, DumpRole::kMain);
    const host::Image* aux = Sound(inspection, DumpRole::kAux);
    const host::Image* output = Sound(inspection, DumpRole::kOutput);
    // Images of different scenes differ in colour anyway.
    const bool oneScene =
        !inspection.Has(Problem::kMoment) && !inspection.Has(Problem::kAuxRotated);
    const bool ofAux =
        oneScene && main != nullptr && aux != nullptr && Crossed(CostOf(*main, *aux));
    const bool ofOutput =
        oneScene && main != nullptr && output != nullptr && Crossed(CostOf(*main, *output));
    if (!ofAux && !ofOutput) {
        return;
    }
    const DumpRole file = ofAux && ofOutput ? DumpRole::kMain
                          : ofAux           ? DumpRole::kAux
                                            : DumpRole::kOutput;
    inspection.findings.push_back({Problem::kChroma, file,
                                   std::string("the colours of the ") + RoleName(file) +
                                       " image fit the other images only with U and V swapped"});
}

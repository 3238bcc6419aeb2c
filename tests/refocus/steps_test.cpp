#include <gtest/gtest.h>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <functional>
#include <limits>
#include <ostream>
#include <set>
#include <string>

#include "host/refocus/calibration.h"
#include "host/refocus/depth_estimator.h"
#include "host/refocus/disc_scatter.h"
#include "host/refocus/disparity_refinement.h"
#include "host/refocus/error.h"
#include "host/refocus/highlights.h"
#include "host/refocus/push_pull.h"
#include "host/refocus/stereo_matching.h"
#include "tests/refocus/stereo_scene.h"

namespace refocus {
namespace {

using stereo_scene::TwoPlanes;

// Luma of both views, and the true disparity of every main image pixel.
struct Views {
    cv::Mat main;
    cv::Mat aux;
    cv::Mat truth; // CV_32FC1
};

cv::Mat LumaOf(stereo_scene::GuardedImage& image) {
    const PLIM_OFFSCREEN descriptor = image.Descriptor();
    return cv::Mat(image.height(), image.width(), CV_8UC1, descriptor.pu8Plane[0],
                   static_cast<std::size_t>(descriptor.i32Pitch[0]))
        .clone();
}

Views ViewsOf(const TwoPlanes& scene) {
    stereo_scene::Pair pair = stereo_scene::Render(scene);
    Views views{LumaOf(pair.main), LumaOf(pair.aux), cv::Mat(scene.height, scene.width, CV_32FC1)};
    for (int y = 0; y < scene.height; ++y) {
        for (int x = 0; x < scene.width; ++x) {
            views.truth.at<float>(y, x) = static_cast<float>(scene.DisparityAt(x, y));
        }
    }
    return views;
}

// The image's content moved by whole pixels, its border repeated.
cv::Mat Moved(const cv::Mat& image, int dx, int dy) {
    cv::Mat wide;
    cv::copyMakeBorder(image, wide, 20, 20, 20, 20, cv::BORDER_REPLICATE);
    return wide(cv::Rect(20 - dx, 20 - dy, image.cols, image.rows)).clone();
}

struct GeometryCase {
    const char* name;
    TwoPlanes scene;
    // Changes made to the pair together, so that it stays a pair.
    std::function<void(Views&, Calibration&, ImageGeometry&)> change;
};

void PrintTo(const GeometryCase& test, std::ostream* out) {
    *out << test.name;
}

void RotateAll(Views& views, cv::RotateFlags rotation) {
    for (cv::Mat* image : {&views.main, &views.aux, &views.truth}) {
        cv::Mat rotated;
        cv::rotate(*image, rotated, rotation);
        *image = rotated;
    }
}

const std::vector<GeometryCase> kGeometryCases{
    {"Plain", {}, [](Views&, Calibration&, ImageGeometry&) {}},
    {"OddSize", {.width = 333, .height = 247}, [](Views&, Calibration&, ImageGeometry&) {}},
    {"Reduced", {2403, 902, 18, 90}, [](Views&, Calibration&, ImageGeometry&) {}},
    {"SmallAux",
     {640, 480, 12, 40},
     [](Views& v, Calibration& c, ImageGeometry&) {
         cv::Mat half(v.aux.rows / 2, v.aux.cols / 2, CV_8UC1);
         for (int y = 0; y < half.rows; ++y) {
             for (int x = 0; x < half.cols; ++x) {
                 half.at<std::uint8_t>(y, x) =
                     static_cast<std::uint8_t>(cv::mean(v.aux(cv::Rect(2 * x, 2 * y, 2, 2)))[0]);
             }
         }
         v.aux = half;
         c = CalibrationOfRectifiedPair({640, 480, 320, 240, 400.0, 60.0, 0.0});
     }},
    // The aux camera's lens is half again as wide, on a sensor of the same size.
    {"WideAux",
     {.width = 480, .height = 360},
     [](Views& v, Calibration& c, ImageGeometry&) {
         cv::Mat smaller;
         cv::resize(v.aux, smaller, {320, 240}, 0, 0, cv::INTER_AREA);
         cv::copyMakeBorder(smaller, v.aux, 60, 60, 80, 80, cv::BORDER_REFLECT);
         c.aux.fx /= 1.5;
         c.aux.fy /= 1.5;
     }},
    {"AuxOnTheLeft",
     {},
     [](Views& v, Calibration& c, ImageGeometry&) {
         for (cv::Mat* image : {&v.main, &v.aux, &v.truth}) {
             cv::flip(*image, *image, 1);
         }
         c.translation = {60.0, 0.0, 0.0};
     }},
    {"AuxBelow",
     {},
     [](Views& v, Calibration& c, ImageGeometry&) {
         for (cv::Mat* image : {&v.main, &v.aux, &v.truth}) {
             *image = cv::Mat(image->t());
         }
         c = CalibrationOfRectifiedPair({240, 320, 240, 320, 400.0, 60.0, 0.0});
         c.translation = {0.0, -60.0, 0.0};
     }},
    // Until rectified, rows don't correspond and infinity has another disparity than 0.
    {"PrincipalPointOffCentre",
     {},
     [](Views& v, Calibration& c, ImageGeometry&) {
         v.aux = Moved(v.aux, 7, 5);
         c.aux.cx += 7;
         c.aux.cy += 5;
     }},
    {"Rotated90",
     {},
     [](Views& v, Calibration&, ImageGeometry& g) {
         RotateAll(v, cv::ROTATE_90_CLOCKWISE);
         g.rotation = 90;
     }},
    {"Rotated180",
     {},
     [](Views& v, Calibration&, ImageGeometry& g) {
         RotateAll(v, cv::ROTATE_180);
         g.rotation = 180;
     }},
    {"Rotated270",
     {},
     [](Views& v, Calibration&, ImageGeometry& g) {
         RotateAll(v, cv::ROTATE_90_COUNTERCLOCKWISE);
         g.rotation = 270;
     }},
    // Residual misalignment: rows two pixels off, a longer lens, a rotated and darker camera.
    {"Misaligned",
     {.width = 480, .height = 360},
     [](Views& v, Calibration&, ImageGeometry&) {
         const cv::Point2f middle((static_cast<float>(v.aux.cols) - 1) / 2,
                                  (static_cast<float>(v.aux.rows) - 1) / 2);
         cv::Mat_<double> map = cv::getRotationMatrix2D(middle, 0.2, 1.02);
         map(1, 2) += 2.0;
         cv::warpAffine(v.aux * 0.7, v.aux, map, v.aux.size(), cv::INTER_CUBIC,
                        cv::BORDER_REPLICATE);
     }},
    // A twentieth of the height: an aux camera that was knocked.
    {"RowsFarApart",
     {.width = 480, .height = 360},
     [](Views& v, Calibration&, ImageGeometry&) { v.aux = Moved(v.aux, 0, 18); }},
    // The images show the middle quarter of sensors twice as large, off-centre lens and all.
    {"Cropped",
     {},
     [](Views& v, Calibration& c, ImageGeometry& g) {
         v.aux = Moved(v.aux, 0, 6);
         c = CalibrationOfRectifiedPair({640, 480, 640, 480, 400.0, 60.0, 0.0});
         c.aux.cy += 6;
         g.mainCrop = g.auxCrop = {320, 240};
     }},
};

class Depth : public testing::TestWithParam<GeometryCase> {};

TEST_P(Depth, OfTwoPlanesIsRight) {
    const GeometryCase& test = GetParam();
    Views views = ViewsOf(test.scene);
    Calibration calibration =
        CalibrationOfRectifiedPair({test.scene.width, test.scene.height, test.scene.width,
                                    test.scene.height, 400.0, 60.0, 0.0});
    ImageGeometry geometry;
    test.change(views, calibration, geometry);
    ASSERT_EQ(ValidateCalibration(calibration), Error::kNone);
    DepthMap depth;
    const cv::Mat grey(views.main.rows / 2, views.main.cols / 2, CV_8UC2, cv::Scalar::all(128));
    ASSERT_EQ(
        EstimateDepth({views.main, grey}, views.aux, calibration, geometry, views.main.cols, depth),
        Error::kNone);

    // Half a pixel of the reduced images.
    const double bound = 0.5 * std::max(1.0, std::round(views.main.cols / 800.0));
    int wrong = 0;
    for (int y = 0; y < views.main.rows; ++y) {
        for (int x = 0; x < views.main.cols; ++x) {
            const double disparity =
                depth.scale.offset + depth.scale.step * depth.bytes.at<std::uint8_t>(y, x);
            wrong += std::abs(disparity - views.truth.at<float>(y, x)) > bound ? 1 : 0;
        }
    }
    // Errors remain beside the foreground's outline, where the aux camera sees less.
    EXPECT_LT(wrong, 0.06 * static_cast<double>(views.main.total()));
}

INSTANTIATE_TEST_SUITE_P(Geometry, Depth, testing::ValuesIn(kGeometryCases),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(DepthMap, OfASurfaceIsSmoothDespiteNoise) {
    Views views = ViewsOf({.width = 480, .height = 360});
    cv::RNG random(3);
    for (cv::Mat* view : {&views.main, &views.aux}) {
        cv::Mat noise(view->size(), CV_16SC1);
        random.fill(noise, cv::RNG::NORMAL, 0, 3);
        cv::add(*view, noise, *view, cv::noArray(), CV_8U);
    }
    const Calibration calibration =
        CalibrationOfRectifiedPair({480, 360, 480, 360, 400.0, 60.0, 0.0});
    const cv::Mat grey(180, 240, CV_8UC2, cv::Scalar::all(128));
    DepthMap depth;
    ASSERT_EQ(EstimateDepth({views.main, grey}, views.aux, calibration, {}, 480, depth),
              Error::kNone);
    cv::Scalar mean, deviation;
    cv::meanStdDev(depth.bytes(cv::Rect(150, 110, 180, 140)), mean, deviation);
    EXPECT_LT(deviation[0] * depth.scale.step, 0.11); // pixels
}

TEST(Calibration, RoundTrip) {
    Calibration written =
        CalibrationOfRectifiedPair({4000, 3000, 2592, 1944, 3200.5, -12.25, 80.0});
    written.main.k = {0.1, -0.2, 0.03, 1e-3, -1e-4, 1e-5};
    written.aux.p = {1e-4, -3e-4};
    written.aux.cx += 3.75;
    const double angle = 0.02;
    written.rotation = {std::cos(angle),  0, std::sin(angle), 0, 1, 0,
                        -std::sin(angle), 0, std::cos(angle)};
    written.mountAngle = 270;
    Calibration read;
    ASSERT_EQ(ParseCalibration(WriteCalibration(written), read), Error::kNone);
    EXPECT_EQ(read, written);
}

TEST(Calibration, AnyDamagedByteIsNoticed) {
    const auto good =
        WriteCalibration(CalibrationOfRectifiedPair({640, 480, 640, 480, 500, 60, 0}));
    for (std::size_t i = 0; i < good.size(); ++i) {
        auto bytes = good;
        bytes[i] ^= 0x10;
        Calibration read;
        const Error expected = i < 8    ? Error::kCalibrationMagic
                               : i < 12 ? Error::kCalibrationVersion
                                        : Error::kCalibrationChecksum;
        ASSERT_EQ(ParseCalibration(bytes, read), expected) << "byte " << i;
        ASSERT_EQ(read, Calibration()) << "written in spite of an error";
    }
    Calibration read;
    EXPECT_EQ(ParseCalibration(std::span(good).first(2047), read), Error::kCalibrationSize);
    EXPECT_EQ(ParseCalibration({}, read), Error::kCalibrationSize);
}

TEST(Calibration, ImpossibleCamerasAreRefused) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const std::vector<std::pair<const char*, std::function<void(Calibration&)>>> cases{
        {"no width", [](Calibration& c) { c.main.width = 0; }},
        {"negative height", [](Calibration& c) { c.aux.height = -48000; }},
        {"no focal length", [](Calibration& c) { c.main.fx = 0; }},
        {"focal length NaN", [=](Calibration& c) { c.aux.fy = nan; }},
        {"principal point outside", [](Calibration& c) { c.main.cx = 641; }},
        {"distortion NaN", [=](Calibration& c) { c.main.k[5] = nan; }},
        {"no rotation", [](Calibration& c) { c.rotation = {}; }},
        {"mirrored", [](Calibration& c) { c.rotation[0] = -1; }},
        {"backwards", [](Calibration& c) { c.rotation[0] = c.rotation[8] = -1; }},
        {"no baseline", [](Calibration& c) { c.translation = {}; }},
        {"baseline infinite", [](Calibration& c) { c.translation[0] = 1 / 0.0; }},
        {"mount angle", [](Calibration& c) { c.mountAngle = 45; }},
        {"nearest distance", [](Calibration& c) { c.nearestDistance = -1; }},
    };
    for (const auto& [name, change] : cases) {
        Calibration calibration = CalibrationOfRectifiedPair({640, 480, 640, 480, 500, 60, 0});
        change(calibration);
        Calibration read;
        EXPECT_EQ(ParseCalibration(WriteCalibration(calibration), read), Error::kCalibrationValues)
            << name;
    }
}

TEST(FocusWindow, IsTheFacesMiddleOnlyAroundThePoint) {
    TSL_RECT faces[2] = {{100, 100, 199, 179}, {600, 0, 9999, 50}}; // the second leaves the image
    TSL_DCR_FOCUSPARAM focus{};
    focus.pFaceRects = faces;
    const auto window = [&focus](int x, int y, int count) {
        focus.ptFocus = {x, y};
        focus.i32FaceNum = count;
        return FocusWindowOf(focus, {640, 480}).pixels;
    };
    EXPECT_EQ(window(199, 179, 2), cv::Rect(125, 120, 50, 40));
    EXPECT_EQ(window(150, 140, 0), cv::Rect(147, 137, 7, 7)) << "faces of an earlier picture";
    EXPECT_EQ(window(200, 179, 2), cv::Rect(197, 176, 7, 7));
    EXPECT_EQ(window(620, 20, 2), cv::Rect(617, 17, 7, 7));
    EXPECT_EQ(window(-50, 1 << 30, 2), cv::Rect(0, 476, 4, 4));

    // All of a face's depth is in focus but for stray values; elsewhere the median is.
    cv::Mat map(480, 640, CV_8UC1, cv::Scalar(90));
    map(cv::Rect(125, 120, 25, 40)).setTo(110);
    map(cv::Rect(140, 130, 4, 4)).setTo(255);
    focus.ptFocus = {150, 140};
    for (const auto& [count, low, high] : {std::array{2, 90, 110}, {0, 90, 90}}) {
        focus.i32FaceNum = count;
        EXPECT_EQ(FocusRangeOf(map, focus).low, low);
        EXPECT_EQ(FocusRangeOf(map, focus).high, high);
    }
}

// A strip of disparity 6 before a background of disparity -2, noisy in both views.
struct StripPair {
    static constexpr int kLeft = 60; // columns of the strip
    static constexpr int kRight = 100;
    cv::Mat left = cv::Mat(200, 160, CV_8UC1); // more rows than are matched at once
    cv::Mat right = left.clone();

    static int DisparityAt(int x) { return x >= kLeft && x < kRight ? 6 : -2; }

    StripPair() {
        cv::RNG random(3);
        cv::Mat strip(left.rows, left.cols + 20, CV_8UC1);
        cv::Mat background(strip.size(), CV_8UC1);
        random.fill(strip, cv::RNG::UNIFORM, 80, 176);
        random.fill(background, cv::RNG::UNIFORM, 80, 176);
        for (int y = 0; y < left.rows; ++y) {
            for (int x = 0; x < left.cols; ++x) {
                const auto paint = [&](const cv::Mat& texture, int column) {
                    return cv::saturate_cast<std::uint8_t>(
                        texture.at<std::uint8_t>(y, column + 10) + random.gaussian(12.0));
                };
                const int d = DisparityAt(x);
                left.at<std::uint8_t>(y, x) = paint(d > 0 ? strip : background, x - d);
                right.at<std::uint8_t>(y, x) =
                    paint(DisparityAt(x + 6) > 0 ? strip : background, x);
            }
        }
    }
};

TEST(SemiGlobalMatching, FindsAStripBeforeItsBackgroundDespiteNoise) {
    const StripPair pair;
    const Matches matches = MatchBothWays(pair.left, pair.right, {-5, 16});
    int right = 0;
    int hidden = 0;
    for (int y = 0; y < pair.left.rows; ++y) {
        for (int x = 0; x < pair.left.cols; ++x) {
            const bool known = matches.consistent.at<std::uint8_t>(y, x) != 0;
            const float off =
                matches.disparity.at<float>(y, x) - static_cast<float>(StripPair::DisparityAt(x));
            right += known && std::abs(off) < 0.5f ? 1 : 0;
            hidden += known && x >= StripPair::kLeft - 8 && x < StripPair::kLeft ? 1 : 0;
        }
        EXPECT_EQ(matches.consistent.at<std::uint8_t>(y, pair.left.cols - 1), 0)
            << "the right image ends before this pixel's match";
    }
    EXPECT_GT(right, 0.85 * static_cast<double>(pair.left.total()));
    EXPECT_LT(hidden, 0.2 * 8 * pair.left.rows) << "the strip hides these pixels from the right";
}

TEST(SemiGlobalMatching, SameBytesForAnyNumberOfThreads) {
    const StripPair pair;
    const int threads = cv::getNumThreads();
    cv::setNumThreads(1);
    const ViewDisparities one = MatchSemiGlobally(pair.left, pair.right, {-5, 16});
    cv::setNumThreads(2);
    const ViewDisparities two = MatchSemiGlobally(pair.left, pair.right, {-5, 16});
    cv::setNumThreads(threads);
    EXPECT_EQ(cv::norm(one.left, two.left, cv::NORM_INF), 0.0);
    EXPECT_EQ(cv::norm(one.right, two.right, cv::NORM_INF), 0.0);
}

// Of a pair of which three fifths agree, as of a repetitive texture, a mirrored or turned match
// must not find more. The aux image lies some rows down, which its alignment has corrected.
TEST(CheckDepth, ADoubtfulPairIsRefusedIfAWrongSetupSuitsItBetter) {
    const StripPair pair;
    const SearchRange range{-5, 16};
    Matches matches = MatchBothWays(pair.left, pair.right, range);
    matches.consistent(cv::Rect(0, 0, pair.left.cols, pair.left.rows * 2 / 5)).setTo(0);
    cv::Mat seen;
    cv::copyMakeBorder(pair.right.rowRange(0, pair.right.rows - 12), seen, 12, 0, 0, 0,
                       cv::BORDER_REFLECT);
    EXPECT_EQ(CheckDepth(pair.left, {seen, pair.right}, matches, range), Error::kNone);
    EXPECT_EQ(CheckDepth(pair.right, {pair.left, pair.left}, matches, range), Error::kReversedPair);
}

// Background 5, foreground 20. The gaps are beside an object, at the border, and in the last rows
// between two objects, where only the rows above show the background. A gap within the object's
// colour is the object's, though the background is as near.
TEST(GapFilling, TakesTheBackgroundSideOrThatOfItsColour) {
    constexpr float kGap = -1.0f;
    cv::Mat_<float> disparity(9, 16, 5.0f);
    disparity(cv::Rect(8, 0, 8, 2)) = 20.0f;
    disparity(cv::Rect(0, 2, 8, 2)) = 20.0f;
    disparity(cv::Rect(0, 6, 16, 3)) = 20.0f;
    cv::Mat_<float> expected = disparity.clone();
    disparity(cv::Rect(2, 0, 6, 2)) = kGap; // to the left of an object
    disparity(cv::Rect(8, 2, 6, 2)) = kGap; // and to the right
    disparity(cv::Rect(0, 4, 3, 1)) = kGap; // at the border
    disparity(cv::Rect(4, 6, 8, 3)) = kGap;
    expected(cv::Rect(4, 6, 8, 3)) = 5.0f;
    const cv::Mat known = disparity >= 0;
    cv::Mat guide(disparity.size(), CV_8UC3, cv::Scalar(90, 128, 128));
    FillGaps(disparity, known, guide);
    EXPECT_EQ(cv::countNonZero(disparity != expected), 0) << disparity;

    guide(cv::Rect(0, 6, 16, 3)).setTo(cv::Scalar(90, 150, 128));
    disparity.setTo(kGap, ~known);
    expected(cv::Rect(4, 6, 8, 3)) = 20.0f;
    FillGaps(disparity, known, guide);
    EXPECT_EQ(cv::countNonZero(disparity != expected), 0) << disparity;
    FillGaps(disparity, cv::Mat::zeros(known.size(), CV_8UC1), guide);
    EXPECT_EQ(cv::countNonZero(disparity), 0) << "nothing known";
}

// A far point of light beside a nearer object: its disc must not extend over the object, and the
// light elsewhere is unchanged.
TEST(DiscScatter, FarDiscsStayBehindNearerOnes) {
    const cv::Size size(60, 40);
    DefocusField field{cv::Mat(size, CV_32FC3, cv::Scalar::all(0.1)), cv::Mat(size, CV_32FC1, 1.0),
                       cv::Mat(size, CV_32FC1, 8.0), cv::Mat(size, CV_8UC1, 10.0)};
    const cv::Rect object(30, 0, 30, 40);
    field.radius(object).setTo(1.0);
    field.order(object).setTo(200);
    field.light.at<cv::Vec3f>(20, 26) = {50, 50, 50};
    const BlurredField blurred = ScatterDiscs(field);
    EXPECT_NEAR(blurred.light.at<cv::Vec3f>(20, 33)[0], 0.1, 1e-3);
    EXPECT_GT(blurred.light.at<cv::Vec3f>(20, 20)[0], 0.2);
    for (const cv::Point at : {cv::Point(0, 0), {3, 36}, {59, 39}, {45, 0}}) {
        EXPECT_NEAR(blurred.light.at<cv::Vec3f>(at)[0], 0.1, 1e-3) << at;
        EXPECT_NEAR(blurred.cover.at<float>(at), 1.0, 0.01) << "a thin border at " << at;
    }
}

// What a disc spreads beyond the border comes back: the picture is mirrored there.
TEST(DiscScatter, TheBorderKeepsTheLight) {
    const cv::Size size(60, 40);
    DefocusField field{cv::Mat(size, CV_32FC3, cv::Scalar::all(0)), cv::Mat(size, CV_32FC1, 1.0),
                       cv::Mat(size, CV_32FC1, 8.0), cv::Mat(size, CV_8UC1, 10.0)};
    field.light.at<cv::Vec3f>(2, 57) = {1, 1, 1};
    const BlurredField blurred = ScatterDiscs(field);
    EXPECT_NEAR(cv::sum(blurred.light)[0], 1.0, 0.02);
}

// A point's light spreads with the variance of its disc, however small.
TEST(DiscScatter, SmallDiscsBlurAsMuchAsTheirRadiusSays) {
    for (const float radius : {0.5f, 0.75f, 1.0f, 1.25f, 2.0f, 5.0f}) {
        const cv::Size size(41, 41);
        DefocusField field{cv::Mat(size, CV_32FC3, cv::Scalar::all(0)),
                           cv::Mat(size, CV_32FC1, 1.0), cv::Mat(size, CV_32FC1, radius),
                           cv::Mat(size, CV_8UC1, 10.0), cv::Mat::zeros(size, CV_8UC1)};
        field.light.at<cv::Vec3f>(20, 20) = {1, 1, 1};
        const BlurredField blurred = ScatterDiscs(field);
        double variance = 0.0;
        for (int x = 0; x < size.width; ++x) {
            variance += cv::sum(blurred.light.col(x))[0] * (x - 20) * (x - 20);
        }
        EXPECT_NEAR(variance, radius * radius / 4, 0.03 * radius * radius / 4) << radius;
    }
}

// A highlight nearer than its background, whose bright rim belongs to the background by its
// disparity.
TEST(Highlights, AHighlightsRimTakesItsDisparity) {
    cv::Mat map(9, 9, CV_8UC1, cv::Scalar(20));
    cv::Mat luma(9, 9, CV_8UC1, cv::Scalar(30));
    luma(cv::Rect(2, 2, 5, 5)).setTo(150);
    luma(cv::Rect(3, 3, 3, 3)).setTo(255);
    map(cv::Rect(3, 3, 3, 3)).setTo(90);
    cv::Mat expected = map.clone();
    expected(cv::Rect(2, 2, 5, 5)).setTo(90);
    EXPECT_EQ(cv::countNonZero(WithWholeHighlights(luma, map) != expected), 0);
    map.setTo(20);
    EXPECT_EQ(cv::countNonZero(WithWholeHighlights(luma, map) != map), 0) << "of one depth";

    // A dark object before the highlight: its mixed outline is clipped, too, but keeps the
    // highlight's depth.
    map.colRange(5, 9).setTo(200);
    luma.colRange(6, 9).setTo(30);
    map(cv::Rect(3, 3, 2, 3)).setTo(90);
    const cv::Mat found = WithWholeHighlights(luma, map);
    EXPECT_EQ(found.at<std::uint8_t>(4, 5), 90) << "clipped outline";
    EXPECT_EQ(found.at<std::uint8_t>(4, 6), 200) << "the object itself";
}

// A highlight in the dark becomes brighter than white and takes its rim's hue; a white wall stays
// white.
TEST(Highlights, HighlightsAreRaisedAndSurfacesAreNot) {
    for (const int side : {3, 40}) {
        DefocusField field{cv::Mat(240, 240, CV_32FC3, cv::Scalar::all(0.01)),
                           cv::Mat(240, 240, CV_32FC1, 1.0), cv::Mat(240, 240, CV_32FC1, 5.0),
                           cv::Mat(240, 240, CV_8UC1, 10.0), cv::Mat::zeros(240, 240, CV_8UC1)};
        const cv::Rect rim(120 - side / 2 - 1, 120 - side / 2 - 1, side + 2, side + 2);
        const cv::Rect highlight(120 - side / 2, 120 - side / 2, side, side);
        field.light(rim).setTo(cv::Scalar(0.8, 0.2, 0.1));
        field.light(highlight).setTo(cv::Scalar::all(1.0));
        field.clipped(highlight).setTo(255);
        DefocusField hardlyBlurred = field;
        hardlyBlurred.light = field.light.clone();
        hardlyBlurred.radius = cv::Mat(240, 240, CV_32FC1, 0.8);
        RestoreHighlights(hardlyBlurred);
        EXPECT_EQ(hardlyBlurred.light.at<cv::Vec3f>(120, 120), cv::Vec3f::all(1.0f));
        RestoreHighlights(field);
        const auto light = field.light.at<cv::Vec3f>(120, 120);
        if (side == 3) {
            EXPECT_GT(light[0], 3.0f);
            EXPECT_LT(light[2], 0.5f * light[0]);
        } else {
            EXPECT_EQ(light, cv::Vec3f::all(1.0f));
        }
    }
}

// A bar at value 200 before a plane in focus is dilated by a pixel; a barely nearer one is not.
TEST(GrowNear, DilatesStronglyBlurredObjects) {
    cv::Mat map(20, 40, CV_8UC1, cv::Scalar(50));
    map.colRange(15, 20).setTo(200);
    map.colRange(30, 32).setTo(53); // barely nearer than the focus
    const BlurTable table = MakeBlurTable({0.0, 0.3}, {50, 50}, 100, {1000, 750}, 1);
    cv::Mat expected = map.clone();
    expected.colRange(14, 21).setTo(200);
    EXPECT_EQ(cv::countNonZero(GrowNear(map, table, 1) != expected), 0);
}

TEST(PushPull, KeepsTheKnownAndReachesTheFarthestGap) {
    cv::Mat values(37, 53, CV_32FC3, cv::Scalar(9, 9, 9));
    cv::Mat weight = cv::Mat::zeros(37, 53, CV_32FC1);
    values.at<cv::Vec3f>(0, 0) = {0.25f, 0.5f, 1.0f};
    weight.at<float>(0, 0) = 1.0f;
    const cv::Mat filled = PushPull(values, weight);
    for (const cv::Point at : {cv::Point(0, 0), {52, 36}, {26, 18}}) {
        EXPECT_LT(cv::norm(filled.at<cv::Vec3f>(at) - cv::Vec3f(0.25f, 0.5f, 1.0f)), 1e-4) << at;
    }
}

TEST(Errors, EveryCodeHasItsOwnNameAndSentence) {
    std::set<std::string> names;
    std::set<std::string> sentences;
    int known = 0;
    for (std::int64_t code = -100; code <= 0; ++code) {
        const ErrorText text = Describe(code);
        if (std::string(text.name) != "Unknown") {
            ++known;
            names.insert(text.name);
            sentences.insert(text.sentence);
        }
    }
    EXPECT_EQ(names.size(), static_cast<std::size_t>(known));
    EXPECT_EQ(sentences.size(), static_cast<std::size_t>(known));
    EXPECT_STREQ(Describe(Result(Error::kFaceList)).name, "FaceList");
    EXPECT_STREQ(Describe(123).name, "Unknown");
}

} // namespace
} // namespace refocus

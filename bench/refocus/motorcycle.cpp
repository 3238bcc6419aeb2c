#include "bench/refocus/motorcycle.h"

#include <cmath>
#include <functional>
#include <string>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include "bench/refocus/estimation.h"
#include "bench/refocus/number_array.h"
#include "host/picture/errors.h"
#include "host/picture/image_file.h"
#include "host/picture/nv12.h"
#include "host/refocus/occlusion_filling.h"

namespace quality {
namespace {

constexpr float kBad = 2.0f;         // pixels
constexpr float kSameSurface = 1.0f; // pixels of disparity

// Nearest disparity at each column of the aux image's row, 0 where nothing is known.
std::vector<float> CarryToAux(const cv::Mat& truth, int y) {
    std::vector<float> nearest(static_cast<std::size_t>(truth.cols), 0.0f);
    const float* row = truth.ptr<float>(y);
    const auto put = [&nearest](int column, float disparity) {
        if (column >= 0 && column < static_cast<int>(nearest.size())) {
            float& slot = nearest[static_cast<std::size_t>(column)];
            slot = std::max(slot, disparity);
        }
    };
    for (int x = 0; x < truth.cols; ++x) {
        if (!std::isfinite(row[x])) {
            continue;
        }
        const float at = static_cast<float>(x) - row[x];
        put(static_cast<int>(std::lround(at)), row[x]);
        // A surface that the aux camera sees stretched leaves no gaps.
        if (x + 1 < truth.cols && std::abs(row[x + 1] - row[x]) < kSameSurface) {
            const float next = static_cast<float>(x + 1) - row[x + 1];
            for (auto column = static_cast<int>(std::ceil(std::min(at, next)));
                 static_cast<float>(column) <= std::max(at, next); ++column) {
                put(column, std::min(row[x], row[x + 1]));
            }
        }
    }
    return nearest;
}

// 255 where the aux camera sees the pixel too.
cv::Mat VisibleInAux(const cv::Mat& truth) {
    cv::Mat visible = cv::Mat::zeros(truth.size(), CV_8UC1);
    for (int y = 0; y < truth.rows; ++y) {
        const std::vector<float> nearest = CarryToAux(truth, y);
        const float* row = truth.ptr<float>(y);
        for (int x = 0; x < truth.cols; ++x) {
            if (!std::isfinite(row[x])) {
                continue;
            }
            const long column = std::lround(static_cast<float>(x) - row[x]);
            if (column >= 0 && nearest[static_cast<std::size_t>(column)] <= row[x] + kSameSurface) {
                visible.at<std::uint8_t>(y, x) = 255;
            }
        }
    }
    return visible;
}

struct Bad {
    double visible = 0.0; // percent of what both cameras see
    double all = 0.0;     // percent of all that has a ground truth
};

Bad BadPixels(const cv::Mat& disparity, const cv::Mat& truth, const cv::Mat& visible) {
    const cv::Mat known = truth < 1e6f; // it is infinite where it is unknown
    const cv::Mat wrong = (cv::abs(disparity - truth) > kBad) & known;
    return {100.0 * cv::countNonZero(wrong & visible) / cv::countNonZero(visible),
            100.0 * cv::countNonZero(wrong) / cv::countNonZero(known)};
}

// OpenCV's matcher at full size over the same range, its gaps filled from the background.
cv::Mat PlainMatching(const StereoPair& pair) {
    constexpr int kRange = 128;
    constexpr int kBlock = 5;
    const auto matcher =
        cv::StereoSGBM::create(0, kRange, kBlock, 8 * kBlock * kBlock, 32 * kBlock * kBlock, 1, 63,
                               10, 100, 2, cv::StereoSGBM::MODE_HH);
    cv::Mat fixed;
    matcher->compute(LumaOf(pair.main), LumaOf(pair.aux), fixed);
    cv::Mat disparity;
    fixed.convertTo(disparity, CV_32F, 1.0 / int{cv::StereoMatcher::DISP_SCALE});
    refocus::FillOcclusions(disparity, disparity >= 0.0f, disparity < 0.0f);
    return disparity;
}

RgbImage Darker(const RgbImage& aux) {
    RgbImage result = aux;
    for (std::uint8_t& value : result.bytes) {
        value = cv::saturate_cast<std::uint8_t>(0.7 * value);
    }
    return result;
}

// The picture moved and scaled about its middle.
RgbImage Moved(const RgbImage& aux, double scale, double down) {
    RgbImage result(aux.width, aux.height);
    const cv::Mat from(aux.height, aux.width, CV_8UC3, const_cast<std::uint8_t*>(aux.bytes.data()));
    cv::Mat to(aux.height, aux.width, CV_8UC3, result.bytes.data());
    const double cx = (aux.width - 1) / 2.0;
    const double cy = (aux.height - 1) / 2.0;
    const cv::Matx23d map(scale, 0, cx - scale * cx, 0, scale, cy - scale * cy + down);
    cv::warpAffine(from, to, map, to.size(), cv::INTER_CUBIC, cv::BORDER_REPLICATE);
    return result;
}

Row WorseRow(const std::string& how, const char* kind, double value, double clean) {
    return {"Motorcycle bad-2, " + how + ", " + kind,
            value / clean,
            "x",
            Number(value, "%") + " / clean " + Number(clean, "%"),
            Row::Better::kLess,
            1.3,
            1.1};
}

} // namespace

std::vector<Row> MotorcycleRows(const std::filesystem::path& folder,
                                const PictureFolder& pictures) {
    const RgbImage left = ReadImageFile(folder / "motorcycle_left.png");
    const RgbImage right = ReadImageFile(folder / "motorcycle_right.png");
    cv::Mat truth = ReadNumberArray(folder / "motorcycle_disp.npz");
    if (truth.cols != left.width || truth.rows != left.height) {
        throw UseError("the ground truth's size is not the photo's");
    }
    StereoPair pair{RgbToNv12(left, 0), RgbToNv12(right, 0)};
    truth = truth(cv::Rect(0, 0, pair.main.width(), pair.main.height())); // sides are even
    const cv::Mat visible = VisibleInAux(truth);
    pictures.Write("motorcycle-truth", truth, "pixels");

    const auto measure = [&](const std::string& name) {
        const cv::Mat disparity = EstimatedDisparity(pair, "Motorcycle, " + name);
        pictures.Write("motorcycle-" + name, disparity, "pixels");
        pictures.Write("motorcycle-" + name + "-error", cv::min(cv::abs(disparity - truth), 8.0f),
                       "pixels");
        return BadPixels(disparity, truth, visible);
    };
    const Bad clean = measure("clean");
    const Bad plain = BadPixels(PlainMatching(pair), truth, visible);
    const std::string beside = "OpenCV's 8-way matching at full size, filled: ";
    std::vector<Row> rows{{"Motorcycle bad-2, non-occluded", clean.visible, "%",
                           beside + Number(plain.visible, "%"), Row::Better::kLess, 4.5, 3.5},
                          {"Motorcycle bad-2, all pixels", clean.all, "%",
                           beside + Number(plain.all, "%"), Row::Better::kLess, 8.0, 6.0}};

    const std::pair<const char*, RgbImage> worsened[] = {{"gain 0.7", Darker(right)},
                                                         {"2 px down", Moved(right, 1.0, 2.0)},
                                                         {"scale 1.02", Moved(right, 1.02, 0.0)}};
    for (const auto& [how, picture] : worsened) {
        pair.aux = RgbToNv12(picture, 0);
        const Bad bad = measure(how);
        rows.push_back(WorseRow(how, "non-occluded", bad.visible, clean.visible));
        rows.push_back(WorseRow(how, "all", bad.all, clean.all));
    }
    return rows;
}

} // namespace quality

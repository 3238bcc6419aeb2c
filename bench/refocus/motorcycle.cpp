#include "bench/refocus/motorcycle.h"

#include <array>
#include <cmath>
#include <cstring>
#include <fstream>
#include <regex>
#include <string>
#include <utility>

#include <fmt/format.h>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include "bench/refocus/engine.h"
#include "host/picture/errors.h"
#include "host/picture/image_file.h"
#include "host/picture/nv12.h"
#include "host/refocus/disparity_refinement.h"

namespace quality {
namespace {

constexpr float kBad = 2.0f;         // pixels
constexpr float kSameSurface = 1.0f; // pixels of disparity

// The ground truth of a row projected into the aux image: the nearest disparity at each of its
// columns, 0 where none is known.
std::vector<float> ProjectToAux(const cv::Mat& truth, int y) {
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
        // A slanted surface may be wider in the aux image; the columns in between are filled.
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

// 255 where the aux camera sees the pixel, too.
cv::Mat VisibleInAux(const cv::Mat& truth) {
    cv::Mat visible = cv::Mat::zeros(truth.size(), CV_8UC1);
    for (int y = 0; y < truth.rows; ++y) {
        const std::vector<float> nearest = ProjectToAux(truth, y);
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

struct BadShare {
    double visible = 0.0; // percent of the pixels that both cameras see
    double all = 0.0;     // percent of all pixels with a ground truth
};

BadShare BadPixels(const cv::Mat& disparity, const cv::Mat& truth, const cv::Mat& visible) {
    const cv::Mat known = truth < 1e6f; // the ground truth is infinite where it is unknown
    const cv::Mat wrong = (cv::abs(disparity - truth) > kBad) & known;
    return {100.0 * cv::countNonZero(wrong & visible) / cv::countNonZero(visible),
            100.0 * cv::countNonZero(wrong) / cv::countNonZero(known)};
}

// OpenCV's matcher at full size, its gaps filled as the engine's are. The border is repeated to the
// left, because the matcher skips columns whose search range leaves the image.
cv::Mat PlainMatching(const StereoPair& pair, int block) {
    constexpr int kRange = 128;
    cv::Mat main, aux;
    cv::copyMakeBorder(LumaOf(pair.main), main, 0, 0, kRange, 0, cv::BORDER_REPLICATE);
    cv::copyMakeBorder(LumaOf(pair.aux), aux, 0, 0, kRange, 0, cv::BORDER_REPLICATE);
    const auto matcher =
        cv::StereoSGBM::create(0, kRange, block, 8 * block * block, 32 * block * block, 1, 63, 10,
                               100, 2, cv::StereoSGBM::MODE_HH);
    cv::Mat fixed;
    matcher->compute(main, aux, fixed);
    fixed = fixed.colRange(kRange, fixed.cols);
    cv::Mat disparity;
    fixed.convertTo(disparity, CV_32F, 1.0 / int{cv::StereoMatcher::DISP_SCALE});
    cv::Mat chroma, guide;
    cv::resize(ViewOf(pair.main).chroma, chroma, disparity.size(), 0, 0, cv::INTER_NEAREST);
    cv::merge(std::vector{LumaOf(pair.main), chroma}, guide);
    refocus::FillGaps(disparity, disparity >= 0.0f, guide);
    return disparity;
}

RgbImage Darker(const RgbImage& aux) {
    RgbImage result = aux;
    for (std::uint8_t& value : result.bytes) {
        value = cv::saturate_cast<std::uint8_t>(0.7 * value);
    }
    return result;
}

// The picture scaled about its centre and moved down.
RgbImage Misaligned(const RgbImage& aux, double scale, double down) {
    RgbImage result(aux.width, aux.height);
    const cv::Mat from(aux.height, aux.width, CV_8UC3, const_cast<std::uint8_t*>(aux.bytes.data()));
    cv::Mat to(aux.height, aux.width, CV_8UC3, result.bytes.data());
    const double cx = (aux.width - 1) / 2.0;
    const double cy = (aux.height - 1) / 2.0;
    const cv::Matx23d map(scale, 0, cx - scale * cx, 0, scale, cy - scale * cy + down);
    cv::warpAffine(from, to, map, to.size(), cv::INTER_CUBIC, cv::BORDER_REPLICATE);
    return result;
}

Row DegradedRow(const std::string& how, const char* kind, double value, double clean) {
    return {fmt::format("Motorcycle bad-2, {}, {}", how, kind),
            value / clean,
            "x",
            fmt::format("{:.2f} % / clean {:.2f} %", value, clean),
            Row::Better::kLess,
            1.3,
            1.1};
}

} // namespace

cv::Mat ReadNumpyArray(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    // Format 1.0: magic, version, the header's length in two bytes, the header as a Python literal.
    std::array<unsigned char, 10> start{};
    file.read(reinterpret_cast<char*>(start.data()), start.size());
    std::string header(start[8] + start[9] * 256UL, '\0');
    file.read(header.data(), static_cast<std::streamsize>(header.size()));
    const std::regex expected(R"(\{'descr': '<f4', 'fortran_order': False, )"
                              R"('shape': \((\d{1,5}), (\d{1,5})\), \}\s*)");
    std::smatch sizes;
    if (!file || std::memcmp(start.data(), "\x93NUMPY\1\0", 8) != 0 ||
        !std::regex_match(header, sizes, expected)) {
        Refuse(path.string(), "a NumPy array of 32-bit floats in two dimensions", "another");
    }
    cv::Mat values(std::stoi(sizes[1]), std::stoi(sizes[2]), CV_32FC1);
    file.read(reinterpret_cast<char*>(values.data),
              static_cast<std::streamsize>(values.total() * sizeof(float)));
    if (!file) {
        Refuse(path.string(), fmt::format("{}x{} values", values.rows, values.cols), "fewer");
    }
    return values;
}

std::vector<Row> MotorcycleRows(const std::filesystem::path& folder,
                                const PictureFolder& pictures) {
    const RgbImage left = ReadImageFile(folder / "motorcycle_left.png");
    const RgbImage right = ReadImageFile(folder / "motorcycle_right.png");
    cv::Mat truth = ReadNumpyArray(folder / "motorcycle_disp.npy");
    if (truth.cols != left.width || truth.rows != left.height) {
        Refuse(folder.string(), fmt::format("a ground truth of {}x{}", left.width, left.height),
               fmt::format("{}x{}", truth.cols, truth.rows));
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
    const BadShare clean = measure("clean");
    BadShare plain{100.0, 100.0}; // by the block size that suits the matcher best
    for (const int block : {1, 3, 5, 7, 9}) {
        const BadShare bad = BadPixels(PlainMatching(pair, block), truth, visible);
        plain = {std::min(plain.visible, bad.visible), std::min(plain.all, bad.all)};
    }
    const auto beside = [](double percent) {
        return fmt::format("OpenCV's 8-way matching, best block, filled: {:.2f} %", percent);
    };
    std::vector<Row> rows{{"Motorcycle bad-2, non-occluded", clean.visible, "%",
                           beside(plain.visible), Row::Better::kLess, 3.0, 2.5},
                          {"Motorcycle bad-2, all pixels", clean.all, "%", beside(plain.all),
                           Row::Better::kLess, 6.0, 5.5}};

    const std::pair<const char*, RgbImage> degraded[] = {
        {"gain 0.7", Darker(right)},
        {"2 px down", Misaligned(right, 1.0, 2.0)},
        {"scale 1.02", Misaligned(right, 1.02, 0.0)}};
    for (const auto& [how, picture] : degraded) {
        pair.aux = RgbToNv12(picture, 0);
        const BadShare bad = measure(how);
        rows.push_back(DegradedRow(how, "non-occluded", bad.visible, clean.visible));
        rows.push_back(DegradedRow(how, "all", bad.all, clean.all));
    }
    return rows;
}

} // namespace quality

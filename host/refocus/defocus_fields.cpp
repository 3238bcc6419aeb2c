#include "host/refocus/defocus_fields.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "host/refocus/colour.h"
#include "host/refocus/highlights.h"
#include "host/refocus/image_memory.h"

namespace refocus {
namespace {

// Sums over consecutive pixels of one disparity value. They are whole numbers, and a field's weight
// is applied once for all of them: most rows of a cell are a single run.
struct Run {
    int pixels = 0;
    int luma = 0;
    int u = 0;
    int v = 0;
    int clipped = 0;
    float light = 0.0f; // linear light of the luma

    void Add(std::uint8_t y, cv::Vec2b uv, float linear) {
        ++pixels;
        luma += y;
        u += uv[0];
        v += uv[1];
        clipped += y >= kClippedLuma ? 1 : 0;
        light += linear;
    }
};

// Sums over the pixels of one field in one cell.
struct Sum {
    float weight = 0.0f;
    float luma = 0.0f;
    float u = 0.0f;
    float v = 0.0f;
    float light = 0.0f; // linear light of the luma
    float radius = 0.0f;
    float value = 0.0f;
    float clipped = 0.0f;

    void Add(const Run& run, float share, float discRadius, float disparity) {
        const float all = share * static_cast<float>(run.pixels);
        weight += all;
        luma += share * static_cast<float>(run.luma);
        u += share * static_cast<float>(run.u);
        v += share * static_cast<float>(run.v);
        light += share * run.light;
        radius += all * discRadius;
        value += all * disparity;
        clipped += share * static_cast<float>(run.clipped);
    }
};

// The fields that a pixel contributes to, by its disparity value.
struct FieldWeights {
    std::array<float, 256> side{};  // weight in the far or near field
    std::array<float, 256> sharp{}; // weight among what is in focus
    std::array<std::uint8_t, 256> near{};
};

FieldWeights MakeFieldWeights(const BlurTable& table) {
    FieldWeights weights;
    for (std::size_t value = 0; value < 256; ++value) {
        weights.near[value] = table.radius[value] > 0.0f;
        // A pixel hardly nearer than the focus belongs to the near field by its share alone,
        // because the near field covers what lies behind it. The far field covers nothing.
        const bool far = table.far[value] > 0.0f;
        weights.side[value] = far ? 1.0f : table.near[value];
        weights.sharp[value] = far ? 0.0f : 1.0f - table.near[value];
    }
    return weights;
}

DefocusField NewField(cv::Size size) {
    return {NewImage(size, CV_32FC3), NewImage(size, CV_32FC1), NewImage(size, CV_32FC1),
            NewImage(size, CV_8UC1), NewImage(size, CV_8UC1)};
}

// Linear RGB with the hue of the mean code values and the brightness of the mean light. Converting
// every pixel to linear RGB would cost more. Black for an empty sum.
cv::Vec3f MeanLight(const Sum& sum) {
    if (sum.weight <= 0.0f) {
        return {};
    }
    const float scale = 1.0f / sum.weight;
    const cv::Vec3f light = LightOf(sum.luma * scale, sum.u * scale, sum.v * scale);
    const float mean = LightOf(sum.luma * scale, 128.0f, 128.0f)[0];
    return light * (mean > 0.0f ? sum.light * scale / mean : 1.0f);
}

void Store(const Sum& sum, float pixels, int cell, cv::Point at, DefocusField& field) {
    const float scale = sum.weight > 0.0f ? 1.0f / sum.weight : 0.0f;
    field.light.at<cv::Vec3f>(at) = MeanLight(sum);
    field.weight.at<float>(at) = sum.weight / pixels;
    // Means of cells, interpolated, are blurred like by a disc of this radius already.
    const float ownBlur = static_cast<float>(cell * cell - 1);
    const float radius = sum.radius * scale;
    field.radius.at<float>(at) =
        std::sqrt(std::max(0.0f, radius * radius - ownBlur)) / static_cast<float>(cell);
    field.order.at<std::uint8_t>(at) = static_cast<std::uint8_t>(sum.value * scale + 0.5f);
    field.clipped.at<std::uint8_t>(at) =
        static_cast<std::uint8_t>(255.0f * sum.clipped * scale + 0.5f);
}

class Splitter {
public:
    Splitter(const Nv12View& image, const cv::Mat& map, const cv::Mat& grown,
             const BlurTable& table, int cell)
        : image_(image), map_(map), grown_(grown), table_(table), cell_(cell),
          weights_(MakeFieldWeights(table)) {}

    void SplitRow(int row, DefocusFields& fields) {
        const int bottom = std::min(image_.luma.rows, (row + 1) * cell_);
        sums_.assign(static_cast<std::size_t>(fields.sharpWeight.cols), {});
        for (int y = row * cell_; y < bottom; ++y) {
            AddPixels(y);
        }
        for (int x = 0; x < fields.sharpWeight.cols; ++x) {
            const CellSums& sums = sums_[static_cast<std::size_t>(x)];
            const int right = std::min(image_.luma.cols, (x + 1) * cell_);
            const auto pixels = static_cast<float>((bottom - row * cell_) * (right - x * cell_));
            Store(sums.side[0], pixels, cell_, {x, row}, fields.far);
            Store(sums.side[1], pixels, cell_, {x, row}, fields.near);
            fields.sharpLight.at<cv::Vec3f>(row, x) = MeanLight(sums.sharp);
            fields.sharpWeight.at<float>(row, x) = sums.sharp.weight / pixels;
        }
    }

private:
    struct CellSums {
        std::array<Sum, 2> side; // far, near
        Sum sharp;
    };

    void AddPixels(int y) {
        const float* light = LightOfCodes();
        const std::uint8_t* luma = image_.luma.ptr<std::uint8_t>(y);
        const std::uint8_t* values = map_.ptr<std::uint8_t>(y);
        const std::uint8_t* grown = grown_.ptr<std::uint8_t>(y);
        const auto* chroma = image_.chroma.ptr<cv::Vec2b>(std::min(y / 2, image_.chroma.rows - 1));
        int x = 0;
        for (CellSums& sums : sums_) {
            const int end = std::min(image_.luma.cols, x + cell_);
            while (x < end) {
                const std::size_t value = values[x];
                const bool near = weights_.near[value] != 0;
                Run run;
                for (; x < end && values[x] == value; ++x) {
                    if (near || weights_.near[grown[x]] == 0) {
                        run.Add(luma[x], chroma[std::min(x / 2, image_.chroma.cols - 1)],
                                light[luma[x]]);
                    }
                }
                if (const float weight = weights_.side[value]; weight > 0.0f) {
                    sums.side[near ? 1 : 0].Add(run, weight, std::abs(table_.radius[value]),
                                                static_cast<float>(value));
                }
                if (const float weight = weights_.sharp[value]; weight > 0.0f) {
                    sums.sharp.Add(run, weight, 0.0f, 0.0f);
                }
            }
        }
    }

    const Nv12View& image_;
    const cv::Mat& map_;
    const cv::Mat& grown_;
    const BlurTable& table_;
    int cell_;
    FieldWeights weights_;
    std::vector<CellSums> sums_;
};

} // namespace

cv::Mat GrowNear(const cv::Mat& map, const BlurTable& table, int radius) {
    // Below a much smaller disc the outline is hardly seen, and its background would be missed
    // more.
    const float minRadius = 7.0f * static_cast<float>(radius);
    const auto first = std::find_if(table.radius.begin(), table.radius.end(),
                                    [minRadius](float disc) { return disc > minRadius; });
    if (first == table.radius.end()) {
        return map;
    }
    const double least = static_cast<double>(first - table.radius.begin()) - 0.5;
    const cv::Mat window = cv::Mat::ones(2 * radius + 1, 2 * radius + 1, CV_8U);
    cv::Mat grown = NewImage(map.size(), CV_8UC1);
    ForEachStripe(map.rows, [&](const cv::Range& rows) {
        const cv::Range read(std::max(0, rows.start - radius),
                             std::min(map.rows, rows.end + radius));
        cv::Mat near;
        cv::Mat target = grown.rowRange(rows);
        cv::threshold(map.rowRange(read), near, least, 0, cv::THRESH_TOZERO);
        if (cv::countNonZero(near) == 0) {
            map.rowRange(rows).copyTo(target);
            return;
        }
        cv::dilate(near, near, window);
        cv::max(near.rowRange(rows.start - read.start, rows.end - read.start), map.rowRange(rows),
                target);
    });
    return grown;
}

DefocusFields SplitFields(const Nv12View& image, const cv::Mat& map, const cv::Mat& grown,
                          const BlurTable& table, int cell) {
    const cv::Size size((image.luma.cols + cell - 1) / cell, (image.luma.rows + cell - 1) / cell);
    DefocusFields fields{NewField(size), NewField(size), NewImage(size, CV_32FC3),
                         NewImage(size, CV_32FC1)};
    cv::parallel_for_(cv::Range(0, size.height), [&](const cv::Range& range) {
        Splitter splitter(image, map, grown, table, cell);
        for (int row = range.start; row < range.end; ++row) {
            splitter.SplitRow(row, fields);
        }
    });
    return fields;
}

} // namespace refocus

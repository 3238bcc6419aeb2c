#include "host/refocus/defocus_fields.h"

#include <algorithm>
#include <cmath>

#include "host/refocus/colour.h"

namespace refocus {
namespace {

struct Sum {
    cv::Vec3f light{};
    float weight = 0.0f;
    float radius = 0.0f;
    float order = 0.0f;

    void Add(const cv::Vec3f& pixel, float share, float pixelRadius, int value) {
        light += share * pixel;
        weight += share;
        radius += share * pixelRadius;
        order += share * static_cast<float>(value);
    }
};

DefocusField EmptyField(cv::Size size) {
    return {cv::Mat::zeros(size, CV_32FC3), cv::Mat::zeros(size, CV_32FC1),
            cv::Mat::zeros(size, CV_32FC1), cv::Mat::zeros(size, CV_8UC1)};
}

void Store(const Sum& sum, float pixels, int cell, cv::Point at, DefocusField& field) {
    if (sum.weight <= 0.0f) {
        return;
    }
    field.light.at<cv::Vec3f>(at) = sum.light / sum.weight;
    field.weight.at<float>(at) = sum.weight / pixels;
    field.radius.at<float>(at) = sum.radius / sum.weight / static_cast<float>(cell);
    field.order.at<std::uint8_t>(at) = static_cast<std::uint8_t>(sum.order / sum.weight + 0.5f);
}

void SplitCell(const Nv12View& image, const cv::Mat& map, const BlurTable& table, int cell,
               cv::Point at, DefocusFields& fields) {
    Sum far, near, sharp;
    const int bottom = std::min(image.luma.rows, (at.y + 1) * cell);
    const int right = std::min(image.luma.cols, (at.x + 1) * cell);
    for (int y = at.y * cell; y < bottom; ++y) {
        const std::uint8_t* luma = image.luma.ptr<std::uint8_t>(y);
        const std::uint8_t* values = map.ptr<std::uint8_t>(y);
        const auto* chroma = image.chroma.ptr<cv::Vec2b>(std::min(y / 2, image.chroma.rows - 1));
        for (int x = at.x * cell; x < right; ++x) {
            const cv::Vec2b& uv = chroma[std::min(x / 2, image.chroma.cols - 1)];
            const cv::Vec3f light = LightOf(luma[x], uv[0], uv[1]);
            const std::size_t value = values[x];
            const float radius = std::abs(table.radius[value]);
            if (table.far[value] > 0.0f) {
                far.Add(light, 1.0f, radius, values[x]);
            } else {
                // What is barely nearer than the focus is near field by its share only.
                const float share = table.near[value];
                near.Add(light, share, radius, values[x]);
                sharp.Add(light, 1.0f - share, 0.0f, 0);
            }
        }
    }
    const auto pixels = static_cast<float>((bottom - at.y * cell) * (right - at.x * cell));
    Store(far, pixels, cell, at, fields.far);
    Store(near, pixels, cell, at, fields.near);
    if (sharp.weight > 0.0f) {
        fields.sharpLight.at<cv::Vec3f>(at) = sharp.light / sharp.weight;
        fields.sharpWeight.at<float>(at) = sharp.weight / pixels;
    }
}

} // namespace

DefocusFields SplitFields(const Nv12View& image, const cv::Mat& map, const BlurTable& table,
                          int cell) {
    const cv::Size size((image.luma.cols + cell - 1) / cell, (image.luma.rows + cell - 1) / cell);
    DefocusFields fields{EmptyField(size), EmptyField(size), cv::Mat::zeros(size, CV_32FC3),
                         cv::Mat::zeros(size, CV_32FC1)};
    cv::parallel_for_(cv::Range(0, size.height), [&](const cv::Range& range) {
        for (int y = range.start; y < range.end; ++y) {
            for (int x = 0; x < size.width; ++x) {
                SplitCell(image, map, table, cell, {x, y}, fields);
            }
        }
    });
    return fields;
}

} // namespace refocus

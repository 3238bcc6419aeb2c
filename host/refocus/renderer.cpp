#include "host/refocus/renderer.h"

#include "host/refocus/circle_of_confusion.h"
#include "host/refocus/colour.h"
#include "host/refocus/composition.h"
#include "host/refocus/defocus_fields.h"
#include "host/refocus/disc_scatter.h"
#include "host/refocus/push_pull.h"

namespace refocus {
namespace {

constexpr int kRenderingWidth = 1000;

// Everything but the near field: blurred far field and what is in focus, by their shares of a cell.
cv::Mat BehindNear(const DefocusFields& fields, const cv::Mat& far) {
    cv::Mat light(far.size(), CV_32FC3);
    cv::Mat weight(far.size(), CV_32FC1);
    for (int y = 0; y < far.rows; ++y) {
        const auto* blurred = far.ptr<cv::Vec3f>(y);
        const auto* sharp = fields.sharpLight.ptr<cv::Vec3f>(y);
        const auto* blurredWeight = fields.far.weight.ptr<float>(y);
        const auto* sharpWeight = fields.sharpWeight.ptr<float>(y);
        for (int x = 0; x < far.cols; ++x) {
            const float sum = blurredWeight[x] + sharpWeight[x];
            const float share = sum > 0.0f ? sharpWeight[x] / sum : 0.0f;
            light.at<cv::Vec3f>(y, x) = blurred[x] + share * (sharp[x] - blurred[x]);
            weight.at<float>(y, x) = sum;
        }
    }
    return PushPull(light, weight);
}

} // namespace

void RenderBokeh(const Nv12View& input, const cv::Mat& map, const DisparityScale& scale,
                 int focusValue, int intensity, Nv12View& output) {
    if (intensity == 0) {
        return;
    }
    const int cell = ReductionFactor(input.luma.cols, kRenderingWidth);
    const BlurTable table = MakeBlurTable(scale, focusValue, intensity, input.luma.cols, cell);
    const DefocusFields fields = SplitFields(input, map, table, cell);
    const BlurredField far = ScatterDiscs(fields.far);
    const BlurredField near = ScatterDiscs(fields.near);
    const cv::Mat farLight = PushPull(far.light, far.cover);
    const BlurredLayers layers{ToYuv(farLight), ToYuv(BehindNear(fields, farLight)),
                               ToYuv(PushPull(near.light, near.cover)), near.cover};
    Compose(input, map, table, layers, cell, output);
}

} // namespace refocus

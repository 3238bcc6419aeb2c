#include "host/refocus/renderer.h"

#include "host/refocus/circle_of_confusion.h"
#include "host/refocus/composition.h"
#include "host/refocus/defocus_fields.h"
#include "host/refocus/disc_scatter.h"
#include "host/refocus/highlights.h"
#include "host/refocus/image_memory.h"
#include "host/refocus/matte.h"
#include "host/refocus/push_pull.h"

namespace refocus {
namespace {

constexpr int kRenderingSide = 800; // cells along the longer side, about

// The picture without its near field: the blurred far field and the part in focus, by their shares
// of each cell. What the near field hides is filled in.
cv::Mat BehindNear(const DefocusFields& fields, const cv::Mat& far) {
    cv::Mat light = NewImage(far.size(), CV_32FC3);
    cv::Mat weight = NewImage(far.size(), CV_32FC1);
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

BlurredField Blur(DefocusField& field) {
    RestoreHighlights(field);
    return ScatterDiscs(field);
}

} // namespace

void RenderBokeh(const Nv12View& input, const cv::Mat& map, const DisparityScale& scale,
                 FocusRange focus, int intensity, Nv12View& output, const StepListener& done) {
    if (intensity == 0) {
        return;
    }
    const int cell = ReductionFactor(input.luma.size(), kRenderingSide);
    const BlurTable table = MakeBlurTable(scale, focus, intensity, input.luma.size(), cell);
    cv::Mat whole = WithWholeHighlights(input.luma, map);
    const cv::Mat grown = GrowNear(whole, table, cell);
    done("highlights and near outlines");
    DefocusFields fields = SplitFields(input, whole, grown, table, cell);
    whole.release();
    done("fields");
    const BlurredField near = Blur(fields.near);
    fields.near = {};
    const BlurredField far = Blur(fields.far);
    done("discs");
    const Matte matte = MakeMatte(fields);
    fields.far.light.release();
    done("matte");
    BlurredLayers layers;
    layers.far = PushPull(far.light, far.cover);
    layers.behind = BehindNear(fields, layers.far);
    layers.near = PushPull(near.light, near.cover);
    layers.nearCover = near.cover;
    fields = {};
    done("filling of layers");
    Compose(input, grown, table, layers, matte, cell, output);
    done("composition");
}

} // namespace refocus

#include "host/refocus/renderer.h"

#include <algorithm>

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

// Radii in cells up to which a near pixel counts as a background of nearer objects, and from which
// it does not.
constexpr float kBackgroundDisc = 0.5f;
constexpr float kForegroundDisc = 2.0f;

// The picture without its near field: the blurred far field and the part in focus, by their shares
// of each cell. What the near field hides is filled in. What is hardly nearer than the focus, such
// as a part of a slanted wall, is the background of what lies before it.
cv::Mat BehindNear(const DefocusFields& fields, const cv::Mat& far) {
    cv::Mat light = NewImage(far.size(), CV_32FC3);
    cv::Mat weight = NewImage(far.size(), CV_32FC1);
    ForEachRow(far.rows, [&](int y) {
        for (int x = 0; x < far.cols; ++x) {
            const float fade = (kForegroundDisc - fields.near.radius.at<float>(y, x)) /
                               (kForegroundDisc - kBackgroundDisc);
            const float near = fields.near.weight.at<float>(y, x) * std::clamp(fade, 0.0f, 1.0f);
            const float blurred = fields.far.weight.at<float>(y, x);
            const float sharp = fields.sharpWeight.at<float>(y, x);
            const float sum = blurred + sharp + near;
            const cv::Vec3f all = far.at<cv::Vec3f>(y, x) * blurred +
                                  fields.sharpLight.at<cv::Vec3f>(y, x) * sharp +
                                  fields.near.light.at<cv::Vec3f>(y, x) * near;
            light.at<cv::Vec3f>(y, x) = sum > 0.0f ? all * (1.0f / sum) : cv::Vec3f();
            weight.at<float>(y, x) = sum;
        }
    });
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

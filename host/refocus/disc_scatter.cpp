#include "host/refocus/disc_scatter.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

#include <opencv2/core/hal/intrin.hpp>

#include "host/refocus/image.h"
#include "host/refocus/image_memory.h"

namespace refocus {
namespace {

constexpr int kLayers = 32;
constexpr int kValuesPerLayer = 256 / kLayers;
constexpr float kRadiusSteps = 8.0f;     // radii are rounded to an eighth of a cell
constexpr double kLargestSoftDisc = 6.0; // cells

// A change of the coverage along a row of a disc. Discs are summed by their steps alone, and a
// running sum along each row then gives the coverage, so that the cost of a disc grows with its
// radius rather than its area.
struct Step {
    int column; // from the disc's centre
    float change;
};

struct Disc {
    std::vector<std::vector<Step>> rows; // by distance from the central row, up or down
    float total = 0.0f;                  // coverage of all cells
    int reach() const { return static_cast<int>(rows.size()) - 1; }
};

// Share of a cell at an offset from the centre that lies within the disc. Small discs need soft
// edges for a smooth picture; large ones do without, which keeps their steps few.
float Coverage(double radius, int dx, int dy) {
    const double distance = std::hypot(dx, dy);
    if (radius > kLargestSoftDisc) {
        return distance <= radius ? 1.0f : 0.0f;
    }
    return static_cast<float>(std::clamp(radius + 0.5 - distance, 0.0, 1.0));
}

// Variance of the disc's cells along an axis.
double Variance(double radius) {
    const int reach = static_cast<int>(radius) + 1;
    double sum = 0.0;
    double total = 0.0;
    for (int dy = -reach; dy <= reach; ++dy) {
        for (int dx = -reach; dx <= reach; ++dx) {
            const double share = static_cast<double>(Coverage(radius, dx, dy));
            sum += share * dx * dx;
            total += share;
        }
    }
    return sum / total;
}

// The radius at which a soft disc has the variance of the wanted one, radius^2 / 4. Its edges,
// being a cell wide, would otherwise widen it, a small one by a quarter.
double SoftRadius(double wanted) {
    if (wanted > kLargestSoftDisc) {
        return wanted;
    }
    double low = 0.0;
    double high = wanted + 0.5;
    for (int i = 0; i < 20; ++i) {
        const double middle = (low + high) / 2.0;
        (Variance(middle) < wanted * wanted / 4.0 ? low : high) = middle;
    }
    return high;
}

Disc MakeDisc(double wanted) {
    const double radius = SoftRadius(wanted);
    Disc disc;
    const int reach = std::max(0, static_cast<int>(std::ceil(radius + 0.5)) - 1);
    for (int dy = 0; dy <= reach; ++dy) {
        std::vector<Step> steps;
        float before = 0.0f;
        for (int dx = -reach; dx <= reach + 1; ++dx) {
            const float share = dx <= reach ? Coverage(radius, dx, dy) : 0.0f;
            if (share != before) {
                steps.push_back({dx, share - before});
            }
            disc.total += share * (dy == 0 ? 1.0f : 2.0f);
            before = share;
        }
        if (!steps.empty()) {
            disc.rows.push_back(steps);
        }
    }
    return disc;
}

std::vector<Disc> MakeDiscs(int count) {
    std::vector<Disc> discs;
    discs.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        discs.push_back(MakeDisc(i / static_cast<double>(kRadiusSteps)));
    }
    return discs;
}

// Consecutive cells of one row and layer with equal discs. Columns beyond the border are copies of
// cells within, and spans of their own.
struct Span {
    int begin; // column
    int count;
    std::uint16_t shape;
};

// The cells of one row and layer whose discs touch the picture, mirrored cells included.
struct Run {
    std::vector<Span> spans;
    int reach = 0; // rows that the largest of their discs extends up and down

    void Add(int column, std::uint16_t shape, bool repeated) {
        const bool joins = !repeated && !spans.empty() && spans.back().shape == shape &&
                           spans.back().begin >= 0 &&
                           spans.back().begin + spans.back().count == column;
        if (joins) {
            ++spans.back().count;
        } else {
            spans.push_back({column, 1, shape});
        }
    }
};

// All cells of a field with any weight, by row and layer.
class Sources {
public:
    explicit Sources(const DefocusField& field)
        : rows_(field.weight.rows), light_(NewImage(field.weight.size(), CV_32FC4)),
          shape_(NewImage(field.weight.size(), CV_16UC1)) {
        double largest = 0.0;
        cv::minMaxLoc(field.radius, nullptr, &largest);
        discs_ = MakeDiscs(static_cast<int>(largest * static_cast<double>(kRadiusSteps)) + 2);
        reach_ = discs_.back().reach();
        runs_.resize(static_cast<std::size_t>(rows_) * kLayers);
        ForEachRow(rows_, [&](int y) {
            StoreLight(field, y);
            AssignToLayers(field, y);
        });
    }

    int reach() const { return reach_; }

    // Rows beyond the border mirror those within.
    int RowOf(int row) const { return cv::borderInterpolate(row, rows_, cv::BORDER_REFLECT); }
    const Run& At(int row, int layer) const { return runs_[Index(RowOf(row), layer)]; }
    // A cell's RGB times weight, and its weight, divided by its disc's total coverage.
    const cv::Vec4f* Light(int row) const { return light_.ptr<cv::Vec4f>(RowOf(row)); }
    const Disc& disc(std::uint16_t shape) const { return discs_[shape]; }

private:
    static std::size_t Index(int row, int layer) {
        return static_cast<std::size_t>(row) * kLayers + static_cast<std::size_t>(layer);
    }

    void StoreLight(const DefocusField& field, int y) {
        const auto* light = field.light.ptr<cv::Vec3f>(y);
        const auto* weight = field.weight.ptr<float>(y);
        const auto* radius = field.radius.ptr<float>(y);
        for (int x = 0; x < field.weight.cols; ++x) {
            const auto shape = static_cast<std::uint16_t>(radius[x] * kRadiusSteps + 0.5f);
            const float share = weight[x] / discs_[shape].total;
            shape_.at<std::uint16_t>(y, x) = shape;
            light_.at<cv::Vec4f>(y, x) = {light[x][0] * share, light[x][1] * share,
                                          light[x][2] * share, share};
        }
    }

    void AssignToLayers(const DefocusField& field, int y) {
        const int width = field.weight.cols;
        const auto* weight = field.weight.ptr<float>(y);
        const auto* order = field.order.ptr<std::uint8_t>(y);
        for (int x = -reach_; x < width + reach_; ++x) {
            const int i = cv::borderInterpolate(x, width, cv::BORDER_REFLECT);
            const int reach = discs_[shape_.at<std::uint16_t>(y, i)].reach();
            if (weight[i] > 0.0f && x + reach >= 0 && x - reach < width) {
                Run& run = runs_[Index(y, order[i] / kValuesPerLayer)];
                run.Add(x, shape_.at<std::uint16_t>(y, i), i != x);
                run.reach = std::max(run.reach, reach);
            }
        }
    }

    int rows_;
    int reach_ = 0;
    cv::Mat light_;
    cv::Mat shape_;
    std::vector<Disc> discs_;
    std::vector<Run> runs_;
};

// Adds a change of the coverage by the disc of each cell of a span. `steps` has one element more
// than the row; what lies beyond the picture is added at its ends.
void AddStep(const cv::Vec4f* light, const Span& span, const Step& step,
             std::vector<cv::Vec4f>& steps) {
    const int width = static_cast<int>(steps.size()) - 1;
    const int to = span.begin + step.column;
    const bool mirrored = span.begin < 0 || span.begin >= width;
    if (mirrored || to < 0 || to + span.count > width + 1) {
        for (int i = 0; i < span.count; ++i) {
            const int cell = cv::borderInterpolate(span.begin + i, width, cv::BORDER_REFLECT);
            steps[static_cast<std::size_t>(std::clamp(to + i, 0, width))] +=
                light[cell] * step.change;
        }
        return;
    }
    const float* from = light[span.begin].val;
    float* target = steps[static_cast<std::size_t>(to)].val;
    const cv::v_float32x4 change = cv::v_setall_f32(step.change);
    for (int i = 0; i < 4 * span.count; i += 4) {
        cv::v_store(target + i, cv::v_load(target + i) + cv::v_load(from + i) * change);
    }
}

// Adds the steps of all discs of a layer that touch a row. False where none does.
bool AddSteps(const Sources& sources, int row, int layer, std::vector<cv::Vec4f>& steps) {
    bool any = false;
    for (int dy = -sources.reach(); dy <= sources.reach(); ++dy) {
        const Run& run = sources.At(row + dy, layer);
        const auto distance = static_cast<std::size_t>(std::abs(dy));
        if (run.spans.empty() || std::abs(dy) > run.reach) {
            continue;
        }
        const cv::Vec4f* light = sources.Light(row + dy);
        for (const Span& span : run.spans) {
            const Disc& disc = sources.disc(span.shape);
            if (distance >= disc.rows.size()) {
                continue;
            }
            for (const Step& step : disc.rows[distance]) {
                AddStep(light, span, step, steps);
            }
            any = true;
        }
    }
    return any;
}

void ScatterRow(const Sources& sources, int row, BlurredField& result) {
    auto* light = result.light.ptr<cv::Vec3f>(row);
    float* cover = result.cover.ptr<float>(row);
    const int width = result.cover.cols;
    std::fill_n(light, width, cv::Vec3f());
    std::fill_n(cover, width, 0.0f);
    std::vector<cv::Vec4f> steps(static_cast<std::size_t>(width) + 1);
    constexpr float kMinShare = 1e-3f; // above the rounding error that ended discs leave in the sum
    for (int layer = kLayers - 1; layer >= 0; --layer) {
        if (!AddSteps(sources, row, layer, steps)) {
            continue;
        }
        cv::Vec4f sum{};
        for (int x = 0; x < width; ++x) {
            sum += steps[static_cast<std::size_t>(x)];
            const float share = std::min(sum[3], 1.0f - cover[x]);
            if (share > kMinShare) {
                const float scale = share / sum[3];
                light[x] += cv::Vec3f(sum[0], sum[1], sum[2]) * scale;
                cover[x] += share;
            }
        }
        std::fill(steps.begin(), steps.end(), cv::Vec4f{});
    }
    for (int x = 0; x < width; ++x) {
        if (cover[x] > 0.0f) {
            light[x] *= 1.0f / cover[x];
        }
    }
}

} // namespace

BlurredField ScatterDiscs(const DefocusField& field) {
    BlurredField result{NewImage(field.weight.size(), CV_32FC3),
                        NewImage(field.weight.size(), CV_32FC1)};
    if (cv::countNonZero(field.weight) == 0) {
        result.light.setTo(0);
        result.cover.setTo(0);
        return result;
    }
    const Sources sources(field);
    ForEachRow(result.cover.rows, [&](int row) { ScatterRow(sources, row, result); });
    return result;
}

} // namespace refocus

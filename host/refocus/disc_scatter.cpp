#include "host/refocus/disc_scatter.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

namespace refocus {
namespace {

constexpr int kLayers = 32;
constexpr int kValuesPerLayer = 256 / kLayers;
constexpr float kRadiusSteps = 4.0f; // disc shapes per cell of radius

// A disc as one run of cells per row, half[0] being the middle row's cells to each side.
struct Disc {
    std::vector<int> half;
    float share = 0.0f; // of the disc's light that each of its cells gets
};

std::vector<Disc> MakeDiscs(int count) {
    std::vector<Disc> discs(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        Disc& disc = discs[static_cast<std::size_t>(i)];
        const double radius = i / static_cast<double>(kRadiusSteps);
        int area = 0;
        for (int dy = 0; dy <= static_cast<int>(radius); ++dy) {
            disc.half.push_back(static_cast<int>(std::sqrt(radius * radius - dy * dy)));
            area += (2 * disc.half.back() + 1) * (dy == 0 ? 1 : 2);
        }
        disc.share = 1.0f / static_cast<float>(area);
    }
    return discs;
}

struct Source {
    int x;
    const Disc* disc;
    cv::Vec4f light; // RGB times weight, and weight, per cell of the disc
};

// One layer's cells of one row.
struct Run {
    std::vector<Source> sources;
    int reach = 0; // rows
};

// All cells with any weight, by row and layer.
class Sources {
public:
    explicit Sources(const DefocusField& field) : rows_(field.weight.rows) {
        double largest = 0.0;
        cv::minMaxLoc(field.radius, nullptr, &largest);
        reach_ = static_cast<int>(std::ceil(largest)) + 1;
        discs_ = MakeDiscs(static_cast<int>(largest * kRadiusSteps) + 2);
        runs_.resize(static_cast<std::size_t>(rows_) * kLayers);
        for (int y = 0; y < rows_; ++y) {
            AddRow(field, y);
        }
    }

    int reach() const { return reach_; }

    // Rows beyond the border are the border's.
    const Run& At(int row, int layer) const {
        return runs_[Index(std::clamp(row, 0, rows_ - 1), layer)];
    }

private:
    static std::size_t Index(int row, int layer) {
        return static_cast<std::size_t>(row) * kLayers + static_cast<std::size_t>(layer);
    }

    void AddRow(const DefocusField& field, int y) {
        const int width = field.weight.cols;
        const auto* light = field.light.ptr<cv::Vec3f>(y);
        const auto* weight = field.weight.ptr<float>(y);
        const auto* radius = field.radius.ptr<float>(y);
        const auto* order = field.order.ptr<std::uint8_t>(y);
        for (int x = -reach_; x < width + reach_; ++x) {
            const int i = std::clamp(x, 0, width - 1);
            if (weight[i] <= 0.0f) {
                continue;
            }
            const auto shape = static_cast<std::size_t>(radius[i] * kRadiusSteps + 0.5f);
            const Disc& disc = discs_[shape];
            if (x + disc.half[0] < 0 || x - disc.half[0] >= width) {
                continue;
            }
            const float share = weight[i] * disc.share;
            Run& run = runs_[Index(y, order[i] / kValuesPerLayer)];
            run.sources.push_back(
                {x, &disc, {light[i][0] * share, light[i][1] * share, light[i][2] * share, share}});
            run.reach = std::max(run.reach, static_cast<int>(disc.half.size()) - 1);
        }
    }

    int rows_;
    int reach_ = 0;
    std::vector<Disc> discs_;
    std::vector<Run> runs_;
};

// Sums one layer over one row: every disc adds where its run begins and takes away where it ends;
// `steps` has one cell more than the row. False where no disc of the layer touches the row.
bool AddSteps(const Sources& sources, int row, int layer, std::vector<cv::Vec4f>& steps) {
    const int width = static_cast<int>(steps.size()) - 1;
    bool any = false;
    for (int dy = -sources.reach(); dy <= sources.reach(); ++dy) {
        const Run& run = sources.At(row + dy, layer);
        const auto distance = static_cast<std::size_t>(std::abs(dy));
        if (run.sources.empty() || std::abs(dy) > run.reach) {
            continue;
        }
        for (const Source& source : run.sources) {
            if (distance >= source.disc->half.size()) {
                continue;
            }
            const int half = source.disc->half[distance];
            const int from = std::clamp(source.x - half, 0, width);
            const int to = std::clamp(source.x + half + 1, 0, width);
            steps[static_cast<std::size_t>(from)] += source.light;
            steps[static_cast<std::size_t>(to)] -= source.light;
            any = true;
        }
    }
    return any;
}

void ScatterRow(const Sources& sources, int row, BlurredField& result) {
    auto* light = result.light.ptr<cv::Vec3f>(row);
    float* cover = result.cover.ptr<float>(row);
    const int width = result.cover.cols;
    std::vector<cv::Vec4f> steps(static_cast<std::size_t>(width) + 1);
    constexpr float kNothing = 1e-3f; // more than rounding leaves of discs that have ended
    for (int layer = kLayers - 1; layer >= 0; --layer) {
        if (!AddSteps(sources, row, layer, steps)) {
            continue;
        }
        cv::Vec4f sum{};
        for (int x = 0; x < width; ++x) {
            sum += steps[static_cast<std::size_t>(x)];
            const float share = std::min(sum[3], 1.0f - cover[x]);
            if (share > kNothing) {
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
    BlurredField result{cv::Mat::zeros(field.weight.size(), CV_32FC3),
                        cv::Mat::zeros(field.weight.size(), CV_32FC1)};
    if (cv::countNonZero(field.weight) == 0) {
        return result;
    }
    const Sources sources(field);
    cv::parallel_for_(cv::Range(0, result.cover.rows), [&](const cv::Range& range) {
        for (int row = range.start; row < range.end; ++row) {
            ScatterRow(sources, row, result);
        }
    });
    return result;
}

} // namespace refocus

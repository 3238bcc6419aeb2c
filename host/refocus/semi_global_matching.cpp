#include "host/refocus/semi_global_matching.h"

#include <opencv2/core/hal/intrin.hpp>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <vector>

#include "host/refocus/image.h"

namespace refocus {
namespace {

// Rows are matched in bands, so that memory does not grow with the image's height and threads share
// nothing. Paths across the rows begin in the halo above or below a band.
constexpr int kBandRows = 96;
constexpr int kHaloRows = 32;

constexpr int kLanes = 16; // disparities that are computed at once

// Costs are 8 bits: the greatest one, 24 bits of census and kMaxDifference, together with the
// greatest penalty stays below 255, the value of disparities outside the range.
constexpr int kCensusRadius = 2; // pixels; 5x5
constexpr int kCensusBytes = 3;  // 24 neighbours
constexpr int kCensusWeight = 4; // of a bit, beside a level of brightness
constexpr std::uint8_t kMaxDifference = 10;
// Penalties of neighbours that differ by one disparity and by more. The latter falls where the
// brightness changes between them, which is where surfaces end.
constexpr std::uint8_t kSmallPenalty = 10;
constexpr int kLargePenalty = 80;
constexpr int kMinLargePenalty = 40;
constexpr int kPenaltyContrast = 12; // levels that halve it

constexpr int kMinLead = 8; // percent by which the best match of a pixel must win

constexpr std::uint8_t kOutside = 255;

using Bytes = std::vector<std::uint8_t>;

// The census bits of a row, one plane for each byte of them; a whole number of lanes.
using CensusRow = std::array<Bytes, kCensusBytes>;

struct Neighbour {
    int dx;
    int dy;
};

constexpr auto kNeighbours = [] {
    std::array<Neighbour, std::size_t{8} * kCensusBytes> neighbours{};
    std::size_t i = 0;
    for (int dy = -kCensusRadius; dy <= kCensusRadius; ++dy) {
        for (int dx = -kCensusRadius; dx <= kCensusRadius; ++dx) {
            if (dx != 0 || dy != 0) {
                neighbours[i++] = {dx, dy};
            }
        }
    }
    return neighbours;
}();

// The image with its border repeated: the census of each pixel has all neighbours, and a row can be
// read in whole lanes.
cv::Mat Padded(const cv::Mat& image) {
    cv::Mat padded;
    cv::copyMakeBorder(image, padded, kCensusRadius, kCensusRadius, kCensusRadius,
                       kCensusRadius + kLanes, cv::BORDER_REPLICATE);
    return padded;
}

// y and the row are those of the image before it was padded.
void ComputeCensus(const cv::Mat& padded, int y, CensusRow& row) {
    for (std::size_t x = 0; x < row[0].size(); x += kLanes) {
        const auto load = [&](int dx, int dy) {
            return cv::v_load(padded.ptr<std::uint8_t>(y + kCensusRadius + dy) + x + kCensusRadius +
                              dx);
        };
        const cv::v_uint8x16 own = load(0, 0);
        for (std::size_t plane = 0; plane < kCensusBytes; ++plane) {
            cv::v_uint8x16 bits = cv::v_setzero_u8();
            for (std::size_t bit = 0; bit < 8; ++bit) {
                const Neighbour at = kNeighbours[8 * plane + bit];
                bits |= (load(at.dx, at.dy) > own) &
                        cv::v_setall_u8(static_cast<std::uint8_t>(1U << bit));
            }
            cv::v_store(&row[plane][x], bits);
        }
    }
}

// The matching costs of one row at a time. A right row is stored back to front and its border
// repeated, so that the candidates of a left pixel lie one after the other.
class RowCosts {
public:
    RowCosts(const cv::Mat& left, const cv::Mat& right, const SearchRange& range)
        : left_(left), right_(right), range_(range), paddedLeft_(Padded(left)),
          paddedRight_(Padded(right)) {
        const auto width =
            static_cast<std::size_t>(cv::alignSize(static_cast<std::size_t>(left.cols), kLanes));
        for (int i = 0; i < kCensusBytes; ++i) {
            leftCensus_[static_cast<std::size_t>(i)].resize(width);
            rightCensus_[static_cast<std::size_t>(i)].resize(width);
        }
    }

    // costs: of x and disparity, range.count for each x.
    void Compute(int y, std::uint8_t* costs) {
        ComputeCensus(paddedLeft_, y, leftCensus_);
        ComputeCensus(paddedRight_, y, rightCensus_);
        for (std::size_t i = 0; i < kCensusBytes; ++i) {
            Reverse(rightCensus_[i].data(), reversedCensus_[i]);
        }
        Reverse(right_.ptr<std::uint8_t>(y), reversedLight_);
        const auto* light = left_.ptr<std::uint8_t>(y);
        for (int x = 0; x < left_.cols; ++x) {
            const auto first = static_cast<std::size_t>(left_.cols - 1 - x);
            for (int i = 0; i < range_.count; i += kLanes, costs += kLanes) {
                const std::size_t at = first + static_cast<std::size_t>(i);
                cv::v_uint8x16 bits = cv::v_setzero_u8();
                for (std::size_t plane = 0; plane < kCensusBytes; ++plane) {
                    const std::uint8_t own = leftCensus_[plane][static_cast<std::size_t>(x)];
                    bits += cv::v_popcount(cv::v_load(&reversedCensus_[plane][at]) ^
                                           cv::v_setall_u8(own));
                }
                static_assert(kCensusWeight == 4);
                bits += bits;
                bits += bits;
                const cv::v_uint8x16 difference =
                    cv::v_absdiff(cv::v_load(&reversedLight_[at]), cv::v_setall_u8(light[x]));
                cv::v_store(costs, bits + cv::v_min(difference, cv::v_setall_u8(kMaxDifference)));
            }
        }
    }

private:
    // Element i becomes that of column cols - 1 - minimum - i, repeated beyond the border.
    void Reverse(const std::uint8_t* row, Bytes& reversed) const {
        const int count = left_.cols + range_.count;
        reversed.resize(static_cast<std::size_t>(count));
        for (int i = 0; i < count; ++i) {
            const int column = left_.cols - 1 - range_.minimum - i;
            reversed[static_cast<std::size_t>(i)] = row[std::clamp(column, 0, left_.cols - 1)];
        }
    }

    const cv::Mat& left_;
    const cv::Mat& right_;
    SearchRange range_;
    cv::Mat paddedLeft_;
    cv::Mat paddedRight_;
    CensusRow leftCensus_, rightCensus_, reversedCensus_;
    Bytes reversedLight_;
};

// The costs of one path up to the pixels of a row.
class PathRow {
public:
    PathRow(int width, int count)
        : stride_(static_cast<std::size_t>(count + 2 * kLanes)),
          costs_(stride_ * static_cast<std::size_t>(width), kOutside),
          least_(static_cast<std::size_t>(width)) {}

    std::uint8_t* At(int x) { return &costs_[stride_ * static_cast<std::size_t>(x) + kLanes]; }
    std::uint8_t& Least(int x) { return least_[static_cast<std::size_t>(x)]; }

private:
    std::size_t stride_; // a disparity outside the range lies before and after those of a pixel
    Bytes costs_;
    Bytes least_; // of all disparities
};

// By the difference in brightness: a division for each step of a path would take too long.
constexpr auto kLargePenalties = [] {
    std::array<std::uint8_t, 256> penalties{};
    for (std::size_t i = 0; i < penalties.size(); ++i) {
        const int fallen =
            kLargePenalty * kPenaltyContrast / (kPenaltyContrast + static_cast<int>(i));
        penalties[i] = static_cast<std::uint8_t>(std::max(kMinLargePenalty, fallen));
    }
    return penalties;
}();

std::uint8_t LargePenalty(std::uint8_t a, std::uint8_t b) {
    return kLargePenalties[static_cast<std::size_t>(std::abs(a - b))];
}

class Band {
public:
    Band(const cv::Mat& left, const cv::Mat& right, const SearchRange& range, cv::Range rows)
        : left_(left), count_(range.count), rows_(rows),
          all_(std::max(0, rows.start - kHaloRows), std::min(left.rows, rows.end + kHaloRows)),
          pixel_(static_cast<std::size_t>(count_)),
          row_(pixel_ * static_cast<std::size_t>(left.cols)),
          costs_(row_ * static_cast<std::size_t>(all_.size())),
          sums_(row_ * static_cast<std::size_t>(rows.size())) {
        RowCosts rowCosts(left, right, range);
        for (int y = all_.start; y < all_.end; ++y) {
            rowCosts.Compute(y, Costs(0, y));
        }
        for (const int dx : {1, -1}) {
            AlongRows(dx);
        }
        for (const int dy : {1, -1}) {
            for (const int dx : {-1, 0, 1}) {
                AcrossRows(dx, dy);
            }
        }
    }

    // Sums of all paths' costs, by x and disparity.
    const std::uint16_t* Sums(int y) const {
        return &sums_[row_ * static_cast<std::size_t>(y - rows_.start)];
    }

private:
    std::uint8_t* Costs(int x, int y) {
        return &costs_[row_ * static_cast<std::size_t>(y - all_.start) +
                       pixel_ * static_cast<std::size_t>(x)];
    }

    // Extends a path by the pixel (x, y). `before` is the previous pixel's costs, `least` their
    // minimum. Returns the minimum of the new ones.
    std::uint8_t Extend(const std::uint8_t* before, std::uint8_t least, std::uint8_t penalty, int x,
                        int y, std::uint8_t* path) {
        const std::uint8_t* cost = Costs(x, y);
        std::uint16_t* sum = nullptr;
        if (y >= rows_.start && y < rows_.end) {
            sum = &sums_[row_ * static_cast<std::size_t>(y - rows_.start) +
                         pixel_ * static_cast<std::size_t>(x)];
        }
        const cv::v_uint8x16 small = cv::v_setall_u8(kSmallPenalty);
        const cv::v_uint8x16 lowest = cv::v_setall_u8(least);
        const cv::v_uint8x16 jump = lowest + cv::v_setall_u8(penalty);
        cv::v_uint8x16 minimum = cv::v_setall_u8(255);
        for (int i = 0; i < count_; i += kLanes) {
            const cv::v_uint8x16 beside =
                cv::v_min(cv::v_load(before + i - 1), cv::v_load(before + i + 1)) + small;
            const cv::v_uint8x16 best =
                cv::v_min(cv::v_min(cv::v_load(before + i), beside), jump) - lowest;
            const cv::v_uint8x16 total = best + cv::v_load(cost + i);
            cv::v_store(path + i, total);
            minimum = cv::v_min(minimum, total);
            if (sum != nullptr) {
                cv::v_uint16x8 low, high;
                cv::v_expand(total, low, high);
                cv::v_store(sum + i, cv::v_load(sum + i) + low);
                cv::v_store(sum + i + kLanes / 2, cv::v_load(sum + i + kLanes / 2) + high);
            }
        }
        return cv::v_reduce_min(minimum);
    }

    void AlongRows(int dx) {
        PathRow path(2, count_); // the previous pixel and the new one, in turn
        for (int y = rows_.start; y < rows_.end; ++y) {
            const auto* light = left_.ptr<std::uint8_t>(y);
            std::fill_n(path.At(0), count_, std::uint8_t{0});
            path.Least(0) = 0;
            int from = 0;
            for (int x = dx > 0 ? 0 : left_.cols - 1; x >= 0 && x < left_.cols; x += dx) {
                const int last = std::clamp(x - dx, 0, left_.cols - 1);
                path.Least(1 - from) =
                    Extend(path.At(from), path.Least(from), LargePenalty(light[x], light[last]), x,
                           y, path.At(1 - from));
                from = 1 - from;
            }
        }
    }

    void AcrossRows(int dx, int dy) {
        PathRow last(left_.cols, count_);
        PathRow next(left_.cols, count_);
        PathRow start(1, count_); // of a path that begins
        std::fill_n(start.At(0), count_, std::uint8_t{0});
        const int first = dy > 0 ? all_.start : all_.end - 1;
        const int end = dy > 0 ? rows_.end : rows_.start - 1;
        for (int y = first; y != end; y += dy) {
            const auto* light = left_.ptr<std::uint8_t>(y);
            const auto* lastLight = left_.ptr<std::uint8_t>(y == first ? y : y - dy);
            for (int x = 0; x < left_.cols; ++x) {
                const int from = x - dx;
                const bool begins = y == first || from < 0 || from >= left_.cols;
                PathRow& before = begins ? start : last;
                const int at = begins ? 0 : from;
                next.Least(x) =
                    Extend(before.At(at), before.Least(at),
                           LargePenalty(light[x], lastLight[begins ? x : from]), x, y, next.At(x));
            }
            std::swap(last, next);
        }
    }

    const cv::Mat& left_;
    int count_;
    cv::Range rows_; // of the band
    cv::Range all_;  // with the halo
    std::size_t pixel_;
    std::size_t row_;
    Bytes costs_;
    std::vector<std::uint16_t> sums_;
};

// Offset of the minimum between three sums by two lines of opposite slopes, which suits costs that
// grow with the distance from their minimum.
float SubpixelMinimum(int before, int least, int after) {
    const int slope = std::max(before, after) - least;
    return slope > 0 ? static_cast<float>(before - after) / static_cast<float>(2 * slope) : 0.0f;
}

// The disparity of the best index, between indices where both neighbours have a cost.
template <typename Cost>
float Refined(int best, int first, int last, int minimum, const Cost& cost) {
    const bool inside = best > first && best < last;
    return static_cast<float>(minimum + best) +
           (inside ? SubpixelMinimum(cost(best - 1), cost(best), cost(best + 1)) : 0.0f);
}

// Finds the least sums of the pixels of a row in both views. The candidates of a right pixel lie
// along a diagonal of the sums; those of all right pixels are compared while the left pixels' are
// read.
class RowMinima {
public:
    RowMinima(int width, const SearchRange& range)
        : width_(width), range_(range), margin_(std::abs(range.minimum)),
          least_(static_cast<std::size_t>(width + range.count + 2 * margin_)),
          index_(least_.size()) {}

    void Store(const std::uint16_t* sums, int y, ViewDisparities& result) {
        std::ranges::fill(least_, kNone);
        for (int x = 0; x < width_; ++x) {
            const std::uint16_t* own = sums + std::ptrdiff_t{x} * range_.count;
            const std::uint16_t least = Compare(own, PlaceOf(x - range_.minimum));
            const int best = static_cast<int>(std::find(own, own + range_.count, least) - own);
            result.left.at<float>(y, x) = IsAmbiguous(own, best)
                                              ? kUnmatched
                                              : Refined(best, 0, range_.count - 1, range_.minimum,
                                                        [own](int i) { return int{own[i]}; });
        }
        for (int x = 0; x < width_; ++x) {
            const auto diagonal = [&](int i) {
                return int{sums[std::ptrdiff_t{x + range_.minimum + i} * range_.count + i]};
            };
            const int first = std::max(0, -range_.minimum - x);
            const int last = std::min(range_.count, width_ - range_.minimum - x) - 1;
            const std::size_t at = PlaceOf(x);
            result.right.at<float>(y, x) =
                least_[at] == kNone ? kUnmatched
                                    : Refined(index_[at], first, last, range_.minimum, diagonal);
        }
    }

private:
    static constexpr int kHalf = kLanes / 2; // sums that are compared at once
    static constexpr std::uint16_t kNone = 0xffff;

    // Right pixels are stored back to front, as the candidates of a left pixel follow each other,
    // and with them those beyond the border.
    std::size_t PlaceOf(int rightX) const {
        const int place = width_ - 1 - rightX + margin_;
        return static_cast<std::size_t>(place);
    }

    // Compares a left pixel's sums with the least ones so far of the right pixels from this place
    // on. Of equal sums the first counts. Returns the left pixel's least sum.
    std::uint16_t Compare(const std::uint16_t* own, std::size_t place) {
        cv::v_uint16x8 minimum = cv::v_setall_u16(kNone);
        cv::v_uint16x8 index(0, 1, 2, 3, 4, 5, 6, 7);
        for (int i = 0; i < range_.count; i += kHalf, place += kHalf) {
            const cv::v_uint16x8 sum = cv::v_load(own + i);
            const cv::v_uint16x8 before = cv::v_load(&least_[place]);
            minimum = cv::v_min(minimum, sum);
            cv::v_store(&least_[place], cv::v_min(before, sum));
            cv::v_store(&index_[place],
                        cv::v_select(sum < before, index, cv::v_load(&index_[place])));
            index += cv::v_setall_u16(kHalf);
        }
        return cv::v_reduce_min(minimum);
    }

    // True if another index than the best one and its neighbours costs hardly more, as within a
    // window pane or along a repetitive texture.
    bool IsAmbiguous(const std::uint16_t* own, int best) const {
        const auto limit = static_cast<std::uint16_t>(((100 + kMinLead) * own[best] + 99) / 100);
        cv::v_uint16x8 below = cv::v_setzero_u16();
        for (int i = 0; i < range_.count; i += kHalf) {
            below += (cv::v_load(own + i) < cv::v_setall_u16(limit)) & cv::v_setall_u16(1);
        }
        int others = static_cast<int>(cv::v_reduce_sum(below));
        for (int i = std::max(0, best - 1); i <= std::min(best + 1, range_.count - 1); ++i) {
            others -= own[i] < limit ? 1 : 0;
        }
        return others > 0;
    }

    int width_;
    SearchRange range_;
    int margin_;
    std::vector<std::uint16_t> least_; // by place; kNone where there is no candidate
    std::vector<std::uint16_t> index_; // of the least
};

} // namespace

ViewDisparities MatchSemiGlobally(const cv::Mat& left, const cv::Mat& right,
                                  const SearchRange& range) {
    ViewDisparities result{cv::Mat(left.size(), CV_32FC1), cv::Mat(left.size(), CV_32FC1)};
    const int bands = (left.rows + kBandRows - 1) / kBandRows;
    ForEachRow(bands, [&](int i) {
        const cv::Range rows(i * kBandRows, std::min(left.rows, (i + 1) * kBandRows));
        const Band band(left, right, range, rows);
        RowMinima minima(left.cols, range);
        for (int y = rows.start; y < rows.end; ++y) {
            minima.Store(band.Sums(y), y, result);
        }
    });
    return result;
}

} // namespace refocus

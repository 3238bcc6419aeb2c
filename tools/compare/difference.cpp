#include "tools/compare/difference.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace {

constexpr int kLongestMapSide = 2000;

// The same plane of two pictures: samples `step` bytes apart, each for a square of `cell` pixels.
struct PlanePair {
    const char* name;
    const std::uint8_t* a;
    const std::uint8_t* b;
    std::ptrdiff_t pitchA;
    std::ptrdiff_t pitchB;
    int columns;
    int rows;
    std::ptrdiff_t step;
    int cell;
};

std::vector<PlanePair> PlanesOf(const host::Image& a, const host::Image& b) {
    std::vector<PlanePair> planes{
        {"Y", a.plane(0), b.plane(0), a.pitch(), b.pitch(), a.width(), a.height(), 1, 1}};
    if (a.format() == host::Image::Format::Nv12) {
        for (const auto& [name, at] : {std::pair("U", 0), std::pair("V", 1)}) {
            planes.push_back({name, a.plane(1) + at, b.plane(1) + at, a.pitch(), b.pitch(),
                              a.rowBytes(1) / 2, a.planeRows(1), 2, 2});
        }
    }
    return planes;
}

std::vector<PlanePair> PlanesOf(const RgbImage& a, const RgbImage& b) {
    std::vector<PlanePair> planes;
    for (const auto& [name, at] : {std::pair("R", 0), std::pair("G", 1), std::pair("B", 2)}) {
        planes.push_back({name, a.bytes.data() + at, b.bytes.data() + at, a.pitch(), b.pitch(),
                          a.width, a.height, 3, 1});
    }
    return planes;
}

struct RowSums {
    std::uint32_t differing = 0;
    std::uint64_t squares = 0;
    int largest = 0;
};

// The step as a constant lets the compiler take many samples at a time.
template <std::ptrdiff_t kStep>
RowSums SumRow(const std::uint8_t* a, const std::uint8_t* b, int columns) {
    RowSums sums;
    std::uint32_t squares = 0; // of 65536 samples at most, whose sum stays within 32 bits
    for (std::ptrdiff_t x = 0; x < columns; ++x) {
        const int difference = a[x * kStep] - b[x * kStep];
        sums.differing += difference != 0 ? 1u : 0u;
        squares += static_cast<std::uint32_t>(difference * difference);
        sums.largest = std::max(sums.largest, std::abs(difference));
    }
    sums.squares = squares;
    return sums;
}

RowSums SumRow(const PlanePair& plane, int row) {
    const std::uint8_t* a = plane.a + row * plane.pitchA;
    const std::uint8_t* b = plane.b + row * plane.pitchB;
    switch (plane.step) {
    case 1:
        return SumRow<1>(a, b, plane.columns);
    case 2:
        return SumRow<2>(a, b, plane.columns);
    default:
        return SumRow<3>(a, b, plane.columns);
    }
}

DifferingPixel FirstInRow(const PlanePair& plane, int row) {
    const std::uint8_t* a = plane.a + row * plane.pitchA;
    const std::uint8_t* b = plane.b + row * plane.pitchB;
    int x = 0;
    while (a[x * plane.step] == b[x * plane.step]) {
        ++x;
    }
    return {x * plane.cell, row * plane.cell, plane.name, a[x * plane.step], b[x * plane.step]};
}

void KeepFirst(PictureDifference& difference, const DifferingPixel& pixel) {
    const auto& first = difference.first;
    if (!first || pixel.y < first->y || (pixel.y == first->y && pixel.x < first->x)) {
        difference.first = pixel;
    }
}

template <typename Picture>
PictureDifference CompareAll(const Picture& a, const Picture& b) {
    PictureDifference difference;
    for (const PlanePair& plane : PlanesOf(a, b)) {
        PlaneDifference result;
        result.plane = plane.name;
        result.samples =
            static_cast<std::uint64_t>(plane.columns) * static_cast<std::uint64_t>(plane.rows);
        std::uint64_t squares = 0;
        for (int row = 0; row < plane.rows; ++row) {
            const RowSums sums = SumRow(plane, row);
            if (sums.differing != 0 && result.differing == 0) {
                KeepFirst(difference, FirstInRow(plane, row));
            }
            result.differing += sums.differing;
            result.largest = std::max(result.largest, sums.largest);
            squares += sums.squares;
        }
        if (squares != 0) {
            const double mean = static_cast<double>(squares) / static_cast<double>(result.samples);
            result.psnr = 10 * std::log10(255.0 * 255.0 / mean);
        }
        difference.planes.push_back(result);
    }
    return difference;
}

template <typename Picture>
NumberMap MapAll(const Picture& a, const Picture& b, int width, int height) {
    const int reduction = (std::max(width, height) + kLongestMapSide - 1) / kLongestMapSide;
    NumberMap map;
    map.width = (width + reduction - 1) / reduction;
    map.height = (height + reduction - 1) / reduction;
    map.unit = "difference";
    map.values.assign(static_cast<std::size_t>(map.width) * static_cast<std::size_t>(map.height),
                      0.0f);
    for (const PlanePair& plane : PlanesOf(a, b)) {
        for (int y = 0; y < height; ++y) {
            const int row = std::min(y / plane.cell, plane.rows - 1);
            const std::uint8_t* rowA = plane.a + row * plane.pitchA;
            const std::uint8_t* rowB = plane.b + row * plane.pitchB;
            float* out = &map.values[static_cast<std::size_t>(y / reduction) *
                                     static_cast<std::size_t>(map.width)];
            for (int x = 0; x < width; ++x) {
                const std::ptrdiff_t at = std::min(x / plane.cell, plane.columns - 1) * plane.step;
                const auto value = static_cast<float>(std::abs(rowA[at] - rowB[at]));
                out[x / reduction] = std::max(out[x / reduction], value);
            }
        }
    }
    std::ranges::replace(map.values, 0.0f, std::numeric_limits<float>::quiet_NaN());
    return map;
}

} // namespace

std::uint64_t PictureDifference::differing() const {
    std::uint64_t count = 0;
    for (const PlaneDifference& plane : planes) {
        count += plane.differing;
    }
    return count;
}

int PictureDifference::largest() const {
    int value = 0;
    for (const PlaneDifference& plane : planes) {
        value = std::max(value, plane.largest);
    }
    return value;
}

PictureDifference Compare(const host::Image& a, const host::Image& b) {
    return CompareAll(a, b);
}

PictureDifference Compare(const RgbImage& a, const RgbImage& b) {
    return CompareAll(a, b);
}

NumberMap DifferenceMap(const host::Image& a, const host::Image& b) {
    return MapAll(a, b, a.width(), a.height());
}

NumberMap DifferenceMap(const RgbImage& a, const RgbImage& b) {
    return MapAll(a, b, a.width, a.height);
}

std::string InWords(const PictureDifference& difference) {
    if (difference.identical()) {
        return "identical\n";
    }
    const DifferingPixel& first = *difference.first;
    std::string text = "first difference at " + std::to_string(first.x) + "," +
                       std::to_string(first.y) + ": " + first.plane + " " +
                       std::to_string(first.a) + ", " + std::to_string(first.b) + "\n";
    for (const PlaneDifference& plane : difference.planes) {
        char line[160];
        if (plane.psnr) {
            std::snprintf(line, sizeof line,
                          "%s: %llu of %llu differ (%.3g %%), by %d at most, PSNR %.2f dB\n",
                          plane.plane.c_str(), static_cast<unsigned long long>(plane.differing),
                          static_cast<unsigned long long>(plane.samples),
                          100.0 * static_cast<double>(plane.differing) /
                              static_cast<double>(plane.samples),
                          plane.largest, *plane.psnr);
        } else {
            std::snprintf(line, sizeof line, "%s: identical\n", plane.plane.c_str());
        }
        text += line;
    }
    return text;
}

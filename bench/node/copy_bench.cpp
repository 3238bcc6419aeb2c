#include <libyuv.h>

#include <cstring>
#include <memory>

#include "bench/node/benchmarks.h"
#include "bench/node/comparison.h"
#include "bench/node/pictures.h"
#include "bench/node/scene.h"
#include "bokehbase/image.h"

namespace bench {
namespace {

constexpr std::size_t kCacheBytes = 32 << 20; // the last one's, of one group of cores

void CopyWithLibyuv(const Pair& pair) {
    for (int plane = 0; plane < 2; ++plane) {
        libyuv::CopyPlane(pair.source.pu8Plane[plane], pair.source.i32Pitch[plane],
                          pair.destination.pu8Plane[plane], pair.destination.i32Pitch[plane],
                          pair.source.i32Width, pair.source.i32Height / (plane + 1));
    }
}

// The plain way, at the mercy of the processor's read-ahead.
void CopyRows(const Pair& pair) {
    for (int plane = 0; plane < 2; ++plane) {
        const std::int32_t rows = pair.source.i32Height / (plane + 1);
        for (std::int32_t row = 0; row < rows; ++row) {
            std::memcpy(RowOf(pair.destination, plane, row), RowOf(pair.source, plane, row),
                        static_cast<std::size_t>(pair.source.i32Width));
        }
    }
}

Comparison CompareCopies(const Shape& shape, std::size_t count, double mostRatio) {
    const auto pairs = std::make_shared<Pairs>(shape, count);
    const auto probe = std::make_shared<Probe>();
    const auto copy = [=](const Pair& pair) { probe->Copy(pair.source, pair.destination); };
    const auto flat = [=] {
        const Pair& pair = pairs->Next();
        std::memcpy(pair.destination.pu8Plane[0], pair.source.pu8Plane[0], shape.PixelBytes());
    };
    return {.measured = {"", [=] { copy(pairs->Next()); }},
            .peers = {{{"flat memcpy", flat}, mostRatio},
                      {{"rows of memcpy", [=] { CopyRows(pairs->Next()); }}},
                      {{"libyuv", [=] { CopyWithLibyuv(pairs->Next()); }}}},
            .works = [=] { return pairs->OutcomeOf(copy) == pairs->OutcomeOf(CopyWithLibyuv); }};
}

} // namespace

void RegisterCopies(const Plan& plan) {
    for (const Shape& shape : plan.shapes) {
        const std::string name = "CopyImageToOutput/" + shape.Name();
        // What stays in the cache is not limited by memory.
        const double warmTarget = 2 * shape.PixelBytes() > kCacheBytes ? 1.05 : 0;
        Register(plan, name + "/warm", [=] { return CompareCopies(shape, 1, warmTarget); });
        Register(plan, name + "/rotating", [=, bytes = plan.rotatingBytes] {
            return CompareCopies(shape, PairsOf(shape, bytes), 1.02);
        });
    }
}

} // namespace bench

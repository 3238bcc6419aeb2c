#include <libyuv.h>

#include <memory>

#include "bench/node/benchmarks.h"
#include "bench/node/comparison.h"
#include "bench/node/pictures.h"
#include "bench/node/scene.h"

namespace bench {
namespace {

// Pairs of chroma bytes. libyuv's own scaler of such pairs, UVScale, takes the same time, but
// without a filter it takes neighbours twice.
std::uint16_t* Items(const PLIM_OFFSCREEN& image) {
    return reinterpret_cast<std::uint16_t*>(image.pu8Plane[1]);
}

void HalveWithLibyuv(const Pair& pair) {
    const PLIM_OFFSCREEN& from = pair.source;
    const PLIM_OFFSCREEN& to = pair.destination;
    const int width = from.i32Width;
    const int height = from.i32Height;
    libyuv::ScalePlane(from.pu8Plane[0], from.i32Pitch[0], width, height, to.pu8Plane[0],
                       to.i32Pitch[0], width / 2, height / 2, libyuv::kFilterNone);
    libyuv::ScalePlane_16(Items(from), from.i32Pitch[1] / 2, width / 2, height / 2, Items(to),
                          to.i32Pitch[1] / 2, width / 4, height / 4, libyuv::kFilterNone);
}

// From the first odd sample on, which is where libyuv begins: then both take the same.
PLIM_OFFSCREEN FromFirstOdd(PLIM_OFFSCREEN image) {
    for (int plane = 0; plane < 2; ++plane) {
        image.pu8Plane[plane] += image.i32Pitch[plane] + plane + 1;
    }
    return image;
}

Comparison CompareMerges(const Shape& shape, std::size_t count) {
    const auto pairs = std::make_shared<Pairs>(shape, count);
    const auto probe = std::make_shared<Probe>();
    const auto merge = [=](Pair pair) { probe->MergeImage(&pair.destination, &pair.source, 2); };
    const auto mergeOdd = [=](const Pair& pair) {
        merge({FromFirstOdd(pair.source), pair.destination});
    };
    return {
        .measured = {"", [=] { merge(pairs->Next()); }},
        .peers = {{{"libyuv", [=] { HalveWithLibyuv(pairs->Next()); }}, 1.0}},
        .works = [=] { return pairs->OutcomeOf(mergeOdd) == pairs->OutcomeOf(HalveWithLibyuv); }};
}

} // namespace

void RegisterMerges(const Plan& plan) {
    for (const Shape& shape : plan.shapes) {
        const std::string name = "MergeImage/half/" + shape.Name();
        Register(plan, name + "/warm", [=] { return CompareMerges(shape, 1); });
        Register(plan, name + "/rotating", [=, bytes = plan.rotatingBytes] {
            return CompareMerges(shape, PairsOf(shape, bytes));
        });
    }
}

} // namespace bench

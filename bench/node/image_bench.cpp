// The two operations that move pixels: the copy to the output and the inset of the debug view.

#include <libyuv.h>

#include <cstring>
#include <memory>

#include "bench/node/comparison.h"
#include "bench/node/scene.h"
#include "bokehbase/image.h"

namespace bench {
namespace {

void CopyWithLibyuv(const Pair& pair) {
    for (int plane = 0; plane < 2; ++plane) {
        libyuv::CopyPlane(pair.source.pu8Plane[plane], pair.source.i32Pitch[plane],
                          pair.destination.pu8Plane[plane], pair.destination.i32Pitch[plane],
                          pair.source.i32Width, pair.source.i32Height / (plane + 1));
    }
}

// Anybody would write this loop: the node must not be slower.
void CopyRows(const Pair& pair) {
    for (int plane = 0; plane < 2; ++plane) {
        const std::int32_t rows = pair.source.i32Height / (plane + 1);
        for (std::int32_t row = 0; row < rows; ++row) {
            std::memcpy(RowOf(pair.destination, plane, row), RowOf(pair.source, plane, row),
                        static_cast<std::size_t>(pair.source.i32Width));
        }
    }
}

Comparison CompareCopies(const Shape& shape, std::size_t count) {
    const auto pairs = std::make_shared<Pairs>(shape, count);
    const auto probe = std::make_shared<Probe>();
    const auto copy = [=](const Pair& pair) { probe->Copy(pair.source, pair.destination); };
    Comparison comparison = {
        .measured = {"", [=] { copy(pairs->Next()); }},
        .peers = {{{"rows of memcpy", [=] { CopyRows(pairs->Next()); }}, 1.02},
                  {{"libyuv", [=] { CopyWithLibyuv(pairs->Next()); }}}},
        .works = [=] { return pairs->OutcomeOf(copy) == pairs->OutcomeOf(CopyWithLibyuv); }};
    if (shape.pitch == shape.width) { // with padding, one block would write what is not an image's
        const auto planes = [=] {
            const Pair& pair = pairs->Next();
            for (int plane = 0; plane < 2; ++plane) {
                std::memcpy(pair.destination.pu8Plane[plane], pair.source.pu8Plane[plane],
                            shape.Bytes() / 3 * (plane == 0 ? 2 : 1));
            }
        };
        // The limit is for what an image promises: each of its planes has an address of its own.
        comparison.peers.push_back({{"flat memcpy of each plane", planes}, 1.02});
        const auto whole = [=] {
            const Pair& pair = pairs->Next();
            std::memcpy(pair.destination.pu8Plane[0], pair.source.pu8Plane[0], shape.Bytes());
        };
        comparison.peers.push_back({{"flat memcpy of both planes", whole}});
    }
    return comparison;
}

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

void RegisterBoth(const Plan& plan, const Shape& shape, const std::string& name,
                  Comparison (*compare)(const Shape&, std::size_t)) {
    const std::size_t pairs = plan.rotatingBytes / (2 * shape.Bytes()) + 1;
    Register(plan, name + shape.Name() + "/warm", [=] { return compare(shape, 1); });
    Register(plan, name + shape.Name() + "/rotating", [=] { return compare(shape, pairs); });
}

} // namespace

void RegisterImages(const Plan& plan) {
    for (const Shape& shape : plan.shapes) {
        RegisterBoth(plan, shape, "CopyImageToOutput/", CompareCopies);
    }
    for (const Shape& shape : plan.shapes) {
        RegisterBoth(plan, shape, "MergeImage/half/", CompareMerges);
    }
}

} // namespace bench

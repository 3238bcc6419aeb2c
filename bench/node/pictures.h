#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "engine/refocus_engine.h"
#include "platform/chi_image.h"

namespace bench {

struct Shape {
    std::int32_t width;
    std::int32_t height;
    std::int32_t pitch;

    std::size_t Bytes() const; // of both planes
    std::string Name() const;  // "4000x3000/pitch4096"
};

// NV12 images, one behind the other as in one buffer of the platform, with seeded noise.
class Pictures {
public:
    Pictures(const Shape& shape, std::size_t count);

    std::uint8_t* Bytes() const { return bytes_.get(); }
    PLIM_OFFSCREEN Image(std::size_t index) const;
    // What `run` makes of an image that was emptied, padding included.
    std::string OutcomeOf(std::size_t index, const std::function<void()>& run) const;
    ChiImageList List(std::size_t index, std::uint32_t portIndex) const;

private:
    struct Release {
        void operator()(std::uint8_t* bytes) const;
    };

    Shape shape_;
    std::unique_ptr<std::uint8_t, Release> bytes_;
};

struct Pair {
    PLIM_OFFSCREEN source;
    PLIM_OFFSCREEN destination;
};

// Pairs of a source and a destination, handed out in turn. One pair is found in the cache, as far
// as it fits, by whoever comes next; enough of them are not.
class Pairs {
public:
    Pairs(const Shape& shape, std::size_t count);

    const Pair& Next();

    // What `run` makes of the first pair's destination, emptied before.
    std::string OutcomeOf(const std::function<void(const Pair&)>& run) const {
        return pictures_.OutcomeOf(1, [&] { run(pairs_[0]); });
    }

private:
    Pictures pictures_;
    std::vector<Pair> pairs_;
    std::size_t next_ = 0;
};

} // namespace bench

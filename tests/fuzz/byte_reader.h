#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>

namespace fuzz {

// Turns a byte stream into choices. Byte 0, which is also what an exhausted stream gives, always
// chooses the usual value: the empty stream is a plain node life, and each byte that is not 0 is
// one thing out of the ordinary.
class ByteReader {
public:
    ByteReader(const std::uint8_t* data, std::size_t size) : next_(data), end_(data + size) {}

    bool empty() const { return next_ == end_; }
    std::uint8_t Byte() { return empty() ? 0 : *next_++; }

    // Any word: the usual one, the edges of both integer types, a neighbour of the usual one, a
    // multiple of it, a small one, or whatever.
    std::uint32_t Word(std::uint32_t usual) {
        constexpr std::uint32_t kEdges[] = {
            0,          1,          2,          3,          4,          0xFFFFFFFF, 0xFFFFFFFE,
            0x7FFFFFFF, 0x7FFFFFFE, 0x80000000, 0x80000001, 0x40000000, 0xC0000000, 0xC0000001,
            0xFFFF,     0x10000,    0xFFFF8000, 0x01000000, 5,
        };
        const std::uint8_t kind = Byte();
        if (kind == 0) {
            return usual;
        }
        if (kind <= std::size(kEdges)) {
            return kEdges[kind - 1];
        }
        if (kind < 64) {
            return usual + kind - 41;
        }
        if (kind < 80) {
            return usual << (kind - 64);
        }
        std::uint32_t value = Byte();
        for (int i = 0; i < 3 && kind >= 160; ++i) {
            value = value << 8 | Byte();
        }
        return value;
    }
    std::int32_t Int(std::int32_t usual) {
        return static_cast<std::int32_t>(Word(static_cast<std::uint32_t>(usual)));
    }

private:
    const std::uint8_t* next_;
    const std::uint8_t* end_;
};

} // namespace fuzz

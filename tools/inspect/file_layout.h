#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

// What the bytes of a raw image tell about its rows, whatever its name says.

struct RowPeriod {
    int pitch = 0;            // bytes after which the content repeats best
    double likeness = 0;      // mean step from a byte to the one a period later; small is alike
    double namedLikeness = 0; // the same for the pitch that the name says
};

// Looks at the first `bytes.size()` bytes of one plane, for even pitches from half to twice the
// named one. Nothing where there are too few bytes.
std::optional<RowPeriod> FindRowPeriod(std::span<const std::uint8_t> bytes, int namedPitch);

// How well rows before `row` look like luma and those from it on like interleaved chroma.
struct ChromaStart {
    int row = 0;          // where chroma starts best
    double gain = 0;      // by how much better than at the named row, a row between them
    double edge = 0;      // step to the row before, against the usual step
    double namedEdge = 0; // the same at the named row
    int rows = 0;         // whole rows of the file
};

// Nothing where the content does not tell: a grey picture, too few rows.
std::optional<ChromaStart> FindChromaStart(std::span<const std::uint8_t> bytes, int pitch,
                                           int namedRow);

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

// What the bytes of a raw image tell about the length and number of its rows, whatever its name
// says.

struct RowPeriod {
    int pitch = 0;            // the distance in bytes at which the content resembles itself most
    double meanStep = 0;      // mean absolute difference of bytes at that distance
    double namedMeanStep = 0; // the same at the named pitch
};

// Tries even pitches from half to twice the named one on the given bytes, which are to be of one
// plane. Nothing if there are too few of them.
std::optional<RowPeriod> FindRowPeriod(std::span<const std::uint8_t> bytes, int namedPitch);

// How well the rows before `row` resemble luma and those from it on interleaved chroma.
struct ChromaStart {
    int row = 0;          // where chroma starts most likely
    double gain = 0;      // how much better than the named row it fits, per row between the two
    double edge = 0;      // step from the row before it, relative to the usual step between rows
    double namedEdge = 0; // the same at the named row
    int rows = 0;         // whole rows of the file
};

// Nothing if the file has too few rows.
std::optional<ChromaStart> FindChromaStart(std::span<const std::uint8_t> bytes, int pitch,
                                           int namedRow);

#pragma once

#include <string>
#include <vector>

namespace bench {

struct Quartiles {
    double lower;
    double median;
    double upper;
};

// Sorts its samples; there is at least one.
Quartiles QuartilesOf(std::vector<double> samples);

struct PeerResult {
    std::string name;
    double microseconds;
    Quartiles ratio; // of the rounds' ratios measured / peer
    double mostRatio;
};

struct Result {
    std::string name;
    double microseconds; // median of a call
    double mostMicroseconds;
    double allocations; // of a call
    bool mayAllocate;
    bool works; // it did what it was measured for
    std::vector<PeerResult> peers;
};

// Keeps a benchmark's result, in place of an earlier one of that name.
void Keep(const Result& result);

// Says on standard error which of them do not work or allocate where they must not.
bool AllWork();

// Prints what was kept, a line for each peer and each target of its own.
void PrintTable();

} // namespace bench

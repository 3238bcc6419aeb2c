#pragma once

#include <functional>
#include <string>
#include <vector>

#include "bench/node/pictures.h"

namespace bench {

// How much is run.
struct Plan {
    int passes;
    int roundsAPass;
    bool prints;               // the table
    std::vector<Shape> shapes; // the first stands for a photo
    std::size_t rotatingBytes; // of buffers, where each use is to find none of them in a cache
};

// Something to be timed. `run` does it `calls` times; what takes microseconds is batched so that
// reading the clock does not count.
struct Contender {
    std::string name;
    std::function<void()> run;
    double calls = 1;
    std::function<void()> prepare = nullptr; // runs before it, untimed
};

struct Peer {
    Contender contender;
    double mostRatio = 0;            // target of measured / peer; 0: none
    double mostMicrosecondsMore = 0; // target of measured - peer; 0: none
};

// One measured operation beside its limits or peers.
struct Comparison {
    Contender measured;
    std::vector<Peer> peers;
    std::function<bool()> works; // does it once: the outcome is the peer's, or what it must be
    double mostMicroseconds = 0; // target of one call; 0: none
    bool mayAllocate = true;     // false: the target is no allocation at all
};

// Registers a benchmark that times all contenders in turn, each round in another order, so that
// whatever else the machine does hits all of them. Times are the thread's own. `make` builds the
// comparison for each pass anew, since the addresses of buffers are part of the chance. The
// benchmark ends with its lines of the table on standard output; --benchmark_out gets counters.
void Register(const Plan& plan, const std::string& name, const std::function<Comparison()>& make);

void PrintTableHead();

// False once a benchmark's outcome was wrong or it allocated where it must not; standard error says
// which one.
bool AllWork();

// Each registers the benchmarks of one file.
void RegisterImages(const Plan& plan);
void RegisterRequests(const Plan& plan);
void RegisterDumps(const Plan& plan);

} // namespace bench

#include "bench/node/comparison.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <ctime>
#include <numeric>
#include <random>

namespace {

std::atomic<std::uint64_t> g_allocations{0};

void CountAllocation() {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
}

} // namespace

// Stand in front of the C library's for the whole process, the standard library's `new` included,
// and go on to glibc's own names for these functions.
extern "C" {

void* __libc_malloc(std::size_t size) noexcept;
void* __libc_calloc(std::size_t count, std::size_t size) noexcept;
void* __libc_realloc(void* block, std::size_t size) noexcept;

void* malloc(std::size_t size) noexcept {
    CountAllocation();
    return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) noexcept {
    CountAllocation();
    return __libc_calloc(count, size);
}

void* realloc(void* block, std::size_t size) noexcept {
    CountAllocation();
    return __libc_realloc(block, size);
}

} // extern "C"

namespace bench {
namespace {

bool g_allWork = true;

// Of this thread: other programs count only through the caches and the memory that they use.
double ThreadMicroseconds() {
    timespec time = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

// Of one call.
double TimeOf(const Contender& contender) {
    if (contender.prepare) {
        contender.prepare();
        ThreadMicroseconds(); // the clock itself is not to be found cold
    }
    const double start = ThreadMicroseconds();
    contender.run();
    return (ThreadMicroseconds() - start) / contender.calls;
}

struct Quartiles {
    double lower;
    double median;
    double upper;
};

Quartiles QuartilesOf(std::vector<double> samples) {
    std::sort(samples.begin(), samples.end());
    const auto at = [&samples](std::size_t quarter) {
        return samples[(samples.size() - 1) * quarter / 4];
    };
    return {at(1), at(2), at(3)};
}

// Quartiles of operation(measured, peer) over the rounds.
template <typename Operation>
Quartiles Compare(const std::vector<double>& measured, const std::vector<double>& peer,
                  Operation operation) {
    // Round by round: measured and peer of one round met the same disturbances, which a ratio of
    // two medians would not take into account.
    std::vector<double> results(peer.size());
    std::transform(measured.begin(), measured.end(), peer.begin(), results.begin(), operation);
    return QuartilesOf(results);
}

// --- The table -----------------------------------------------------------------------------------

template <typename... Arguments>
std::string Text(const char* format, Arguments... arguments) {
    char text[80];
    std::snprintf(text, sizeof(text), format, arguments...);
    return text;
}

std::string Duration(double microseconds) {
    if (microseconds >= 1000) {
        return Text("%.2f ms", microseconds / 1000);
    }
    return microseconds >= 1 ? Text("%.2f us", microseconds) : Text("%.2f ns", microseconds * 1000);
}

void PrintLine(const std::string& name, const std::string& measured, const std::string& beside,
               const std::string& compared, const std::string& target, const char* met) {
    std::printf("| %-46s | %-13s | %-39s | %-28s | %-11s | %-4s |\n", name.c_str(),
                measured.c_str(), beside.c_str(), compared.c_str(), target.c_str(), met);
    std::fflush(stdout);
}

const char* Met(bool met) {
    return met ? "yes" : "NO";
}

// --- Rounds --------------------------------------------------------------------------------------

// The rounds of one benchmark.
class Rounds {
public:
    explicit Rounds(std::function<Comparison()> make) : make_(std::move(make)) {}

    void StartPass() {
        comparison_ = {}; // two scenes cannot be in the platform at once
        comparison_ = make_();
        contenders_ = {&comparison_.measured};
        for (const Peer& peer : comparison_.peers) {
            contenders_.push_back(&peer.contender);
        }
        for (const Contender* contender : contenders_) {
            contender->run(); // what is done only once is done
        }
        works_ &= comparison_.works();
        times_.resize(contenders_.size());
        order_.resize(contenders_.size());
        std::iota(order_.begin(), order_.end(), std::size_t{0});
    }

    // Returns the seconds of the measured contender's run.
    double RunRound() {
        std::shuffle(order_.begin(), order_.end(), random_);
        for (const std::size_t turn : order_) {
            const std::uint64_t before = g_allocations;
            const double time = TimeOf(*contenders_[turn]);
            allocations_ += turn == 0 ? g_allocations - before : 0;
            times_[turn].push_back(time);
        }
        return times_[0].back() * comparison_.measured.calls / 1e6;
    }

    void Print(const std::string& name) const {
        const double median = QuartilesOf(times_[0]).median;
        const std::string measured = Duration(median);
        for (std::size_t i = 0; i < comparison_.peers.size(); ++i) {
            const Peer& peer = comparison_.peers[i];
            const std::vector<double>& times = times_[i + 1];
            const std::string beside =
                peer.contender.name + ", " + Duration(QuartilesOf(times).median);
            const Quartiles ratio = Compare(times_[0], times, std::divides<>());
            PrintLine(name, measured, beside,
                      Text("x %.3f (%.3f to %.3f)", ratio.median, ratio.lower, ratio.upper),
                      peer.mostRatio > 0 ? Text("<= x %.2f", peer.mostRatio) : "",
                      peer.mostRatio > 0 ? Met(ratio.median <= peer.mostRatio) : "");
            if (peer.mostMicrosecondsMore > 0) {
                const Quartiles more = Compare(times_[0], times, std::minus<>());
                PrintLine(name, measured, beside,
                          Text("+ %.2f us (%.2f to %.2f)", more.median, more.lower, more.upper),
                          Text("<= + %g us", peer.mostMicrosecondsMore),
                          Met(more.median <= peer.mostMicrosecondsMore));
            }
        }
        if (const double most = comparison_.mostMicroseconds; most > 0) {
            PrintLine(name, measured, "", "",
                      most >= 1 ? Text("<= %g us", most) : Text("<= %g ns", most * 1000),
                      Met(median <= most));
        }
        if (!comparison_.mayAllocate) {
            PrintLine(name, Text("%g allocations", AllocationsOfACall()), "", "", "0",
                      Met(allocations_ == 0));
        }
    }

    void Count(benchmark::State& state) const {
        state.counters["us_a_call"] = QuartilesOf(times_[0]).median;
        state.counters["allocations"] = AllocationsOfACall();
    }

    void Check(const std::string& name) const {
        if (!works_ || (!comparison_.mayAllocate && allocations_ > 0)) {
            std::fprintf(stderr, "%s: %s\n", name.c_str(), works_ ? "allocates" : "wrong outcome");
            g_allWork = false;
        }
    }

private:
    double AllocationsOfACall() const {
        return static_cast<double>(allocations_) /
               (static_cast<double>(times_[0].size()) * comparison_.measured.calls);
    }

    std::function<Comparison()> make_;
    Comparison comparison_;
    std::vector<const Contender*> contenders_; // the measured one first
    std::vector<std::size_t> order_;
    std::vector<std::vector<double>> times_; // by contender, then round
    std::uint64_t allocations_ = 0;          // of the measured contender
    bool works_ = true;
    std::mt19937 random_; // the same orders in every run
};

} // namespace

void Register(const Plan& plan, const std::string& name, const std::function<Comparison()>& make) {
    const auto run = [name, make, roundsAPass = plan.roundsAPass,
                      prints = plan.prints](benchmark::State& state) {
        Rounds rounds(make);
        int round = 0;
        for ([[maybe_unused]] auto _ : state) {
            if (round++ % roundsAPass == 0) {
                rounds.StartPass();
            }
            state.SetIterationTime(rounds.RunRound());
        }
        rounds.Count(state);
        rounds.Check(name);
        if (prints) {
            rounds.Print(name);
        }
    };
    benchmark::RegisterBenchmark(name.c_str(), run)
        // One iteration of the library is one round, and its time is the one measured here.
        ->Iterations(benchmark::IterationCount{plan.passes} * plan.roundsAPass)
        ->UseManualTime()
        ->Unit(benchmark::kMicrosecond);
}

void PrintTableHead() {
    const std::string rule(10, '-');
    PrintLine("what", "measured", "beside", "compared (middle half)", "target", "met?");
    PrintLine(rule, rule, rule, rule, rule, "----");
}

bool AllWork() {
    return g_allWork;
}

} // namespace bench

#include "bench/node/comparison.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <ctime>
#include <numeric>
#include <random>

#include "bench/node/allocations.h"
#include "bench/node/table.h"

namespace bench {
namespace {

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
            const std::uint64_t before = Allocations();
            const double time = TimeOf(*contenders_[turn]);
            allocations_ += turn == 0 ? Allocations() - before : 0;
            times_[turn].push_back(time);
        }
        return times_[0].back() * comparison_.measured.calls / 1e6;
    }

    Result ResultAs(const std::string& name) const {
        const double calls = static_cast<double>(times_[0].size()) * comparison_.measured.calls;
        Result result = {name,
                         QuartilesOf(times_[0]).median,
                         comparison_.mostMicroseconds,
                         static_cast<double>(allocations_) / calls,
                         comparison_.mayAllocate,
                         works_,
                         {}};
        for (std::size_t i = 0; i < comparison_.peers.size(); ++i) {
            const Peer& peer = comparison_.peers[i];
            const std::vector<double>& times = times_[i + 1];
            std::vector<double> ratios(times.size());
            std::transform(times_[0].begin(), times_[0].end(), times.begin(), ratios.begin(),
                           std::divides<>());
            result.peers.push_back({peer.contender.name, QuartilesOf(times).median,
                                    QuartilesOf(ratios), peer.mostRatio});
        }
        return result;
    }

private:
    std::function<Comparison()> make_;
    Comparison comparison_;
    std::vector<const Contender*> contenders_; // the measured one first
    std::vector<std::size_t> order_;
    std::vector<std::vector<double>> times_; // by contender, then round
    std::uint64_t allocations_ = 0;          // of the measured contender
    bool works_ = true;
    std::mt19937 random_; // the same orders in every run
};

void Run(benchmark::State& state, int roundsAPass, const std::string& name,
         const std::function<Comparison()>& make) {
    Rounds rounds(make);
    int round = 0;
    for ([[maybe_unused]] auto _ : state) {
        if (round++ % roundsAPass == 0) {
            rounds.StartPass();
        }
        state.SetIterationTime(rounds.RunRound());
    }
    const Result result = rounds.ResultAs(name);
    state.counters["us_a_call"] = result.microseconds;
    state.counters["allocations"] = result.allocations;
    for (const PeerResult& peer : result.peers) {
        state.counters["x " + peer.name] = peer.ratio.median;
    }
    Keep(result);
}

} // namespace

void Register(const Plan& plan, const std::string& name, const std::function<Comparison()>& make) {
    const auto run = [name, make, rounds = plan.roundsAPass](benchmark::State& state) {
        Run(state, rounds, name, make);
    };
    benchmark::RegisterBenchmark(name.c_str(), run)
        ->Iterations(benchmark::IterationCount{plan.passes} * plan.roundsAPass)
        ->UseManualTime()
        ->Unit(benchmark::kMicrosecond);
}

} // namespace bench

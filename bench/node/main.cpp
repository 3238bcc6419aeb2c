#include <benchmark/benchmark.h>

#include <cstdio>
#include <exception>
#include <string_view>
#include <vector>

#include "bench/node/benchmarks.h"
#include "bench/node/platform.h"
#include "bench/node/table.h"

// Usage: node_bench [--check] [--benchmark_filter=...]
//   Prints a table of what was measured beside its peers and targets.
//   --check  small images and two rounds, times unlooked at: only whether everything works

namespace {

const bench::Plan kFull = {
    .passes = 5,
    .roundsAPass = 60,
    .shapes = {{4000, 3000, 4096}, {4000, 3000, 4000}, {2560, 1440, 2560}, {1920, 1080, 2048}},
    .rotatingBytes = 256 << 20};
const bench::Plan kCheck = {.passes = 1,
                            .roundsAPass = 2,
                            .shapes = {{72, 48, 80}, {64, 48, 64}},
                            .rotatingBytes = 100'000};

// The table is the report; this only shows how far it is.
class Progress : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            std::fprintf(stderr, "%s\n", run.run_name.function_name.c_str());
        }
    }
};

int RunBenchmarks(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    const bool check = argc == 2 && argv[1] == std::string_view("--check");
    if (argc != (check ? 2 : 1)) {
        std::fputs("usage: node_bench [--check] [--benchmark_filter=...]\n", stderr);
        return 2;
    }

    const bench::DeviceFolder folder;
    const bench::Plan& plan = check ? kCheck : kFull;
    bench::RegisterCopies(plan);
    bench::RegisterMerges(plan);
    bench::RegisterRequests(plan);
    bench::RegisterDumps(plan);
    Progress progress;
    const std::size_t ran = benchmark::RunSpecifiedBenchmarks(&progress);
    benchmark::Shutdown();
    if (!check) {
        bench::PrintTable();
    }
    return ran > 0 && bench::AllWork() ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    try {
        return RunBenchmarks(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "node_bench: %s\n", error.what());
        return 1;
    }
}

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string_view>

#include "bench/node/comparison.h"
#include "bench/node/scene.h"
#include "host/filesystem/device_root.h"
#include "platform/device_names.h"

// Usage: node_bench [--check] [--benchmark_filter=...]
//   Prints a table of what was measured beside its peers and targets.
//   --check  small images and two rounds, times unlooked at: only whether everything works

namespace {

// Photos of 12 megapixels with and without padding, then smaller pictures.
const bench::Plan kFull = {
    .passes = 5,
    .roundsAPass = 60,
    .prints = true,
    .shapes = {{4000, 3000, 4096}, {4000, 3000, 4000}, {2560, 1440, 2560}, {1920, 1080, 2048}},
    .rotatingBytes = 256 << 20};
const bench::Plan kCheck = {.passes = 1,
                            .roundsAPass = 2,
                            .prints = false,
                            .shapes = {{72, 48, 80}, {64, 48, 64}},
                            .rotatingBytes = 100'000};

// The table is the report.
class NoReport : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>&) override {}
};

// The device's folders with a calibration file; removed at its end.
class DeviceFolder {
public:
    DeviceFolder() {
        std::string name = std::filesystem::temp_directory_path() / "node-bench-XXXXXX";
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("cannot make the folder " + name);
        }
        root_ = name;
        const std::filesystem::path calibration = name + device::kCalibrationPaths[0];
        std::filesystem::create_directories(calibration.parent_path());
        std::filesystem::create_directories(name + bench::kDumpFolder);
        // Any bytes will do: the bench's engine does not read them.
        std::ofstream(calibration) << std::string(device::kCalibrationFileSize, 'c');
        host::SetDeviceRoot(root_);
    }
    ~DeviceFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(root_, ignored);
    }
    DeviceFolder(const DeviceFolder&) = delete;
    DeviceFolder& operator=(const DeviceFolder&) = delete;

private:
    std::filesystem::path root_;
};

int RunBenchmarks(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    const bool check = argc == 2 && argv[1] == std::string_view("--check");
    if (argc != (check ? 2 : 1)) {
        std::fputs("usage: node_bench [--check] [--benchmark_filter=...]\n", stderr);
        return 2;
    }
    const DeviceFolder folder;
    const bench::Plan& plan = check ? kCheck : kFull;
    bench::RegisterImages(plan);
    bench::RegisterRequests(plan);
    bench::RegisterDumps(plan);
    if (plan.prints) {
        bench::PrintTableHead();
    }
    NoReport report;
    const std::size_t ran = benchmark::RunSpecifiedBenchmarks(&report);
    benchmark::Shutdown();
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

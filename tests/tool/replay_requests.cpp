// Makes dump sets of seeded requests and replays each: output and disparity must be the dumped
// ones, byte for byte.

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>

#include "tests/tool/synthetic_capture.h"
#include "tests/tool/tool_runner.h"

namespace fs = std::filesystem;

int main(int argc, char** argv) {
    const int count = argc > 1 ? std::atoi(argv[1]) : 1000;
    const unsigned first = argc > 2 ? static_cast<unsigned>(std::atoi(argv[2])) : 1;
    if (argc > 3 || count < 1) {
        std::fprintf(stderr, "usage: replay_requests [COUNT [FIRST SEED]]\n");
        return 2;
    }
    int equal = 0;
    try {
        CaptureMaker maker(NODE_LIBRARY, ENGINE_LIBRARY);
        unsigned seed = first;
        for (int i = 0; i < count; ++i) {
            const TestFolder folder;
            const SyntheticCapture capture = maker.MakeAll(seed, 1, folder.path()).front();
            seed = capture.seed + 1;
            const ToolRun run = RunTool(
                {"replay", capture.stem, "--calibration", capture.calibration.filename().string()},
                folder.path());
            equal += run.exitCode == 0 ? 1 : 0;
            if (run.exitCode != 0) {
                std::printf("seed %u:\n%s%s", capture.seed, run.output.c_str(), run.errors.c_str());
            }
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "replay_requests: %s\n", error.what());
        return 2;
    }
    std::printf("replays equal: %d of %d\n", equal, count);
    return equal == count ? 0 : 1;
}

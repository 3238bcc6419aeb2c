#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <memory>

#include "bench/node/comparison.h"
#include "bench/node/scene.h"
#include "bokehbase/log.h"
#include "platform/device_names.h"
#include "tests/support/platform.h"

namespace bench {
namespace {

using support::platform;

constexpr std::uint8_t kFaces = 10;

// `run`, often enough for the clock.
Contender Batch(const char* name, int calls, const std::function<void()>& run) {
    const auto batch = [=] {
        for (int i = 0; i < calls; ++i) {
            run();
        }
    };
    return {name, batch, static_cast<double>(calls)};
}

// What the node adds to a photo that is copied.
Comparison CopyPath(const Shape& shape) {
    const auto scene = std::make_shared<Scene>(shape, kFaces);
    const auto node = std::make_shared<Node>(scene, false);
    const auto probe = std::make_shared<Probe>();
    const auto process = [=] { node->Process(); };
    const auto copy = [=] { probe->Copy(scene->Main(), scene->Output()); };
    return {.measured = {"", process},
            .peers = {{{"CopyImageToOutput", copy}}},
            .works = [=] { return scene->OutcomeOf(process) == scene->OutcomeOf(copy); },
            .mayAllocate = false};
}

// Whether the engine was asked to render, and with the disparity that it gave.
bool Renders(Node& node) {
    support::Engine& engine = platform().engine;
    engine.processSize = -1;
    node.Process();
    return engine.processSize == engine.activeSize;
}

// What the node adds to an engine's own time. The parameters are most of it.
Comparison IdleEngine(const Shape& shape) {
    const auto scene = std::make_shared<Scene>(shape, kFaces);
    const auto node = std::make_shared<Node>(scene, true);
    const auto probe = std::make_shared<Probe>();
    return {.measured = Batch("", 1000, [=] { node->Process(); }),
            .peers = {{Batch("parameters", 1000, [=] { probe->Collect(*scene); })}},
            .works = [=] { return Renders(*node); },
            .mostMicroseconds = 10,
            .mayAllocate = false};
}

// The same after everything else went through the caches, as between two photos.
Comparison IdleEngineCold(const Shape& shape) {
    const auto scene = std::make_shared<Scene>(shape, kFaces);
    const auto node = std::make_shared<Node>(scene, true);
    const auto others = std::make_shared<Pictures>(shape, 4);
    const auto evict = [=] {
        const std::size_t half = 2 * shape.Bytes();
        std::memcpy(others->Bytes(), others->Bytes() + half, half);
    };
    return {.measured = {"", [=] { node->Process(); }, 1, evict},
            .peers = {{{"reading its data", [=] { node->ReadRequestData(); }, 1, evict}, 0, 10}},
            .works = [=] { return Renders(*node); },
            .mayAllocate = false};
}

// What the faces cost of the collection of parameters.
Comparison Parameters(const Shape& shape) {
    const auto scene = std::make_shared<Scene>(shape, kFaces);
    const auto probe = std::make_shared<Probe>();
    const auto collect = [=](std::uint8_t faces) {
        return [=] {
            scene->SetFaces(faces);
            probe->Collect(*scene);
        };
    };
    return {.measured = Batch("", 1000, collect(kFaces)),
            .peers = {{Batch("without faces", 1000, collect(0))}},
            .works =
                [=] {
                    scene->SetFaces(kFaces);
                    return probe->Collect(*scene).i32FaceNum == kFaces;
                },
            .mayAllocate = false};
}

void ReadCalibration() {
    char bytes[device::kCalibrationFileSize];
    if (std::FILE* file = std::fopen(device::kCalibrationPaths[0], "rb"); file != nullptr) {
        benchmark::DoNotOptimize(std::fread(bytes, 1, sizeof(bytes), file));
        std::fclose(file);
    }
}

Comparison Creation(const Shape& shape) {
    const auto scene = std::make_shared<Scene>(shape, kFaces);
    return {.measured = Batch("", 100, [=] { Node(scene, true); }),
            .peers = {{Batch("reading the calibration file", 100, ReadCalibration)}},
            .works = [=] {
                Node node(scene, true);
                return Renders(node); // which takes the calibration
            }};
}

// Two loops of a million turns, since a single check takes less than the clock can tell.
Comparison DisabledLog() {
    constexpr int kCalls = 1'000'000;
    const auto log = [] {
        for (int i = 0; i < kCalls; ++i) {
            NODE_DEBUG_AS("NodeGetCaps", kTextOutResult, i);
            // Keeps the compiler from reading the log mask once for all turns.
            benchmark::ClobberMemory();
        }
    };
    const auto nothing = [] {
        for (int i = 0; i < kCalls; ++i) {
            benchmark::ClobberMemory();
        }
    };
    return {.measured = {"", log, kCalls},
            .peers = {{{"an empty loop", nothing, kCalls}}},
            .works =
                [=] {
                    platform() = {};
                    NODE_ERROR_AS("NodeGetCaps", kTextOutResult, 0);
                    log();
                    return platform().log.size() == 1;
                },
            .mostMicroseconds = 0.002,
            .mayAllocate = false};
}

} // namespace

void RegisterRequests(const Plan& plan) {
    const Shape photo = plan.shapes[0];
    Register(plan, "ProcessRequest/copy/" + photo.Name(), [=] { return CopyPath(photo); });
    Register(plan, "ProcessRequest/idle_engine/warm", [=] { return IdleEngine(photo); });
    Register(plan, "ProcessRequest/idle_engine/cold", [=] { return IdleEngineCold(photo); });
    Register(plan, "BaseProcessRequest/10_faces", [=] { return Parameters(photo); });
    Register(plan, "NodeCreate+NodeDestroy", [=] { return Creation(photo); });
    Register(plan, "NODE_DEBUG/off", DisabledLog);
}

} // namespace bench

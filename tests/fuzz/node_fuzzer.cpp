// Drives whole node lives through the node's callback table, from a byte stream, on a platform that
// answers anything its interface allows and hands out exactly the memory that it promises.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "tests/fuzz/byte_reader.h"
#include "tests/fuzz/guarded_memory.h"
#include "tests/fuzz/hostile_platform.h"
#include "tests/fuzz/images.h"

namespace fuzz {
namespace {

constexpr std::uint32_t kNodeId = 501;
constexpr std::uint32_t kInstanceId = 2;
constexpr std::uint32_t kMostMappings = 6;
constexpr std::size_t kOutputs = 4;
constexpr int kMostSteps = 12;

// A node and its use-case data, which lives as long as it does.
struct Node {
    GuardedMemory configs{sizeof(PhysicalCameraConfigs)};
    GuardedMemory mappings{sizeof(PhysicalCameraInputConfig) +
                           kMostMappings * sizeof(CameraInputConfig)};
    PhysicalCameraConfigs* cameraConfigs = nullptr;
    PhysicalCameraInputConfig* inputConfig = nullptr;
    bool hasUsualCameras = false; // 10 and 20, on the inputs 0 and 1
    void* handle = nullptr;
    bool dumps = false;
    int view = 0;
};

// Everything that is mapped or loaded once.
struct Stage {
    NodeEntry entry = LoadNode();
    ChiNodeCallbacks callbacks = {.size = sizeof(callbacks)};
    Node nodes[2];
    GuardedMemory record{4096};
    GuardedMemory format{sizeof(ChiImageFormat)};
    GuardedMemory metadata{sizeof(InputMetadataBokeh)};
    GuardedMemory faceResults{sizeof(OEMFDResults)};
    GuardedMemory word{sizeof(std::uint32_t)};
    GuardedMemory inputHandles{2 * sizeof(void*)};
    GuardedMemory outputHandles{kOutputs * sizeof(void*)};
    Image inputs[2];
    Image outputs[kOutputs];

    Stage() {
        entry(&callbacks);
        inputs[0].FillWithNoise(1);
        inputs[1].FillWithNoise(7);
    }
};

Stage& stage() {
    static Stage& instance = *new Stage;
    return instance;
}

template <typename Record>
Record& LastOf(const GuardedMemory& memory) {
    return *reinterpret_cast<Record*>(memory.Last(sizeof(Record)));
}

// The words of a camera's metadata that have a meaning, in runs: first byte offset and count.
constexpr std::pair<std::uint32_t, std::uint32_t> kCameraWords[] = {
    {4, 5}, {88, 16}, {160, 2}, {204, 4 * kMaxFaces}, {384, 5}};

std::uint32_t* CameraWord(CameraMetadata& camera, std::uint32_t index) {
    for (const auto& [offset, count] : kCameraWords) {
        if (index < count) {
            return reinterpret_cast<std::uint32_t*>(reinterpret_cast<char*>(&camera) + offset) +
                   index;
        }
        index -= count;
    }
    return &camera.cameraId;
}

// One run. Each function reads its choices from the stream, in order.
class Life {
public:
    Life(const std::uint8_t* data, std::size_t size) : in_(data, size) {}

    void Run() {
        world = {};
        Stage& all = stage();
        ChiNodeInterface whole = WholeInterface();
        all.callbacks.setNodeInterface(&whole);
        ChoosePlatform();
        ChooseEngine();
        SetInterface();
        Create(all.nodes[0]);
        Request(all.nodes[0]);
        for (int i = 0; i < kMostSteps && !in_.empty(); ++i) {
            Step(in_.Byte());
        }
        for (Node& node : all.nodes) {
            ChiNodedestroyInfo info = {.size = sizeof(info), .hNodeSession = node.handle};
            all.callbacks.destroy(&info);
            Require(info.hNodeSession == nullptr, "a node was not destroyed");
            node.handle = nullptr;
        }
        Require(world.engineInstances == 0, "an engine instance outlived its node");
        Require(world.openDumps == 0, "a file was left open");
    }

    void Step(std::uint8_t choice) {
        Node& node = stage().nodes[choice >> 7];
        switch (choice % 8) {
        case 1:
            ChooseEngine();
            return Request(node);
        case 2:
            ChoosePlatform();
            [[fallthrough]];
        case 3:
            Destroy(node);
            return Create(node);
        case 4:
            return Negotiate(node);
        case 5:
            return SetInterface();
        case 6:
            world.newFails = in_.Byte() % 16;
            return;
        default:
            return Request(node);
        }
    }

    const char* Text() {
        static constexpr char kLong[] =
            "a text as long as a property can be and beyond, so that whoever takes "
            "its length for granted without looking at it will have to pay";
        constexpr const char* kTexts[] = {
            "0", "6", "2", "1", "3", "4", "-1", "", "no number", "99999999999999999999", kLong,
        };
        return kTexts[in_.Byte() % std::size(kTexts)];
    }

    void ChoosePlatform() {
        world.logMask = Text();
        world.dumpImage = Text();
        world.debugView = Text();
        for (std::uint32_t& size : world.calibrationFileSizes) {
            size = in_.Word(2048);
        }
        world.missing = in_.Byte();
        world.failingTag = in_.Byte() - 1;
        world.result = in_.Word(1);
        world.imageDegree = in_.Word(90);
        world.writeCut = in_.Int(0);
        world.seconds = std::int64_t{in_.Word(1700000000)} << (in_.Byte() & 31);
    }

    void ChooseEngine() {
        world.dataSize = in_.Int(1000);
        world.activeSize = in_.Int(900);
        for (std::int32_t& size : world.calibrationSizes) {
            size = in_.Int(size);
        }
        const std::uint8_t call = in_.Byte();
        // A failure whose low 32 bits are all zero is one too.
        const std::uint64_t failure = in_.Word(0);
        world.results[call % kEngineCalls] =
            static_cast<std::int64_t>(failure << (call >= 128 ? 32 : 0));
    }

    void SetInterface() {
        ChiNodeInterface table = WholeInterface();
        const std::uint8_t missing = in_.Byte();
        if ((missing & 1) != 0) {
            table.setMetadata = nullptr;
        }
        if ((missing & 2) != 0) {
            table.getVendorTagBase = nullptr;
        }
        if ((missing & 4) != 0) {
            table.queryRequestState = nullptr;
        }
        world.interfaceResult = (missing & 8) != 0 ? world.result : 0;
        if (world.interfaceResult == 0 && (missing & 16) == 0) {
            publishes_ = table.setMetadata != nullptr;
            asksForStop_ = table.queryRequestState != nullptr;
        }
        stage().callbacks.setNodeInterface((missing & 16) != 0 ? nullptr : &table);
    }

    void ChooseCameras(Node& node) {
        const std::uint8_t unusual = in_.Byte();
        node.hasUsualCameras = unusual == 0;
        auto& configs = LastOf<PhysicalCameraConfigs>(node.configs);
        configs.numPhysicalCameras = 2;
        configs.primaryCameraId = 10;
        configs.camera[0] = {.cameraId = 10, .masterRank = 2};
        configs.camera[1] = {.cameraId = 20, .masterRank = 1};
        if ((unusual & 1) != 0) {
            configs.numPhysicalCameras = in_.Word(2);
            configs.primaryCameraId = in_.Word(10);
            for (std::uint32_t i = 0; i < 5; ++i) {
                const std::uint32_t rank = in_.Word(0); // as bits: not every rank is a number
                configs.camera[i].cameraId = in_.Word(10 * i + 10);
                std::memcpy(&configs.camera[i].masterRank, &rank, sizeof(rank));
            }
        }
        const std::uint32_t count = (unusual & 2) != 0 ? in_.Byte() % (kMostMappings + 1) : 0;
        std::uint8_t* mappings = node.mappings.Last(count * sizeof(CameraInputConfig));
        for (std::uint32_t k = 0; k < count; ++k) {
            const CameraInputConfig input = {.nodeId = in_.Word(kNodeId),
                                             .nodeInstanceId = in_.Word(kInstanceId),
                                             .fullInputBufferIndex = in_.Word(1 - k % 2),
                                             .cameraId = in_.Word(10 * k + 10)};
            std::memcpy(mappings + k * sizeof(input), &input, sizeof(input));
        }
        auto* head = reinterpret_cast<PhysicalCameraInputConfig*>(mappings) - 1;
        head->numInputs = count;
        node.cameraConfigs = (unusual & 4) != 0 ? nullptr : &configs;
        node.inputConfig = (unusual & 8) != 0 ? nullptr : head;
    }

    void Enter(const Node& node, std::uint64_t frameNumber) {
        world.session = const_cast<Node*>(&node);
        world.cameraConfigs = node.cameraConfigs;
        world.inputConfig = node.inputConfig;
        world.calls = {.frameNumber = frameNumber};
    }

    void Create(Node& node) {
        if (node.handle != nullptr) {
            return;
        }
        ChooseCameras(node);
        Enter(node, 0);
        const std::uint8_t flags = in_.Byte();
        const int instances = world.engineInstances;
        ChiNodeCreateInfo* info = Hand(ChiNodeCreateInfo{.hChiSession = world.session,
                                                         .hNodeSession = &node,
                                                         .nodeId = kNodeId,
                                                         .nodeMode = flags * 0x01010101u,
                                                         .flags = flags,
                                                         .nodeInstanceId = kInstanceId});
        const CDKResult result = stage().callbacks.create(info);
        Require(world.openDumps == 0, "a file was left open by a creation");
        if (result != 0) {
            Require(short_ || info->hNodeSession == &node, "a failed creation has a handle");
            Require(world.engineInstances == instances, "a failed creation has an engine instance");
            return;
        }
        Require(!short_ && info->hNodeSession != &node, "a creation without record or handle");
        node.handle = info->hNodeSession;
        node.dumps = std::atoi(world.dumpImage) != 0;
        node.view = std::atoi(world.debugView);
    }

    void Destroy(Node& node) {
        ChiNodedestroyInfo* info = Hand(ChiNodedestroyInfo{.hNodeSession = node.handle});
        const CDKResult result = stage().callbacks.destroy(info);
        Require((result == 0) == (!short_ && node.handle != nullptr), "result of a destruction");
        node.handle = info->hNodeSession;
    }

    void ChooseMetadata() {
        const std::uint8_t unusual = in_.Byte();
        auto& metadata = LastOf<InputMetadataBokeh>(stage().metadata);
        metadata.blurLevel = in_.Word(37);
        metadata.masterCameraId = in_.Word(10);
        metadata.skipBokeh = in_.Word(0);
        const std::uint8_t faces = in_.Byte();
        for (std::uint32_t slot = 0; slot < 2; ++slot) {
            CameraMetadata& camera = metadata.cameraMetadata[slot];
            camera.scalerCropRegion = camera.ifeAppliedCrop =
                camera.activeArraySize = {0, 0, 64, 48};
            camera.focusRect = {16, 12, 31, 23};
            camera.afMode = kAfModeContinuousPicture;
            camera.faceCount = faces;
            for (std::int32_t k = 0; k < std::int32_t{kMaxFaces}; ++k) {
                camera.faces[k] = {4 * k, 3 * k, 8, 8};
            }
        }
        for (int patches = in_.Byte() % 32; patches > 0; --patches) {
            const std::uint8_t which = in_.Byte();
            std::uint32_t* word = CameraWord(metadata.cameraMetadata[which >> 7], which & 127);
            *word = in_.Word(*word);
        }
        LastOf<std::uint32_t>(stage().word) = in_.Word(1);
        LastOf<OEMFDResults>(stage().faceResults).rotation = in_.Int(90);
        world.metadata = (unusual & 1) != 0 ? nullptr : &metadata;
        world.word = (unusual & 2) != 0 ? &LastOf<std::uint32_t>(stage().word) : nullptr;
        world.faceResults =
            (unusual & 4) != 0 ? &LastOf<OEMFDResults>(stage().faceResults) : nullptr;
    }

    void Request(Node& node) {
        Stage& all = stage();
        ChooseMetadata();
        const std::uint8_t missing = in_.Byte();
        ChiImageList* inputs[2];
        for (std::uint32_t i = 0; i < 2; ++i) {
            all.inputs[i].Choose(in_, i, node.dumps);
            inputs[i] = (missing >> i & 1) != 0 ? nullptr : all.inputs[i].list();
        }
        std::memcpy(all.inputHandles.Last(sizeof(inputs)), inputs, sizeof(inputs));
        const std::size_t outputs = (in_.Byte() + 1u) % (kOutputs + 1);
        auto** outputHandles =
            reinterpret_cast<ChiImageList**>(all.outputHandles.Last(outputs * sizeof(void*)));
        for (std::size_t i = 0; i < outputs; ++i) {
            all.outputs[i].Choose(in_, 7, node.dumps);
            outputHandles[i] = (missing & 4) != 0 && i == 1 ? nullptr : all.outputs[i].list();
        }
        world.stop = in_.Word(0);

        ChiNodeProcessRequestInfo info = {.hNodeSession =
                                              (missing & 8) != 0 ? nullptr : node.handle,
                                          .frameNumber = in_.Word(77) * std::uint64_t{0x100000001},
                                          .inputNum = in_.Word(2),
                                          .outputNum = static_cast<std::uint32_t>(outputs)};
        if ((missing & 16) == 0) {
            info.inputs = &LastOf<ChiImageList* [2]>(all.inputHandles)[0];
        }
        if ((missing & 32) == 0) {
            info.outputs = outputHandles;
        }
        Enter(node, info.frameNumber);
        const CDKResult result = all.callbacks.processRequest(Hand(info));
        const bool listed = info.hNodeSession != nullptr && !short_ && info.inputNum >= 2 &&
                            (missing & (outputs > 1 ? 0x37 : 0x33)) == 0;
        CheckRequest(node, result, outputs, listed && world.metadata != nullptr);
    }

    void CheckRequest(const Node& node, CDKResult result, std::size_t outputs, bool listed) {
        const bool done = result == 0 && !(asksForStop_ && world.stop == 1);
        Require(world.calls.published == (done && publishes_ ? 1 : 0),
                "metadata sets of a request");
        Require(world.openDumps == 0, "a file was left open by a request");
        Require(!done || listed, "an incomplete request was accepted");
        const Image* output = nullptr;
        const Image* depth = nullptr;
        for (const Image* one = stage().outputs; one < stage().outputs + outputs; ++one) {
            (one->IsY8() ? depth : output) = one;
        }
        for (const Image* one = stage().outputs; one < stage().outputs + outputs; ++one) {
            Require((done && (one == output || one == depth)) || one->IsBlank(),
                    "no place to write");
        }
        const Image& first = stage().inputs[0];
        const Image& second = stage().inputs[1];
        // With other cameras it is not this test that knows which input is the master's.
        const std::uint32_t master = listed && world.metadata->masterCameraId == 20 ? 1 : 0;
        const bool isFirst = first.list()->portIndex == master;
        const bool isSecond = second.list()->portIndex == master;
        const bool known = node.hasUsualCameras;
        if (result != 0) {
            Require(!(known && listed && output != nullptr && isFirst != isSecond),
                    "a request was refused");
        }
        if (!done) {
            return;
        }
        Require(output != nullptr && (!known || isFirst != isSecond),
                "an unclear request was accepted");
        const bool right = ((isFirst || !known) && IsRight(node, *output, first, second)) ||
                           ((isSecond || !known) && IsRight(node, *output, second, first));
        Require(right, "the output is not the main image, the engine's or the debug view");
        if (depth != nullptr) {
            const auto size = static_cast<std::size_t>(std::max(world.dataSize, 0));
            const bool written = world.calls.dataRead &&
                                 size <= depth->list()->format.planeSize[0] &&
                                 depth->list()->planeAddress[0] != nullptr;
            Require(written ? depth->Holds(size, kDepth) : depth->IsBlank(), "depth output");
        }
    }

    bool IsRight(const Node& node, const Image& output, const Image& main, const Image& aux) const {
        const bool showsAux = (node.view == 2 || node.view == 3) && aux.usable();
        if (!output.usable() || (!main.usable() && !showsAux)) {
            return output.IsBlank();
        }
        const bool rendered = world.calls.dataRead && !world.calls.engineFailed;
        if (!output.PaddingIsBlank() || (world.calls.engineRan && publishes_ &&
                                         world.calls.depthEffect != (rendered ? 0u : 1u))) {
            return false;
        }
        if (showsAux) {
            return node.view == 2 ? SamePixels(output, aux)
                                  : !main.usable() || IsMerged(output, main, aux);
        }
        return rendered && world.calls.processed ? output.IsFilledWith(kRendered)
                                                 : SamePixels(output, main);
    }

    void Negotiate(Node& node) {
        const ChiNodeCallbacks& callbacks = stage().callbacks;
        const std::uint8_t missing = in_.Byte();
        stage().entry(Hand(ChiNodeCallbacks{}));
        callbacks.getCaps(Hand(ChiNodeCapsInfo{}));
        callbacks.queryBufferInfo(Hand(ChiNodeQueryBufferInfo{.hNodeSession = node.handle}));
        const ChiImageFormat format = {.width = in_.Word(64), .height = in_.Word(48)};
        callbacks.setBufferInfo(Hand(ChiNodeSetBufferPropertiesInfo{
            .hNodeSession = node.handle,
            .format =
                (missing & 1) != 0 ? nullptr : stage().format.Place(format, sizeof(format))}));

        // Of these two the node knows no more than that they exist.
        auto* input = reinterpret_cast<ChiNodePostPipelineCreateInput*>(stage().record.Forbidden());
        auto* query = reinterpret_cast<ChiQueryVendorTag*>(stage().record.Forbidden());
        callbacks.queryVendorTag((missing & 2) != 0 ? nullptr : query);
        world.word = (missing & 4) != 0 ? &LastOf<std::uint32_t>(stage().word) : nullptr;
        Enter(node, 0);
        ChiNodePostPipelineCreateOutput output = {};
        const CDKResult result =
            callbacks.postPipelineCreate(node.handle, (missing & 8) != 0 ? nullptr : input,
                                         (missing & 16) != 0 ? nullptr : &output);
        Require(result != 0 || output.delay == 5 ||
                    output.delay == std::uint64_t{LastOf<std::uint32_t>(stage().word)} + 5,
                "delay");
        if ((missing & 32) != 0) {
            callbacks.getCaps(nullptr);
            callbacks.create(nullptr);
            callbacks.destroy(nullptr);
            callbacks.queryBufferInfo(nullptr);
            callbacks.setBufferInfo(nullptr);
            callbacks.processRequest(nullptr);
            stage().entry(nullptr);
        }
    }

private:
    // A record as its maker hands it over, who may say that it is shorter, or longer.
    template <typename Record>
    Record* Hand(Record record) {
        record.size = in_.Word(sizeof(record));
        short_ = record.size < sizeof(record);
        return stage().record.Place(record, record.size);
    }

    ByteReader in_;
    bool short_ = false; // the record that was handed over last
    bool publishes_ = true;
    bool asksForStop_ = true;
};

} // namespace
} // namespace fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::stage();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Life(data, size).Run();
    return 0;
}

#include "bench/node/scene.h"

#include <benchmark/benchmark.h>

#include <stdexcept>
#include <string>
#include <utility>

#include "tests/support/platform.h"

extern "C" void ChiNodeEntry(ChiNodeCallbacks* callbacks) noexcept;

namespace bench {
namespace {

using support::platform;
using support::TagId;

constexpr std::uint32_t kMainCamera = 10;
constexpr std::uint32_t kAuxCamera = 20;

void Require(CDKResult result, const char* what) {
    if (result != CDKResultSuccess) {
        throw std::runtime_error(std::string(what) + " failed");
    }
}

// The camera crops nothing; its faces lie along the diagonal of its image.
void Describe(CameraMetadata& camera, std::uint32_t cameraId, const Shape& shape,
              std::uint8_t faces) {
    const ChiRect whole = {0, 0, static_cast<std::uint32_t>(shape.width),
                           static_cast<std::uint32_t>(shape.height)};
    camera.cameraId = cameraId;
    camera.scalerCropRegion = camera.ifeAppliedCrop = camera.sensorAppliedCrop =
        camera.activeArraySize = whole;
    camera.focusRect = {shape.width / 4, shape.height / 4, shape.width / 2, shape.height / 2};
    camera.afMode = kAfModeContinuousPicture;
    camera.faceCount = faces;
    for (std::uint8_t i = 0; i < faces; ++i) {
        camera.faces[i] = {shape.width / 16 * i, shape.height / 16 * i, whole.width / 8,
                           whole.height / 8};
    }
}

template <typename Record>
void ReadLines(const Record& record) {
    constexpr std::size_t kCacheLine = 64;
    for (std::size_t at = 0; at < sizeof(record); at += kCacheLine) {
        benchmark::DoNotOptimize(reinterpret_cast<const volatile char*>(&record)[at]);
    }
}

} // namespace

Scene::Scene(const Shape& shape, std::uint8_t faces)
    : pictures_(shape, 3), lists_{pictures_.List(0, 0), pictures_.List(1, 1),
                                  pictures_.List(2, 0)} {
    metadata_.blurLevel = 50;
    metadata_.masterCameraId = kMainCamera;
    Describe(metadata_.cameraMetadata[0], kMainCamera, shape, faces);
    Describe(metadata_.cameraMetadata[1], kAuxCamera, shape, 0);
    configs_.numPhysicalCameras = 2;
    configs_.camera[0].cameraId = configs_.primaryCameraId = kMainCamera;
    configs_.camera[1].cameraId = kAuxCamera;

    support::Platform& state = platform();
    // An idle platform takes no time and allocates nothing, so that what is measured is the node's.
    state = {.idle = true};
    state.metadata = {{TagId("InputMetadataBokeh") | kTagPoolRequest, &metadata_},
                      {TagId("PhysicalCameraConfigs") | kTagPoolCameraConfig, &configs_},
                      {TagId("PhysicalCameraInputConfig") | kTagPoolUseCase, &inputConfig_}};
    for (const std::size_t camera : {0u, 1u}) {
        state.engine.calibrationSizes[2 * camera] = 100 * shape.width;
        state.engine.calibrationSizes[2 * camera + 1] = 100 * shape.height;
    }
    state.engine.size = state.engine.activeSize = shape.width / 4 * (shape.height / 4);

    createInfo_.size = sizeof(createInfo_);
    createInfo_.hChiSession = &state;
    request_.size = sizeof(request_);
    request_.frameNumber = 1;
    request_.inputNum = 2;
    request_.inputs = inputs_;
    request_.outputNum = 1;
    request_.outputs = outputs_;
}

Scene::~Scene() {
    platform().metadata.clear();
}

void Scene::ReadRequestData() const {
    ReadLines(request_);
    ReadLines(lists_);
    ReadLines(metadata_.cameraMetadata);
    ReadLines(metadata_.skipBokeh);
    // Of these records a request touches only the ranks.
    ReadLines(configs_.camera[0].masterRank);
    ReadLines(configs_.camera[1].masterRank);
}

// The node is linked into the benchmark, so that its entry is called and not looked up.
const ChiNodeCallbacks& Callbacks() {
    static const ChiNodeCallbacks callbacks = [] {
        ChiNodeCallbacks table = {};
        table.size = sizeof(table);
        ChiNodeEntry(&table);
        table.setNodeInterface(reinterpret_cast<ChiNodeInterface*>(support::Interface().bytes()));
        return table;
    }();
    return callbacks;
}

Node::Node(std::shared_ptr<Scene> scene, bool engineStarts) : scene_(std::move(scene)) {
    platform().engine.results["TSL_DCIR_Init"] = engineStarts ? 0 : 1;
    Require(Callbacks().create(&scene_->CreateInfo()), "the node's creation");
    scene_->Request().hNodeSession = scene_->CreateInfo().hNodeSession;
}

Node::~Node() {
    ChiNodedestroyInfo info = {.size = sizeof(info),
                               .hNodeSession = scene_->Request().hNodeSession};
    Callbacks().destroy(&info);
}

void Node::Process() {
    Require(Callbacks().processRequest(&scene_->Request()), "the request");
}

void Node::ReadRequestData() const {
    scene_->ReadRequestData();
    ReadLines(*static_cast<const ChiNodeCaptureBokeh*>(scene_->Request().hNodeSession));
}

void Probe::Copy(const PLIM_OFFSCREEN& source, const PLIM_OFFSCREEN& destination) {
    m_frameParams.stOutputImage = destination;
    CopyImageToOutput(source);
}

const frame_params_t& Probe::Collect(Scene& scene) {
    if (!HasNodeInterface()) {
        Callbacks(); // the platform's table comes before any node
        Require(Initialize(&scene.CreateInfo()), "the node's initialisation");
    }
    Require(BaseProcessRequest(&scene.Request(), m_cameraInfo, m_frameParams, m_resultDataCTB),
            "the collection of parameters");
    return m_frameParams;
}

} // namespace bench

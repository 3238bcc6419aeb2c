#include "bench/node/scene.h"

#include <stdexcept>
#include <string>
#include <utility>

#include "bench/node/platform.h"

extern "C" void ChiNodeEntry(ChiNodeCallbacks* callbacks) noexcept;

namespace bench {
namespace {

constexpr std::uint32_t kMainCamera = 10;
constexpr std::uint32_t kAuxCamera = 20;

void Require(CDKResult result, const char* what) {
    if (result != CDKResultSuccess) {
        throw std::runtime_error(std::string(what) + " failed");
    }
}

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

    Platform& state = platform();
    state.metadata[kInputMetadataBokeh] = &metadata_;
    state.metadata[kPhysicalCameraConfigs] = &configs_;
    state.metadata[kPhysicalCameraInputConfig] = &inputConfig_;
    state.calibrationSize[0] = 100 * shape.width;
    state.calibrationSize[1] = 100 * shape.height;
    state.disparityBytes = shape.width / 4 * (shape.height / 4);

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
    platform().metadata[kInputMetadataBokeh] = nullptr;
    platform().metadata[kPhysicalCameraConfigs] = nullptr;
    platform().metadata[kPhysicalCameraInputConfig] = nullptr;
}

const ChiNodeCallbacks& Callbacks() {
    static const ChiNodeCallbacks callbacks = [] {
        ChiNodeCallbacks table = {};
        table.size = sizeof(table);
        ChiNodeEntry(&table);
        table.setNodeInterface(&Interface());
        return table;
    }();
    return callbacks;
}

Node::Node(std::shared_ptr<Scene> scene, bool engineStarts) : scene_(std::move(scene)) {
    platform().engineStarts = engineStarts;
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

void Probe::Copy(const PLIM_OFFSCREEN& source, const PLIM_OFFSCREEN& destination) {
    m_frameParams.stOutputImage = destination;
    CopyImageToOutput(source);
}

const frame_params_t& Probe::Collect(Scene& scene) {
    if (!HasNodeInterface()) {
        Callbacks(); // the platform's table comes before any node
        platform().engineStarts = true;
        Require(Initialize(&scene.CreateInfo()), "the node's initialisation");
    }
    Require(BaseProcessRequest(&scene.Request(), m_cameraInfo, m_frameParams, m_resultDataCTB),
            "the collection of parameters");
    return m_frameParams;
}

} // namespace bench

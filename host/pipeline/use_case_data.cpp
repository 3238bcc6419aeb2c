#include "host/pipeline/use_case_data.h"

#include <cstring>
#include <iterator>

#include "host/pipeline/text.h"

namespace host {
namespace {

// Input configuration of all nodes of the pipeline. The other nodes' inputs stand around this one's
// and carry the same cameras at other indices, so that only node and instance tell them apart.
std::vector<CameraInputConfig> InputConfigs(const UseCase& useCase) {
    std::vector<CameraInputConfig> entries;
    const auto add = [&entries](std::uint32_t node, std::uint32_t instance, std::uint32_t index,
                                std::uint32_t camera) {
        CameraInputConfig entry{};
        entry.nodeId = node;
        entry.nodeInstanceId = instance;
        entry.fullInputBufferIndex = index;
        entry.cameraId = camera;
        entries.push_back(entry);
    };
    for (const Camera& camera : useCase.cameras) {
        add(useCase.nodeId + 1, useCase.nodeInstanceId, camera.inputBufferIndex + 5, camera.id);
        add(useCase.nodeId, useCase.nodeInstanceId, camera.inputBufferIndex, camera.id);
        add(useCase.nodeId, useCase.nodeInstanceId + 1, camera.inputBufferIndex + 9, camera.id);
    }
    return entries;
}

} // namespace

UseCaseData::UseCaseData(const UseCase& useCase)
    : configs_(std::make_unique<PhysicalCameraConfigs>()) {
    if (useCase.cameras.size() > std::size(configs_->camera)) {
        throw PipelineError(Text("a use case has at most ", std::size(configs_->camera),
                                 " cameras, not ", useCase.cameras.size()));
    }
    configs_->numPhysicalCameras = static_cast<std::uint32_t>(useCase.cameras.size());
    configs_->primaryCameraId = useCase.primaryCameraId;
    PhysicalCameraConfig* config = configs_->camera;
    for (const Camera& camera : useCase.cameras) {
        config->cameraId = camera.id;
        config->masterRank = camera.masterRank;
        ++config;
    }

    const std::vector<CameraInputConfig> entries = InputConfigs(useCase);
    const PhysicalCameraInputConfig head{static_cast<std::uint32_t>(entries.size()), 0};
    const std::size_t entryBytes = entries.size() * sizeof(CameraInputConfig);
    inputs_ = std::make_unique<std::byte[]>(sizeof(head) + entryBytes);
    std::memcpy(inputs_.get(), &head, sizeof(head));
    if (entryBytes != 0) {
        std::memcpy(inputs_.get() + sizeof(head), entries.data(), entryBytes);
    }

    if (useCase.induceSleep) {
        sleep_ = std::make_unique<std::uint32_t>(*useCase.induceSleep);
    }
}

UseCase DualCamera(std::uint32_t mainWidth, std::uint32_t mainHeight, std::uint32_t auxWidth,
                   std::uint32_t auxHeight) {
    UseCase useCase;
    useCase.cameras = {{0, 2, 0, mainWidth, mainHeight}, {1, 1, 1, auxWidth, auxHeight}};
    useCase.outputWidth = mainWidth;
    useCase.outputHeight = mainHeight;
    return useCase;
}

Request PlainRequest(const UseCase& useCase, std::uint64_t frameNumber) {
    Request request;
    request.frameNumber = frameNumber;
    request.metadata.blurLevel = 100;
    if (!useCase.cameras.empty()) {
        request.metadata.masterCameraId = useCase.cameras.front().id;
    }
    for (const Camera& camera : useCase.cameras) {
        if (camera.inputBufferIndex >= std::size(request.metadata.cameraMetadata)) {
            continue;
        }
        CameraMetadata& slot = request.metadata.cameraMetadata[camera.inputBufferIndex];
        const ChiRect sensor{0, 0, camera.activeWidth, camera.activeHeight};
        slot.cameraId = camera.id;
        slot.scalerCropRegion = slot.ifeAppliedCrop = slot.sensorAppliedCrop = sensor;
        slot.ifeResidualCrop = slot.activeArraySize = sensor;
        // The middle fifth of each side.
        const auto width = static_cast<std::int32_t>(camera.activeWidth);
        const auto height = static_cast<std::int32_t>(camera.activeHeight);
        slot.focusRect = {width * 2 / 5, height * 2 / 5, width * 3 / 5 - 1, height * 3 / 5 - 1};
        slot.afMode = kAfModeContinuousPicture;
    }
    return request;
}

} // namespace host

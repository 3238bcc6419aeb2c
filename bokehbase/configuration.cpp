#include <array>
#include <cstdio>

#include "bokehbase/bokeh_base.h"
#include "bokehbase/log.h"
#include "platform/camx_settings.h"
#include "platform/device_names.h"

namespace {

// The platform's names of its result codes, by code.
constexpr std::array<const char*, 38> kResultNames = {
    "CDKResultSuccess",
    "CDKResultEFailed",
    "CDKResultEUnsupported",
    "CDKResultEInvalidState",
    "CDKResultEInvalidArg",
    "CDKResultEInvalidPointer",
    "CDKResultENoSuch",
    "CDKResultEOutOfBounds",
    "CDKResultENoMemory",
    "CDKResultETimeout",
    "CDKResultENoMore",
    "CDKResultENeedMore",
    "CDKResultEExists",
    "CDKResultEPrivLevel",
    "CDKResultEResource",
    "CDKResultEUnableToLoad",
    "CDKResultEInProgress",
    "CDKResultETryAgain",
    "CDKResultEBusy",
    "CDKResultEReentered",
    "CDKResultEReadOnly",
    "CDKResultEOverflow",
    "CDKResultEOutOfDomain",
    "CDKResultEInterrupted",
    "CDKResultEWouldBlock",
    "CDKResultETooManyUsers",
    "CDKResultENotImplemented",
    "CDKResultEDisabled",
    "CDKResultECancelledRequest",
    "CDKResultECoreNullMetadata",
    "CDKResultEInducedError",
    "CDKResultEFenceGroupError",
    "CDKResultECSLStreamOn",
    "CDKResultEAlreadyCompleted",
    "CDKResultEOEMStatus1",
    "CDKResultEOEMStatus2",
    "CDKResultEOEMStatus3",
    "CDKResultEProviderNotExist",
};

struct VendorTag {
    device::VendorTagName name;
    std::uint32_t BokehTagInfo::*id;
};

// In the order in which they are resolved.
constexpr VendorTag kVendorTags[] = {
    {device::tags::kInputMetadata, &BokehTagInfo::inputMetadataTagId},
    {device::tags::kOutputMetadata, &BokehTagInfo::outputMetadataTagId},
    {device::tags::kDepthPictureSize, &BokehTagInfo::depthPictureSizeTagId},
    {device::tags::kPhysicalCameraConfigs, &BokehTagInfo::physicalCameraConfigsTagId},
    {device::tags::kPhysicalCameraInputConfig, &BokehTagInfo::physicalCameraInputConfigTagId},
    {device::tags::kFaceResults, &BokehTagInfo::oemFDResultsTagId},
    {device::tags::kStreamCropInfo, &BokehTagInfo::streamCropInfoTagId},
    {device::tags::kEnableStreamCrop, &BokehTagInfo::enableStreamCropTagId},
    {device::tags::kStatus, &BokehTagInfo::statusTagId},
    {device::tags::kSelectFaceIndex, &BokehTagInfo::selectFaceIndexTagId},
    {device::tags::kPtFocus, &BokehTagInfo::ptFocusTagId},
};

} // namespace

CDKResult ChiNodeBokehBase::BaseInitialize(ChiNodeCreateInfo* createInfo,
                                           std::vector<CameraInfo>& cameraInfo,
                                           frame_params_t& params, OutputMetadataBokeh& result) {
    BASE_DEBUG(kTextColonIn);
    if (createInfo == nullptr) {
        BASE_ERROR(kTextNullPointerCode, CDKResultEInvalidPointer);
        return CDKResultEInvalidPointer;
    }
    m_numLinkedCameras = 2; // until the configuration says how many there are
    m_nodeId = createInfo->nodeId;
    m_nodeInstanceId = createInfo->nodeInstanceId;
    m_faceIndexTagBare = (createInfo->flags & kCreateFlagFaceIndexBare) != 0;

    if (const CDKResult code = FillVendorTagIds(params.tagInfo); code != CDKResultSuccess) {
        BASE_ERROR(kTextResultWide, code);
        return code;
    }

    const CDKResult code = ConfigureCameraInfo(params.tagInfo, cameraInfo);
    // Without a linked camera the primary's entry is empty.
    if (const PhysicalCameraConfig* primary = cameraInfo[m_primaryCameraIndex].pCameraConfig;
        code == CDKResultSuccess && primary != nullptr) {
        result.masterCameraId = primary->cameraId;
    }

    // The rotation is read even where the cameras failed, as their failure is reported at the end.
    CamX::SettingsManager* manager = CamX::SettingsManager::GetInstance();
    const CamX::StaticSettings* settings =
        manager != nullptr ? manager->GetStaticSettings() : nullptr;
    if (settings != nullptr) {
        m_imageDegree = settings->imageDegree;
    }
    BASE_DEBUG(kTextColonOut);
    return code;
}

CDKResult ChiNodeBokehBase::FillVendorTagIds(BokehTagInfo& tagInfo) {
    if (tagInfo.pChiNodeInterface == nullptr ||
        tagInfo.pChiNodeInterface->getVendorTagBase == nullptr) {
        BASE_ERROR(kTextNullPointerCode, CDKResultEInvalidPointer);
        return CDKResultEInvalidPointer;
    }

    const auto resolve = [&tagInfo](const VendorTag& row) {
        ChiVendorTagBaseQuery query = {
            .size = sizeof(query), .section = row.name.section, .tag = row.name.tag};
        const CDKResult result = tagInfo.pChiNodeInterface->getVendorTagBase(&query);
        if (result == CDKResultSuccess) {
            tagInfo.*row.id = query.tagId;
            return result;
        }
        // A platform newer than the name table may answer with a code that has no name here. It
        // reads as in the line that the caller prints next.
        char number[16];
        std::snprintf(number, sizeof(number), "%d", static_cast<int>(result));
        // NOLINTNEXTLINE(bugprone-lambda-function-name): the line is known under "operator()".
        BASE_ERROR("TSL_CTB: %s: %d: Error: %s during GetVendorTagBase for: %s %s\n",
                   result < kResultNames.size() ? kResultNames[result] : number, row.name.section,
                   row.name.tag);
        return result;
    };

    // The first failure ends it: the ids behind it stay as they were, and no node is created.
    for (const VendorTag& row : kVendorTags) {
        if (const CDKResult result = resolve(row); result != CDKResultSuccess) {
            return result;
        }
    }
    return CDKResultSuccess;
}

CDKResult ChiNodeBokehBase::ConfigureCameraInfo(BokehTagInfo tagInfo,
                                                std::vector<CameraInfo>& cameraInfo) {
    const auto* configs = static_cast<const PhysicalCameraConfigs*>(
        ReadMetadata(tagInfo, 0, tagInfo.physicalCameraConfigsTagId | kTagPoolCameraConfig));
    if (configs == nullptr) {
        BASE_ERROR("TSL_CTB: %s: %d: pPhysicalCameraConfigs not updated for BOKEH\n");
        return CDKResultEFailed;
    }
    // The platform's record has room for eight cameras, the node's vector for four.
    m_numLinkedCameras = configs->numPhysicalCameras;
    if (m_numLinkedCameras > kMaxLinkedCameras) {
        BASE_ERROR("TSL_CTB: %s: %d: Number of linked cameras %d, exceeds max supported linked "
                   "cameras %d \n",
                   m_numLinkedCameras, kMaxLinkedCameras);
        return CDKResultEFailed;
    }
    BASE_DEBUG("TSL_CTB: %s: %d:  Number of linked cameras %d, primary camera id %d \n",
               m_numLinkedCameras, configs->primaryCameraId);

    for (std::uint32_t i = 0; i < m_numLinkedCameras; ++i) {
        const PhysicalCameraConfig& config = configs->camera[i];
        cameraInfo[i].pCameraConfig = &config;
        // Found in every case: entry i has just been set. Input i is where camera i's image arrives
        // until the input mapping says otherwise.
        const std::uint32_t index = FindCamera(cameraInfo, config.cameraId);
        cameraInfo[index].inputBufferIndex = index;
        if (config.cameraId == configs->primaryCameraId) {
            m_primaryCameraIndex = i;
        }
    }
    return ConfigureInputBufferMapping(tagInfo, cameraInfo);
}

std::uint32_t ChiNodeBokehBase::FindCamera(const std::vector<CameraInfo>& cameraInfo,
                                           std::uint32_t cameraId) const {
    std::uint32_t i = 0;
    while (i < m_numLinkedCameras && (cameraInfo[i].pCameraConfig == nullptr ||
                                      cameraInfo[i].pCameraConfig->cameraId != cameraId)) {
        ++i;
    }
    return i;
}

CDKResult ChiNodeBokehBase::ConfigureInputBufferMapping(const BokehTagInfo& tagInfo,
                                                        std::vector<CameraInfo>& cameraInfo) {
    const auto* config = static_cast<const PhysicalCameraInputConfig*>(
        ReadMetadata(tagInfo, 0, tagInfo.physicalCameraInputConfigTagId | kTagPoolUseCase));
    if (config == nullptr) {
        BASE_ERROR("TSL_CTB: %s: %d: pCameraInputConfig not updated for BOKEH\n");
        return CDKResultEFailed;
    }
    // The list covers all nodes of the pipeline; the last entry for a camera counts.
    for (std::uint32_t k = 0; k < config->numInputs; ++k) {
        const CameraInputConfig& input = config->inputs()[k];
        if (input.nodeId != m_nodeId || input.nodeInstanceId != m_nodeInstanceId) {
            continue;
        }
        // An input of a camera that is not linked has no entry to write to.
        const std::uint32_t index = FindCamera(cameraInfo, input.cameraId);
        if (index == m_numLinkedCameras) {
            continue;
        }
        cameraInfo[index].inputBufferIndex = input.fullInputBufferIndex;
        BASE_DEBUG("TSL_CTB: %s: %d: Camera id %d, Full Input buffer Idx %d\n", input.cameraId,
                   input.fullInputBufferIndex);
    }
    return CDKResultSuccess;
}

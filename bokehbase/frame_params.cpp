#include <algorithm>

#include "bokehbase/bokeh_base.h"
#include "bokehbase/crop_region.h"
#include "bokehbase/log.h"

namespace {

// Nothing of an earlier request may be read: what this one does not supply is absent.
void ForgetRequest(frame_params_t& params) {
    params.stMainImage = {};
    params.stAuxImage = {};
    params.stOutputImage = {};
    params.pMainBuffer = nullptr;
    params.pAuxBuffer = nullptr;
    params.pOutputBuffer = nullptr;
    params.pDepthBuffer = nullptr;
    params.pInputMetadata = nullptr;
    params.i32FaceNum = 0;
}

// True when every buffer has its role: exactly one of the first two inputs is the master's, and
// some output takes the picture. `mainSlot` is the main image's input.
bool AssignBuffers(const ChiNodeProcessRequestInfo& request, std::uint32_t masterIndex,
                   frame_params_t& params, unsigned char& mainSlot) {
    if (request.inputNum < 2 || request.inputs == nullptr || request.outputs == nullptr ||
        request.inputs[0] == nullptr || request.inputs[1] == nullptr) {
        return false;
    }
    const bool firstIsMain = request.inputs[0]->portIndex == masterIndex;
    const bool secondIsMain = request.inputs[1]->portIndex == masterIndex;
    if (firstIsMain == secondIsMain) {
        return false;
    }
    mainSlot = firstIsMain ? 0 : 1;
    params.pMainBuffer = request.inputs[mainSlot];
    params.pAuxBuffer = request.inputs[1 - mainSlot];

    for (std::uint32_t i = 0; i < request.outputNum; ++i) {
        ChiImageList* output = request.outputs[i];
        if (output == nullptr) {
            return false;
        }
        (output->format.format == kChiFormatY8 ? params.pDepthBuffer : params.pOutputBuffer) =
            output;
    }
    return params.pOutputBuffer != nullptr;
}

ChiRect WholeImage(const PLIM_OFFSCREEN& image) {
    return {0, 0, static_cast<std::uint32_t>(image.i32Width),
            static_cast<std::uint32_t>(image.i32Height)};
}

CropRegion FromMetadata(const ChiRect& rect) {
    return {rect.left, rect.top, static_cast<std::int32_t>(rect.width),
            static_cast<std::int32_t>(rect.height)};
}

} // namespace

CDKResult ChiNodeBokehBase::BaseProcessRequest(ChiNodeProcessRequestInfo* request,
                                               const std::vector<CameraInfo>& cameraInfo,
                                               frame_params_t& params,
                                               OutputMetadataBokeh& /* kept for the driver */) {
    ForgetRequest(params);
    params.tagInfo.requestId = request->frameNumber;

    // A platform without this query stops no request.
    ChiRequestStateQuery state = {};
    if (params.tagInfo.pChiNodeInterface->queryRequestState != nullptr) {
        params.tagInfo.pChiNodeInterface->queryRequestState(params.tagInfo.hChiSession, &state);
    }
    m_requestStopped = state.stop == 1;
    if (m_requestStopped) {
        return CDKResultSuccess;
    }

    params.pInputMetadata = static_cast<InputMetadataBokeh*>(
        ReadMetadata(params.tagInfo, params.tagInfo.requestId,
                     params.tagInfo.inputMetadataTagId | kTagPoolRequest));
    if (params.pInputMetadata == nullptr) {
        BASE_ERROR(kTextNullPointerCode, CDKResultEInvalidPointer);
        return CDKResultEInvalidPointer;
    }
    const CDKResult result = GetBokehParams(request, cameraInfo, params);
    if (result != CDKResultSuccess) {
        BASE_ERROR(kTextResultWide, result);
    }
    return result;
}

CDKResult ChiNodeBokehBase::GetBokehParams(ChiNodeProcessRequestInfo* request,
                                           const std::vector<CameraInfo>& cameraInfo,
                                           frame_params_t& params) {
    if (params.pInputMetadata == nullptr) {
        BASE_ERROR(kTextNullPointerCode, CDKResultEInvalidPointer);
        return CDKResultEInvalidPointer;
    }
    // Which input is the main image, and where the results go.
    const std::uint32_t masterIndex =
        MasterInputIndex(params.pInputMetadata->masterCameraId, cameraInfo);
    unsigned char mainSlot = 0;
    if (!AssignBuffers(*request, masterIndex, params, mainSlot)) {
        BASE_ERROR(kTextNullPointerCode, CDKResultEInvalidPointer);
        return CDKResultEInvalidPointer;
    }

    // Until the cameras were found to fit once: they do not change while the node lives.
    if (m_paramsConsistent == 0) {
        CheckParamConsistency(mainSlot, params);
    }
    // The crops and the focus depend on the sizes of the images.
    PrepareImage(params.pMainBuffer, params.stMainImage);
    PrepareImage(params.pAuxBuffer, params.stAuxImage);
    PrepareImage(params.pOutputBuffer, params.stOutputImage);
    GetFrameParams(mainSlot, params);

    // Unsigned: a negative level comes out as full blur.
    constexpr std::uint32_t kFullBlur = 100;
    params.i32BlurIntensity =
        static_cast<std::int32_t>(std::min(params.pInputMetadata->blurLevel, kFullBlur));

    const TSL_DCR_CAMERAIMAGEINFO& info = params.cameraImageInfo;
    BASE_DEBUG("TSL_CTB: %s: %d: MasterCam[w, h]:[%d %d], AuxCam[w, h]:[%d %d],BlurIntensity %d, "
               "ImageDegree %d, ptFocus:[%d,%d], afStatus %d, focusDistance %d\n",
               info.i32MainWidth_CropNoScale, info.i32MainHeight_CropNoScale,
               info.i32AuxWidth_CropNoScale, info.i32AuxHeight_CropNoScale, params.i32BlurIntensity,
               info.i32ImageDegree, params.ptFocus.x, params.ptFocus.y, params.afStatus,
               params.focusDistance);
    return CDKResultSuccess;
}

// Where the master is none of the linked cameras, the primary camera's input serves: it is the one
// whose picture the user sees.
std::uint32_t ChiNodeBokehBase::MasterInputIndex(std::uint32_t masterCameraId,
                                                 const std::vector<CameraInfo>& cameraInfo) const {
    const std::uint32_t master = FindCamera(cameraInfo, masterCameraId);
    return cameraInfo[master < m_numLinkedCameras ? master : m_primaryCameraIndex].inputBufferIndex;
}

void ChiNodeBokehBase::CheckParamConsistency(unsigned char mainSlot, frame_params_t& params) {
    const std::int32_t mainWidth = m_caliMainWidth / kCalibrationUnitsPerPixel;
    const std::int32_t mainHeight = m_caliMainHeight / kCalibrationUnitsPerPixel;
    const std::int32_t auxWidth = m_caliAuxWidth / kCalibrationUnitsPerPixel;
    const std::int32_t auxHeight = m_caliAuxHeight / kCalibrationUnitsPerPixel;
    BASE_DEBUG("TSL_CTB: %s: %d: Calibration sizes: main [w, h]: [%d, %d], aux [w, h]: [%d, %d]\n",
               mainWidth, mainHeight, auxWidth, auxHeight);

    // Both are checked and reported, so that one log tells all that does not fit.
    bool consistent = true;
    for (unsigned char slot = 0; slot < 2; ++slot) {
        const bool isMain = slot == mainSlot;
        const std::int32_t width = isMain ? mainWidth : auxWidth;
        const std::int32_t height = isMain ? mainHeight : auxHeight;
        const ChiRect& active = params.pInputMetadata->cameraMetadata[slot].activeArraySize;
        if (active.width == static_cast<std::uint32_t>(width) &&
            active.height == static_cast<std::uint32_t>(height)) {
            continue;
        }
        consistent = false;
        if (isMain) {
            BASE_ERROR("TSL_CTB: %s: %d: Master camera parameter inconsistency!Calibration [w, h]: "
                       "[%d, %d], ActiveArraySize [w, h]: [%d, %d]\n",
                       width, height, active.width, active.height);
        } else {
            BASE_ERROR("TSL_CTB: %s: %d: Aux camera parameter inconsistency!Calibration [w, h]: "
                       "[%d, %d], ActiveArraySize [w, h]: [%d, %d]\n",
                       width, height, active.width, active.height);
        }
    }
    if (consistent) {
        m_paramsConsistent = 1;
    } else {
        params.CalibDataSuccess = 0;
    }
}

void ChiNodeBokehBase::GetFrameParams(unsigned char mainSlot, frame_params_t& params) {
    BASE_DEBUG("TSL_CTB: %s: %d: (IN ) %lu\n", params.tagInfo.requestId);
    TSL_DCR_CAMERAIMAGEINFO& info = params.cameraImageInfo;
    for (unsigned char slot = 0; slot < 2; ++slot) {
        CameraMetadata& camera = params.pInputMetadata->cameraMetadata[slot];
        const bool isMain = slot == mainSlot;
        const PLIM_OFFSCREEN& image = isMain ? params.stMainImage : params.stAuxImage;
        if (isMain) {
            BASE_DEBUG("TSL_CTB: %s: %d:  cameraMetadata[%d].maincameraId is %d\n", slot,
                       camera.cameraId);
            params.focusDistance = camera.focusDistance;
            params.afStatus = camera.afStatus;
        } else {
            BASE_DEBUG("TSL_CTB: %s: %d:  cameraMetadata[%d].auxcameraId is %d\n", slot,
                       camera.cameraId);
        }
        // The image arrives as the front end left it, so the crop left to do is the image itself.
        camera.ifeResidualCrop = WholeImage(image);
        const CropSize size = getCropRegions(&camera, image.i32Width, image.i32Height);
        if (isMain) {
            info.i32MainWidth_CropNoScale = size.width;
            info.i32MainHeight_CropNoScale = size.height;
            info.i32ImageDegree = static_cast<std::int32_t>(m_imageDegree);
            UpdateFocusROI(slot, params);
            UpdateFocusROIBasedFace(slot, params);
        } else {
            info.i32AuxWidth_CropNoScale = size.width;
            info.i32AuxHeight_CropNoScale = size.height;
        }
    }
}

CropSize getCropRegions(const CameraMetadata* metadata, int targetWidth, int targetHeight) {
    const CropRegion activeArray = FromMetadata(metadata->activeArraySize);
    const CropRegion sensorApplied = FromMetadata(metadata->sensorAppliedCrop);
    const CropRegion ifeApplied = FromMetadata(metadata->ifeAppliedCrop);
    const CropRegion ifeResidual = FromMetadata(metadata->ifeResidualCrop);

    const double target = static_cast<double>(targetWidth) / static_cast<double>(targetHeight);
    CropRegion scaler = FromMetadata(metadata->scalerCropRegion);
    scaler.FitToAspect(target);
    CropRegion total = ShownRegion(activeArray, ifeApplied, ifeResidual);
    total.FitToAspect(target);
    const CropRegion& preApplied = total; // the line's two names are of one region

    try {
        BASE_DEBUG("TSL_CTB: %s: %d: ScalerCropRegion: %s, totalCropRegion: %s, "
                   "preAppliedCropRegion: %s, ActiveArraySize: %s,  SensorAppliedCrop: %s, "
                   "IFEAppliedCrop: %s, IFEResidualCrop: %s\n",
                   scaler.toString().c_str(), total.toString().c_str(),
                   preApplied.toString().c_str(), activeArray.toString().c_str(),
                   sensorApplied.toString().c_str(), ifeApplied.toString().c_str(),
                   ifeResidual.toString().c_str());
    } catch (...) {
        // A debug line is not worth a photo.
    }
    return {total.width, total.height};
}

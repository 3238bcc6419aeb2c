#include <sys/time.h>

#include <cstring>

#include "bokehbase/image.h"
#include "bokehbase/log.h"
#include "node/capture_bokeh.h"
#include "node/process_state.h"
#include "platform/device_names.h"

namespace {

enum DebugView : std::int32_t {
    kViewMain = 1,
    kViewAux = 2,
    kViewAuxInMain = 3,
};

} // namespace

CDKResult ChiNodeCaptureBokeh::ProcessRequest(ChiNodeProcessRequestInfo* request) {
    NODE_DEBUG("TSL_CTB: %s: %d: : inputNum(%d), outputNum(%d)(IN)\n", request->inputNum,
               request->outputNum);
    const CDKResult result =
        BaseProcessRequest(request, m_cameraInfo, m_frameParams, m_resultDataCTB);
    if (result != CDKResultSuccess) {
        NODE_ERROR(kTextResultWide, result);
        return result;
    }
    // From here on the request succeeds: a failed rendering shows in the picture and the record.
    if (!m_requestStopped) {
        UpdataCTBParam();
        ReportUnusableImage();
        ProduceOutput();
        if (m_dumpImg != 0) {
            WriteDumps();
        }
        UpdateActiveMap();
        ++m_processedFrame; // before publishing: the number counts this request
        NODE_DEBUG("TSL_CTB: %s: %d: ProcessRequest m_processedFrame = %lu\n", m_processedFrame);
        UpdateMetaData();
    }
    NODE_DEBUG(kTextOutResultWide, result);
    return result;
}

void ChiNodeCaptureBokeh::ReportUnusableImage() const {
    const frame_params_t& params = m_frameParams;
    const struct {
        const char* name;
        const PLIM_OFFSCREEN& image;
        const ChiImageList& list;
    } images[] = {
        {"Main", params.stMainImage, *params.pMainBuffer},
        {"Output", params.stOutputImage, *params.pOutputBuffer},
        {"Aux", params.stAuxImage, *params.pAuxBuffer},
    };
    const bool mainIsCopied = IsUsable(params.stMainImage) && IsUsable(params.stOutputImage);
    const bool auxIsShown = (m_debugView == kViewAux || m_debugView == kViewAuxInMain) &&
                            IsUsable(params.stAuxImage) && IsUsable(params.stOutputImage);
    for (const auto& [name, image, list] : images) {
        // Another format has its own line already, which does not say what becomes of the photo
        // where it is the main image's.
        const bool logged = image.u32Format != PLIM_PAF_NV12 && &image != &params.stMainImage;
        if (IsUsable(image) || logged) {
            continue;
        }
        const ChiImageFormat& format = list.format;
        NODE_ERROR_AS("ProcessRequest",
                      "TSL_CTB: %s: %d: %s image cannot be used! Format %d, [w, h]: [%d, %d], "
                      "pitch %d, planes %d, addresses [%p, %p], %s\n",
                      name, format.format, format.width, format.height, format.plane[0].stride,
                      format.numberOfPlanes, static_cast<void*>(list.planeAddress[0]),
                      static_cast<void*>(list.planeAddress[1]),
                      mainIsCopied ? "the main image is copied"
                      : auxIsShown ? "the aux image is shown"
                                   : "no photo is written");
        return;
    }
}

void ChiNodeCaptureBokeh::ProduceOutput() {
    frame_params_t& params = m_frameParams;
    const bool auxCanBeShown = IsUsable(params.stAuxImage);
    switch (m_debugView) {
    case kViewMain:
        CopyImageToOutput(params.stMainImage);
        break;
    case kViewAux:
        CopyImageToOutput(auxCanBeShown ? params.stAuxImage : params.stMainImage);
        break;
    case kViewAuxInMain:
        CopyImageToOutput(params.stMainImage);
        if (auxCanBeShown && IsUsable(params.stOutputImage)) {
            // Every second pixel of the aux image: an inset of a quarter of the picture.
            MergeImage(&params.stOutputImage, &params.stAuxImage, 2);
        }
        break;
    default:
        if (params.CalibDataSuccess != 0) {
            DoProcess();
        } else {
            NODE_DEBUG_AS("ProcessRequest",
                          "TSL_CTB: %s: %d: CalibDataSuccess falil, copy image!\n");
            CopyImageToOutput(params.stMainImage);
        }
        break;
    }
}

void ChiNodeCaptureBokeh::WriteDumps() {
    // One time for all files of a request, so that their names share a stem.
    timeval now = {};
    gettimeofday(&now, nullptr);
    DumpAndSaveYUV(m_frameParams, now, device::kDumpPrefix);
    // The whole buffer, which outlives requests: after a copied photo it still holds an earlier
    // one's.
    if (m_pDisparityData != nullptr) {
        const PLIM_OFFSCREEN& image = m_frameParams.stMainImage;
        DumpDepthData(m_pDisparityData, m_i32DisparityDataBufferSize,
                      static_cast<std::uint32_t>(image.i32Pitch[0]),
                      static_cast<std::uint32_t>(image.i32Height), now, device::kDumpPrefix);
    }
}

void ChiNodeCaptureBokeh::UpdateActiveMap() {
    const InputMetadataBokeh* metadata = m_frameParams.pInputMetadata;
    if (metadata == nullptr) {
        BASE_ERROR(kTextNullPointer);
        return;
    }
    if (m_numLinkedCameras != 2) {
        m_resultDataCTB.activeMap = 0;
        return;
    }
    // The camera entries and the metadata slots are taken to be in the same order. A missing entry
    // and an unknown rank leave slot 0 as the master, as an equal rank does.
    const PhysicalCameraConfig* first = m_cameraInfo[0].pCameraConfig;
    const PhysicalCameraConfig* second = m_cameraInfo[1].pCameraConfig;
    const bool secondIsMaster =
        first != nullptr && second != nullptr && first->masterRank < second->masterRank;
    m_resultDataCTB.masterCameraId = metadata->cameraMetadata[secondIsMaster ? 1 : 0].cameraId;
    m_resultDataCTB.activeMap = 3;
}

void ChiNodeCaptureBokeh::UpdateMetaData() {
    const BokehTagInfo& tags = m_frameParams.tagInfo;
    // What is not a member as it is published lives on the stack; the platform copies it.
    constexpr char supportedFeature[kSupportedFeatureSize] = "SupportedFeatureQavCTB";
    const auto currentMode = static_cast<std::uint8_t>(m_currentMode);
    const FrameDimension frameDimension = m_frameDimension;
    const TSL_POINT ptFocus = m_frameParams.ptFocus;

    constexpr std::uint32_t kTags = 7;
    const std::uint32_t tagIds[kTags] = {
        g_vendorTagBase + kTagSupportedFeature,
        g_vendorTagBase + kTagCurrentMode,
        g_vendorTagBase + kTagProcessedFrameNumber,
        g_vendorTagBase + kTagFrameDimension,
        tags.depthPictureSizeTagId,
        tags.outputMetadataTagId,
        tags.ptFocusTagId,
    };
    // Sizes of the node's own tags are counts of elements, as its table says; the platform counts
    // the last three as they stand here.
    const auto entry = [&tags](const void* data, std::uint64_t dataSize) {
        return ChiTagData{.size = sizeof(ChiTagData),
                          .requestId = tags.requestId,
                          .data = data,
                          .dataSize = dataSize};
    };
    const ChiTagData tagData[kTags] = {
        entry(supportedFeature, NodeTagCount(kTagSupportedFeature)),
        entry(&currentMode, NodeTagCount(kTagCurrentMode)),
        entry(&m_processedFrame, NodeTagCount(kTagProcessedFrameNumber)),
        entry(&frameDimension, NodeTagCount(kTagFrameDimension)),
        entry(&m_i32DisparityDataActiveSize, sizeof(m_i32DisparityDataActiveSize)),
        entry(&m_resultDataCTB, sizeof(m_resultDataCTB)),
        entry(&ptFocus, 2),
    };
    const ChiMetadataSet set = {.size = sizeof(set),
                                .hChiSession = tags.hChiSession,
                                .numTags = kTags,
                                .tagIds = tagIds,
                                .tagData = tagData};
    if (g_ChiNodeInterface.setMetadata != nullptr) {
        g_ChiNodeInterface.setMetadata(&set);
    }
}

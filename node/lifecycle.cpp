#include <cstdlib>
#include <new>

#include "bokehbase/log.h"
#include "node/capture_bokeh.h"
#include "node/process_state.h"
#include "platform/chi_node_utils.h"
#include "platform/device_names.h"
#include "platform/properties.h"

namespace {

// 0 for a property that is unset or does not begin with a number.
int ReadIntProperty(const char* name) {
    char value[kPropertyValueMax] = {};
    property_get(name, value, "0");
    return std::atoi(value);
}

// A pair that exists stays as it is. False where the pair is incomplete.
bool AllocateFaceArrays(TSL_RECT*& rects, std::int32_t*& orients, std::int32_t& count) {
    if (rects == nullptr && orients == nullptr) {
        // Without an exception: the node goes on without its engine and copies photos.
        rects = new (std::nothrow) TSL_RECT[kFaceCapacity]();
        orients = new (std::nothrow) std::int32_t[kFaceCapacity]();
        count = 0;
    }
    return rects != nullptr && orients != nullptr;
}

void FreeFaceArrays(TSL_RECT*& rects, std::int32_t*& orients, std::int32_t& count) {
    delete[] orients;
    orients = nullptr;
    delete[] rects;
    rects = nullptr;
    count = 0;
}

} // namespace

// The camera entries are all made here: later steps fill them by index, and a request allocates
// nothing.
ChiNodeCaptureBokeh::ChiNodeCaptureBokeh() : m_cameraInfo(kMaxLinkedCameras) {}

ChiNodeCaptureBokeh::~ChiNodeCaptureBokeh() {
    NODE_DEBUG(kTextIn);
    m_frameParams.tagInfo.hChiSession = nullptr;
    Deinit(); // before the buffer goes that the engine has filled
    std::free(m_pDisparityData);
    m_pDisparityData = nullptr;
    m_i32DisparityDataBufferSize = 0;
    m_i32DisparityDataActiveSize = 0;
    NODE_DEBUG(kTextOut); // the last line of this node: the base class clears the mask
}

CDKResult ChiNodeCaptureBokeh::Initialize(ChiNodeCreateInfo* createInfo) {
    NODE_DEBUG(kTextIn);
    m_processedFrame = 0;
    m_frameParams.tagInfo.pChiNodeInterface = &g_ChiNodeInterface;
    m_frameParams.tagInfo.hChiSession = createInfo->hChiSession;
    m_currentMode = createInfo->nodeMode;

    // Without an engine the node still serves: it copies the main image.
    if (!IniEngine()) {
        Deinit();
    }
    CheckPersist();
    const CDKResult result =
        BaseInitialize(createInfo, m_cameraInfo, m_frameParams, m_resultDataCTB);
    if (result != CDKResultSuccess) {
        NODE_ERROR(kTextResultWide, result);
        return result;
    }
    NODE_DEBUG(kTextOut);
    return CDKResultSuccess;
}

bool ChiNodeCaptureBokeh::IniEngine() {
    NODE_DEBUG(kTextIn);
    TSL_DCR_CALDATA calibration = {};
    bool started = false;
    if (!AllocateFaceBuffers()) {
        NODE_ERROR(kTextResult, CDKResultEFailed);
    } else {
        // For the log alone, and asked for whatever the mask: the engine sees the same calls then.
        const TSL_DCR_VERSION* version = TSL_DCIR_GetVersion();
        if (version != nullptr && version->pVersion != nullptr) {
            NODE_DEBUG("TSL_CTB: %s: %d: pVersion: %s\n", version->pVersion);
        }
        if (const std::int64_t result = TSL_DCIR_Init(&m_hEngine, kEngineModeCapture);
            result != 0) {
            NODE_ERROR("TSL_CTB: %s: %d: Initialize TSL_DCIR_Init res = %ld\n", result);
            NODE_ERROR(kTextResult, static_cast<int>(result));
            // All zero: no request has filled the record yet.
        } else if (const std::int64_t infoResult =
                       TSL_DCIR_SetCameraImageInfo(m_hEngine, &m_frameParams.cameraImageInfo);
                   infoResult != 0) {
            NODE_ERROR("TSL_CTB: %s: %d: TSL_DCIR_SetCameraImageInfo failed res = %ld\n",
                       infoResult);
            NODE_ERROR(kTextResult, static_cast<int>(infoResult));
            // The instance stays up, without calibration, until the node ends.
            started = true;
        } else {
            started = GetCalibrationData(&calibration) == CDKResultSuccess;
            m_frameParams.CalibDataSuccess = started ? 1 : 0;
            ReleaseCalibrationData(&calibration); // the engine has its own copy
        }
    }
    NODE_DEBUG(kTextOut);
    return started;
}

bool ChiNodeCaptureBokeh::AllocateFaceBuffers() {
    const bool ofFrame = AllocateFaceArrays(m_frameParams.pFaceRects, m_frameParams.pFaceOrients,
                                            m_frameParams.i32FaceNum);
    const bool ofFocus = AllocateFaceArrays(m_focusParam.pFaceRects, m_focusParam.pFaceOrients,
                                            m_focusParam.i32FaceNum);
    return ofFrame && ofFocus;
}

void ChiNodeCaptureBokeh::Deinit() {
    NODE_DEBUG(kTextIn);
    if (m_hEngine != nullptr) {
        TSL_DCIR_Uninit(&m_hEngine);
        m_hEngine = nullptr;
    }
    FreeFaceArrays(m_frameParams.pFaceRects, m_frameParams.pFaceOrients, m_frameParams.i32FaceNum);
    FreeFaceArrays(m_focusParam.pFaceRects, m_focusParam.pFaceOrients, m_focusParam.i32FaceNum);
    NODE_DEBUG(kTextOut);
}

void ChiNodeCaptureBokeh::CheckPersist() {
    NODE_DEBUG(kTextColonIn);
    m_dumpImg = ReadIntProperty(device::kDumpProperty);
    m_debugView = ReadIntProperty(device::kDebugViewProperty);
    NODE_DEBUG(kTextColonOut);
}

std::int64_t ChiNodeCaptureBokeh::SetCaliData(TSL_DCR_CALDATA* data) {
    return TSL_DCIR_SetCaliData(m_hEngine, data);
}

std::int64_t ChiNodeCaptureBokeh::GetImageSizeInCalibration(int* mainWidth, int* mainHeight,
                                                            int* auxWidth, int* auxHeight) {
    return TSL_DCIR_GetImageSizeInCalibration(m_hEngine, mainWidth, mainHeight, auxWidth,
                                              auxHeight);
}

void ChiNodeCaptureBokeh::QueryBufferInfo(ChiNodeQueryBufferInfo* query) {
    NODE_DEBUG(kTextIn);
    ChiNodeUtils::DefaultBufferNegotiation(query);
    NODE_DEBUG(kTextOut);
}

void ChiNodeCaptureBokeh::SetBufferInfo(const ChiImageFormat& format) {
    NODE_DEBUG(kTextIn);
    m_frameDimension = {format.width, format.height};
    NODE_DEBUG(kTextOut);
}

std::uint32_t ChiNodeCaptureBokeh::InduceSleep() const {
    // A platform that does not know the tag leaves its id at 0, under which there is no data.
    ChiVendorTagBaseQuery query = {.size = sizeof(query),
                                   .section = device::tags::kInduceSleep.section,
                                   .tag = device::tags::kInduceSleep.tag};
    if (g_ChiNodeInterface.getVendorTagBase != nullptr) {
        g_ChiNodeInterface.getVendorTagBase(&query);
    }
    const auto* value = static_cast<const std::uint32_t*>(
        ReadMetadata(m_frameParams.tagInfo, 0, query.tagId | kTagPoolUseCase));
    return value != nullptr ? *value : 0;
}

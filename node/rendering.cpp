#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "bokehbase/image.h"
#include "bokehbase/log.h"
#include "node/capture_bokeh.h"

namespace {

// The rendering step is one operation in the log.
constexpr char kOperation[] = "DoProcess";

bool Succeeded(const char* function, std::int64_t result) {
    if (result != 0) {
        NODE_ERROR_AS(kOperation, kTextEngineFailed, function, result);
    }
    return result == 0;
}

} // namespace

void ChiNodeCaptureBokeh::UpdataCTBParam() {
    NODE_DEBUG(kTextIn);
    const frame_params_t& params = m_frameParams;
    m_focusParam.ptFocus = params.ptFocus;
    m_blurParam.i32BlurIntensity = params.i32BlurIntensity;
    m_i32DisparityDataActiveSize = 0; // published as it is where the engine does not run
    m_BokehProcess = params.pInputMetadata->skipBokeh == 0 ? 1 : 0;
    NODE_DEBUG("TSL_CTB: %s: %d:  m_BokehProcess %d, i32BlurIntensity %d, ptFocus[%d %d]\n",
               m_BokehProcess, m_blurParam.i32BlurIntensity, m_focusParam.ptFocus.x,
               m_focusParam.ptFocus.y);

    // The engine must not see the faces of an earlier request; the arrays may keep them unread.
    m_focusParam.i32FaceNum = 0;
    if (params.pFaceOrients != nullptr && params.pFaceRects != nullptr && params.i32FaceNum >= 1) {
        std::copy_n(params.pFaceRects, kFaceCapacity, m_focusParam.pFaceRects);
        std::copy_n(params.pFaceOrients, kFaceCapacity, m_focusParam.pFaceOrients);
        m_focusParam.i32FaceNum = params.i32FaceNum;
    }
    NODE_DEBUG(kTextOut);
}

void ChiNodeCaptureBokeh::DoProcess() {
    NODE_DEBUG(kTextIn);
    // The engine takes the three images as they are, so it is not given one that cannot be read.
    const bool rendered = IsUsable(m_frameParams.stMainImage) &&
                          IsUsable(m_frameParams.stAuxImage) &&
                          IsUsable(m_frameParams.stOutputImage) && RunEngine();
    m_resultDataCTB.depthEffectInfo = rendered ? 0 : 1;
    if (!rendered) {
        NODE_DEBUG("TSL_CTB: %s: %d:  Process failed, copy the main image, "
                   "m_resultDataCTB.depthEffectInfo = %d\n",
                   m_resultDataCTB.depthEffectInfo);
        CopyImageToOutput(m_frameParams.stMainImage);
    }
    NODE_DEBUG("TSL_CTB: %s: %d:  (OUT) \n");
}

// A failed preparation step does not stop the later ones; it only decides that the result is not
// kept. False: the output is not to be trusted.
bool ChiNodeCaptureBokeh::RunEngine() {
    frame_params_t& params = m_frameParams;
    // The disparity of the two images, and how many bytes it takes.
    bool good = Succeeded("TSL_DCIR_Reset", TSL_DCIR_Reset(m_hEngine));
    good &= Succeeded("TSL_DCIR_SetCameraImageInfo",
                      TSL_DCIR_SetCameraImageInfo(m_hEngine, &params.cameraImageInfo));
    good &= Succeeded("TSL_DCIR_CalcDisparityData",
                      TSL_DCIR_CalcDisparityData(m_hEngine, &params.stMainImage, &params.stAuxImage,
                                                 &m_focusParam));
    std::int32_t size = 0;
    good &=
        Succeeded("TSL_DCIR_GetDisparityDataSize", TSL_DCIR_GetDisparityDataSize(m_hEngine, &size));

    // Read it into the node's own buffer, from which it is delivered and rendered.
    EnsureDisparityBuffer(size);
    m_i32DisparityDataActiveSize = size;
    if (m_pDisparityData == nullptr) {
        // Nothing to render from, so the photo must come from the main image even where no engine
        // call failed.
        NODE_ERROR_AS(kOperation, "TSL_CTB: %s: %d: m_pDisparityData == nullptr\n");
        return false;
    }

    const std::int64_t result =
        TSL_DCIR_GetDisparityData(m_hEngine, m_pDisparityData, &m_i32DisparityDataActiveSize);
    NODE_DEBUG_AS(kOperation,
                  "TSL_CTB: %s: %d:  DoProcess TSL_DCIR_GetDisparityData res = %ld  "
                  "m_i32DisparityDataActiveSize %d\n",
                  result, m_i32DisparityDataActiveSize);
    good &= Succeeded("TSL_DCIR_GetDisparityData", result);

    WriteDepthOutput(size);
    return Render() && good;
}

void ChiNodeCaptureBokeh::EnsureDisparityBuffer(std::int32_t size) {
    if (size < 1 || (m_pDisparityData != nullptr && size <= m_i32DisparityDataBufferSize)) {
        return;
    }
    // The old bytes are not needed: what grows is about to be overwritten.
    std::free(m_pDisparityData);
    const auto bytes = static_cast<std::size_t>(size);
    NODE_DEBUG_AS(kOperation, "TSL_CTB: %s: %d:  malloc %lu buffer\n", bytes);
    m_pDisparityData = static_cast<std::uint8_t*>(std::malloc(bytes));
    m_i32DisparityDataBufferSize =
        size; // without memory too: the pointer says so, and is tried again
}

void ChiNodeCaptureBokeh::WriteDepthOutput(std::int32_t size) {
    const ChiImageList* depth = m_frameParams.pDepthBuffer;
    const auto bytes = static_cast<std::size_t>(size);
    if (size < 0 || depth == nullptr || depth->format.planeSize[0] < bytes ||
        depth->planeAddress[0] == nullptr) {
        return;
    }
    // The size that the engine announced, not what it filled: the reader of the buffer knows no
    // other.
    NODE_DEBUG_AS(kOperation, "TSL_CTB: %s: %d:  depth picture copy\n");
    std::memcpy(depth->planeAddress[0], m_pDisparityData, bytes);
}

bool ChiNodeCaptureBokeh::Render() {
    frame_params_t& params = m_frameParams;
    // The request asks for the disparity without a bokeh.
    if (m_BokehProcess == 0) {
        CopyImageToOutput(params.stMainImage);
        return true;
    }
    const std::int64_t result = TSL_DCIR_Process(m_hEngine, &params.stMainImage, m_pDisparityData,
                                                 m_i32DisparityDataActiveSize, &m_blurParam,
                                                 &m_focusParam, &params.stOutputImage);
    NODE_DEBUG_AS(kOperation, "TSL_CTB: %s: %d:  DoProcess TSL_DCIR_Process result = %ld\n",
                  result);
    return Succeeded("TSL_DCIR_Process", result);
}

void ChiNodeCaptureBokeh::CopyImageToOutput(const PLIM_OFFSCREEN& source) {
    const PLIM_OFFSCREEN& output = m_frameParams.stOutputImage;
    if (!IsUsable(source) || !IsUsable(output)) {
        return;
    }
    // A smaller source fills what it can: the photo is worth more than its edge.
    const auto width = static_cast<std::size_t>(std::min(source.i32Width, output.i32Width));
    const std::int32_t height = std::min(source.i32Height, output.i32Height);
    for (int plane = 0; plane < 2; ++plane) {
        const std::int32_t rows = plane == 0 ? height : height / 2;
        // Rows without padding follow one another: one long copy costs less than many short ones.
        const auto pitch = static_cast<std::size_t>(output.i32Pitch[plane]);
        if (source.i32Pitch[plane] == output.i32Pitch[plane] && pitch == width) {
            std::memcpy(RowOf(output, plane, 0), RowOf(source, plane, 0),
                        width * static_cast<std::size_t>(rows));
            continue;
        }
        for (std::int32_t row = 0; row < rows; ++row) {
            std::memcpy(RowOf(output, plane, row), RowOf(source, plane, row), width);
        }
    }
}

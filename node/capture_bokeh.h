#pragma once

#include <cstdint>
#include <vector>

#include "bokehbase/bokeh_base.h"

// One node instance: the engine's instance, the request driver and the rendering step. The platform
// holds it as an opaque handle. One request at a time; no lock is taken on the request path.
class ChiNodeCaptureBokeh : public ChiNodeBokehBase {
public:
    // May throw std::bad_alloc.
    ChiNodeCaptureBokeh();
    ~ChiNodeCaptureBokeh() override;

    std::int64_t SetCaliData(TSL_DCR_CALDATA* data) override;
    std::int64_t GetImageSizeInCalibration(int* mainWidth, int* mainHeight, int* auxWidth,
                                           int* auxHeight) override;

    // A node whose engine or calibration failed is a node all the same: it copies the main image.
    CDKResult Initialize(ChiNodeCreateInfo* createInfo);

    void QueryBufferInfo(ChiNodeQueryBufferInfo* query);
    void SetBufferInfo(const ChiImageFormat& format);

    bool HasNodeInterface() const { return m_frameParams.tagInfo.pChiNodeInterface != nullptr; }
    // The platform's debug value "InduceSleep"; 0 where it is not set.
    std::uint32_t InduceSleep() const;

    // Fails only where the request's parameters cannot be collected.
    CDKResult ProcessRequest(ChiNodeProcessRequestInfo* request);

protected:
    // Starts the engine and loads the calibration. False: the caller runs Deinit.
    bool IniEngine();
    bool AllocateFaceBuffers();
    // Ends the engine instance and frees the face buffers; may be called again.
    void Deinit();
    void CheckPersist();

    // Copies the request's values into the engine's records and decides whether it renders.
    void UpdataCTBParam();
    // Says which image cannot be used, and what becomes of the photo: one error line a request, for
    // the main image before the output before the aux image.
    void ReportUnusableImage() const;
    void ProduceOutput();
    // Drives the engine through one request. Whatever fails, the output holds the main image.
    void DoProcess();
    bool RunEngine();
    void EnsureDisparityBuffer(std::int32_t size);
    void WriteDepthOutput(std::int32_t size);
    bool Render();
    // Copies what `source` and the output have in common, one memcpy a row.
    void CopyImageToOutput(const PLIM_OFFSCREEN& source);

    void WriteDumps();
    void UpdateActiveMap();
    void UpdateMetaData();

    struct FrameDimension {
        std::uint32_t width;
        std::uint32_t height;
    };

    std::uint32_t m_currentMode = 0;
    FrameDimension m_frameDimension{};
    std::uint64_t m_processedFrame = 0;
    void* m_hEngine = nullptr; // null: no instance
    TSL_DCR_FOCUSPARAM m_focusParam{};
    TSL_DCR_BLURPARAM m_blurParam{};
    frame_params_t m_frameParams{};
    std::int32_t m_dumpImg = 0;   // not 0: every request is dumped
    std::int32_t m_debugView = 0; // 1 main, 2 aux, 3 main with a small aux; else the bokeh picture
    OutputMetadataBokeh m_resultDataCTB{};
    std::uint8_t* m_pDisparityData = nullptr; // malloc'ed; only grows
    std::int32_t m_i32DisparityDataBufferSize = 0;
    std::int32_t m_i32DisparityDataActiveSize = 0; // valid bytes of this request
    std::uint32_t m_BokehProcess = 0;              // 0: the main image is copied, not rendered
    std::vector<CameraInfo> m_cameraInfo;
};

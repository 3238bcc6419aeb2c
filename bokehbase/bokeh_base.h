#pragma once

#include <sys/time.h>

#include <cstdint>
#include <mutex>
#include <vector>

#include "bokehbase/records.h"

// The dual-camera logic that does not depend on the engine: configuration, frame parameters, focus,
// images, dumps, calibration file.
//
// One thread at a time. Nothing here throws; results are CDKResult codes, and what went wrong is in
// the log.
class ChiNodeBokehBase {
public:
    // Reads the process-wide log mask from its property.
    ChiNodeBokehBase();
    // Clears the process-wide log mask.
    virtual ~ChiNodeBokehBase();
    ChiNodeBokehBase(const ChiNodeBokehBase&) = delete;
    ChiNodeBokehBase& operator=(const ChiNodeBokehBase&) = delete;

    // The engine's side of loading the calibration file; both return the engine's result. The sizes
    // are in hundredths of a pixel.
    virtual std::int64_t SetCaliData(TSL_DCR_CALDATA* data) = 0;
    virtual std::int64_t GetImageSizeInCalibration(int* mainWidth, int* mainHeight, int* auxWidth,
                                                   int* auxHeight) = 0;

    // --- Creation ---

    // Resolves the vendor tags, reads the linked cameras and the image rotation. `params.tagInfo`
    // already names the platform's table and the session.
    CDKResult BaseInitialize(ChiNodeCreateInfo* createInfo, std::vector<CameraInfo>& cameraInfo,
                             frame_params_t& params, OutputMetadataBokeh& result);
    CDKResult FillVendorTagIds(BokehTagInfo& tagInfo);
    CDKResult ConfigureCameraInfo(BokehTagInfo tagInfo, std::vector<CameraInfo>& cameraInfo);

    // Reads one file into `data`, hands it to the engine and asks for the image sizes. `data` keeps
    // the bytes on success and on some failures; ReleaseCalibrationData frees them.
    CDKResult GetCalibrationBinData(TSL_DCR_CALDATA* data, const char* path);
    // Tries the device's own file, then the one that every device of the model shares.
    CDKResult GetCalibrationData(TSL_DCR_CALDATA* data);
    void ReleaseCalibrationData(TSL_DCR_CALDATA* data);

    // --- Request ---

    // Fills `params` for this request. Returns success with m_requestStopped set, and `params`
    // empty, where the platform says that the request is not to be processed.
    CDKResult BaseProcessRequest(ChiNodeProcessRequestInfo* request,
                                 const std::vector<CameraInfo>& cameraInfo, frame_params_t& params,
                                 OutputMetadataBokeh& result);
    CDKResult GetBokehParams(ChiNodeProcessRequestInfo* request,
                             const std::vector<CameraInfo>& cameraInfo, frame_params_t& params);

    // Sets the focus point of the camera whose image is the main one: the centre of its auto-focus
    // region, or of the image.
    void UpdateFocusROI(unsigned char cameraIndex, frame_params_t& params);
    // Cleans the camera's face list in the metadata, maps it into `params` and, in continuous
    // auto-focus, moves the focus point to the selected or largest face. Follows UpdateFocusROI.
    void UpdateFocusROIBasedFace(unsigned char cameraIndex, frame_params_t& params);

    // Wraps a list's first image; copies no pixels. Leaves `stImage` alone where the list is null
    // or of another format.
    void PrepareImage(ChiImageList* pNodeBuff, PLIM_OFFSCREEN& stImage);
    // Draws `source`, every `scale`-th pixel of it, into the top-left corner of `destination`,
    // clipped to it.
    void MergeImage(PLIM_OFFSCREEN* destination, PLIM_OFFSCREEN* source, int scale);

    // --- Dumps, under /data/vendor/camera/; nothing is reported to the caller ---

    void DumpAndSaveYUV(frame_params_t params, timeval time, const char* prefix);
    void DumpYUVData(PLIM_OFFSCREEN* image, const char* name);
    void DumpDepthData(unsigned char* data, int size, unsigned int width, unsigned int height,
                       timeval time, const char* prefix);

protected:
    std::mutex m_mutex; // held while a calibration file is loaded, and at no other time

    // Image sizes that the calibration was made for, in hundredths of a pixel; 0 until it is
    // loaded.
    std::int32_t m_caliMainWidth = 0;
    std::int32_t m_caliMainHeight = 0;
    std::int32_t m_caliAuxWidth = 0;
    std::int32_t m_caliAuxHeight = 0;

    std::uint32_t m_numLinkedCameras = 0;
    std::uint32_t m_primaryCameraIndex = 0;
    std::uint32_t m_nodeId = 0;
    std::uint32_t m_nodeInstanceId = 0;
    std::uint32_t m_imageDegree = 0;
    bool m_faceIndexTagBare = false;
    std::uint32_t m_paramsConsistent = 0; // 1 once the cameras were found to fit the calibration
    bool m_requestStopped = false;        // the platform told the request to stop
    ChiRect m_rtIFERect{};                // master camera's crop region in this request

private:
    // Index of the first linked camera with this id, or their number where none has it.
    std::uint32_t FindCamera(const std::vector<CameraInfo>& cameraInfo,
                             std::uint32_t cameraId) const;
    CDKResult ConfigureInputBufferMapping(const BokehTagInfo& tagInfo,
                                          std::vector<CameraInfo>& cameraInfo);

    std::uint32_t MasterInputIndex(std::uint32_t masterCameraId,
                                   const std::vector<CameraInfo>& cameraInfo) const;
    void CheckParamConsistency(unsigned char mainSlot, frame_params_t& params);
    void GetFrameParams(unsigned char mainSlot, frame_params_t& params);

    bool HandCalibrationToEngine(TSL_DCR_CALDATA* data);

    void saveFile(const char* path, const frame_params_t& params);
};

struct CropSize {
    std::int32_t width;
    std::int32_t height;
};

// Size of the part of the sensor that the camera's image shows, in sensor pixels before any
// scaling: the active array, less what was cropped, trimmed to the aspect ratio of the image that
// the camera delivers (targetWidth x targetHeight pixels).
CropSize getCropRegions(const CameraMetadata* metadata, int targetWidth, int targetHeight);

// The tag's data for `requestId`, owned by the platform, or null.
void* ReadMetadata(const BokehTagInfo& tagInfo, std::uint64_t requestId, std::uint32_t tagId);

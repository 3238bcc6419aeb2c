#pragma once

#include <cstdint>

#include "engine/refocus_engine.h"
#include "platform/chi_image.h"
#include "platform/chi_metadata.h"
#include "platform/chi_node.h"

// The base class's shared records.

// What every metadata access needs: tag ids as the platform assigned them, its callback table and
// the session. All but requestId are set once, at creation.
struct BokehTagInfo {
    std::uint64_t requestId; // frame number of the request being processed; 0 during creation
    std::uint32_t inputMetadataTagId;
    std::uint32_t outputMetadataTagId;
    std::uint32_t depthPictureSizeTagId;
    std::uint32_t physicalCameraConfigsTagId;
    std::uint32_t physicalCameraInputConfigTagId;
    std::uint32_t oemFDResultsTagId;
    std::uint32_t streamCropInfoTagId;
    std::uint32_t enableStreamCropTagId;
    std::uint32_t statusTagId;
    std::uint32_t selectFaceIndexTagId;
    std::uint32_t ptFocusTagId;
    ChiNodeInterface* pChiNodeInterface;
    void* hChiSession;
};

// Room for linked cameras in the node's vector of CameraInfo.
constexpr std::uint32_t kMaxLinkedCameras = 4;

// One linked physical camera.
struct CameraInfo {
    const PhysicalCameraConfig*
        pCameraConfig;              // the platform's, as long as the pipeline; null: empty
    std::uint32_t inputBufferIndex; // the node's input that carries this camera's image
};

// Parameters of the request being processed. The node keeps one for its whole life; images, buffer
// handles and metadata are borrowed from the platform and are emptied when the next request starts.
struct frame_params_t {
    PLIM_OFFSCREEN stMainImage;
    PLIM_OFFSCREEN stAuxImage;
    PLIM_OFFSCREEN stOutputImage;
    TSL_DCR_CAMERAIMAGEINFO cameraImageInfo;
    std::int32_t i32BlurIntensity; // 0 to 100
    std::uint32_t
        CalibDataSuccess;       // the engine may run: calibration loaded, and it fits the cameras
    std::int32_t focusDistance; // of the master camera
    std::int32_t afStatus;      // of the master camera
    TSL_POINT ptFocus;          // main image pixels
    TSL_RECT* pFaceRects;       // kFaceCapacity entries, main image pixels; the node's
    std::int32_t* pFaceOrients; // kFaceCapacity entries; the node's
    std::int32_t i32FaceNum;    // valid entries in both arrays
    ChiImageList* pMainBuffer;
    ChiImageList* pAuxBuffer;
    ChiImageList* pOutputBuffer;
    ChiImageList* pDepthBuffer; // null: the request has no depth output
    InputMetadataBokeh* pInputMetadata;
    BokehTagInfo tagInfo;
};
PIN_BINARY_RECORD(frame_params_t); // handed to the dumps by value

static_assert(kMaxFaces == kFaceCapacity, "every face of the metadata has a place in the arrays");

#pragma once

#include <cstdint>

#include "platform/layout.h"

// The platform's metadata that the node reads, by the words it uses. All of it belongs to the
// pipeline: use-case data lives as long as the pipeline, request data as long as the request.

struct ChiRect {
    std::int32_t left;
    std::int32_t top;
    std::uint32_t width;
    std::uint32_t height;
};
PIN_BINARY_RECORD(ChiRect);
PIN_SIZE(ChiRect, 16);

// Corners are inclusive.
struct ChiWeightedRegion {
    std::int32_t xMin;
    std::int32_t yMin;
    std::int32_t xMax;
    std::int32_t yMax;
};
PIN_BINARY_RECORD(ChiWeightedRegion);
PIN_SIZE(ChiWeightedRegion, 16);

constexpr std::uint32_t kMaxFaces = 10;

// Android's auto-focus mode number for continuous-picture.
constexpr std::int32_t kAfModeContinuousPicture = 4;

// Rectangles are in sensor (active array) pixels.
struct CameraMetadata {
    std::uint32_t reserved0;
    std::uint32_t cameraId;
    ChiRect scalerCropRegion;
    std::uint8_t reserved24[64];
    ChiRect ifeAppliedCrop;
    ChiRect sensorAppliedCrop;
    ChiRect ifeResidualCrop;
    ChiWeightedRegion focusRect;
    std::uint8_t reserved152[8];
    std::int32_t focusDistance;
    std::int32_t afStatus;
    std::uint8_t reserved168[24];
    std::uint8_t faceCount;
    std::uint8_t reserved193[11];
    ChiRect faces[kMaxFaces];
    std::uint8_t reserved364[20];
    ChiRect activeArraySize;
    std::int32_t afMode;
    std::uint8_t reserved404[4];
};
PIN_BINARY_RECORD(CameraMetadata);
PIN_SIZE(CameraMetadata, 408);
PIN_OFFSET(CameraMetadata, cameraId, 4);
PIN_OFFSET(CameraMetadata, scalerCropRegion, 8);
PIN_OFFSET(CameraMetadata, ifeAppliedCrop, 88);
PIN_OFFSET(CameraMetadata, sensorAppliedCrop, 104);
PIN_OFFSET(CameraMetadata, ifeResidualCrop, 120);
PIN_OFFSET(CameraMetadata, focusRect, 136);
PIN_OFFSET(CameraMetadata, focusDistance, 160);
PIN_OFFSET(CameraMetadata, afStatus, 164);
PIN_OFFSET(CameraMetadata, faceCount, 192);
PIN_OFFSET(CameraMetadata, faces, 204);
PIN_OFFSET(CameraMetadata, activeArraySize, 384);
PIN_OFFSET(CameraMetadata, afMode, 400);

// "InputMetadataBokeh", per request. Slot i describes the camera whose image is in input buffer i.
struct InputMetadataBokeh {
    std::uint32_t reserved0;
    std::uint32_t blurLevel;
    std::uint8_t reserved8[8];
    std::uint32_t masterCameraId;
    std::uint32_t reserved20;
    CameraMetadata cameraMetadata[2];
    std::uint8_t reserved840[2464];
    std::uint32_t skipBokeh; // the engine renders only when this is 0
};
PIN_BINARY_RECORD(InputMetadataBokeh);
PIN_OFFSET(InputMetadataBokeh, blurLevel, 4);
PIN_OFFSET(InputMetadataBokeh, masterCameraId, 16);
PIN_OFFSET(InputMetadataBokeh, cameraMetadata, 24);
PIN_OFFSET(InputMetadataBokeh, cameraMetadata[1], 432);
PIN_OFFSET(InputMetadataBokeh, skipBokeh, 3304);

// "OutputMetadataBokeh", the node's result record.
struct OutputMetadataBokeh {
    std::uint32_t masterCameraId;
    std::uint32_t activeMap;       // 3 while two cameras are linked, else 0
    std::uint32_t depthEffectInfo; // 0: rendered; 1: the main image was copied after a failure
};
PIN_BINARY_RECORD(OutputMetadataBokeh);
PIN_SIZE(OutputMetadataBokeh, 12);
PIN_OFFSET(OutputMetadataBokeh, activeMap, 4);
PIN_OFFSET(OutputMetadataBokeh, depthEffectInfo, 8);

// One camera in "PhysicalCameraConfigs".
struct PhysicalCameraConfig {
    std::uint32_t cameraId;
    float masterRank; // of two linked cameras, the one with the greater value is the master
    std::uint8_t reserved[2048];
};
PIN_BINARY_RECORD(PhysicalCameraConfig);
PIN_SIZE(PhysicalCameraConfig, 2056);
PIN_OFFSET(PhysicalCameraConfig, masterRank, 4);

// "PhysicalCameraConfigs", per use case.
struct PhysicalCameraConfigs {
    std::uint32_t numPhysicalCameras;
    std::uint32_t reserved;
    PhysicalCameraConfig camera[8];
    std::uint32_t primaryCameraId;
};
PIN_BINARY_RECORD(PhysicalCameraConfigs);
PIN_OFFSET(PhysicalCameraConfigs, camera, 8);
PIN_OFFSET(PhysicalCameraConfigs, primaryCameraId, 16456);

// One input of some node of the pipeline, in "PhysicalCameraInputConfig".
struct CameraInputConfig {
    std::uint32_t nodeId;
    std::uint32_t nodeInstanceId;
    std::uint32_t fullInputBufferIndex;
    std::uint8_t reserved12[20];
    std::uint32_t cameraId;
    std::uint8_t reserved36[12];
};
PIN_BINARY_RECORD(CameraInputConfig);
PIN_SIZE(CameraInputConfig, 48);
PIN_OFFSET(CameraInputConfig, nodeInstanceId, 4);
PIN_OFFSET(CameraInputConfig, fullInputBufferIndex, 8);
PIN_OFFSET(CameraInputConfig, cameraId, 32);

// "PhysicalCameraInputConfig", per use case; `numInputs` entries follow this head.
struct PhysicalCameraInputConfig {
    std::uint32_t numInputs;
    std::uint32_t reserved;

    const CameraInputConfig* inputs() const {
        return reinterpret_cast<const CameraInputConfig*>(this + 1);
    }
};
PIN_BINARY_RECORD(PhysicalCameraInputConfig);
PIN_SIZE(PhysicalCameraInputConfig, 8);

// "OEMFDResults", per request, up to the only word the node reads.
struct OEMFDResults {
    std::uint8_t reserved[404];
    std::int32_t rotation; // degrees
};
PIN_BINARY_RECORD(OEMFDResults);
PIN_OFFSET(OEMFDResults, rotation, 404);

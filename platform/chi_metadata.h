#pragma once

#include <cstdint>

// The platform's metadata that the node reads, by the words it uses. All of it belongs to the
// pipeline: use-case data lives as long as the pipeline, request data as long as the request.

struct ChiRect {
    std::int32_t left;
    std::int32_t top;
    std::uint32_t width;
    std::uint32_t height;
};

// Corners are inclusive.
struct ChiWeightedRegion {
    std::int32_t xMin;
    std::int32_t yMin;
    std::int32_t xMax;
    std::int32_t yMax;
};

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

// "OutputMetadataBokeh", the node's result record.
struct OutputMetadataBokeh {
    std::uint32_t masterCameraId;
    std::uint32_t activeMap;       // 3 while two cameras are linked, else 0
    std::uint32_t depthEffectInfo; // 0: rendered; 1: the main image was copied after a failure
};

// One camera in "PhysicalCameraConfigs".
struct PhysicalCameraConfig {
    std::uint32_t cameraId;
    float masterRank; // of two linked cameras, the one with the greater value is the master
    std::uint8_t reserved[2048];
};

// "PhysicalCameraConfigs", per use case.
struct PhysicalCameraConfigs {
    std::uint32_t numPhysicalCameras;
    std::uint32_t reserved;
    PhysicalCameraConfig camera[8];
    std::uint32_t primaryCameraId;
};

// One input of some node of the pipeline, in "PhysicalCameraInputConfig".
struct CameraInputConfig {
    std::uint32_t nodeId;
    std::uint32_t nodeInstanceId;
    std::uint32_t fullInputBufferIndex;
    std::uint8_t reserved12[20];
    std::uint32_t cameraId;
    std::uint8_t reserved36[12];
};

// "PhysicalCameraInputConfig", per use case; `numInputs` entries follow this head.
struct PhysicalCameraInputConfig {
    std::uint32_t numInputs;
    std::uint32_t reserved;

    const CameraInputConfig* inputs() const {
        return reinterpret_cast<const CameraInputConfig*>(this + 1);
    }
};

// "OEMFDResults", per request, up to the only word the node reads.
struct OEMFDResults {
    std::uint8_t reserved[404];
    std::int32_t rotation; // degrees
};

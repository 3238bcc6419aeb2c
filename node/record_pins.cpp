#include "platform/camx_settings.h"
#include "platform/chi_image.h"
#include "platform/chi_metadata.h"
#include "platform/chi_node.h"
#include "platform/layout.h"

// Where the platform puts what the node reads and writes, in bytes. Compiled for these assertions
// alone, and apart from the records, so that they hold a device's own headers as well as ours. What
// platform/ arranges by itself has no pin here.

// --- Node interface ---

PIN_BINARY_RECORD(CHIVENDORTAGDATA);
PIN_BINARY_RECORD(CHIVENDORTAGSECTIONDATA);
PIN_BINARY_RECORD(CHIVENDORTAGINFO);

PIN_BINARY_RECORD(ChiVendorTagBaseQuery);
PIN_SIZE(ChiVendorTagBaseQuery, 24);
PIN_OFFSET(ChiVendorTagBaseQuery, tagId, 4);
PIN_OFFSET(ChiVendorTagBaseQuery, section, 8);
PIN_OFFSET(ChiVendorTagBaseQuery, tag, 16);

PIN_BINARY_RECORD(ChiTagData);
PIN_SIZE(ChiTagData, 48);
PIN_OFFSET(ChiTagData, requestId, 8);
PIN_OFFSET(ChiTagData, data, 16);
PIN_OFFSET(ChiTagData, dataSize, 24);

PIN_BINARY_RECORD(ChiMetadataSet);
PIN_SIZE(ChiMetadataSet, 64);
PIN_OFFSET(ChiMetadataSet, hChiSession, 8);
PIN_OFFSET(ChiMetadataSet, numTags, 16);
PIN_OFFSET(ChiMetadataSet, tagIds, 24);
PIN_OFFSET(ChiMetadataSet, tagData, 32);

PIN_BINARY_RECORD(ChiRequestStateQuery);
PIN_SIZE(ChiRequestStateQuery, 32);
PIN_OFFSET(ChiRequestStateQuery, stop, 24);

PIN_BINARY_RECORD(ChiNodeInterface);
PIN_OFFSET(ChiNodeInterface, setMetadata, 24);
PIN_OFFSET(ChiNodeInterface, getVendorTagBase, 32);
PIN_OFFSET(ChiNodeInterface, queryRequestState, 144);

PIN_BINARY_RECORD(ChiNodeCapsInfo);
PIN_SIZE(ChiNodeCapsInfo, 8);
PIN_OFFSET(ChiNodeCapsInfo, nodeCapsMask, 4);

PIN_BINARY_RECORD(ChiNodeCreateInfo);
PIN_SIZE(ChiNodeCreateInfo, 112);
PIN_OFFSET(ChiNodeCreateInfo, hChiSession, 8);
PIN_OFFSET(ChiNodeCreateInfo, hNodeSession, 16);
PIN_OFFSET(ChiNodeCreateInfo, nodeId, 24);
PIN_OFFSET(ChiNodeCreateInfo, nodeMode, 32);
PIN_OFFSET(ChiNodeCreateInfo, flags, 36);
PIN_OFFSET(ChiNodeCreateInfo, nodeInstanceId, 40);

PIN_BINARY_RECORD(ChiNodedestroyInfo);
PIN_SIZE(ChiNodedestroyInfo, 16);
PIN_OFFSET(ChiNodedestroyInfo, hNodeSession, 8);

PIN_BINARY_RECORD(ChiNodeQueryBufferInfo);
PIN_SIZE(ChiNodeQueryBufferInfo, 56);
PIN_OFFSET(ChiNodeQueryBufferInfo, hNodeSession, 8);

PIN_BINARY_RECORD(ChiNodeSetBufferPropertiesInfo);
PIN_SIZE(ChiNodeSetBufferPropertiesInfo, 64);
PIN_OFFSET(ChiNodeSetBufferPropertiesInfo, hNodeSession, 8);
PIN_OFFSET(ChiNodeSetBufferPropertiesInfo, format, 24);

PIN_BINARY_RECORD(ChiNodeProcessRequestInfo);
PIN_SIZE(ChiNodeProcessRequestInfo, 128);
PIN_OFFSET(ChiNodeProcessRequestInfo, hNodeSession, 8);
PIN_OFFSET(ChiNodeProcessRequestInfo, frameNumber, 16);
PIN_OFFSET(ChiNodeProcessRequestInfo, inputNum, 32);
PIN_OFFSET(ChiNodeProcessRequestInfo, inputs, 40);
PIN_OFFSET(ChiNodeProcessRequestInfo, outputNum, 48);
PIN_OFFSET(ChiNodeProcessRequestInfo, outputs, 56);

PIN_BINARY_RECORD(ChiNodePostPipelineCreateOutput);
PIN_OFFSET(ChiNodePostPipelineCreateOutput, delay, 0);
PIN_OFFSET(ChiNodePostPipelineCreateOutput, reserved24, 24);

PIN_BINARY_RECORD(ChiNodeCallbacks);
PIN_SIZE(ChiNodeCallbacks, 248);
PIN_OFFSET(ChiNodeCallbacks, majorVersion, 4);
PIN_OFFSET(ChiNodeCallbacks, minorVersion, 8);
PIN_OFFSET(ChiNodeCallbacks, getCaps, 16);
PIN_OFFSET(ChiNodeCallbacks, queryVendorTag, 24);
PIN_OFFSET(ChiNodeCallbacks, create, 32);
PIN_OFFSET(ChiNodeCallbacks, destroy, 40);
PIN_OFFSET(ChiNodeCallbacks, queryBufferInfo, 48);
PIN_OFFSET(ChiNodeCallbacks, setBufferInfo, 64);
PIN_OFFSET(ChiNodeCallbacks, processRequest, 88);
PIN_OFFSET(ChiNodeCallbacks, setNodeInterface, 104);
PIN_OFFSET(ChiNodeCallbacks, postPipelineCreate, 112);

// --- Images ---

PIN_BINARY_RECORD(ChiPlaneFormat);
PIN_BINARY_RECORD(ChiImageFormat);
PIN_OFFSET(ChiImageFormat, width, 0);
PIN_OFFSET(ChiImageFormat, height, 4);

PIN_BINARY_RECORD(ChiImageList);
PIN_OFFSET(ChiImageList, format.format, 16);
PIN_OFFSET(ChiImageList, format.planeSize, 240);
PIN_OFFSET(ChiImageList, planeAddress, 336);
PIN_OFFSET(ChiImageList, portIndex, 824);

// --- Metadata ---

PIN_BINARY_RECORD(ChiRect);
PIN_SIZE(ChiRect, 16);

PIN_BINARY_RECORD(ChiWeightedRegion);
PIN_SIZE(ChiWeightedRegion, 16);

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

PIN_BINARY_RECORD(InputMetadataBokeh);
PIN_OFFSET(InputMetadataBokeh, blurLevel, 4);
PIN_OFFSET(InputMetadataBokeh, masterCameraId, 16);
PIN_OFFSET(InputMetadataBokeh, cameraMetadata, 24);
PIN_OFFSET(InputMetadataBokeh, cameraMetadata[1], 432);
PIN_OFFSET(InputMetadataBokeh, skipBokeh, 3304);

PIN_BINARY_RECORD(OutputMetadataBokeh);
PIN_SIZE(OutputMetadataBokeh, 12);
PIN_OFFSET(OutputMetadataBokeh, activeMap, 4);
PIN_OFFSET(OutputMetadataBokeh, depthEffectInfo, 8);

PIN_BINARY_RECORD(PhysicalCameraConfig);
PIN_SIZE(PhysicalCameraConfig, 2056);
PIN_OFFSET(PhysicalCameraConfig, masterRank, 4);

PIN_BINARY_RECORD(PhysicalCameraConfigs);
PIN_OFFSET(PhysicalCameraConfigs, camera, 8);
PIN_OFFSET(PhysicalCameraConfigs, primaryCameraId, 16456);

PIN_BINARY_RECORD(CameraInputConfig);
PIN_SIZE(CameraInputConfig, 48);
PIN_OFFSET(CameraInputConfig, nodeInstanceId, 4);
PIN_OFFSET(CameraInputConfig, fullInputBufferIndex, 8);
PIN_OFFSET(CameraInputConfig, cameraId, 32);

PIN_BINARY_RECORD(PhysicalCameraInputConfig);
PIN_SIZE(PhysicalCameraInputConfig, 8);

PIN_BINARY_RECORD(OEMFDResults);
PIN_OFFSET(OEMFDResults, rotation, 404);

// --- Settings ---

PIN_BINARY_RECORD(CamX::StaticSettings);
PIN_OFFSET(CamX::StaticSettings, imageDegree, 25756);

#pragma once

#include <cstdint>

#include "platform/layout.h"
#include "platform/result.h"

// The platform's node interface: the records that cross it, as far as the node relies on them. Each
// record that starts with `size` carries the size that its maker knows.

struct ChiImageList;
struct ChiImageFormat;

// --- Vendor tags ---------------------------------------------------------------------------------

// Android camera metadata type codes.
enum ChiTagType : std::uint8_t {
    kTagTypeByte = 0,
    kTagTypeInt32 = 1,
    kTagTypeFloat = 2,
    kTagTypeInt64 = 3,
    kTagTypeDouble = 4,
    kTagTypeRational = 5,
};

struct CHIVENDORTAGDATA {
    const char* name;
    std::uint32_t type;  // ChiTagType
    std::uint32_t count; // elements
};
PIN_BINARY_RECORD(CHIVENDORTAGDATA);
PIN_SIZE(CHIVENDORTAGDATA, 16);

struct CHIVENDORTAGSECTIONDATA {
    const char* name;
    std::uint32_t firstTag; // id of the first tag, relative to the section's base
    std::uint32_t numTags;
    const CHIVENDORTAGDATA* tags;
    std::uint32_t visibility; // bit mask of the viewers; all bits: everyone
    std::uint32_t reserved;
};
PIN_BINARY_RECORD(CHIVENDORTAGSECTIONDATA);
PIN_SIZE(CHIVENDORTAGSECTIONDATA, 32);

struct CHIVENDORTAGINFO {
    const CHIVENDORTAGSECTIONDATA* sections;
    std::uint32_t numSections;
    std::uint32_t reserved;
};
PIN_BINARY_RECORD(CHIVENDORTAGINFO);
PIN_SIZE(CHIVENDORTAGINFO, 16);

struct ChiQueryVendorTag; // opaque to the node

struct ChiVendorTagBaseQuery {
    std::uint32_t size;
    std::uint32_t tagId; // 0 before the call, written by the platform
    const char* section;
    const char* tag;
};
PIN_BINARY_RECORD(ChiVendorTagBaseQuery);
PIN_SIZE(ChiVendorTagBaseQuery, 24);
PIN_OFFSET(ChiVendorTagBaseQuery, tagId, 4);
PIN_OFFSET(ChiVendorTagBaseQuery, section, 8);
PIN_OFFSET(ChiVendorTagBaseQuery, tag, 16);

// --- Metadata ------------------------------------------------------------------------------------

// Only the numeric value is known of the type that the node asks for.
enum ChiMetadataType : std::uint32_t {
    kChiMetadataTypeNode = 2,
};

// ORed to a tag id to say which pool the data is read from.
constexpr std::uint32_t kTagPoolCameraConfig = 0x04000000;
constexpr std::uint32_t kTagPoolRequest = 0x08000000;
constexpr std::uint32_t kTagPoolUseCase = 0x20000000;

struct ChiTagData {
    std::uint32_t size;
    std::uint32_t reserved4;
    std::uint64_t requestId;
    const void* data;
    std::uint64_t dataSize;
    std::uint8_t reserved32[16];
};
PIN_BINARY_RECORD(ChiTagData);
PIN_SIZE(ChiTagData, 48);
PIN_OFFSET(ChiTagData, requestId, 8);
PIN_OFFSET(ChiTagData, data, 16);
PIN_OFFSET(ChiTagData, dataSize, 24);

struct ChiMetadataSet {
    std::uint32_t size;
    std::uint32_t reserved4;
    void* hChiSession;
    std::uint32_t numTags;
    std::uint32_t reserved20;
    const std::uint32_t* tagIds;
    const ChiTagData* tagData;
    std::uint8_t reserved40[24];
};
PIN_BINARY_RECORD(ChiMetadataSet);
PIN_SIZE(ChiMetadataSet, 64);
PIN_OFFSET(ChiMetadataSet, hChiSession, 8);
PIN_OFFSET(ChiMetadataSet, numTags, 16);
PIN_OFFSET(ChiMetadataSet, tagIds, 24);
PIN_OFFSET(ChiMetadataSet, tagData, 32);

// --- The platform's callbacks --------------------------------------------------------------------

struct ChiRequestStateQuery {
    std::uint64_t reserved[3];
    std::uint32_t stop; // 1: the request is not to be processed
    std::uint32_t reserved28;
};
PIN_BINARY_RECORD(ChiRequestStateQuery);
PIN_SIZE(ChiRequestStateQuery, 32);
PIN_OFFSET(ChiRequestStateQuery, stop, 24);

using ChiSetMetadata = CDKResult (*)(const ChiMetadataSet* set);
using ChiGetVendorTagBase = CDKResult (*)(ChiVendorTagBaseQuery* query);
using ChiQueryRequestState = CDKResult (*)(void* hChiSession, ChiRequestStateQuery* query);

// The platform writes the node's copy of this table through ChiNodeUtils::SetNodeInterface. How
// long the table is differs between platform releases, each appending callbacks, so the copy leaves
// far more room than the last slot the node uses.
struct ChiNodeInterface {
    std::uint32_t size;
    std::uint32_t reserved4;
    void* reserved8[2];
    ChiSetMetadata setMetadata;
    ChiGetVendorTagBase getVendorTagBase;
    void* reserved40[13];
    ChiQueryRequestState queryRequestState;
    void* reserved152[45];
};
PIN_BINARY_RECORD(ChiNodeInterface);
PIN_OFFSET(ChiNodeInterface, setMetadata, 24);
PIN_OFFSET(ChiNodeInterface, getVendorTagBase, 32);
PIN_OFFSET(ChiNodeInterface, queryRequestState, 144);
PIN_SIZE(ChiNodeInterface, 512);

// --- Records of the node's callbacks -------------------------------------------------------------

constexpr std::uint32_t kNodeCapsCapture = 1;

struct ChiNodeCapsInfo {
    std::uint32_t size;
    std::uint32_t nodeCapsMask;
};
PIN_BINARY_RECORD(ChiNodeCapsInfo);
PIN_SIZE(ChiNodeCapsInfo, 8);
PIN_OFFSET(ChiNodeCapsInfo, nodeCapsMask, 4);

constexpr std::uint32_t kCreateFlagFaceIndexBare = 2; // "SelectFaceIndex" is read without a pool

struct ChiNodeCreateInfo {
    std::uint32_t size;
    std::uint32_t reserved4;
    void* hChiSession;
    void* hNodeSession; // written by NodeCreate: the node's handle
    std::uint32_t nodeId;
    std::uint32_t reserved28;
    std::uint32_t nodeMode;
    std::uint32_t flags;
    std::uint32_t nodeInstanceId;
    std::uint8_t reserved44[68];
};
PIN_BINARY_RECORD(ChiNodeCreateInfo);
PIN_SIZE(ChiNodeCreateInfo, 112);
PIN_OFFSET(ChiNodeCreateInfo, hChiSession, 8);
PIN_OFFSET(ChiNodeCreateInfo, hNodeSession, 16);
PIN_OFFSET(ChiNodeCreateInfo, nodeId, 24);
PIN_OFFSET(ChiNodeCreateInfo, nodeMode, 32);
PIN_OFFSET(ChiNodeCreateInfo, flags, 36);
PIN_OFFSET(ChiNodeCreateInfo, nodeInstanceId, 40);

struct ChiNodedestroyInfo {
    std::uint32_t size;
    std::uint32_t reserved4;
    void* hNodeSession; // null after NodeDestroy
};
PIN_BINARY_RECORD(ChiNodedestroyInfo);
PIN_SIZE(ChiNodedestroyInfo, 16);
PIN_OFFSET(ChiNodedestroyInfo, hNodeSession, 8);

struct ChiNodeQueryBufferInfo {
    std::uint32_t size;
    std::uint32_t reserved4;
    void* hNodeSession;
    std::uint8_t negotiation[40]; // the platform's own, passed on whole
};
PIN_BINARY_RECORD(ChiNodeQueryBufferInfo);
PIN_SIZE(ChiNodeQueryBufferInfo, 56);
PIN_OFFSET(ChiNodeQueryBufferInfo, hNodeSession, 8);

struct ChiNodeSetBufferPropertiesInfo {
    std::uint32_t size;
    std::uint32_t reserved4;
    void* hNodeSession;
    std::uint8_t reserved16[8];
    const ChiImageFormat* format; // chosen for the node's output
    std::uint8_t reserved32[32];
};
PIN_BINARY_RECORD(ChiNodeSetBufferPropertiesInfo);
PIN_SIZE(ChiNodeSetBufferPropertiesInfo, 64);
PIN_OFFSET(ChiNodeSetBufferPropertiesInfo, hNodeSession, 8);
PIN_OFFSET(ChiNodeSetBufferPropertiesInfo, format, 24);

struct ChiNodeProcessRequestInfo {
    std::uint32_t size;
    std::uint32_t reserved4;
    void* hNodeSession;
    std::uint64_t frameNumber;
    std::uint8_t reserved24[8];
    std::uint32_t inputNum;
    std::uint32_t reserved36;
    ChiImageList** inputs;
    std::uint32_t outputNum;
    std::uint32_t reserved52;
    ChiImageList** outputs;
    std::uint8_t reserved64[64];
};
PIN_BINARY_RECORD(ChiNodeProcessRequestInfo);
PIN_SIZE(ChiNodeProcessRequestInfo, 128);
PIN_OFFSET(ChiNodeProcessRequestInfo, hNodeSession, 8);
PIN_OFFSET(ChiNodeProcessRequestInfo, frameNumber, 16);
PIN_OFFSET(ChiNodeProcessRequestInfo, inputNum, 32);
PIN_OFFSET(ChiNodeProcessRequestInfo, inputs, 40);
PIN_OFFSET(ChiNodeProcessRequestInfo, outputNum, 48);
PIN_OFFSET(ChiNodeProcessRequestInfo, outputs, 56);

struct ChiNodePostPipelineCreateInput; // opaque to the node

struct ChiNodePostPipelineCreateOutput {
    std::uint64_t delay;
    std::uint8_t reserved8[16];
    std::uint32_t reserved24;
    std::uint32_t reserved28;
};
PIN_BINARY_RECORD(ChiNodePostPipelineCreateOutput);
PIN_OFFSET(ChiNodePostPipelineCreateOutput, delay, 0);
PIN_OFFSET(ChiNodePostPipelineCreateOutput, reserved24, 24);

// --- The node's callback table -------------------------------------------------------------------

// Owned by the platform; the node writes the version and its nine callbacks and leaves every other
// byte as it was.
struct ChiNodeCallbacks {
    std::uint32_t size;
    std::uint32_t majorVersion;
    std::uint32_t minorVersion;
    std::uint32_t reserved12;
    CDKResult (*getCaps)(ChiNodeCapsInfo*);
    CDKResult (*queryVendorTag)(ChiQueryVendorTag*);
    CDKResult (*create)(ChiNodeCreateInfo*);
    CDKResult (*destroy)(ChiNodedestroyInfo*);
    CDKResult (*queryBufferInfo)(ChiNodeQueryBufferInfo*);
    void* reserved56;
    CDKResult (*setBufferInfo)(ChiNodeSetBufferPropertiesInfo*);
    void* reserved72[2];
    CDKResult (*processRequest)(ChiNodeProcessRequestInfo*);
    void* reserved96;
    void (*setNodeInterface)(ChiNodeInterface*);
    CDKResult (*postPipelineCreate)(void* hChiHandle, const ChiNodePostPipelineCreateInput* input,
                                    ChiNodePostPipelineCreateOutput* output);
    std::uint8_t reserved120[128];
};
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

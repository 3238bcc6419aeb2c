#pragma once

#include <cstdint>

#include "platform/result.h"

// The platform's node interface: the records that cross it, as far as the node relies on them. Each
// record that starts with `size` carries the size that its maker knows. Records belong to the
// caller and are valid during the call; pointers and handles in them are not null unless their
// comment says so. `reserved` fields are not read, and zero where the node makes the record.

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

// The order of the fields in the three vendor tag records is ours; it is not known of the platform.
struct CHIVENDORTAGDATA {
    const char* name;
    std::uint32_t type;  // ChiTagType
    std::uint32_t count; // elements
};

struct CHIVENDORTAGSECTIONDATA {
    const char* name;
    std::uint32_t firstTag; // id of the first tag, relative to the section's base
    std::uint32_t numTags;
    const CHIVENDORTAGDATA* tags;
    std::uint32_t visibility; // bit mask of the viewers; all bits: everyone
    std::uint32_t reserved;
};

struct CHIVENDORTAGINFO {
    const CHIVENDORTAGSECTIONDATA* sections;
    std::uint32_t numSections;
    std::uint32_t reserved;
};

struct ChiQueryVendorTag; // opaque to the node: ChiNodeUtils::QueryVendorTag fills it

// Names are zero-terminated.
struct ChiVendorTagBaseQuery {
    std::uint32_t size;
    std::uint32_t tagId; // 0 before the call, written by the platform
    const char* section;
    const char* tag;
};

// --- Metadata ------------------------------------------------------------------------------------

// Only the numeric value is known of the type that the node asks for.
enum ChiMetadataType : std::uint32_t {
    kChiMetadataTypeNode = 2,
};

// ORed to a tag id to say which pool the data is read from.
constexpr std::uint32_t kTagPoolCameraConfig = 0x04000000;
constexpr std::uint32_t kTagPoolRequest = 0x08000000;
constexpr std::uint32_t kTagPoolUseCase = 0x20000000;

// One tag's data for the platform to copy.
struct ChiTagData {
    std::uint32_t size;
    std::uint32_t reserved4;
    std::uint64_t requestId; // frame number of the request that it belongs to
    const void* data;
    std::uint64_t dataSize; // as the tag's owner counts: elements or bytes
    std::uint8_t reserved32[16];
};

// Tags to publish: entry i of `tagData` goes under entry i of `tagIds`.
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

// --- The platform's callbacks --------------------------------------------------------------------

struct ChiRequestStateQuery {
    std::uint64_t reserved[3];
    std::uint32_t stop; // 1: the request is not to be processed
    std::uint32_t reserved28;
};

// Publishes the set for its requests. The platform copies the data during the call.
using ChiSetMetadata = CDKResult (*)(const ChiMetadataSet* set);
// Resolves a vendor tag's id, which stays the same as long as the process.
using ChiGetVendorTagBase = CDKResult (*)(ChiVendorTagBaseQuery* query);
// Tells about the session's request in process; the record is zero before the call.
using ChiQueryRequestState = CDKResult (*)(void* hChiSession, ChiRequestStateQuery* query);

// The platform's callbacks; any may be null, and all may be called from any thread. The platform
// writes the node's copy of this table through ChiNodeUtils::SetNodeInterface. How long the table
// is differs between platform releases, each appending callbacks, so the copy leaves far more room
// than the last slot the node uses.
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

// --- Records of the node's callbacks -------------------------------------------------------------

constexpr std::uint32_t kNodeCapsCapture = 1;

struct ChiNodeCapsInfo {
    std::uint32_t size;
    std::uint32_t nodeCapsMask;
};

constexpr std::uint32_t kCreateFlagFaceIndexBare = 2; // "SelectFaceIndex" is read without a pool

struct ChiNodeCreateInfo {
    std::uint32_t size;
    std::uint32_t reserved4;
    void* hChiSession;  // the platform's, as long as the node; opaque
    void* hNodeSession; // written by NodeCreate: the node's handle
    std::uint32_t nodeId;
    std::uint32_t reserved28;
    std::uint32_t nodeMode; // published as "CurrentMode"
    std::uint32_t flags;    // kCreateFlag...
    std::uint32_t nodeInstanceId;
    std::uint8_t reserved44[68];
};

struct ChiNodedestroyInfo {
    std::uint32_t size;
    std::uint32_t reserved4;
    void* hNodeSession; // null after NodeDestroy
};

struct ChiNodeQueryBufferInfo {
    std::uint32_t size;
    std::uint32_t reserved4;
    void* hNodeSession;
    std::uint8_t negotiation[40]; // the platform's own, passed on whole
};

struct ChiNodeSetBufferPropertiesInfo {
    std::uint32_t size;
    std::uint32_t reserved4;
    void* hNodeSession;
    std::uint8_t reserved16[8];
    const ChiImageFormat* format; // chosen for the node's output
    std::uint8_t reserved32[32];
};

struct ChiNodeProcessRequestInfo {
    std::uint32_t size;
    std::uint32_t reserved4;
    void* hNodeSession;
    std::uint64_t frameNumber; // the request's id for metadata
    std::uint8_t reserved24[8];
    std::uint32_t inputNum; // at least 2; the node uses the first two
    std::uint32_t reserved36;
    ChiImageList** inputs;
    std::uint32_t outputNum;
    std::uint32_t reserved52;
    ChiImageList** outputs; // one picture, and at most one Y8 for the disparity
    std::uint8_t reserved64[64];
};

struct ChiNodePostPipelineCreateInput; // opaque to the node, and not read

struct ChiNodePostPipelineCreateOutput {
    std::uint64_t delay; // the platform's debug value "InduceSleep", and a margin
    std::uint8_t reserved8[16];
    std::uint32_t reserved24;
    std::uint32_t reserved28;
};

// --- The node's callback table -------------------------------------------------------------------

// Owned by the platform; ChiNodeEntry writes the version and the node's nine callbacks and leaves
// every other byte as it was.
//
// setNodeInterface comes before any node is created. Callbacks of one node do not overlap in time;
// those of different nodes may. Each refuses a null record, a null node handle in it and a record
// shorter than the one declared here, and then changes nothing.
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

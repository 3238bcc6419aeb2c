#include <cstdint>
#include <memory>

#include "bokehbase/log.h"
#include "node/capture_bokeh.h"
#include "node/process_state.h"
#include "platform/chi_node_utils.h"
#include "platform/device_names.h"

// The node's boundary: the callbacks of its table. Each checks its record, then calls one
// operation. No exception passes it.

namespace {

ChiNodeCaptureBokeh* NodeFrom(void* handle) {
    return static_cast<ChiNodeCaptureBokeh*>(handle);
}

template <typename Record>
bool NamesNode(const Record* record) {
    return record != nullptr && record->hNodeSession != nullptr;
}

// What every callback checks first, in this order: that its pointers are there, as the caller has
// found, and that the record is as long as this node knows it. Prints as the calling operation.
template <typename Record>
CDKResult Check(bool present, const Record* record, const char* tooSmall,
                const char* operation = __builtin_FUNCTION(), int line = __builtin_LINE()) {
    if (!present) {
        __android_log_print(ANDROID_LOG_ERROR, kNodeTag, kTextNullPointer, operation, line);
        return CDKResultEInvalidPointer;
    }
    if (record->size < sizeof(Record)) {
        __android_log_print(ANDROID_LOG_ERROR, kNodeTag, tooSmall, operation, line);
        return CDKResultEFailed;
    }
    return CDKResultSuccess;
}

CDKResult NodeGetCaps(ChiNodeCapsInfo* info) noexcept {
    NODE_DEBUG(kTextIn);
    const CDKResult result =
        Check(info != nullptr, info, "TSL_CTB: %s: %d: CHINODECAPSINFO is smaller than expected\n");
    if (result == CDKResultSuccess) {
        info->nodeCapsMask = kNodeCapsCapture;
    }
    NODE_DEBUG(kTextOutResult, result);
    return result;
}

CDKResult NodeQueryVendorTag(ChiQueryVendorTag* query) noexcept {
    NODE_DEBUG(kTextIn);
    CDKResult result = CDKResultEInvalidPointer;
    if (query == nullptr) {
        NODE_ERROR(kTextNullPointer);
    } else {
        // The platform only reads the table.
        result =
            ChiNodeUtils::QueryVendorTag(query, const_cast<CHIVENDORTAGINFO*>(&g_vendorTagInfo));
    }
    NODE_DEBUG(kTextOutResultWide, result);
    return result;
}

// Makes a node, or none: the handle's slot is written on success alone. Prints as NodeCreate.
CDKResult CreateNode(ChiNodeCreateInfo* info) {
    CDKResult result = CDKResultEFailed;
    try {
        auto node = std::make_unique<ChiNodeCaptureBokeh>();
        result = node->Initialize(info);
        if (result == CDKResultSuccess) {
            info->hNodeSession = node.release();
            return result;
        }
        NODE_ERROR_AS("NodeCreate", kTextResult, result); // before the node's own exit trace
    } catch (...) {
        NODE_ERROR_AS("NodeCreate", kTextResult, result);
    }
    return result;
}

CDKResult NodeCreate(ChiNodeCreateInfo* info) noexcept {
    NODE_DEBUG(kTextIn);
    CDKResult result = Check(info != nullptr, info,
                             "TSL_CTB: %s: %d: CHINODECREATEINFO is smaller than expected\n");
    if (result == CDKResultEFailed) {
        NODE_ERROR(kTextResult, result);
    } else if (result == CDKResultSuccess) {
        result = CreateNode(info);
    }
    NODE_DEBUG(kTextOutResult, result);
    return result;
}

CDKResult NodeDestroy(ChiNodedestroyInfo* info) noexcept {
    NODE_DEBUG(kTextIn);
    const CDKResult result = Check(
        NamesNode(info), info, "TSL_CTB: %s: %d:  CHINODEDESTROYINFO is smaller than expected\n");
    if (result == CDKResultSuccess) {
        delete NodeFrom(info->hNodeSession);
        info->hNodeSession = nullptr;
    }
    NODE_DEBUG(kTextOutResultWide, result);
    return result;
}

CDKResult NodeQueryBufferInfo(ChiNodeQueryBufferInfo* info) noexcept {
    NODE_DEBUG(kTextIn);
    const CDKResult result =
        Check(NamesNode(info), info,
              "TSL_CTB: %s: %d:  CHINODEQUERYBUFFERINFO is smaller than expected\n");
    if (result == CDKResultSuccess) {
        NodeFrom(info->hNodeSession)->QueryBufferInfo(info);
    }
    NODE_DEBUG(kTextOutResult, result);
    return result;
}

CDKResult NodeSetBufferInfo(ChiNodeSetBufferPropertiesInfo* info) noexcept {
    NODE_DEBUG(kTextIn);
    CDKResult result =
        Check(NamesNode(info), info,
              "TSL_CTB: %s: %d: CHINODESETBUFFERPROPERTIESINFO is smaller than expected\n");
    if (result == CDKResultSuccess) {
        NODE_DEBUG("TSL_CTB: %s: %d:  Call SetBufferInfo\n");
        if (info->format == nullptr) {
            NODE_ERROR(kTextNullPointer);
            result = CDKResultEInvalidPointer;
        } else {
            NodeFrom(info->hNodeSession)->SetBufferInfo(*info->format);
        }
    }
    NODE_DEBUG(kTextOutResultWide, result);
    return result;
}

CDKResult NodeProcRequest(ChiNodeProcessRequestInfo* request) noexcept {
    NODE_DEBUG(kTextIn);
    CDKResult result =
        Check(NamesNode(request), request,
              "TSL_CTB: %s: %d: CHINODEPROCESSREQUESTINFO is smaller than expected\n");
    if (result == CDKResultSuccess) {
        ChiNodeCaptureBokeh& node = *NodeFrom(request->hNodeSession);
        if (node.HasNodeInterface()) {
            result = node.ProcessRequest(request);
        } else {
            result = CDKResultEInvalidPointer;
            NODE_ERROR(kTextNullPointerCode, result);
        }
    }
    NODE_DEBUG(kTextOutResultWide, result);
    return result;
}

void NodeSetNodeInterface(ChiNodeInterface* platform) noexcept {
    NODE_DEBUG(kTextIn);
    CDKResult result = CDKResultEInvalidPointer;
    if (platform == nullptr) {
        NODE_ERROR(kTextNullPointer);
    } else {
        result = ChiNodeUtils::SetNodeInterface(platform, device::kNodeName, &g_ChiNodeInterface,
                                                &g_vendorTagBase);
    }
    NODE_DEBUG("TSL_CTB: %s: %d:  (OUT), res = %d\n", result);
}

CDKResult
NodePostPipelineCreate(void* hChiHandle,
                       const ChiNodePostPipelineCreateInput* pPostPipelineCreateInput,
                       ChiNodePostPipelineCreateOutput* pPostPipelineCreateOutput) noexcept {
    if (hChiHandle == nullptr || pPostPipelineCreateInput == nullptr ||
        pPostPipelineCreateOutput == nullptr) {
        NODE_ERROR("TSL_CTB: %s: %d:  Invalid argument: hChiHandle: %p, pPostPipelineCreateInput: "
                   "%p, pPostPipelineCreateOutput: %p\n",
                   hChiHandle, static_cast<const void*>(pPostPipelineCreateInput),
                   static_cast<void*>(pPostPipelineCreateOutput));
        return CDKResultEInvalidPointer;
    }
    // In 64 bits: a sleep close to the 32-bit maximum must not come out as a short one.
    constexpr std::uint64_t kMargin = 5;
    pPostPipelineCreateOutput->delay = NodeFrom(hChiHandle)->InduceSleep() + kMargin;
    pPostPipelineCreateOutput->reserved24 = 0;
    return CDKResultSuccess;
}

constexpr std::uint32_t kMajorVersion = 1;
constexpr std::uint32_t kMinorVersion = 0;

} // namespace

// The library's one exported symbol. Only the table's size decides; the caller's version is
// printed, not compared.
extern "C" __attribute__((visibility("default"))) void
ChiNodeEntry(ChiNodeCallbacks* callbacks) noexcept {
    NODE_DEBUG(kTextIn);
    if (callbacks == nullptr) {
        NODE_ERROR(kTextNullPointer);
        return;
    }
    if (callbacks->size < sizeof(ChiNodeCallbacks)) {
        NODE_ERROR("TSL_CTB: %s: %d:  Chi API major version doesn't match (%d:%d) vs (%d:%d)\n",
                   callbacks->majorVersion, callbacks->minorVersion, kMajorVersion, kMinorVersion);
    } else {
        callbacks->majorVersion = kMajorVersion;
        callbacks->minorVersion = kMinorVersion;
        callbacks->getCaps = NodeGetCaps;
        callbacks->queryVendorTag = NodeQueryVendorTag;
        callbacks->create = NodeCreate;
        callbacks->destroy = NodeDestroy;
        callbacks->queryBufferInfo = NodeQueryBufferInfo;
        callbacks->setBufferInfo = NodeSetBufferInfo;
        callbacks->processRequest = NodeProcRequest;
        callbacks->setNodeInterface = NodeSetNodeInterface;
        callbacks->postPipelineCreate = NodePostPipelineCreate;
    }
    NODE_DEBUG(kTextOut);
}

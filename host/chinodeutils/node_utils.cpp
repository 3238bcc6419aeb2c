#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstring>

#include "host/chinodeutils/node_utils_control.h"
#include "host/control/faults.h"

namespace {

host::CallPoint queryVendorTag("ChiNodeUtils::QueryVendorTag");
host::CallPoint setNodeInterface("ChiNodeUtils::SetNodeInterface");
host::CallPoint getDataList("ChiNodeUtils::GetDataList");
host::CallPoint defaultBufferNegotiation("ChiNodeUtils::DefaultBufferNegotiation");

// The pipeline sets it when it opens a session; the nodes' threads read it.
std::atomic<host::MetadataProvider*> metadataProvider{nullptr};

// The shortest table that can name a section's base.
constexpr std::size_t kShortestInterface =
    offsetof(ChiNodeInterface, getVendorTagBase) + sizeof(ChiNodeInterface::getVendorTagBase);

} // namespace

void host::SetMetadataProvider(MetadataProvider* provider) {
    metadataProvider = provider;
}

CDKResult ChiNodeUtils::QueryVendorTag(ChiQueryVendorTag* query, CHIVENDORTAGINFO* info) {
    const host::Call call(queryVendorTag);
    if (call.failure()) {
        return static_cast<CDKResult>(*call.failure());
    }
    if (query == nullptr || info == nullptr) {
        return CDKResultEInvalidPointer;
    }
    if (query->size < sizeof(*query)) {
        return CDKResultEFailed;
    }
    query->info = info;
    return CDKResultSuccess;
}

CDKResult ChiNodeUtils::SetNodeInterface(ChiNodeInterface* platform, const char* nodeName,
                                         ChiNodeInterface* copy, unsigned int* vendorTagBase) {
    const host::Call call(setNodeInterface);
    if (call.failure()) {
        return static_cast<CDKResult>(*call.failure());
    }
    if (platform == nullptr || nodeName == nullptr || copy == nullptr || vendorTagBase == nullptr) {
        return CDKResultEInvalidPointer;
    }
    if (platform->size < kShortestInterface || platform->getVendorTagBase == nullptr) {
        return CDKResultEFailed;
    }
    // A table of a later release is longer than the node's copy, one of an earlier release shorter.
    const std::size_t known = std::min<std::size_t>(platform->size, sizeof(*copy));
    std::memcpy(copy, platform, known);
    copy->size = static_cast<std::uint32_t>(known);

    // Without a tag name, the platform answers with the base of the section.
    ChiVendorTagBaseQuery query{sizeof(query), 0, nodeName, nullptr};
    const CDKResult result = copy->getVendorTagBase(&query);
    if (result == CDKResultSuccess) {
        *vendorTagBase = query.tagId;
    }
    return result;
}

void* ChiNodeUtils::GetDataList(unsigned long requestId, unsigned int tagId, ChiMetadataType type,
                                ChiNodeInterface* platform, void* session, unsigned int cameraId) {
    host::Call call(getDataList);
    host::MetadataProvider* const provider = metadataProvider;
    if (call.failure() || provider == nullptr) {
        return nullptr;
    }
    const host::MetadataQuery query = {requestId, tagId, type, platform, session, cameraId};
    void* const data = provider->Find(query);
    call.Tell([&] { return provider->Describe(tagId) + (data != nullptr ? ": found" : ": none"); });
    return data;
}

CDKResult ChiNodeUtils::DefaultBufferNegotiation(ChiNodeQueryBufferInfo* query) {
    const host::Call call(defaultBufferNegotiation);
    if (call.failure()) {
        return static_cast<CDKResult>(*call.failure());
    }
    if (query == nullptr) {
        return CDKResultEInvalidPointer;
    }
    if (query->size < sizeof(*query)) {
        return CDKResultEFailed;
    }
    // The sizes are copied out and in again: the node's header declares this part of the record as
    // plain bytes, which must not be read as another type in place.
    host::BufferNegotiation sizes;
    std::memcpy(&sizes, query->negotiation, sizeof(sizes));
    sizes.minimumWidth = sizes.optimalWidth = sizes.maximumWidth = sizes.wantedWidth;
    sizes.minimumHeight = sizes.optimalHeight = sizes.maximumHeight = sizes.wantedHeight;
    sizes.negotiated = 1;
    std::memcpy(query->negotiation, &sizes, sizeof(sizes));
    return CDKResultSuccess;
}

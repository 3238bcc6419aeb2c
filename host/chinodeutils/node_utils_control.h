#pragma once

#include <cstdint>
#include <string>

#include "platform/chi_node.h"
#include "platform/chi_node_utils.h"
#include "platform/layout.h"

// Control of the node utility stand-in (libcom.qti.chinodeutils.so), and the platform's side of the
// records that the node passes through it unread.

// The answer to a query of a node's vendor tags.
struct ChiQueryVendorTag {
    std::uint32_t size;
    std::uint32_t reserved4;
    const CHIVENDORTAGINFO* info; // out: the node's table, valid as long as its library is loaded
};
PIN_BINARY_RECORD(ChiQueryVendorTag);

namespace host {

// What the platform keeps in ChiNodeQueryBufferInfo::negotiation. The pipeline states the output
// size that it wants, in pixels; the default negotiation takes inputs of that size and no other.
struct BufferNegotiation {
    std::uint32_t wantedWidth;
    std::uint32_t wantedHeight;
    std::uint32_t minimumWidth;
    std::uint32_t minimumHeight;
    std::uint32_t optimalWidth;
    std::uint32_t optimalHeight;
    std::uint32_t maximumWidth;
    std::uint32_t maximumHeight;
    std::uint32_t negotiated; // 1 once the utility library filled the sizes
    std::uint32_t reserved;
};
PIN_BINARY_RECORD(BufferNegotiation);
PIN_SIZE(BufferNegotiation, sizeof(ChiNodeQueryBufferInfo::negotiation));

// One call of ChiNodeUtils::GetDataList.
struct MetadataQuery {
    std::uint64_t requestId;
    std::uint32_t tagId; // pool bits included
    ChiMetadataType type;
    const ChiNodeInterface* platform;
    void* session;
    std::uint32_t cameraId;
};

// Owner of the metadata. Called on the node's threads, several at once.
class MetadataProvider {
public:
    virtual ~MetadataProvider() = default;

    // The tag's data, owned by the provider, or null.
    virtual void* Find(const MetadataQuery& query) = 0;

    // The tag by its name, for people.
    virtual std::string Describe(std::uint32_t tagId) const = 0;
};

// The provider that answers from now on; null: no metadata at all. It must outlive its use.
void SetMetadataProvider(MetadataProvider* provider);

} // namespace host

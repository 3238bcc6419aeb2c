#pragma once

#include "platform/chi_node.h"

// The platform's node utility library, libcom.qti.chinodeutils.so. May be called from any thread;
// no pointer may be null unless a function says so, and none is kept after the call.
class ChiNodeUtils {
public:
    // Answers the platform's query of a node's vendor tags. Only reads `info`.
    static CDKResult QueryVendorTag(ChiQueryVendorTag* query, CHIVENDORTAGINFO* info);

    // Copies the platform's table to `copy` and looks up the base id of the vendor tag section that
    // bears the node's name. Both outputs are written on success alone. Comes before any metadata
    // is read or written.
    static CDKResult SetNodeInterface(ChiNodeInterface* platform, const char* nodeName,
                                      ChiNodeInterface* copy, unsigned int* vendorTagBase);

    // Returns the tag's data, owned by the platform, or null where there is none. Request data is
    // valid until the request completes and may be rewritten by the node; use-case data, which has
    // request id 0, as long as the pipeline. `tagId` is ORed with its pool (kTagPool...).
    static void* GetDataList(unsigned long requestId, unsigned int tagId, ChiMetadataType type,
                             ChiNodeInterface* platform, void* session, unsigned int cameraId);

    // Fills the record with the platform's default buffer requirements.
    static CDKResult DefaultBufferNegotiation(ChiNodeQueryBufferInfo* query);
};

#pragma once

#include "platform/chi_node.h"

// The platform's node utility library, libcom.qti.chinodeutils.so.
class ChiNodeUtils {
public:
    // Answers the platform's query of a node's vendor tags from the node's table.
    static CDKResult QueryVendorTag(ChiQueryVendorTag* query, CHIVENDORTAGINFO* info);

    // Copies the platform's table into the node's own and looks up the base id of the vendor tag
    // section that bears the node's name.
    static CDKResult SetNodeInterface(ChiNodeInterface* platform, const char* nodeName,
                                      ChiNodeInterface* copy, unsigned int* vendorTagBase);

    // Returns the tag's data, owned by the platform, or null. Request data is valid until the
    // request completes; use-case data as long as the pipeline.
    static void* GetDataList(unsigned long requestId, unsigned int tagId, ChiMetadataType type,
                             ChiNodeInterface* platform, void* session, unsigned int cameraId);

    // Fills the record with the platform's default buffer requirements.
    static CDKResult DefaultBufferNegotiation(ChiNodeQueryBufferInfo* query);
};

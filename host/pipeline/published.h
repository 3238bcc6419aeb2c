#pragma once

#include "host/pipeline/pipeline.h"

namespace host {

// Reads the metadata set that a node publishes for a request, and adds to `complaints` whatever is
// not as the platform and the node's tag table have it. Nothing where the set cannot be read.
std::optional<Published> ReadMetadataSet(const ChiMetadataSet& set, const void* session,
                                         std::uint64_t frameNumber,
                                         std::vector<std::string>& complaints);

} // namespace host

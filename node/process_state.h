#pragma once

#include <cstdint>

#include "platform/chi_node.h"

// State of the loaded library, shared by all nodes. Written by NodeSetNodeInterface alone, before
// any node is created, and read without locks.

// The node's copy of the platform's callback table.
extern ChiNodeInterface g_ChiNodeInterface;

// Base id of the node's own vendor tags, as the platform assigned it.
extern std::uint32_t g_vendorTagBase;

// The node's vendor tags: one section, ids relative to its base in the order of NodeTag.
extern const CHIVENDORTAGINFO g_vendorTagInfo;

enum NodeTag : std::uint32_t {
    kTagSupportedFeature,
    kTagCurrentMode,
    kTagProcessedFrameNumber,
    kTagFrameDimension,
    kNodeTagCount,
};

// Elements of one of the node's tags, as its table says.
std::uint64_t NodeTagCount(NodeTag tag);

constexpr std::uint32_t kSupportedFeatureSize = 64;

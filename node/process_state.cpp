#include "node/process_state.h"

#include "platform/device_names.h"

ChiNodeInterface g_ChiNodeInterface = {};
std::uint32_t g_vendorTagBase = 0;

namespace {

constexpr CHIVENDORTAGDATA kTags[kNodeTagCount] = {
    {device::tags::kSupportedFeature.tag, kTagTypeByte, kSupportedFeatureSize},
    {device::tags::kCurrentMode.tag, kTagTypeByte, 1},
    {device::tags::kProcessedFrameNumber.tag, kTagTypeInt64, 1},
    {device::tags::kFrameDimension.tag, kTagTypeInt32, 2},
};

constexpr std::uint32_t kVisibleToAll = 0xFFFFFFFF;

constexpr CHIVENDORTAGSECTIONDATA kSection = {
    .name = device::kNodeName,
    .firstTag = 0,
    .numTags = kNodeTagCount,
    .tags = kTags,
    .visibility = kVisibleToAll,
    .reserved = 0,
};

} // namespace

const CHIVENDORTAGINFO g_vendorTagInfo = {.sections = &kSection, .numSections = 1, .reserved = 0};

std::uint64_t NodeTagCount(NodeTag tag) {
    return g_vendorTagInfo.sections[0].tags[tag].count;
}

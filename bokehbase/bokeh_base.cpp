#include "bokehbase/bokeh_base.h"

#include <cstdlib>

#include "bokehbase/log.h"
#include "platform/chi_node_utils.h"
#include "platform/device_names.h"
#include "platform/properties.h"

std::atomic<std::int32_t> g_enableNodeLogs{0};

ChiNodeBokehBase::ChiNodeBokehBase() {
    char value[kPropertyValueMax] = {};
    property_get(device::kLogMaskProperty, value, "0");
    const int mask = std::atoi(value);
    g_enableNodeLogs.store(mask, std::memory_order_relaxed);
    // By this node's own mask, whatever another thread's node makes of the shared one meanwhile.
    if ((mask & kLogBase) == kLogBase) {
        LOG_LINE(ANDROID_LOG_DEBUG, kBaseTag, __func__, "TSL_CTB: %s: %d:  g_enableNodeLogs %d\n",
                 mask);
    }
}

ChiNodeBokehBase::~ChiNodeBokehBase() {
    g_enableNodeLogs.store(0, std::memory_order_relaxed);
}

void* ReadMetadata(const BokehTagInfo& tagInfo, std::uint64_t requestId, std::uint32_t tagId) {
    constexpr std::uint32_t kAnyCamera = 0;
    return ChiNodeUtils::GetDataList(requestId, tagId, kChiMetadataTypeNode,
                                     tagInfo.pChiNodeInterface, tagInfo.hChiSession, kAnyCamera);
}

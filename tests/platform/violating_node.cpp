// A node that breaks a rule of the interface in each part of its life, and does nothing else.

#include "host/chinodeutils/node_utils_control.h"
#include "platform/chi_image.h"
#include "platform/chi_node.h"

namespace {

const ChiNodeInterface* platform;

// For the callbacks that do as they should.
template <typename... Arguments>
CDKResult Succeed(Arguments...) {
    return CDKResultSuccess;
}

CDKResult GetCaps(ChiNodeCapsInfo* info) {
    info->nodeCapsMask = kNodeCapsCapture;
    return CDKResultSuccess;
}

CDKResult QueryVendorTag(ChiQueryVendorTag* query) {
    static const CHIVENDORTAGINFO none{};
    query->info = &none;
    return CDKResultSuccess;
}

CDKResult Create(ChiNodeCreateInfo* info) {
    info->hNodeSession = &platform;
    info->nodeMode = 1;
    return CDKResultSuccess;
}

CDKResult ProcessRequest(ChiNodeProcessRequestInfo* info) {
    ++info->frameNumber;
    ++info->inputs[0]->planeAddress[0][0];
    const ChiImageList& output = *info->outputs[0];
    ++output.planeAddress[1][output.format.plane[1].stride - 1];
    ++info->outputs[1]->portIndex;
    return CDKResultSuccess;
}

CDKResult Destroy(ChiNodedestroyInfo*) {
    platform->setMetadata(nullptr);
    return CDKResultEFailed;
}

} // namespace

extern "C" void ChiNodeEntry(ChiNodeCallbacks* table) {
    table->majorVersion = 1;
    table->minorVersion = 0;
    table->getCaps = GetCaps;
    table->queryVendorTag = QueryVendorTag;
    table->create = Create;
    table->destroy = Destroy;
    table->queryBufferInfo = Succeed<ChiNodeQueryBufferInfo*>;
    table->setBufferInfo = Succeed<ChiNodeSetBufferPropertiesInfo*>;
    table->processRequest = ProcessRequest;
    table->setNodeInterface = [](ChiNodeInterface* given) { platform = given; };
    table->postPipelineCreate = [](void*, const ChiNodePostPipelineCreateInput*,
                                   ChiNodePostPipelineCreateOutput* output) {
        ++output->reserved28;
        return CDKResultSuccess;
    };
}

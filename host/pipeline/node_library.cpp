#include <cstddef>
#include <cstring>

#include <dlfcn.h>

#include "host/pipeline/pipeline.h"
#include "host/pipeline/platform_interface.h"
#include "host/pipeline/text.h"
#include "host/pipeline/vendor_tags.h"

namespace host {
namespace {

// Stands in every byte of the callback table that is not the platform's to set.
constexpr int kUntouched = 0xA5;

void* Open(const std::filesystem::path& library, int flags) {
    void* const handle = dlopen(library.c_str(), RTLD_NOW | flags);
    if (handle == nullptr) {
        throw PipelineError(Text("cannot load ", library.string(), ": ", dlerror()));
    }
    return handle;
}

// The engine stays: the tables of call points refer to it, and a second one would be hidden by it.
void* OpenEngine(const std::filesystem::path& library) {
    static void* loaded = nullptr;
    void* const handle = Open(library, RTLD_GLOBAL | RTLD_NODELETE);
    if (loaded != nullptr && loaded != handle) {
        dlclose(handle);
        throw PipelineError("another engine is loaded in this process");
    }
    loaded = handle;
    return handle;
}

ChiNodeCallbacks EmptyTable() {
    ChiNodeCallbacks table;
    std::memset(static_cast<void*>(&table), kUntouched, sizeof(table));
    table.size = sizeof(table);
    return table;
}

// Whether the node gave the table this callback.
template <typename Function>
bool Filled(Function* callback) {
    Function* untouched;
    std::memset(&untouched, kUntouched, sizeof(untouched));
    return callback != nullptr && callback != untouched;
}

void CheckTable(const ChiNodeCallbacks& table) {
    ChiNodeCallbacks expected = EmptyTable();
    expected.majorVersion = 1;
    expected.minorVersion = 0;
    if (std::memcmp(&table, &expected, offsetof(ChiNodeCallbacks, getCaps)) != 0) {
        throw PipelineError(Text("the node's interface is version ", table.majorVersion, ".",
                                 table.minorVersion, ", not 1.0"));
    }
    expected.getCaps = table.getCaps;
    expected.queryVendorTag = table.queryVendorTag;
    expected.create = table.create;
    expected.destroy = table.destroy;
    expected.queryBufferInfo = table.queryBufferInfo;
    expected.setBufferInfo = table.setBufferInfo;
    expected.processRequest = table.processRequest;
    expected.setNodeInterface = table.setNodeInterface;
    expected.postPipelineCreate = table.postPipelineCreate;
    if (std::memcmp(&table, &expected, sizeof(table)) != 0) {
        throw PipelineError("the node wrote callbacks that it does not offer");
    }
    if (!Filled(table.getCaps) || !Filled(table.queryVendorTag) || !Filled(table.create) ||
        !Filled(table.destroy) || !Filled(table.queryBufferInfo) || !Filled(table.setBufferInfo) ||
        !Filled(table.processRequest) || !Filled(table.setNodeInterface) ||
        !Filled(table.postPipelineCreate)) {
        throw PipelineError("the node left out a callback");
    }
}

void QueryNode(const ChiNodeCallbacks& callbacks) {
    ChiQueryVendorTag query{sizeof(query), 0, nullptr};
    if (const CDKResult code = callbacks.queryVendorTag(&query); code != CDKResultSuccess) {
        throw PipelineError(Text("the node's vendor tag query answers ", code), code);
    }
    if (query.info == nullptr) {
        throw PipelineError("the node has no vendor tags");
    }
    VendorTags::Instance().Register(*query.info);

    ChiNodeCapsInfo caps{sizeof(caps), 0};
    if (const CDKResult code = callbacks.getCaps(&caps); code != CDKResultSuccess) {
        throw PipelineError(Text("the node's capability query answers ", code), code);
    }
    if (caps.nodeCapsMask != kNodeCapsCapture) {
        throw PipelineError(Text("the node's capability mask is ", caps.nodeCapsMask));
    }
}

} // namespace

NodeLibrary::NodeLibrary(const std::filesystem::path& node, const std::filesystem::path& engine) {
    try {
        Load(node, engine);
    } catch (...) {
        Unload();
        throw;
    }
}

NodeLibrary::~NodeLibrary() {
    Unload();
}

void NodeLibrary::Load(const std::filesystem::path& node, const std::filesystem::path& engine) {
    engine_ = OpenEngine(engine);
    node_ = Open(node, RTLD_LOCAL);
    const auto entry = reinterpret_cast<void (*)(ChiNodeCallbacks*)>(dlsym(node_, "ChiNodeEntry"));
    if (entry == nullptr) {
        throw PipelineError(Text(node.string(), " has no ChiNodeEntry"));
    }
    callbacks_ = EmptyTable();
    entry(&callbacks_);
    CheckTable(callbacks_);
    QueryNode(callbacks_);
    callbacks_.setNodeInterface(&PlatformInterface());
}

void NodeLibrary::Unload() {
    for (void* const library : {node_, engine_}) {
        if (library != nullptr) {
            dlclose(library);
        }
    }
}

} // namespace host

#include <cstddef>
#include <cstring>

#include <dlfcn.h>

#include <fmt/format.h>

#include "host/pipeline/pipeline.h"
#include "host/pipeline/pipeline_session.h"
#include "host/pipeline/vendor_tags.h"

namespace host {
namespace {

// Stands in every byte of the callback table that is not the platform's to set.
constexpr int kUntouched = 0xA5;

void* Open(const std::filesystem::path& library, int flags) {
    // With RTLD_NOW a function that no library supplies is reported here by its name, not when a
    // request first calls it.
    void* const handle = dlopen(library.c_str(), RTLD_NOW | flags);
    if (handle == nullptr) {
        const std::string reason = dlerror(); // begins with the library's name as well
        const std::string name = library.string() + ": ";
        throw PipelineError(fmt::format("{}cannot be loaded: {}", name,
                                        reason.substr(reason.starts_with(name) ? name.size() : 0)));
    }
    return handle;
}

// The engine stays loaded: the node's calls are bound to the first one, which would hide a second.
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

// The whole table is compared with an untouched one, so that a write outside of the known callbacks
// is found, too.
void CheckTable(const ChiNodeCallbacks& table) {
    ChiNodeCallbacks expected = EmptyTable();
    expected.majorVersion = 1;
    expected.minorVersion = 0;
    if (std::memcmp(&table, &expected, offsetof(ChiNodeCallbacks, getCaps)) != 0) {
        throw PipelineError(fmt::format("the node's interface is version {}.{}, not 1.0",
                                        table.majorVersion, table.minorVersion));
    }
    // Copies the callbacks that a node offers; the others must be as they were before.
    const auto offered = [&](auto callback) {
        if (table.*callback == expected.*callback || table.*callback == nullptr) {
            throw PipelineError("the node left out a callback");
        }
        expected.*callback = table.*callback;
    };
    offered(&ChiNodeCallbacks::getCaps);
    offered(&ChiNodeCallbacks::queryVendorTag);
    offered(&ChiNodeCallbacks::create);
    offered(&ChiNodeCallbacks::destroy);
    offered(&ChiNodeCallbacks::queryBufferInfo);
    offered(&ChiNodeCallbacks::setBufferInfo);
    offered(&ChiNodeCallbacks::processRequest);
    offered(&ChiNodeCallbacks::setNodeInterface);
    offered(&ChiNodeCallbacks::postPipelineCreate);
    if (std::memcmp(&table, &expected, sizeof(table)) != 0) {
        throw PipelineError("the node wrote callbacks that it does not offer");
    }
}

void QueryNode(const ChiNodeCallbacks& callbacks) {
    ChiQueryVendorTag query{sizeof(query), 0, nullptr};
    if (const CDKResult code = callbacks.queryVendorTag(&query); code != CDKResultSuccess) {
        throw PipelineError(fmt::format("the node's vendor tag query answers {}", code), code);
    }
    if (query.info == nullptr) {
        throw PipelineError("the node has no vendor tags");
    }
    VendorTags::Instance().Register(*query.info);

    ChiNodeCapsInfo caps{sizeof(caps), 0};
    if (const CDKResult code = callbacks.getCaps(&caps); code != CDKResultSuccess) {
        throw PipelineError(fmt::format("the node's capability query answers {}", code), code);
    }
    if (caps.nodeCapsMask != kNodeCapsCapture) {
        throw PipelineError(fmt::format("the node's capability mask is {}", caps.nodeCapsMask));
    }
}

} // namespace

NodeLibrary::NodeLibrary(const std::filesystem::path& node, const std::filesystem::path& engine) {
    // A constructor that throws runs no destructor.
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
        throw PipelineError(fmt::format("{} has no ChiNodeEntry", node.string()));
    }
    callbacks_ = EmptyTable();
    entry(&callbacks_);
    CheckTable(callbacks_);
    // This registers the node's vendor tags. The node asks for their base id as soon as it gets the
    // platform's table.
    QueryNode(callbacks_);
    callbacks_.setNodeInterface(&PlatformInterface());
}

void NodeLibrary::Unload() {
    // The node goes first: its calls are bound to the engine.
    for (void* const library : {node_, engine_}) {
        if (library != nullptr) {
            dlclose(library);
        }
    }
}

} // namespace host

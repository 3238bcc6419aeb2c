#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "host/chinodeutils/node_utils_control.h"
#include "host/pipeline/pipeline.h"
#include "platform/device_names.h"

// The platform's side of a node's session, which the node meets through the platform's callbacks
// and the node utility library.
namespace host {

// The node's id in the pipeline; its instance is 0.
constexpr std::uint32_t kNodeId = 0x10001;

// The platform's callback table, the same for all nodes of the process.
ChiNodeInterface& PlatformInterface();

// True for the table or a copy of it.
bool IsPlatformInterface(const ChiNodeInterface& table);

// Reads the metadata set that a node publishes for a request, and adds to `complaints` whatever is
// not as the platform and the node's tag table have it. Nothing if the set cannot be read.
std::optional<Published> ReadMetadataSet(const ChiMetadataSet& set, const void* session,
                                         std::uint64_t frameNumber,
                                         std::vector<std::string>& complaints);

// One session of the pipeline: which metadata a node may read, when and how, and what it publishes.
// Thread-safe: the platform calls it on the thread that creates the node or runs the request, but a
// node that asks from another thread is answered as well.
class PipelineSession {
public:
    explicit PipelineSession(void* handle);

    void* handle() const { return handle_; }

    // Between these two the request's own metadata can be read. It is a copy that ends with the
    // request, so that a node that keeps the address is found out; what the node writes into it
    // comes back into `request`.
    void BeginRequest(const Request& request);
    // `code` is the node's answer to the request, which decides whether it must have published.
    RequestResult EndRequest(Request& request, CDKResult code);

    // Null if the data is not there for this query. A query that no platform answers is a
    // complaint.
    void* Find(const MetadataQuery& query);

    // Checks the node's question about its request. All requests go on.
    void CheckStateQuery(const ChiRequestStateQuery& query);

    // `set` is null if the platform refused the call.
    void Publish(const ChiMetadataSet* set);

    void Complain(std::string complaint);
    std::vector<std::string> TakeComplaints();

private:
    // Data that the node can read under one tag.
    struct Entry {
        std::uint32_t pool = 0; // the bit that the query's tag id must have
        bool ofRequest = false;
        void* data = nullptr; // null: not supplied
    };
    // What lives while a request is processed.
    struct LiveRequest {
        std::uint64_t frameNumber = 0;
        std::unique_ptr<InputMetadataBokeh> metadata;
        std::unique_ptr<std::uint32_t> selectedFace;
        std::unique_ptr<OEMFDResults> faceResults;
        std::optional<Published> published;
        int publishCalls = 0;
    };

    void Supply(const device::VendorTagName& name, std::uint32_t pool, const void* data);
    void SupplyRequestData();
    std::optional<std::string> Violation(const MetadataQuery& query) const;

    void* const handle_;
    const std::unique_ptr<PhysicalCameraConfigs> cameraConfigs_;
    const std::vector<std::byte> inputConfig_; // PhysicalCameraInputConfig and its entries

    std::mutex mutex_;                       // guards all below
    std::map<std::uint32_t, Entry> entries_; // by tag id without pool bits
    std::optional<LiveRequest> live_;
    std::vector<std::string> complaints_;
};

// All sessions of the process, by handle. Thread-safe.
class Sessions : public MetadataProvider {
public:
    static Sessions& Instance();

    // The handle is no address and is never given again.
    std::shared_ptr<PipelineSession> Open();
    void Close(const void* handle);

    // Null, and a stray complaint, for a handle of no open session.
    std::shared_ptr<PipelineSession> Get(const void* handle, const char* caller);

    void* Find(const MetadataQuery& query) override;
    std::string Describe(std::uint32_t tagId) const override;

    // The complaints of TakeStrayComplaints.
    void Complain(std::string complaint);
    std::vector<std::string> TakeComplaints();

private:
    std::mutex mutex_;
    std::uintptr_t opened_ = 0;
    std::map<const void*, std::shared_ptr<PipelineSession>> sessions_;
    std::vector<std::string> complaints_;
};

} // namespace host

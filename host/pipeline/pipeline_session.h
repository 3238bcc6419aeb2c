#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "host/chinodeutils/node_utils_control.h"
#include "host/pipeline/pipeline.h"
#include "host/pipeline/use_case_data.h"
#include "platform/device_names.h"

namespace host {

// What lives while a request is processed.
struct LiveRequest {
    std::uint64_t frameNumber = 0;
    bool stopped = false;
    std::unique_ptr<InputMetadataBokeh> metadata;
    std::unique_ptr<std::uint32_t> selectedFace;
    std::unique_ptr<OEMFDResults> faceResults;
    std::optional<Published> published;
    int publishCalls = 0;
};

// One session of the pipeline: which metadata a node may read, when and how, and what it publishes.
// Its functions are called on the thread that creates the node or runs the request; a node that
// asks from another thread is served as well.
class PipelineSession {
public:
    PipelineSession(const UseCase& useCase, void* handle);

    void* handle() const { return handle_; }

    // Between these the request's own metadata can be read. It is a copy that ends with the
    // request, so that a node that keeps the address is seen; what the node writes comes back into
    // `request`.
    void BeginRequest(const Request& request);
    // What the node published. `*calls`, if not null, is the number of its attempts.
    std::optional<Published> EndRequest(Request& request, int* calls);

    // Null where the data is not there for this query. A query that no platform answers is a
    // complaint.
    void* Find(const MetadataQuery& query);

    // The answer to the node's question about its request: 1 where it shall not be processed.
    std::uint32_t QueryStop(const ChiRequestStateQuery& query);

    // `set` is null where the platform refused the call.
    void Publish(const ChiMetadataSet* set);

    void Complain(std::string complaint);
    std::vector<std::string> TakeComplaints();

private:
    // Data that the node can read under one tag.
    struct Entry {
        std::uint32_t pool = 0; // the bit that the query's tag id must have, 0 for none
        bool ofRequest = false;
        void* data = nullptr; // null: not supplied
    };
    void Supply(const device::VendorTagName& name, std::uint32_t pool, bool ofRequest,
                const void* data);
    void SupplyRequestData();
    std::optional<std::string> Objection(const MetadataQuery& query) const;

    void* const handle_;
    const UseCaseData useCase_;
    const bool bareFaceIndex_;

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
    std::shared_ptr<PipelineSession> Open(const UseCase& useCase);
    void Close(const void* handle);

    // Null, and a stray complaint, for a handle of no open session.
    std::shared_ptr<PipelineSession> Get(const void* handle, const char* caller);

    void* Find(const MetadataQuery& query) override;

    void Complain(std::string complaint);
    std::vector<std::string> TakeComplaints();

private:
    std::mutex mutex_;
    std::uintptr_t opened_ = 0;
    std::map<const void*, std::shared_ptr<PipelineSession>> sessions_;
    std::vector<std::string> complaints_;
};

} // namespace host

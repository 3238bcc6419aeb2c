#include "host/pipeline/pipeline_session.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include <fmt/format.h>

#include "host/pipeline/vendor_tags.h"

namespace host {
namespace {

// Handles look like none of this machine's addresses, so that a node that follows one is stopped.
constexpr std::uintptr_t kFirstHandle = 0x5E55000000000000;
constexpr std::uintptr_t kHandleStep = 0x10;

std::unique_ptr<PhysicalCameraConfigs> CameraConfigs() {
    auto configs = std::make_unique<PhysicalCameraConfigs>();
    configs->numPhysicalCameras = 2;
    for (std::uint32_t id : {0u, 1u}) {
        configs->camera[id].cameraId = id;
        configs->camera[id].masterRank = id == 0 ? 2.f : 1.f;
    }
    return configs;
}

// Input configuration of all nodes of the pipeline, without a byte behind its last entry. The other
// nodes' inputs stand around this one's and carry the same cameras at other indices, so that only
// node and instance tell them apart.
std::vector<std::byte> InputConfig() {
    std::vector<CameraInputConfig> entries;
    for (std::uint32_t camera : {0u, 1u}) {
        const std::uint32_t others[][3] = {
            {kNodeId + 1, 0, camera + 5}, {kNodeId, 0, camera}, {kNodeId, 1, camera + 9}};
        for (const auto& [node, instance, index] : others) {
            entries.push_back({.nodeId = node,
                               .nodeInstanceId = instance,
                               .fullInputBufferIndex = index,
                               .cameraId = camera});
        }
    }
    const PhysicalCameraInputConfig head{static_cast<std::uint32_t>(entries.size()), 0};
    const std::size_t entryBytes = entries.size() * sizeof(CameraInputConfig);
    std::vector<std::byte> bytes(sizeof(head) + entryBytes);
    std::memcpy(bytes.data(), &head, sizeof(head));
    std::memcpy(bytes.data() + sizeof(head), entries.data(), entryBytes);
    return bytes;
}

} // namespace

PipelineSession::PipelineSession(void* handle)
    : handle_(handle), cameraConfigs_(CameraConfigs()), inputConfig_(InputConfig()) {
    Supply(device::tags::kPhysicalCameraConfigs, kTagPoolCameraConfig, cameraConfigs_.get());
    Supply(device::tags::kPhysicalCameraInputConfig, kTagPoolUseCase, inputConfig_.data());
    // A debug value that the platform knows but nobody has set, as on a device in normal use.
    Supply(device::tags::kInduceSleep, kTagPoolUseCase, nullptr);
    SupplyRequestData();
}

void PipelineSession::Supply(const device::VendorTagName& name, std::uint32_t pool,
                             const void* data) {
    const std::optional<std::uint32_t> id = VendorTags::Instance().Id(name);
    // The interface hands out writable addresses of all metadata.
    entries_[id.value()] = {pool, pool == kTagPoolRequest, const_cast<void*>(data)};
}

void PipelineSession::SupplyRequestData() {
    Supply(device::tags::kInputMetadata, kTagPoolRequest, live_ ? live_->metadata.get() : nullptr);
    Supply(device::tags::kFaceResults, kTagPoolRequest, live_ ? live_->faceResults.get() : nullptr);
    Supply(device::tags::kSelectFaceIndex, kTagPoolRequest,
           live_ ? live_->selectedFace.get() : nullptr);
}

void PipelineSession::BeginRequest(const Request& request) {
    const std::lock_guard lock(mutex_);
    live_ = LiveRequest();
    live_->frameNumber = request.frameNumber;
    live_->metadata = std::make_unique<InputMetadataBokeh>(request.metadata);
    if (request.selectedFace) {
        live_->selectedFace = std::make_unique<std::uint32_t>(*request.selectedFace);
    }
    if (request.faceRotation) {
        live_->faceResults = std::make_unique<OEMFDResults>();
        live_->faceResults->rotation = *request.faceRotation;
    }
    SupplyRequestData();
}

RequestResult PipelineSession::EndRequest(Request& request, CDKResult code) {
    const std::lock_guard lock(mutex_);
    // What the node wrote into its copy goes back to the caller, as the platform hands it on.
    request.metadata = *live_->metadata;
    if (code != CDKResultSuccess && code != CDKResultEFailed && code != CDKResultEInvalidPointer) {
        complaints_.push_back(fmt::format("the request's result is {}", code));
    }
    if (live_->publishCalls != (code == CDKResultSuccess ? 1 : 0)) {
        complaints_.push_back(fmt::format("with result {}, metadata was published {} times", code,
                                          live_->publishCalls));
    }
    RequestResult result{code, std::move(live_->published), std::exchange(complaints_, {})};
    // The copies end here, so that the address sanitizer sees whoever reads them later.
    live_.reset();
    SupplyRequestData();
    return result;
}

// The first rule that the query breaks: what else is wrong mostly follows from it.
std::optional<std::string> PipelineSession::Violation(const MetadataQuery& query) const {
    const std::uint32_t id = query.tagId & ~kTagPoolBits;
    const std::string name = VendorTags::Instance().Describe(id);
    const auto found = entries_.find(id);
    if (found == entries_.end()) {
        return fmt::format("read {}, which the pipeline does not supply", name);
    }
    const Entry& entry = found->second;
    if ((query.tagId & kTagPoolBits) != entry.pool) {
        return fmt::format("read {} with pool bits {:#x}, not {:#x}", name,
                           query.tagId & kTagPoolBits, entry.pool);
    }
    if (query.type != kChiMetadataTypeNode || query.cameraId != 0) {
        return fmt::format("read {} as type {} of camera {}", name,
                           static_cast<std::uint32_t>(query.type), query.cameraId);
    }
    if (query.platform == nullptr || !IsPlatformInterface(*query.platform)) {
        return fmt::format("read {} through a table that is not the platform's", name);
    }
    if (entry.ofRequest && !live_) {
        return fmt::format("read {} while no request is processed", name);
    }
    if (query.requestId != (entry.ofRequest ? live_->frameNumber : 0)) {
        return fmt::format("read {} of request {}", name, query.requestId);
    }
    return std::nullopt;
}

void* PipelineSession::Find(const MetadataQuery& query) {
    if ((query.tagId & ~kTagPoolBits) == 0) {
        return nullptr; // the platform refused to name the tag's id
    }
    const std::lock_guard lock(mutex_);
    if (auto violation = Violation(query)) {
        complaints_.push_back(std::move(*violation));
        return nullptr;
    }
    return entries_.at(query.tagId & ~kTagPoolBits).data;
}

void PipelineSession::CheckStateQuery(const ChiRequestStateQuery& query) {
    const std::lock_guard lock(mutex_);
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&query);
    if (!std::all_of(bytes, bytes + sizeof(query), [](auto byte) { return byte == 0; })) {
        complaints_.push_back("the request state query is not zero before the call");
    }
    if (!live_) {
        complaints_.push_back("asked for the state of a request while none is processed");
    }
}

void PipelineSession::Publish(const ChiMetadataSet* set) {
    const std::lock_guard lock(mutex_);
    if (!live_) {
        complaints_.push_back("published metadata while no request is processed");
        return;
    }
    // The call counts even if the platform refuses the set: the node has done its part.
    ++live_->publishCalls;
    if (set != nullptr) {
        live_->published = ReadMetadataSet(*set, handle_, live_->frameNumber, complaints_);
    }
}

void PipelineSession::Complain(std::string complaint) {
    const std::lock_guard lock(mutex_);
    complaints_.push_back(std::move(complaint));
}

std::vector<std::string> PipelineSession::TakeComplaints() {
    const std::lock_guard lock(mutex_);
    return std::exchange(complaints_, {});
}

// Never destroyed: nodes may end while the process does.
Sessions& Sessions::Instance() {
    static Sessions* const instance = new Sessions;
    return *instance;
}

std::shared_ptr<PipelineSession> Sessions::Open() {
    SetMetadataProvider(this);
    const std::lock_guard lock(mutex_);
    // NOLINTNEXTLINE(performance-no-int-to-ptr)
    void* const handle = reinterpret_cast<void*>(kFirstHandle + kHandleStep * ++opened_);
    auto session = std::make_shared<PipelineSession>(handle);
    sessions_.emplace(handle, session);
    return session;
}

void Sessions::Close(const void* handle) {
    const std::lock_guard lock(mutex_);
    sessions_.erase(handle);
}

// The caller shares the session, since another thread may close it meanwhile.
std::shared_ptr<PipelineSession> Sessions::Get(const void* handle, const char* caller) {
    const std::lock_guard lock(mutex_);
    const auto found = sessions_.find(handle);
    if (found != sessions_.end()) {
        return found->second;
    }
    complaints_.push_back(
        fmt::format("{} was called with a session that is not open: {}", caller, handle));
    return nullptr;
}

void* Sessions::Find(const MetadataQuery& query) {
    const auto session = Get(query.session, "GetDataList");
    return session ? session->Find(query) : nullptr;
}

std::string Sessions::Describe(std::uint32_t tagId) const {
    return VendorTags::Instance().Describe(tagId & ~kTagPoolBits);
}

void Sessions::Complain(std::string complaint) {
    const std::lock_guard lock(mutex_);
    complaints_.push_back(std::move(complaint));
}

std::vector<std::string> Sessions::TakeComplaints() {
    const std::lock_guard lock(mutex_);
    return std::exchange(complaints_, {});
}

std::vector<std::string> TakeStrayComplaints() {
    return Sessions::Instance().TakeComplaints();
}

} // namespace host

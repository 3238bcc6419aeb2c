#include "host/pipeline/pipeline_session.h"

#include <algorithm>
#include <utility>

#include "host/pipeline/platform_interface.h"
#include "host/pipeline/published.h"
#include "host/pipeline/text.h"
#include "host/pipeline/vendor_tags.h"

namespace host {

PipelineSession::PipelineSession(const UseCase& useCase, void* handle)
    : handle_(handle), useCase_(useCase), bareFaceIndex_(useCase.bareFaceIndex) {
    Supply(device::tags::kPhysicalCameraConfigs, kTagPoolCameraConfig, false,
           useCase_.cameraConfigs());
    Supply(device::tags::kPhysicalCameraInputConfig, kTagPoolUseCase, false,
           useCase_.inputConfig());
    Supply(device::tags::kInduceSleep, kTagPoolUseCase, false, useCase_.induceSleep());
    SupplyRequestData();
}

void PipelineSession::Supply(const device::VendorTagName& name, std::uint32_t pool, bool ofRequest,
                             const void* data) {
    const std::optional<std::uint32_t> id = VendorTags::Instance().Id(name);
    // The interface hands out writable addresses of all metadata.
    entries_[id.value()] = {pool, ofRequest, const_cast<void*>(data)};
}

void PipelineSession::SupplyRequestData() {
    Supply(device::tags::kInputMetadata, kTagPoolRequest, true,
           live_ ? live_->metadata.get() : nullptr);
    Supply(device::tags::kFaceResults, kTagPoolRequest, true,
           live_ ? live_->faceResults.get() : nullptr);
    Supply(device::tags::kSelectFaceIndex, bareFaceIndex_ ? 0 : kTagPoolRequest, true,
           live_ ? live_->selectedFace.get() : nullptr);
}

void PipelineSession::BeginRequest(const Request& request) {
    const std::lock_guard lock(mutex_);
    live_.emplace();
    live_->frameNumber = request.frameNumber;
    live_->stopped = request.stopped;
    if (request.hasMetadata) {
        live_->metadata = std::make_unique<InputMetadataBokeh>(request.metadata);
    }
    if (request.selectedFace) {
        live_->selectedFace = std::make_unique<std::uint32_t>(*request.selectedFace);
    }
    if (request.faceRotation) {
        live_->faceResults = std::make_unique<OEMFDResults>();
        live_->faceResults->rotation = *request.faceRotation;
    }
    SupplyRequestData();
}

std::optional<Published> PipelineSession::EndRequest(Request& request, int* calls) {
    const std::lock_guard lock(mutex_);
    if (live_->metadata) {
        request.metadata = *live_->metadata;
    }
    if (calls != nullptr) {
        *calls = live_->publishCalls;
    }
    std::optional<Published> published = std::move(live_->published);
    live_.reset();
    SupplyRequestData();
    return published;
}

std::optional<std::string> PipelineSession::Objection(const MetadataQuery& query) const {
    const std::uint32_t id = query.tagId & ~kTagPoolBits;
    const std::string name = VendorTags::Instance().Describe(id);
    const auto found = entries_.find(id);
    if (found == entries_.end()) {
        return Text("read ", name, ", which the pipeline does not supply");
    }
    const Entry& entry = found->second;
    if ((query.tagId & kTagPoolBits) != entry.pool) {
        return Text("read ", name, " with pool bits ", Hex(query.tagId & kTagPoolBits), ", not ",
                    Hex(entry.pool));
    }
    if (query.type != kChiMetadataTypeNode || query.cameraId != 0) {
        return Text("read ", name, " as type ", query.type, " of camera ", query.cameraId);
    }
    if (query.platform == nullptr || !IsPlatformInterface(*query.platform)) {
        return Text("read ", name, " through a table that is not the platform's");
    }
    if (entry.ofRequest && !live_) {
        return Text("read ", name, " while no request is processed");
    }
    if (query.requestId != (entry.ofRequest ? live_->frameNumber : 0)) {
        return Text("read ", name, " of request ", query.requestId);
    }
    return std::nullopt;
}

void* PipelineSession::Find(const MetadataQuery& query) {
    if ((query.tagId & ~kTagPoolBits) == 0) {
        return nullptr; // the platform refused to name the tag's id
    }
    const std::lock_guard lock(mutex_);
    if (auto objection = Objection(query)) {
        complaints_.push_back(std::move(*objection));
        return nullptr;
    }
    return entries_.at(query.tagId & ~kTagPoolBits).data;
}

std::uint32_t PipelineSession::QueryStop(const ChiRequestStateQuery& query) {
    const std::lock_guard lock(mutex_);
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&query);
    if (!std::all_of(bytes, bytes + sizeof(query), [](auto byte) { return byte == 0; })) {
        complaints_.push_back("the request state query is not zero before the call");
    }
    if (!live_) {
        complaints_.push_back("asked for the state of a request while none is processed");
    }
    return live_ && live_->stopped ? 1 : 0;
}

void PipelineSession::Publish(const ChiMetadataSet* set) {
    const std::lock_guard lock(mutex_);
    if (!live_) {
        complaints_.push_back("published metadata while no request is processed");
        return;
    }
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

} // namespace host

#include "host/pipeline/pipeline_session.h"

#include <utility>

#include "host/pipeline/text.h"

namespace host {
namespace {

// Handles look like none of this machine's addresses, so that a node that follows one is stopped.
constexpr std::uintptr_t kFirstHandle = 0x5E55000000000000;
constexpr std::uintptr_t kHandleStep = 0x10;

} // namespace

// Never destroyed: nodes may end while the process does.
Sessions& Sessions::Instance() {
    static Sessions* const instance = new Sessions;
    return *instance;
}

std::shared_ptr<PipelineSession> Sessions::Open(const UseCase& useCase) {
    SetMetadataProvider(this);
    const std::lock_guard lock(mutex_);
    // A number that is no address, so that a node that follows it is seen.
    // NOLINTNEXTLINE(performance-no-int-to-ptr)
    void* const handle = reinterpret_cast<void*>(kFirstHandle + kHandleStep * ++opened_);
    auto session = std::make_shared<PipelineSession>(useCase, handle);
    sessions_.emplace(handle, session);
    return session;
}

void Sessions::Close(const void* handle) {
    const std::lock_guard lock(mutex_);
    sessions_.erase(handle);
}

std::shared_ptr<PipelineSession> Sessions::Get(const void* handle, const char* caller) {
    const std::lock_guard lock(mutex_);
    const auto found = sessions_.find(handle);
    if (found != sessions_.end()) {
        return found->second;
    }
    complaints_.push_back(Text(caller, " was called with a session that is not open: ", handle));
    return nullptr;
}

void* Sessions::Find(const MetadataQuery& query) {
    const auto session = Get(query.session, "GetDataList");
    return session ? session->Find(query) : nullptr;
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

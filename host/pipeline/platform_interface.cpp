#include <algorithm>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "host/control/faults.h"
#include "host/pipeline/pipeline_session.h"
#include "host/pipeline/vendor_tags.h"

namespace host {
namespace {

constexpr CDKResult kNoSuch = 6;            // the platform's CDKResultENoSuch
constexpr std::uint32_t kMostTagsTold = 16; // of a set whose count may be wrong

CallPoint setMetadataPoint("setMetadata");
CallPoint getVendorTagBasePoint("getVendorTagBase");
CallPoint queryRequestStatePoint("queryRequestState");

CDKResult SetMetadata(const ChiMetadataSet* set) {
    Call call(setMetadataPoint);
    // The failure is applied at the end, so that what the node does wrong is reported all the same.
    const auto& failure = call.failure();
    if (set == nullptr) {
        Sessions::Instance().Complain("setMetadata was called without a set");
        return CDKResultEInvalidPointer;
    }
    call.Tell([set] {
        const auto count = set->tagIds != nullptr ? std::min(set->numTags, kMostTagsTold) : 0;
        std::vector<std::string> names;
        for (std::uint32_t i = 0; i < count; ++i) {
            names.push_back(VendorTags::Instance().Describe(set->tagIds[i]));
        }
        return fmt::format("{}", fmt::join(names, ", "));
    });
    const auto session = Sessions::Instance().Get(set->hChiSession, "setMetadata");
    if (!session) {
        return CDKResultEFailed;
    }
    session->Publish(failure ? nullptr : set);
    return failure ? static_cast<CDKResult>(*failure) : CDKResultSuccess;
}

CDKResult GetVendorTagBase(ChiVendorTagBaseQuery* query) {
    Call call(getVendorTagBasePoint);
    if (query == nullptr || query->section == nullptr) {
        Sessions::Instance().Complain("getVendorTagBase was called without a section");
        return CDKResultEInvalidPointer;
    }
    call.Tell([query] { return std::string(query->tag != nullptr ? query->tag : query->section); });
    if (query->size != sizeof(*query) || query->tagId != 0) {
        Sessions::Instance().Complain(
            fmt::format("the vendor tag query has size {} and tag id {}, not {} and 0", query->size,
                        query->tagId, sizeof(*query)));
    }
    if (call.failure()) { // at the end, as in SetMetadata
        return static_cast<CDKResult>(*call.failure());
    }
    const auto id = VendorTags::Instance().Id({query->section, query->tag});
    if (!id) {
        return kNoSuch;
    }
    query->tagId = *id;
    return CDKResultSuccess;
}

CDKResult QueryRequestState(void* hChiSession, ChiRequestStateQuery* query) {
    const Call call(queryRequestStatePoint);
    const auto session = Sessions::Instance().Get(hChiSession, "queryRequestState");
    if (!session || query == nullptr) {
        return CDKResultEInvalidPointer;
    }
    session->CheckStateQuery(*query);
    if (call.failure()) {
        return static_cast<CDKResult>(*call.failure());
    }
    query->stop = 0;
    return CDKResultSuccess;
}

} // namespace

ChiNodeInterface& PlatformInterface() {
    static ChiNodeInterface table = [] {
        // Callbacks that this platform does not offer stay null.
        ChiNodeInterface made{};
        made.size = sizeof(made);
        made.setMetadata = SetMetadata;
        made.getVendorTagBase = GetVendorTagBase;
        made.queryRequestState = QueryRequestState;
        return made;
    }();
    return table;
}

// The callbacks tell, not the address: the node works with a copy of the table.
bool IsPlatformInterface(const ChiNodeInterface& table) {
    return table.setMetadata == SetMetadata && table.getVendorTagBase == GetVendorTagBase &&
           table.queryRequestState == QueryRequestState;
}

} // namespace host

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "host/control/faults.h"
#include "host/pipeline/pipeline_session.h"
#include "host/pipeline/vendor_tags.h"

// What the pipeline answers a node, and what it finds in what a node publishes.

namespace {

std::uint32_t Id(const device::VendorTagName& name) {
    return host::VendorTags::Instance().Id(name).value();
}

void* Ask(const host::MetadataQuery& query) {
    return ChiNodeUtils::GetDataList(query.requestId, query.tagId, query.type,
                                     const_cast<ChiNodeInterface*>(query.platform), query.session,
                                     query.cameraId);
}

class Metadata : public testing::Test {
protected:
    using Query = host::MetadataQuery;

    Metadata() { session_->BeginRequest(request_); }
    ~Metadata() override {
        host::Sessions::Instance().Close(session_->handle());
        host::Sessions::Instance().Close(other_->handle());
    }

    const std::shared_ptr<host::PipelineSession> session_ = host::Sessions::Instance().Open();
    const std::shared_ptr<host::PipelineSession> other_ = host::Sessions::Instance().Open();
    host::Request request_ = host::PlainRequest({{40, 30}, {20, 16}, {40, 30}}, 7);
    const Query ofUseCase_{0,
                           Id(device::tags::kPhysicalCameraConfigs) | kTagPoolCameraConfig,
                           kChiMetadataTypeNode,
                           &host::PlatformInterface(),
                           session_->handle(),
                           0};
    const Query ofRequest_{7,
                           Id(device::tags::kInputMetadata) | kTagPoolRequest,
                           kChiMetadataTypeNode,
                           &host::PlatformInterface(),
                           session_->handle(),
                           0};
};

TEST_F(Metadata, IsAnsweredOnlyUnderItsPoolTypeAndRequest) {
    const struct {
        const char* what;
        Query query;
        void (*change)(Query&);
        bool answered;
        bool complained;
    } cases[] = {
        {"use case", ofUseCase_, [](Query&) {}, true, false},
        {"other pool", ofUseCase_, [](Query& query) { query.tagId ^= 0x24000000; }, false, true},
        {"no pool", ofUseCase_, [](Query& query) { query.tagId ^= 0x04000000; }, false, true},
        {"in a request", ofUseCase_, [](Query& query) { query.requestId = 7; }, false, true},
        {"request", ofRequest_, [](Query&) {}, true, false},
        {"other request", ofRequest_, [](Query& query) { query.requestId = 6; }, false, true},
        {"other type", ofRequest_, [](Query& query) { query.type = ChiMetadataType{1}; }, false,
         true},
        {"other camera", ofRequest_, [](Query& query) { query.cameraId = 1; }, false, true},
        {"no table", ofRequest_, [](Query& query) { query.platform = nullptr; }, false, true},
        {"not supplied", ofRequest_,
         [](Query& query) { query.tagId = Id(device::tags::kSelectFaceIndex) | kTagPoolRequest; },
         false, false},
        {"unknown tag", ofRequest_, [](Query& query) { query.tagId = 0x80FF0000; }, false, true},
        {"id of a refused query", ofRequest_, [](Query& query) { query.tagId = kTagPoolRequest; },
         false, false},
    };
    for (const auto& [what, start, change, answered, complained] : cases) {
        SCOPED_TRACE(what);
        Query query = start;
        change(query);
        EXPECT_EQ(Ask(query) != nullptr, answered);
        EXPECT_EQ(!session_->TakeComplaints().empty(), complained);
    }
}

TEST_F(Metadata, EndsWithItsRequestAndSession) {
    Query ofOther = ofRequest_;
    ofOther.session = other_->handle();
    EXPECT_EQ(Ask(ofOther), nullptr) << "no request runs there";
    EXPECT_EQ(other_->TakeComplaints().size(), 1u);

    auto* const data = static_cast<InputMetadataBokeh*>(Ask(ofRequest_));
    ASSERT_NE(data, nullptr);
    data->blurLevel = 12;
    EXPECT_TRUE(session_->EndRequest(request_, CDKResultEFailed).complaints.empty());
    EXPECT_EQ(request_.metadata.blurLevel, 12u);
    EXPECT_EQ(Ask(ofRequest_), nullptr);

    host::Sessions::Instance().Close(session_->handle());
    EXPECT_EQ(Ask(ofUseCase_), nullptr);
    EXPECT_EQ(host::TakeStrayComplaints().size(), 1u);
}

TEST_F(Metadata, AFailingCallIsCheckedAllTheSame) {
    const ChiNodeInterface& platform = host::PlatformInterface();
    host::Faults::Fail("getVendorTagBase", 1, 5);
    ChiVendorTagBaseQuery tag{sizeof(tag) - 1, 0, device::sections::kMultiCameraControl, nullptr};
    EXPECT_EQ(platform.getVendorTagBase(&tag), 5u);
    EXPECT_EQ(host::TakeStrayComplaints().size(), 1u);

    host::Faults::Fail("queryRequestState", 1, 5);
    ChiRequestStateQuery state{};
    state.stop = 1;
    EXPECT_EQ(platform.queryRequestState(session_->handle(), &state), 5u);
    EXPECT_EQ(session_->TakeComplaints().size(), 1u);
}

// The set of a node that does all as it should; each case of the test spoils one thing.
struct NodeSet {
    static constexpr int kTags = 7;

    NodeSet() {
        static const CHIVENDORTAGDATA tags[] = {{"SupportedFeature", kTagTypeByte, 64},
                                                {"CurrentMode", kTagTypeByte, 1},
                                                {"ProcessedFrameNumber", kTagTypeInt64, 1},
                                                {"FrameDimension", kTagTypeInt32, 2}};
        static const CHIVENDORTAGSECTIONDATA section{device::kNodeName, 0, 4, tags, 0xFFFFFFFF, 0};
        host::VendorTags::Instance().Register({&section, 1, 0});
        const std::uint32_t base = Id({device::kNodeName, nullptr});
        const std::uint32_t all[] = {base,
                                     base + 1,
                                     base + 2,
                                     base + 3,
                                     Id(device::tags::kDepthPictureSize),
                                     Id(device::tags::kOutputMetadata),
                                     Id(device::tags::kPtFocus)};
        const std::uint64_t sizes[] = {64, 1, 1, 2, 4, 12, 2};
        for (int index = 0; index < kTags; ++index) {
            ids[index] = all[index];
            entries[index] = {48, 0, 7, values[index], sizes[index], {}};
        }
        set = {64, 0, this, kTags, 0, ids, entries, {}};
        values[0][0] = 'F';
        values[4][0] = 200;
        values[6][4] = 9;
    }

    std::uint8_t values[kTags][64] = {};
    std::uint32_t ids[kTags];
    ChiTagData entries[kTags];
    ChiMetadataSet set{};
};

TEST(PublishedSet, EverySpoiledPartIsNamed) {
    const struct {
        const char* complaint; // part of it; null: none
        std::function<void(NodeSet&)> spoil;
    } cases[] = {
        {nullptr, [](NodeSet&) {}},
        {"size of the metadata set", [](NodeSet& node) { node.set.size = 63; }},
        {"session", [](NodeSet& node) { node.set.hChiSession = nullptr; }},
        {"number of published tags", [](NodeSet& node) { node.set.numTags = 6; }},
        {"reserved bytes of the metadata set", [](NodeSet& node) { node.set.reserved40[23] = 1; }},
        {"in the place of \"CurrentMode\"",
         [](NodeSet& node) { std::swap(node.ids[1], node.ids[2]); }},
        {"entry size of \"FrameDimension\"", [](NodeSet& node) { node.entries[3].size = 40; }},
        {"request id of \"PtFocus\"", [](NodeSet& node) { node.entries[6].requestId = 8; }},
        {"data size of \"PtFocus\"", [](NodeSet& node) { node.entries[6].dataSize = 8; }},
        {"data size of \"SupportedFeature\"", [](NodeSet& node) { node.entries[0].dataSize = 1; }},
        {"in the entry of \"CurrentMode\"",
         [](NodeSet& node) { node.entries[1].reserved32[0] = 1; }},
        {"\"OutputMetadataBokeh\" has no data",
         [](NodeSet& node) { node.entries[5].data = nullptr; }},
        {"not padded", [](NodeSet& node) { node.values[0][40] = 'x'; }},
    };
    for (const auto& [complaint, spoil] : cases) {
        SCOPED_TRACE(complaint != nullptr ? complaint : "as it should be");
        NodeSet node;
        spoil(node);
        std::vector<std::string> complaints;
        const auto published = host::ReadMetadataSet(node.set, &node, 7, complaints);
        if (complaint == nullptr) {
            ASSERT_TRUE(published);
            EXPECT_TRUE(complaints.empty()) << complaints.front();
            EXPECT_EQ(published->supportedFeature, "F");
            EXPECT_EQ(published->depthPictureSize, 200);
            EXPECT_EQ(published->focusPoint[1], 9);
            continue;
        }
        ASSERT_FALSE(complaints.empty());
        EXPECT_NE(complaints.front().find(complaint), std::string::npos) << complaints.front();
    }
}

TEST(Pipeline, NamesEveryViolationOfANode) {
    const host::NodeLibrary library(NODE_LIBRARY, ENGINE_LIBRARY);
    constexpr Size kSize{6, 4};
    const host::UseCase useCase{kSize, kSize, kSize};
    host::Image main(host::Image::Format::Nv12, 6, 4, 8);
    host::Image aux = main;
    host::Image output = main;
    host::Image depth(host::Image::Format::Y8, 6, 4, 8);
    host::Request request = host::PlainRequest(useCase, 1);
    request.inputs = {&main, &aux};
    request.output = &output;
    request.depth = &depth;

    using Complaints = std::vector<std::string>;
    host::Node node(library, useCase);
    EXPECT_EQ(node.Process(request).complaints,
              (Complaints{
                  "creation wrote more of its record than the node's handle",
                  "the answer to the built pipeline has other bytes than it should",
                  "with result 0, metadata was published 0 times", "the request record was written",
                  "the image list of the depth output was written",
                  "the pixels of input 0 were written", "the padding of the output was written"}));
    EXPECT_EQ(node.End(), (Complaints{"the node's destruction answers 1",
                                      "setMetadata was called without a set"}));
    EXPECT_EQ(node.End(), Complaints{});

    { host::Node dropped(library, useCase); }
    EXPECT_EQ(host::TakeStrayComplaints().size(), 4u) << "two of creation, two of the end";
}

TEST(NodeInterface, CopiesWhatBothReleasesKnow) {
    const std::uint32_t base = Id({device::sections::kMultiCameraControl, nullptr});
    const struct {
        std::uint32_t size;
        CDKResult result;
        bool queryStateCopied;
    } cases[] = {{sizeof(ChiNodeInterface), CDKResultSuccess, true},
                 {sizeof(ChiNodeInterface) + 64, CDKResultSuccess, true},
                 {40, CDKResultSuccess, false},
                 {39, CDKResultEFailed, false}};
    for (const auto& [size, result, queryStateCopied] : cases) {
        SCOPED_TRACE(size);
        ChiNodeInterface platform = host::PlatformInterface();
        platform.size = size;
        ChiNodeInterface copy{};
        unsigned int tagBase = 0;
        EXPECT_EQ(ChiNodeUtils::SetNodeInterface(&platform, device::sections::kMultiCameraControl,
                                                 &copy, &tagBase),
                  result);
        EXPECT_EQ(tagBase, result == CDKResultSuccess ? base : 0);
        EXPECT_EQ(copy.queryRequestState != nullptr, queryStateCopied);
    }
}

} // namespace

// Every function that the stand-ins supply, failing in turn under the stand-in engine: at creation
// and over a request. The photo survives, nothing leaks, the next request is good. What the node
// prints and answers on each failure is the contract tests' matter.

#include "host/filesystem/device_root.h"
#include "host/properties/property_control.h"
#include "tests/pipeline/capture_fixture.h"

namespace capture {
namespace {

class FailureSweep : public CaptureTest {
protected:
    // Small: every failed call renders twice.
    FailureSweep() : CaptureTest(160, 120) {
        property_set("persist.vendor.camera.tessola.cb.dumpimg", "1");
        Rendered();
    }

    // A photo in the output: the picture where it was asked for and made, the main image otherwise.
    void ExpectPhoto(const host::RequestResult& result) {
        EXPECT_EQ(result.code, CDKResultSuccess);
        EXPECT_TRUE(OutputIsMain() || host::SamePixels(output_, Rendered()));
        for (const std::string& complaint : result.complaints) {
            ADD_FAILURE() << complaint;
        }
        if (result.published && result.published->result.depthEffectInfo == 1) {
            EXPECT_TRUE(OutputIsMain());
        }
    }

    // Creates a node, its call `nth` of this function failing, and takes a photo if there is one.
    // True while the life has such a call.
    bool FailAtCreation(const std::string& name, std::uint64_t nth) {
        host::Faults::Reset();
        host::Faults::Fail(name, nth, 6);
        try {
            host::Node node(Library(), useCase_);
            const bool reached = host::Faults::Calls(name) >= nth;
            host::Faults::Reset();
            ExpectPhoto(Capture(node));
            return reached;
        } catch (const host::PipelineError& error) {
            EXPECT_TRUE(name == "ChiNodeUtils::GetDataList" || name == "getVendorTagBase")
                << error.what();
            EXPECT_NE(error.code(), CDKResultSuccess);
            return true;
        }
    }

    bool FailInRequest(const std::string& name, std::uint64_t nth) {
        host::Faults::Reset();
        host::Node node(Library(), useCase_);
        host::Faults::Reset();
        host::Faults::Fail(name, nth, -77);
        const host::RequestResult result = Capture(node);
        const bool reached = host::Faults::Calls(name) >= nth;
        if (result.code == CDKResultSuccess) {
            ExpectPhoto(result);
        } else {
            EXPECT_EQ(name, "ChiNodeUtils::GetDataList");
            EXPECT_EQ(result.code, CDKResultEInvalidPointer);
            EXPECT_FALSE(result.published);
        }
        host::Faults::Reset();
        const host::RequestResult next = Capture(node);
        EXPECT_EQ(next.code, CDKResultSuccess);
        EXPECT_TRUE(host::SamePixels(output_, Rendered())) << "the next request is unaffected";
        return reached;
    }

    // Fails each call of each function, one at a time. Returns the number of calls failed.
    template <typename FailCall>
    int Sweep(FailCall failCall) {
        int cells = 0;
        for (const std::string& name : host::Faults::Names()) {
            SCOPED_TRACE(name);
            for (std::uint64_t nth = 1; failCall(name, nth); ++nth) {
                ++cells;
                EXPECT_LT(nth, 100u);
                EXPECT_TRUE(host::OpenDeviceFiles().empty());
            }
        }
        std::printf("%d calls failed, one at a time\n", cells);
        return cells;
    }
};

TEST_F(FailureSweep, AtCreation) {
    EXPECT_GE(Sweep([this](auto&... call) { return FailAtCreation(call...); }), 30);
}

TEST_F(FailureSweep, InARequest) {
    EXPECT_GE(Sweep([this](auto&... call) { return FailInRequest(call...); }), 25);
}

TEST_F(FailureSweep, WholeEngineDown) {
    for (const std::string& name : host::Faults::Names()) {
        if (name.starts_with("TSL_DCIR_") && name != "TSL_DCIR_Init") {
            host::Faults::Fail(name, 1, -5, 1000);
        }
    }
    host::Node node(Library(), useCase_);
    ExpectPhoto(Capture(node));
    EXPECT_TRUE(OutputIsMain());
}

} // namespace
} // namespace capture

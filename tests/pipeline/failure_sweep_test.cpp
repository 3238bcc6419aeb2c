// Every function that the node calls out to, failing in turn: at creation and over a request. The
// photo survives, the platform learns what is documented, nothing leaks, the next request is good.

#include <algorithm>
#include <map>

#include "host/filesystem/device_root.h"
#include "host/properties/property_control.h"
#include "tests/pipeline/capture_fixture.h"

namespace capture {
namespace {

constexpr char kEngine[] = "%s: %d: %s failed res = %ld";
constexpr char kCode[] = "%s: %d: errCode = %d: NULL POINTER!";
constexpr char kResult[] = "%s: %d: res: %d NULL POINTER!";
constexpr char kWide[] = "%s: %d:  res: %d NULL POINTER!";
constexpr char kOpen[] = "TSL_CTB: %s: %d: : %s readCaliData fail\n";
constexpr char kRead[] = "TSL_CTB: %s: %d: : %s readCaliData read file size error!\n";
constexpr char kSave[] = "TSL_CTB: %s: %d: Failed to open file: %s\n";
constexpr char kQuiet[] = "";

// What a call point's failures may print, and what they can do to creation and to a request.
struct Expectation {
    std::vector<std::string> texts; // each failure prints one of them first; kQuiet: nothing
    bool creationMayFail = false;
    CDKResult requestResult = CDKResultSuccess; // of a request in which it failed
};

const std::map<std::string, Expectation> kExpected = {
    {"property_get", {{kQuiet}}},
    {"__android_log_print", {{kQuiet}}},
    {"CamX::SettingsManager::GetInstance", {{kQuiet}}},
    {"CamX::SettingsManager::GetStaticSettings", {{kQuiet}}},
    {"fopen", {{kOpen, kSave}}},
    {"fseek", {{kQuiet, kRead}}},
    {"ftell", {{kQuiet}}},
    {"fread", {{kRead}}},
    {"fclose", {{kQuiet}}},
    {"open", {{kQuiet}}},
    {"write", {{kQuiet}}},
    {"close", {{kQuiet}}},
    {"ChiNodeUtils::QueryVendorTag", {{kQuiet}}},
    {"ChiNodeUtils::SetNodeInterface", {{kQuiet}}},
    {"ChiNodeUtils::GetDataList",
     {{"TSL_CTB: %s: %d: pPhysicalCameraConfigs not updated for BOKEH\n",
       "TSL_CTB: %s: %d: pCameraInputConfig not updated for BOKEH\n", kCode, kQuiet},
      true,
      CDKResultEInvalidPointer}},
    {"ChiNodeUtils::DefaultBufferNegotiation", {{kQuiet}}},
    {"getVendorTagBase",
     {{"TSL_CTB: %s: %d: Error: %s during GetVendorTagBase for: %s %s\n", kQuiet}, true}},
    {"setMetadata", {{kQuiet}}},
    {"queryRequestState", {{kQuiet}}},
    {"TSL_DCIR_GetVersion", {{kQuiet}}},
    {"TSL_DCIR_Init", {{"TSL_CTB: %s: %d: Initialize TSL_DCIR_Init res = %ld\n"}}},
    {"TSL_DCIR_SetCameraImageInfo",
     {{"TSL_CTB: %s: %d: TSL_DCIR_SetCameraImageInfo failed res = %ld\n", kEngine}}},
    {"TSL_DCIR_SetCaliData", {{"TSL_CTB: %s: %d:  : Initialize SetCaliData res = %ld\n"}}},
    {"TSL_DCIR_GetImageSizeInCalibration", {{kQuiet}}},
    {"TSL_DCIR_Reset", {{kEngine}}},
    {"TSL_DCIR_CalcDisparityData", {{kEngine}}},
    {"TSL_DCIR_GetDisparityDataSize", {{kEngine}}},
    {"TSL_DCIR_GetDisparityData", {{kEngine}}},
    {"TSL_DCIR_Process", {{kEngine}}},
    {"TSL_DCIR_Uninit", {{kQuiet}}},
};

class FailureSweep : public CaptureTest {
protected:
    // Small: every failed call renders twice.
    FailureSweep() : CaptureTest(160, 120) {
        property_set("persist.vendor.camera.tessola.cb.dumpimg", "1");
        Rendered();
        Errors();
    }

    void ExpectDocumentedText(const Expectation& expected) {
        const std::vector<std::string> errors = Errors();
        const std::string first = errors.empty() ? kQuiet : errors.front();
        EXPECT_NE(std::find(expected.texts.begin(), expected.texts.end(), first),
                  expected.texts.end())
            << "printed: " << first;
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

    // Creates a node, its call `nth` of this function failing. True while the life has such a call.
    bool FailAtCreation(const std::string& name, const Expectation& expected, std::uint64_t nth) {
        host::Faults::Reset();
        host::Faults::Fail(name, nth, 6);
        try {
            host::Node node(Library(), useCase_);
            const bool reached = host::Faults::Calls(name) >= nth;
            if (reached) {
                ExpectDocumentedText(expected);
            }
            host::Faults::Reset();
            ExpectPhoto(Capture(node));
            Errors();
            return reached;
        } catch (const host::PipelineError& error) {
            EXPECT_TRUE(expected.creationMayFail) << error.what();
            EXPECT_NE(error.code(), CDKResultSuccess);
            const std::vector<std::string> errors = Errors();
            EXPECT_GE(errors.size(), 3u);
            EXPECT_EQ(errors[errors.size() - 2], kWide);
            EXPECT_EQ(errors[errors.size() - 1], kResult);
            return true;
        }
    }

    bool FailInRequest(const std::string& name, const Expectation& expected, std::uint64_t nth) {
        host::Faults::Reset();
        host::Node node(Library(), useCase_);
        Errors();
        host::Faults::Reset();
        host::Faults::Fail(name, nth, -77);
        const host::RequestResult result = Capture(node);
        const bool reached = host::Faults::Calls(name) >= nth;
        if (reached) {
            ExpectDocumentedText(expected);
        }
        if (result.code == CDKResultSuccess) {
            ExpectPhoto(result);
        } else {
            EXPECT_EQ(result.code, expected.requestResult);
            EXPECT_FALSE(result.published);
        }
        host::Faults::Reset();
        const host::RequestResult next = Capture(node);
        EXPECT_EQ(next.code, CDKResultSuccess);
        EXPECT_TRUE(host::SamePixels(output_, Rendered())) << "the next request is unaffected";
        Errors();
        return reached;
    }

    // Fails each call of each function, one at a time. Returns the number of calls failed.
    template <typename FailCall>
    int Sweep(FailCall failCall) {
        int cells = 0;
        for (const auto& [name, expected] : kExpected) {
            SCOPED_TRACE(name);
            for (std::uint64_t nth = 1; failCall(name, expected, nth); ++nth) {
                ++cells;
                EXPECT_LT(nth, 100u);
                EXPECT_TRUE(host::OpenDeviceFiles().empty());
            }
        }
        std::printf("%d calls failed, one at a time\n", cells);
        return cells;
    }
};

TEST_F(FailureSweep, EveryCallPointIsInTheTable) {
    for (const std::string& name : host::Faults::Names()) {
        EXPECT_TRUE(kExpected.contains(name)) << name << " has no expectation";
    }
    EXPECT_EQ(host::Faults::Names().size(), kExpected.size());
}

TEST_F(FailureSweep, AtCreation) {
    EXPECT_GE(Sweep([this](auto&... cell) { return FailAtCreation(cell...); }), 30);
}

TEST_F(FailureSweep, InARequest) {
    EXPECT_GE(Sweep([this](auto&... cell) { return FailInRequest(cell...); }), 25);
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

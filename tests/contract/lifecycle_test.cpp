// Entry, callback records, creation, configuration, calibration.

#include <dlfcn.h>

#include <cstdlib>
#include <new>
#include <set>
#include <tuple>
#include <utility>

#include "tests/contract/fixture.h"

namespace contract {
namespace {

using Texts = std::vector<std::string>;

const std::string kNull = ": #: NULL POINTER!";

TEST_F(NodeTest, TableIsFilledOnlyWhenLargeEnough) {
    const auto entry = [this](std::uint32_t size) {
        Record table(248);
        table.Fill(0xA5);
        table.Set<std::uint32_t>(0, size);
        table.SetWords(4, {3, 9});
        const Record before = table;
        reinterpret_cast<void (*)(void*)>(dlsym(library_, "ChiNodeEntry"))(table.data());
        return std::pair(before, table);
    };
    const auto [beforeSmall, small] = entry(247);
    EXPECT_TRUE(beforeSmall == small);
    EXPECT_EQ(
        platform().Texts(6),
        Texts{"TSL_CTB: TSL_CTB: ChiNodeEntry: #:  Chi API major version doesn't match (3:9) vs "
              "(1:0)\n"});

    auto [expected, filled] = entry(248);
    expected.SetWords(4, {1, 0});
    for (const std::size_t slot : {16u, 24u, 32u, 40u, 48u, 64u, 88u, 104u, 112u}) {
        EXPECT_NE(filled.Get<void*>(slot), expected.Get<void*>(slot)) << "slot " << slot;
        expected.Set(slot, filled.Get<void*>(slot));
    }
    EXPECT_TRUE(expected == filled) << "a byte outside the nine slots and the version changed";
    EXPECT_TRUE(entry(4096).second.Get<void*>(112) == filled.Get<void*>(112));
    platform().log.clear();
    reinterpret_cast<void (*)(void*)>(dlsym(library_, "ChiNodeEntry"))(nullptr);
    EXPECT_EQ(platform().Texts(6), Texts{"TSL_CTB: ChiNodeEntry" + kNull});
}

TEST_F(NodeTest, RecordsAreCheckedPointerThenHandleThenSize) {
    Create();
    struct Case {
        const char* name;
        std::size_t slot;
        std::uint32_t size;
        bool hasHandle;
        const char* tooSmall;
    };
    const Case cases[] = {
        {"NodeGetCaps", 16, 8, false, ": #: CHINODECAPSINFO"},
        {"NodeCreate", 32, 112, false, ": #: CHINODECREATEINFO"},
        {"NodeDestroy", 40, 16, true, ": #:  CHINODEDESTROYINFO"},
        {"NodeQueryBufferInfo", 48, 56, true, ": #:  CHINODEQUERYBUFFERINFO"},
        {"NodeSetBufferInfo", 64, 64, true, ": #: CHINODESETBUFFERPROPERTIESINFO"},
        {"NodeProcRequest", 88, 128, true, ": #: CHINODEPROCESSREQUESTINFO"},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.name);
        const std::string name = test.name;
        platform().log.clear();
        EXPECT_EQ(Call<void*>(test.slot, nullptr), 5u);
        EXPECT_EQ(platform().Texts(6), Texts{"TSL_CTB: " + name + kNull});

        Record record(128);
        record.Set(0, test.size - 1);
        if (test.hasHandle) {
            platform().log.clear();
            EXPECT_EQ(Call(test.slot, record.data()), 5u) << "no handle comes before a small size";
            EXPECT_EQ(platform().Texts(6), Texts{"TSL_CTB: " + name + kNull});
            record.Set(8, createInfo_.Get<void*>(16));
        }
        platform().log.clear();
        const Record before = record;
        EXPECT_EQ(Call(test.slot, record.data()), 1u);
        EXPECT_TRUE(before == record);
        Texts expected = {"TSL_CTB: TSL_CTB: " + name + test.tooSmall +
                          " is smaller than expected\n"};
        if (name == "NodeCreate") {
            expected.push_back("TSL_CTB: NodeCreate: #: res: 1 NULL POINTER!");
        }
        EXPECT_EQ(platform().Texts(6), expected);
    }
    Record noFormat(64);
    noFormat.Set(0, 64);
    noFormat.Set(8, createInfo_.Get<void*>(16));
    platform().log.clear();
    EXPECT_EQ(Call<void*>(24, nullptr), 5u);
    EXPECT_EQ(Call(64, noFormat.data()), 5u);
    Call<void*>(104, nullptr);
    EXPECT_EQ(platform().Texts(6),
              (Texts{"TSL_CTB: NodeQueryVendorTag" + kNull, "TSL_CTB: NodeSetBufferInfo" + kNull,
                     "TSL_CTB: NodeSetNodeInterface" + kNull}));
}

TEST_F(NodeTest, CapsAndVendorTags) {
    Record caps(8);
    caps.Set<std::uint32_t>(0, 8);
    EXPECT_EQ(Call(16, caps.data()), 0u);
    EXPECT_EQ(caps.Get<std::uint32_t>(4), 1u);

    Record query(64);
    EXPECT_EQ(Call(24, query.data()), 17u) << "the platform's own result";
    struct Tag {
        const char* name;
        std::uint32_t type;
        std::uint32_t count;
    };
    struct Section {
        const char* name;
        std::uint32_t first;
        std::uint32_t count;
        const Tag* tags;
        std::uint32_t visibility;
    };
    struct Info {
        const Section* sections;
        std::uint32_t count;
    };
    const Info& info = *query.Get<const Info*>(0);
    ASSERT_EQ(info.count, 1u);
    const Section& section = info.sections[0];
    EXPECT_STREQ(section.name, "com.qav.node.capturebokeh");
    EXPECT_EQ(section.first, 0u);
    EXPECT_EQ(section.visibility, 0xFFFFFFFFu);
    const Tag expected[] = {{"SupportedFeature", 0, 64},
                            {"CurrentMode", 0, 1},
                            {"ProcessedFrameNumber", 3, 1},
                            {"FrameDimension", 1, 2}};
    ASSERT_EQ(section.count, std::size(expected));
    for (std::size_t i = 0; i < std::size(expected); ++i) {
        EXPECT_STREQ(section.tags[i].name, expected[i].name);
        EXPECT_EQ(section.tags[i].type, expected[i].type) << expected[i].name;
        EXPECT_EQ(section.tags[i].count, expected[i].count) << expected[i].name;
    }
}

TEST_F(NodeTest, EachCallbackTellsItsBeginningAndItsEnd) {
    platform().properties["persist.vendor.camera.tessola.log"] = "2";
    Create();
    const auto traced = [](const std::string& name, const std::string& end) {
        EXPECT_EQ(platform().Texts(3), (Texts{"TSL_CTB: TSL_CTB: " + name + ": #:  (IN)\n",
                                              "TSL_CTB: TSL_CTB: " + name + end}));
        platform().log.clear();
    };
    platform().log.clear();
    const std::string near = ": #: (OUT) res = 5\n";
    const std::string wide = ": #:  (OUT) res = 5\n";
    const std::tuple<const char*, std::size_t, std::string> callbacks[] = {
        {"NodeGetCaps", 16, near},         {"NodeQueryVendorTag", 24, wide},
        {"NodeCreate", 32, near},          {"NodeDestroy", 40, wide},
        {"NodeQueryBufferInfo", 48, near}, {"NodeSetBufferInfo", 64, wide},
        {"NodeProcRequest", 88, wide}};
    for (const auto& [name, slot, end] : callbacks) {
        EXPECT_EQ(Call<void*>(slot, nullptr), 5u);
        traced(name, end);
    }
    Record table(248);
    table.Set<std::uint32_t>(0, 248);
    reinterpret_cast<void (*)(void*)>(dlsym(library_, "ChiNodeEntry"))(table.data());
    traced("ChiNodeEntry", ": #:  (OUT)\n");
}

TEST_F(NodeTest, LogMaskSelectsWhoSpeaks) {
    struct Case {
        const char* mask;
        bool node;
        bool base;
    };
    for (const Case& test : {Case{"0", false, false}, Case{"2", true, false},
                             Case{"4", false, false}, Case{"6", true, true}, Case{"7", true, true},
                             Case{"on", false, false}, Case{" 6x", true, true}}) {
        SCOPED_TRACE(test.mask);
        platform().properties["persist.vendor.camera.tessola.log"] = test.mask;
        for (const bool creates : {true, false}) {
            platform().log.clear();
            EXPECT_EQ(creates ? Create() : Process(), 0u);
            bool node = false;
            bool base = false;
            for (const LogLine& line : platform().log) {
                node |= line.priority == 3 && line.tag == "TSL_CTB";
                base |= line.priority == 3 && line.tag == "TSL_BTB";
            }
            EXPECT_EQ(node, test.node);
            EXPECT_EQ(base, test.base);
        }
        Destroy();
        platform().log.clear();
        Record caps(8);
        Call(16, caps.data());
        EXPECT_TRUE(platform().Texts(3).empty()) << "destruction silences debug lines";
    }
}

// Creations that fail, whatever the reason, leave no node and no engine instance.
class CreationFailure : public NodeTest {
protected:
    // Expects these errors between the calibration's success and the two closing ones.
    void ExpectRefused(std::uint32_t result, const Texts& errors) {
        platform().log.clear();
        createInfo_.Set<void*>(16, nullptr);
        EXPECT_EQ(Create(), result);
        EXPECT_EQ(createInfo_.Get<void*>(16), nullptr);
        EXPECT_EQ(platform().engine.instances, 0);
        const std::string code = std::to_string(result);
        Texts expected = {"TSL_BTB: TSL_CTB: GetCalibrationData: #: : read  cali data success, "
                          "path: " +
                          std::string(kFirstCalibration) + " length:2\n"};
        expected.insert(expected.end(), errors.begin(), errors.end());
        expected.push_back("TSL_CTB: Initialize: #:  res: " + code + " NULL POINTER!");
        expected.push_back("TSL_CTB: NodeCreate: #: res: " + code + " NULL POINTER!");
        EXPECT_EQ(platform().Texts(6), expected);
    }
};

TEST_F(CreationFailure, UnknownTagIsNamedWithThePlatformsResult) {
    const char* const names[] = {
        "EFailed",           "EUnsupported",    "EInvalidState",    "EInvalidArg",
        "EInvalidPointer",   "ENoSuch",         "EOutOfBounds",     "ENoMemory",
        "ETimeout",          "ENoMore",         "ENeedMore",        "EExists",
        "EPrivLevel",        "EResource",       "EUnableToLoad",    "EInProgress",
        "ETryAgain",         "EBusy",           "EReentered",       "EReadOnly",
        "EOverflow",         "EOutOfDomain",    "EInterrupted",     "EWouldBlock",
        "ETooManyUsers",     "ENotImplemented", "EDisabled",        "ECancelledRequest",
        "ECoreNullMetadata", "EInducedError",   "EFenceGroupError", "ECSLStreamOn",
        "EAlreadyCompleted", "EOEMStatus1",     "EOEMStatus2",      "EOEMStatus3",
        "EProviderNotExist"};
    const auto expectError = [this](const char* section, const char* tag, std::uint32_t result,
                                    const std::string& name) {
        SCOPED_TRACE(name + " for " + tag);
        platform().tagResults = {{tag, result}};
        ExpectRefused(result, {"TSL_BTB: TSL_CTB: operator(): #: Error: " + name +
                                   " during GetVendorTagBase for: " + section + " " + tag + "\n",
                               "TSL_BTB: BaseInitialize: #:  res: " + std::to_string(result) +
                                   " NULL POINTER!"});
    };
    std::uint32_t result = 0;
    for (const char* const name : names) {
        expectError("com.qti.chi.multicameracontrol", "PtFocus", ++result,
                    std::string("CDKResult") + name);
    }
    expectError("com.qti.camera.streamCropInfo", "EnableStreamCrop", 38, "38");
    expectError("org.quic.camera2.oemfdresults", "OEMFDResults", 1, "CDKResultEFailed");
}

TEST_F(CreationFailure, MissingConfigurationIsNamed) {
    void*& cameras = platform().metadata[TagId("PhysicalCameraConfigs") | 0x04000000];
    void*& inputs = platform().metadata[TagId("PhysicalCameraInputConfig") | 0x20000000];
    {
        void* const given = std::exchange(cameras, nullptr);
        ExpectRefused(1, {"TSL_BTB: TSL_CTB: ConfigureCameraInfo: #: pPhysicalCameraConfigs not "
                          "updated for BOKEH\n"});
        cameras = given;
    }
    cameraConfigs_.Set(0, 5u);
    ExpectRefused(1, {"TSL_BTB: TSL_CTB: ConfigureCameraInfo: #: Number of linked cameras 5, "
                      "exceeds max supported linked cameras 4 \n"});
    cameraConfigs_.Set(0, 2u);
    inputs = nullptr;
    ExpectRefused(1, {"TSL_BTB: TSL_CTB: ConfigureInputBufferMapping: #: pCameraInputConfig not "
                      "updated for BOKEH\n"});
    Record table = Interface();
    table.Set<void*>(32, nullptr);
    Call(104, table.data());
    ExpectRefused(5, {"TSL_BTB: FillVendorTagIds: #: errCode = 5: NULL POINTER!",
                      "TSL_BTB: BaseInitialize: #:  res: 5 NULL POINTER!"});
}

// A node whose engine or calibration fails at creation is a node that copies the main image.
class EngineAtCreation : public NodeTest {
protected:
    EngineAtCreation() { WriteCalibration(kSecondCalibration, 2048, 's'); }

    // Creates a node that prints these errors, leaves so many engine instances, has handed over
    // this calibration last and renders or not.
    void ExpectNode(const Texts& errors, int instances, const std::string& calibration,
                    bool renders) {
        platform().log.clear();
        ASSERT_EQ(Create(), 0u);
        EXPECT_EQ(platform().Texts(6), errors);
        EXPECT_EQ(platform().engine.instances, instances);
        EXPECT_EQ(platform().engine.calibration, calibration);
        EXPECT_EQ(Process(), 0u);
        EXPECT_EQ(OutputIsRendered(), renders);
        EXPECT_EQ(OutputIsMain(), !renders);
        EXPECT_EQ(DepthEffect(), 0u);
        Destroy();
        platform().engine = {};
    }

    static std::string Reading(const std::string& path, const char* what) {
        return "TSL_BTB: TSL_CTB: GetCalibrationBinData: #: : " + path + " readCaliData" + what;
    }
    static std::string Success(const std::string& path) {
        return "TSL_BTB: TSL_CTB: GetCalibrationData: #: : read  cali data success, path: " + path +
               " length:2\n";
    }

    const std::string none_ = "TSL_BTB: TSL_CTB: GetCalibrationData: #: : read  cali data fail\n";
    const std::string first_ = std::string(2048, 'c');
    const std::string second_ = std::string(2048, 's');
};

TEST_F(EngineAtCreation, FailedCalls) {
    auto& results = platform().engine.results;
    results["TSL_DCIR_Init"] = -(1LL << 40) - 3;
    ExpectNode({"TSL_CTB: TSL_CTB: IniEngine: #: Initialize TSL_DCIR_Init res = -1099511627779\n",
                "TSL_CTB: IniEngine: #: res: -3 NULL POINTER!"},
               0, "", false);
    results["TSL_DCIR_SetCameraImageInfo"] = 9;
    ExpectNode({"TSL_CTB: TSL_CTB: IniEngine: #: TSL_DCIR_SetCameraImageInfo failed res = 9\n",
                "TSL_CTB: IniEngine: #: res: 9 NULL POINTER!"},
               1, "", false);
    results["TSL_DCIR_SetCaliData"] = 4;
    const std::string refused =
        "TSL_BTB: TSL_CTB: GetCalibrationBinData: #:  : Initialize SetCaliData res = 4\n";
    ExpectNode({refused, refused, none_}, 0, second_, false);
    for (std::int32_t& size : platform().engine.calibrationSizes) {
        size = 0;
        ExpectNode({none_}, 0, second_, false);
    }
    results["TSL_DCIR_GetImageSizeInCalibration"] = 2;
    ExpectNode({Success(kFirstCalibration)}, 1, first_, true); // the sizes are there all the same
}

int g_shortReads = 0; // of half the bytes

std::size_t ReadShort(void* data, std::size_t size, std::size_t count, std::FILE* file) {
    return std::fread(data, size, g_shortReads-- > 0 ? count / 2 : count, file);
}

TEST_F(EngineAtCreation, CalibrationFiles) {
    ExpectNode({Success(kFirstCalibration)}, 1, first_, true);
    {
        const support::ImportPatch patch(library_, "fread", reinterpret_cast<void*>(&ReadShort));
        g_shortReads = 1;
        ExpectNode(
            {Reading(kFirstCalibration, " read file size error!\n"), Success(kSecondCalibration)},
            1, second_, true);
        g_shortReads = 2;
        ExpectNode({Reading(kFirstCalibration, " read file size error!\n"),
                    Reading(kSecondCalibration, " read file size error!\n"), none_},
                   0, "", false);
    }
    WriteCalibration(kFirstCalibration, 2047);
    ExpectNode({Success(kSecondCalibration)}, 1, second_, true);
    WriteCalibration(kSecondCalibration, 2049);
    ExpectNode({none_}, 0, "", false);
    std::filesystem::remove(root_.string() + kFirstCalibration);
    std::filesystem::remove(root_.string() + kSecondCalibration);
    ExpectNode(
        {Reading(kFirstCalibration, " fail\n"), Reading(kSecondCalibration, " fail\n"), none_}, 0,
        "", false);
}

TEST_F(EngineAtCreation, VersionIsPrintedWhereThereIsOne) {
    platform().properties["persist.vendor.camera.tessola.log"] = "2";
    const auto versionLines = [this] {
        platform().log.clear();
        EXPECT_EQ(Create(), 0u);
        const Texts texts = platform().Texts(3);
        Destroy();
        return std::count_if(texts.begin(), texts.end(), [](const std::string& text) {
            return text.find("pVersion") != std::string::npos;
        });
    };
    EXPECT_EQ(versionLines(), 1);
    platform().engine.versionText = nullptr;
    EXPECT_EQ(versionLines(), 0);
    platform().engine.hasVersion = false;
    EXPECT_EQ(versionLines(), 0);
}

TEST_F(NodeTest, EngineGetsZeroImageInfoAtCreationAndIsEndedOnce) {
    Create();
    EXPECT_EQ(platform().engine.imageInfos,
              (std::vector<std::vector<std::int32_t>>{{0, 0, 0, 0, 0}}));
    EXPECT_EQ(platform().readRequestIds, (std::vector<std::uint64_t>{0, 0}));
    EXPECT_EQ(Destroy(), 0u);
    EXPECT_EQ(destroyInfo_.Get<void*>(8), nullptr);
    EXPECT_EQ(std::count(platform().engine.calls.begin(), platform().engine.calls.end(),
                         "TSL_DCIR_Uninit"),
              1);
}

int g_allocationsLeft = -1;

void* AllocateSome(std::size_t size) {
    if (g_allocationsLeft-- == 0) {
        throw std::bad_alloc();
    }
    return ::operator new(size);
}

void* AllocateArray(std::size_t size, const std::nothrow_t& tag) noexcept {
    return g_allocationsLeft-- == 0 ? nullptr : ::operator new[](size, tag);
}

void* AllocateRaw(std::size_t size) {
    return g_allocationsLeft-- == 0 ? nullptr : std::malloc(size);
}

TEST_F(NodeTest, OutOfMemoryAtCreation) {
    const bool raw = support::HoldsCppRuntime(library_);
    const auto patchOf = [&](const char* symbol, auto* replacement) {
        return support::ImportPatch(library_, raw ? "malloc" : symbol,
                                    raw ? reinterpret_cast<void*>(&AllocateRaw)
                                        : reinterpret_cast<void*>(replacement));
    };
    {
        const auto patch = patchOf("_Znwm", &AllocateSome);
        for (const int nth : {0, 1}) { // the object, its vector
            platform().log.clear();
            g_allocationsLeft = nth;
            EXPECT_EQ(Create(), 1u);
            EXPECT_EQ(platform().Texts(6), Texts{"TSL_CTB: NodeCreate: #: res: 1 NULL POINTER!"});
        }
    }
    const auto patch = patchOf("_ZnamRKSt9nothrow_t", &AllocateArray);
    const int first = raw ? 2 : 0;
    for (int nth = first; nth < first + 5; ++nth) { // four face arrays, the calibration bytes
        SCOPED_TRACE(nth);
        std::filesystem::remove(root_.string() + kSecondCalibration);
        g_allocationsLeft = nth;
        ASSERT_EQ(Create(), 0u);
        EXPECT_EQ(platform().engine.instances, 0);
        EXPECT_EQ(Process(), 0u);
        EXPECT_TRUE(OutputIsMain());
        Destroy();
    }
}

std::set<void*> g_blocks; // that the node has allocated and not freed

void* Kept(void* block) {
    g_blocks.insert(block);
    return block;
}
void Freed(void* block) {
    g_blocks.erase(block);
}

TEST_F(NodeTest, WholeLifeGivesBackItsMemory) {
    std::vector<std::unique_ptr<ImportPatch>> patches;
    const auto patch = [&](const char* name, auto* function) {
        if (ImportNames(library_).contains(name)) { // which ones a library has is the compiler's
            patches.push_back(
                std::make_unique<ImportPatch>(library_, name, reinterpret_cast<void*>(function)));
        }
    };
    patch(
        "malloc", +[](std::size_t size) { return Kept(std::malloc(size)); });
    patch(
        "_Znwm", +[](std::size_t size) { return Kept(::operator new(size)); });
    patch(
        "_ZnamRKSt9nothrow_t", +[](std::size_t size, const std::nothrow_t& tag) {
            return Kept(::operator new[](size, tag));
        });
    patch(
        "free", +[](void* block) {
            Freed(block);
            std::free(block);
        });
    for (const char* name : {"_ZdlPv", "_ZdlPvm"}) {
        patch(
            name, +[](void* block, std::size_t) {
                Freed(block);
                ::operator delete(block);
            });
    }
    patch(
        "_ZdaPv", +[](void* block) {
            Freed(block);
            ::operator delete[](block);
        });
    for (const int refusals : {0, 1}) { // of the calibration: both files are read
        platform().engine.results["TSL_DCIR_SetCaliData"] = refusals;
        ASSERT_EQ(Create(), 0u);
        EXPECT_FALSE(g_blocks.empty());
        for (const std::int32_t size : {1000, 2000}) {
            platform().engine.size = size;
            EXPECT_EQ(Process(), 0u);
        }
        Destroy();
        EXPECT_TRUE(g_blocks.empty());
    }
}

TEST_F(NodeTest, BufferNegotiationAndFrameDimension) {
    Create();
    platform().negotiationResult = 3;
    Record query(56);
    query.Set<std::uint32_t>(0, 56);
    query.Set(8, createInfo_.Get<void*>(16));
    EXPECT_EQ(Call(48, query.data()), 0u);
    EXPECT_EQ(query.Get<std::uint8_t>(16), 0x5A);
    EXPECT_EQ(query.Get<std::uint8_t>(55), 0x5A);

    Record properties(64);
    properties.Set<std::uint32_t>(0, 64);
    properties.Set(8, createInfo_.Get<void*>(16));
    EXPECT_EQ(Call(64, properties.data()), 5u) << "no format";
    for (const std::int32_t width : {100, 4000}) {
        Record format(256);
        format.SetWords(0, {width, 3000});
        properties.Set(24, format.data());
        EXPECT_EQ(Call(64, properties.data()), 0u);
    }
    properties.Set<void*>(24, nullptr);
    EXPECT_EQ(Call(64, properties.data()), 5u);
    Process();
    std::uint32_t dimension[2];
    std::memcpy(dimension, LastPublished().data[3].data(), 8);
    EXPECT_EQ(dimension[0], 4000u);
    EXPECT_EQ(dimension[1], 3000u);
}

TEST_F(NodeTest, PostPipelineCreateReadsTheSleepTag) {
    Create();
    void* node = createInfo_.Get<void*>(16);
    Record input(8);
    Record output(32);
    std::uint32_t sleep = 0;
    const auto post = [&] {
        output.Fill(0xFF);
        EXPECT_EQ(Call(112, node, input.data(), output.data()), 0u);
        EXPECT_EQ(output.Get<std::uint32_t>(24), 0u);
        EXPECT_EQ(output.Get<std::uint64_t>(8), ~0ULL);
        return output.Get<std::uint64_t>(0);
    };
    platform().readRequestIds.clear();
    EXPECT_EQ(post(), 5u);
    EXPECT_EQ(platform().readRequestIds, std::vector<std::uint64_t>{0});
    platform().metadata[TagId("InduceSleep") | 0x20000000] = &sleep;
    for (const std::uint32_t value : {0u, 20u, 0xFFFFFFFFu}) {
        sleep = value;
        EXPECT_EQ(post(), value + 5ULL);
    }
    for (int missing = 0; missing < 3; ++missing) {
        platform().log.clear();
        void* arguments[] = {node, input.data(), output.data()};
        arguments[missing] = nullptr;
        EXPECT_EQ(Call(112, arguments[0], arguments[1], arguments[2]), 5u);
        char text[256];
        std::snprintf(text, sizeof(text),
                      "TSL_CTB: TSL_CTB: NodePostPipelineCreate: #:  Invalid argument: hChiHandle: "
                      "%p, pPostPipelineCreateInput: %p, pPostPipelineCreateOutput: %p\n",
                      arguments[0], arguments[1], arguments[2]);
        EXPECT_EQ(platform().Texts(6), Texts{text});
    }
}

} // namespace
} // namespace contract

// Entry, callback records, creation, configuration, calibration.

#include <dlfcn.h>

#include <functional>
#include <new>

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
    EXPECT_EQ(platform().Texts(6),
              Texts{"TSL_CTB: ChiNodeEntry: #:  Chi API major version doesn't match (3:9) vs "
                    "(1:0)\n"});

    auto [expected, filled] = entry(248);
    expected.SetWords(4, {1, 0});
    for (const std::size_t slot : {16u, 24u, 32u, 40u, 48u, 64u, 88u, 104u, 112u}) {
        EXPECT_NE(filled.Get<void*>(slot), expected.Get<void*>(slot)) << "slot " << slot;
        expected.Set(slot, filled.Get<void*>(slot));
    }
    EXPECT_TRUE(expected == filled) << "a byte outside the nine slots and the version changed";
    EXPECT_TRUE(entry(4096).second.Get<void*>(112) == filled.Get<void*>(112));
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
        EXPECT_EQ(platform().Texts(6), Texts{name + kNull});

        Record record(128);
        record.Set(0, test.size - 1);
        if (test.hasHandle) {
            platform().log.clear();
            EXPECT_EQ(Call(test.slot, record.data()), 5u) << "no handle comes before a small size";
            EXPECT_EQ(platform().Texts(6), Texts{name + kNull});
            record.Set(8, createInfo_.Get<void*>(16));
        }
        platform().log.clear();
        const Record before = record;
        EXPECT_EQ(Call(test.slot, record.data()), 1u);
        EXPECT_TRUE(before == record);
        Texts expected = {"TSL_CTB: " + name + test.tooSmall + " is smaller than expected\n"};
        if (name == "NodeCreate") {
            expected.push_back("NodeCreate: #: res: 1 NULL POINTER!");
        }
        EXPECT_EQ(platform().Texts(6), expected);
    }
    EXPECT_EQ(Call<void*>(24, nullptr), 5u);
    platform().log.clear();
    Call<void*>(104, nullptr);
    EXPECT_EQ(platform().Texts(6), Texts{"NodeSetNodeInterface" + kNull});
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
        Create();
        platform().log.clear();
        Process();
        bool node = false;
        bool base = false;
        for (const LogLine& line : platform().log) {
            node |= line.priority == 3 && line.tag == "TSL_CTB";
            base |= line.priority == 3 && line.tag == "TSL_BTB";
        }
        EXPECT_EQ(node, test.node);
        EXPECT_EQ(base, test.base);
        Destroy();
        platform().log.clear();
        Record caps(8);
        Call(16, caps.data());
        EXPECT_TRUE(platform().Texts(3).empty()) << "destruction silences debug lines";
    }
}

TEST_F(NodeTest, CreationFailures) {
    struct Case {
        const char* what;
        std::function<void(NodeTest&, Record&, Record&)> arrange;
        std::uint32_t result;
        Texts errors; // before the two closing ones
    };
    const auto failTag = [](const char* tag, std::uint32_t code) {
        return [=](NodeTest&, Record&, Record&) { platform().tagResults[tag] = code; };
    };
    const std::string section = " during GetVendorTagBase for: com.qti.camera.streamCropInfo ";
    const Case cases[] = {
        {"a tag is unknown",
         failTag("StreamCropInfo", 6),
         6,
         {"TSL_CTB: operator(): #: Error: CDKResultENoSuch" + section + "StreamCropInfo\n",
          "BaseInitialize: #:  res: 6 NULL POINTER!"}},
        {"a code beyond the table",
         failTag("EnableStreamCrop", 38),
         38,
         {"TSL_CTB: operator(): #: Error: 38" + section + "EnableStreamCrop\n",
          "BaseInitialize: #:  res: 38 NULL POINTER!"}},
        {"no camera configuration",
         [](NodeTest&, Record&, Record&) {
             platform().metadata.erase(TagId("PhysicalCameraConfigs") | 0x04000000);
         },
         1,
         {"TSL_CTB: ConfigureCameraInfo: #: pPhysicalCameraConfigs not updated for BOKEH\n"}},
        {"five cameras",
         [](NodeTest&, Record& configs, Record&) { configs.Set(0, 5u); },
         1,
         {"TSL_CTB: ConfigureCameraInfo: #: Number of linked cameras 5, exceeds max supported "
          "linked cameras 4 \n"}},
        {"no input configuration",
         [](NodeTest&, Record&, Record&) {
             platform().metadata.erase(TagId("PhysicalCameraInputConfig") | 0x20000000);
         },
         1,
         {"TSL_CTB: ConfigureInputBufferMapping: #: pCameraInputConfig not updated for BOKEH\n"}},
        {"no tag query",
         [this](NodeTest&, Record&, Record&) {
             Record table = Interface();
             table.Set<void*>(32, nullptr);
             Call(104, table.data());
         },
         5,
         {"FillVendorTagIds: #: errCode = 5: NULL POINTER!",
          "BaseInitialize: #:  res: 5 NULL POINTER!"}},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.what);
        const Platform fresh = platform();
        test.arrange(*this, cameraConfigs_, inputConfig_);
        platform().log.clear();
        createInfo_.Set<void*>(16, nullptr);
        EXPECT_EQ(Create(), test.result);
        EXPECT_EQ(createInfo_.Get<void*>(16), nullptr);
        EXPECT_EQ(platform().engine.instances, 0);
        Texts expected = test.errors;
        const std::string code = std::to_string(test.result);
        expected.insert(expected.begin(),
                        "TSL_CTB: GetCalibrationData: #: : read  cali data success, path: " +
                            std::string(kFirstCalibration) + " length:2\n");
        expected.push_back("Initialize: #:  res: " + code + " NULL POINTER!");
        expected.push_back("NodeCreate: #: res: " + code + " NULL POINTER!");
        EXPECT_EQ(platform().Texts(6), expected);
        platform() = fresh;
        cameraConfigs_.Set(0, 2u);
        Call(104, Interface().data());
    }
}

TEST_F(NodeTest, EngineAndCalibrationFailuresStillGiveANode) {
    struct Case {
        const char* what;
        std::function<void()> arrange;
        Texts errors;
        int instances; // after creation
        std::string calibration;
    };
    const std::string fail1 =
        "TSL_CTB: GetCalibrationBinData: #: : " + std::string(kFirstCalibration) + " readCaliData";
    const std::string fail2 =
        "TSL_CTB: GetCalibrationBinData: #: : " + std::string(kSecondCalibration) + " readCaliData";
    const std::string none = "TSL_CTB: GetCalibrationData: #: : read  cali data fail\n";
    const std::string second = "TSL_CTB: GetCalibrationData: #: : read  cali data success, path: " +
                               std::string(kSecondCalibration) + " length:2\n";
    const std::string bytes(2048, 's');
    const auto fail = [](const char* function, std::int64_t result) {
        return [=] { platform().engine.results[function] = result; };
    };
    const Case cases[] = {
        {"init",
         fail("TSL_DCIR_Init", -(1LL << 40) - 3),
         {"TSL_CTB: IniEngine: #: Initialize TSL_DCIR_Init res = -1099511627779\n",
          "IniEngine: #: res: -3 NULL POINTER!"},
         0,
         ""},
        {"image info",
         fail("TSL_DCIR_SetCameraImageInfo", 9),
         {"TSL_CTB: IniEngine: #: TSL_DCIR_SetCameraImageInfo failed res = 9\n",
          "IniEngine: #: res: 9 NULL POINTER!"},
         1,
         ""},
        {"no file",
         [this] { std::filesystem::remove(root_.string() + kFirstCalibration); },
         {fail1 + " fail\n", fail2 + " fail\n", none},
         0,
         ""},
        {"short, long",
         [this] {
             WriteCalibration(kFirstCalibration, 2047);
             WriteCalibration(kSecondCalibration, 2049);
         },
         {none},
         0,
         ""},
        {"short, good",
         [this] {
             WriteCalibration(kFirstCalibration, 2047);
             WriteCalibration(kSecondCalibration, 2048, 's');
         },
         {second},
         1,
         bytes},
        {"refused twice",
         fail("TSL_DCIR_SetCaliData", 4),
         {"TSL_CTB: GetCalibrationBinData: #:  : Initialize SetCaliData res = 4\n",
          "TSL_CTB: GetCalibrationBinData: #:  : Initialize SetCaliData res = 4\n", none},
         0,
         bytes},
        {"a size of zero", [] { platform().engine.calibrationSizes[3] = 0; }, {none}, 0, bytes},
        {"sizes in spite of a failure",
         fail("TSL_DCIR_GetImageSizeInCalibration", 2),
         {"TSL_CTB: GetCalibrationData: #: : read  cali data success, path: " +
          std::string(kFirstCalibration) + " length:2\n"},
         1,
         std::string(2048, 'c')},
    };
    WriteCalibration(kSecondCalibration, 2048, 's');
    for (const Case& test : cases) {
        SCOPED_TRACE(test.what);
        const Platform fresh = platform();
        WriteCalibration(kFirstCalibration, 2048);
        if (test.what == std::string("no file")) {
            std::filesystem::remove(root_.string() + kSecondCalibration);
        }
        test.arrange();
        platform().log.clear();
        ASSERT_EQ(Create(), 0u);
        EXPECT_EQ(platform().Texts(6), test.errors);
        EXPECT_EQ(platform().engine.instances, test.instances);
        EXPECT_EQ(platform().engine.calibration, test.calibration);
        EXPECT_EQ(Process(), 0u);
        const bool calibrated = test.errors.back().find("success") != std::string::npos;
        EXPECT_EQ(OutputIsRendered(), calibrated);
        EXPECT_EQ(OutputIsMain(), !calibrated);
        EXPECT_EQ(DepthEffect(), 0u);
        Destroy();
        platform() = fresh;
        WriteCalibration(kSecondCalibration, 2048, 's');
    }
}

TEST_F(NodeTest, EngineGetsZeroImageInfoAtCreationAndIsEndedOnce) {
    Create();
    EXPECT_EQ(platform().engine.imageInfos,
              (std::vector<std::vector<std::int32_t>>{{0, 0, 0, 0, 0}}));
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

TEST_F(NodeTest, OutOfMemoryAtCreation) {
    {
        const support::ImportPatch patch(library_, "_Znwm", reinterpret_cast<void*>(&AllocateSome));
        for (const int nth : {0, 1}) { // the object, its vector
            platform().log.clear();
            g_allocationsLeft = nth;
            EXPECT_EQ(Create(), 1u);
            EXPECT_EQ(platform().Texts(6), Texts{"NodeCreate: #: res: 1 NULL POINTER!"});
        }
    }
    const support::ImportPatch patch(library_, "_ZnamRKSt9nothrow_t",
                                     reinterpret_cast<void*>(&AllocateArray));
    for (int nth = 0; nth < 5; ++nth) { // four face arrays, the calibration bytes
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
    EXPECT_EQ(post(), 5u);
    platform().metadata[TagId("InduceSleep") | 0x20000000] = &sleep;
    for (const std::uint32_t value : {0u, 20u, 0xFFFFFFFFu}) {
        sleep = value;
        EXPECT_EQ(post(), value + 5ULL);
    }
    for (int missing = 0; missing < 3; ++missing) {
        platform().log.clear();
        EXPECT_EQ(Call(112, missing == 0 ? nullptr : node, missing == 1 ? nullptr : input.data(),
                       missing == 2 ? nullptr : output.data()),
                  5u);
        ASSERT_EQ(platform().Texts(6).size(), 1u);
        EXPECT_EQ(platform().Texts(6)[0].find("TSL_CTB: NodePostPipelineCreate: #:  Invalid "
                                              "argument: hChiHandle: "),
                  0u);
    }
}

} // namespace
} // namespace contract

// What reaches the output: rendering, fallback, debug views, published tags, dumps.

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>

#include "tests/contract/fixture.h"

namespace contract {
namespace {

using Texts = std::vector<std::string>;

template <typename T>
T Value(const std::string& data) {
    T value;
    std::memcpy(&value, data.data(), sizeof(value));
    return value;
}

TEST_F(NodeTest, PublishesSevenTagsPerRequest) {
    createInfo_.Set<void*>(8, &platform());
    Create();
    for (std::uint64_t frame = 1; frame <= 3; ++frame) {
        request_.Set(16, frame * 100);
        ASSERT_EQ(Process(), 0u);
        const Published& published = LastPublished();
        EXPECT_EQ(published.session, reinterpret_cast<std::uint64_t>(&platform()));
        EXPECT_EQ(published.ids,
                  (std::vector<std::uint32_t>{
                      kVendorTagBase, kVendorTagBase + 1, kVendorTagBase + 2, kVendorTagBase + 3,
                      TagId("depthpicturesize"), TagId("OutputMetadataBokeh"), TagId("PtFocus")}));
        EXPECT_EQ(published.sizes, (std::vector<std::uint64_t>{64, 1, 1, 2, 4, 12, 2}));
        EXPECT_EQ(published.requestIds, std::vector<std::uint64_t>(7, frame * 100));
        EXPECT_EQ(published.data[0], "SupportedFeatureQavCTB" + std::string(42, '\0'));
        EXPECT_EQ(published.data[1], "\x03") << "the low byte of mode 0x1203";
        EXPECT_EQ(Value<std::uint64_t>(published.data[2]), frame);
        EXPECT_EQ(Value<std::int32_t>(published.data[4]), platform().engine.activeSize);
        EXPECT_EQ(Value<std::uint64_t>(published.data[5]), 3ULL << 32 | 10);
    }
    EXPECT_EQ(platform().readRequestIds.back(), 300u);
}

TEST_F(NodeTest, RankDecidesTheMasterWhileTwoAreLinked) {
    struct Case {
        float first, second;
        std::uint32_t linked, master, activeMap;
    };
    for (const Case& test :
         {Case{1, 2, 2, 20, 3}, Case{2, 1, 2, 10, 3}, Case{1, 1, 2, 10, 3}, Case{NAN, 1, 2, 10, 3},
          Case{1, 2, 1, 10, 0}, Case{1, 2, 4, 10, 0}, Case{1, 2, 0, 0, 0}}) {
        cameraConfigs_.Set(0, test.linked);
        cameraConfigs_.Set(12, test.first);
        cameraConfigs_.Set(12 + 2056, test.second);
        CreateAndProcess();
        EXPECT_EQ(Value<std::uint32_t>(LastPublished().data[5]), test.master);
        EXPECT_EQ(Value<std::uint64_t>(LastPublished().data[5]) >> 32, test.activeMap);
        Destroy();
    }
}

TEST_F(NodeTest, EveryEngineFailureLeavesTheMainImage) {
    Create();
    const std::string padding = std::string(output_.Padding().size(), 0x11);
    for (const std::string function :
         {"TSL_DCIR_Reset", "TSL_DCIR_SetCameraImageInfo", "TSL_DCIR_CalcDisparityData",
          "TSL_DCIR_GetDisparityDataSize", "TSL_DCIR_GetDisparityData", "TSL_DCIR_Process"}) {
        SCOPED_TRACE(function);
        platform().engine.results = {{function, -(1LL << 33)}};
        platform().engine.calls.clear();
        platform().log.clear();
        EXPECT_EQ(Process(), 0u);
        EXPECT_TRUE(OutputIsMain());
        EXPECT_EQ(output_.Padding(), padding);
        EXPECT_EQ(DepthEffect(), 1u);
        EXPECT_EQ(platform().Texts(6),
                  Texts{"DoProcess: #: " + function + " failed res = -8589934592"});
        EXPECT_EQ(platform().engine.calls.size(), 6u) << "later steps run all the same";

        platform().engine.results.clear();
        EXPECT_EQ(Process(), 0u);
        EXPECT_TRUE(OutputIsRendered());
        EXPECT_EQ(output_.Padding(), padding);
        EXPECT_EQ(DepthEffect(), 0u);
        EXPECT_EQ(platform().engine.processSize, 900);
    }
}

std::vector<std::size_t> g_mallocSizes;
bool g_mallocFails = false;

void* CountedMalloc(std::size_t size) {
    g_mallocSizes.push_back(size);
    return g_mallocFails ? nullptr : std::malloc(size);
}

TEST_F(NodeTest, DisparityBufferGrowsOnlyWhenItMust) {
    Create();
    g_mallocSizes.clear();
    const support::ImportPatch patch(library_, "malloc", reinterpret_cast<void*>(&CountedMalloc));
    for (const std::int32_t size : {1000, 800, 1200}) {
        platform().engine.size = size;
        Process();
        EXPECT_TRUE(OutputIsRendered());
    }
    EXPECT_EQ(g_mallocSizes, (std::vector<std::size_t>{1000, 1200}));

    const Texts noBuffer = {"TSL_CTB: DoProcess: #: m_pDisparityData == nullptr\n"};
    g_mallocFails = true;
    platform().engine.size = 5000;
    platform().log.clear();
    EXPECT_EQ(Process(), 0u);
    g_mallocFails = false;
    EXPECT_EQ(platform().Texts(6), noBuffer);
    EXPECT_TRUE(OutputIsMain());
    EXPECT_EQ(DepthEffect(), 1u);
    EXPECT_EQ(Process(), 0u);
    EXPECT_TRUE(OutputIsRendered()) << "the next request tries again";
    Destroy();

    for (const std::int32_t size : {0, -5}) {
        platform().engine.size = size;
        CreateAndProcess();
        EXPECT_EQ(platform().Texts(6), noBuffer);
        EXPECT_TRUE(OutputIsMain());
        EXPECT_EQ(DepthEffect(), 1u);
        Destroy();
    }
}

TEST_F(NodeTest, DepthOutputGetsTheDisparity) {
    Image depth(50, 40, 50, 9, 8, 1);
    const std::vector<std::uint8_t> before = depth.bytes;
    outputs_ = {depth.list.data(), output_.list.data()};
    depth.list.Set<std::uint64_t>(240, 999);
    CreateAndProcess();
    EXPECT_TRUE(depth.bytes == before);
    EXPECT_TRUE(OutputIsRendered());
    depth.list.Set<std::uint64_t>(240, 1000);
    platform().engine.size = -1;
    Process();
    EXPECT_TRUE(depth.bytes == before);
    platform().engine.size = 1000;
    metadata_.Set(3304, 1u);
    platform().engine.calls.clear();
    Process();
    EXPECT_EQ(std::string(depth.bytes.begin(), depth.bytes.begin() + 1000),
              std::string(1000, '\xD0'));
    EXPECT_TRUE(std::equal(depth.bytes.begin() + 1000, depth.bytes.end(), before.begin() + 1000));
    EXPECT_TRUE(OutputIsMain()) << "asked not to render";
    EXPECT_EQ(DepthEffect(), 0u);
    EXPECT_EQ(platform().engine.calls.back(), "TSL_DCIR_GetDisparityData");
    depth.list.Set<void*>(336, nullptr);
    EXPECT_EQ(Process(), 0u);
}

TEST_F(NodeTest, DebugViewsBypassTheEngine) {
    Create();
    platform().engine.results["TSL_DCIR_Process"] = 1;
    Process();
    EXPECT_EQ(DepthEffect(), 1u);
    Destroy();
    for (const char* view : {"1", "2", "3", "4", "-1", "x"}) {
        SCOPED_TRACE(view);
        platform().properties["persist.vendor.camera.tessola.cb.debugview"] = view;
        platform().engine.results.clear();
        CreateAndProcess();
        const int number = std::atoi(view);
        if (number < 1 || number > 3) {
            EXPECT_TRUE(OutputIsRendered());
            Destroy();
            continue;
        }
        EXPECT_TRUE(platform().engine.calls.empty());
        EXPECT_EQ(Value<std::int32_t>(LastPublished().data[4]), 0);
        if (number == 3) {
            for (const auto& [row, column] : {std::pair(0, 0), {5, 31}, {23, 7}}) {
                EXPECT_EQ(output_.bytes[static_cast<std::size_t>(row * 72 + column)],
                          aux_.bytes[static_cast<std::size_t>(2 * row * 96 + 2 * column)]);
            }
            for (const auto& [row, pair] : {std::pair(0, 0), {11, 15}}) {
                const int to = (48 + row) * 72 + 2 * pair;
                const int from = (48 + 2 * row) * 96 + 4 * pair;
                EXPECT_TRUE(std::equal(&output_.bytes[static_cast<std::size_t>(to)],
                                       &output_.bytes[static_cast<std::size_t>(to + 2)],
                                       &aux_.bytes[static_cast<std::size_t>(from)]));
            }
            EXPECT_EQ(output_.bytes[32], main_.bytes[32]);
            EXPECT_EQ(output_.bytes[24 * 72], main_.bytes[24 * 80]);
        } else {
            EXPECT_TRUE(output_.Pixels() == (number == 1 ? main_ : aux_).Pixels());
        }
        Destroy();
    }
}

TEST_F(NodeTest, ImagesThatCannotBeUsed) {
    enum Which { kMain, kAux, kOutput };
    enum Expect { kCopied, kUntouched };
    struct Case {
        const char* what;
        Which which;
        std::function<void(Record&)> spoil;
        Expect expect;
        bool unsupported;
    };
    const auto format = [](std::uint32_t code) {
        return [code](Record& list) { list.Set(16, code); };
    };
    const auto planes = [](std::uint32_t count) {
        return [count](Record& list) { list.Set(232, count); };
    };
    const Case cases[] = {
        {"aux of format 0", kAux, format(0), kCopied, true},
        {"aux without chroma", kAux, planes(1), kCopied, false},
        {"aux without an address", kAux, [](Record& r) { r.Set<void*>(336, nullptr); }, kCopied,
         false},
        {"aux with a pitch below its width", kAux, [](Record& r) { r.Set(32, 63); }, kCopied,
         false},
        {"main of format 5", kMain, format(5), kUntouched, true},
        {"main without size", kMain, [](Record& r) { r.Set(12, 0); }, kUntouched, false},
        {"main without planes", kMain, planes(0), kUntouched, false},
        {"output of format 2", kOutput, format(2), kUntouched, true},
        {"output with a negative pitch", kOutput, [](Record& r) { r.Set(32, -72); }, kUntouched,
         false},
    };
    for (const char* view : {"0", "1", "2", "3"}) {
        platform().properties["persist.vendor.camera.tessola.cb.debugview"] = view;
        Create();
        for (const Case& test : cases) {
            SCOPED_TRACE(std::string(test.what) + " in view " + view);
            ASSERT_EQ(Process(), 0u); // leaves descriptors that must not be used again
            Image* images[] = {&main_, &aux_, &output_};
            Record& list = images[test.which]->list;
            const Record good = list;
            test.spoil(list);
            platform().log.clear();
            platform().engine.calls.clear();
            EXPECT_EQ(Process(), 0u);
            if (test.expect == kCopied) {
                EXPECT_TRUE(OutputIsMain());
            } else {
                EXPECT_TRUE(OutputIsBlank());
            }
            EXPECT_TRUE(platform().engine.calls.empty());
            if (*view == '0') {
                EXPECT_EQ(DepthEffect(), 1u);
            }
            Texts errors = platform().Texts(6);
            if (test.unsupported) {
                ASSERT_FALSE(errors.empty());
                EXPECT_EQ(errors.front(), "TSL_CTB: PrepareImage: #:  format is not supported!\n");
                errors.erase(errors.begin());
            }
            // One line tells of the loss, unless the format alone is to blame and the main image
            // is there.
            ASSERT_EQ(errors.size(), test.unsupported && test.which != kMain ? 0u : 1u);
            for (const std::string& error : errors) {
                const char* const names[] = {"Main", "Aux", "Output"};
                EXPECT_TRUE(error.starts_with(std::string("TSL_CTB: ProcessRequest: #: ") +
                                              names[test.which] + " image cannot be used! Format "))
                    << error;
                EXPECT_TRUE(error.ends_with(test.expect == kCopied ? ", the main image is copied\n"
                                                                   : ", nothing is written\n"))
                    << error;
            }
            list = good;
        }
        Destroy();
    }
    platform().properties.clear();
    Create();
    for (Image* image : {&main_, &aux_, &output_}) {
        image->list.Set(16, 4u);   // the other code of the same format
        image->list.Set(232, 99u); // only the first four planes exist
    }
    EXPECT_EQ(Process(), 0u);
    EXPECT_TRUE(OutputIsRendered());
}

TEST_F(NodeTest, SizesNeedNotAgree) {
    platform().properties["persist.vendor.camera.tessola.cb.debugview"] = "1";
    Image small(40, 31, 41, 6, 0);
    inputs_[0] = small.list.data();
    CreateAndProcess();
    for (int row = 0; row < 48; ++row) {
        const bool inside = row < 31;
        EXPECT_EQ(output_.bytes[static_cast<std::size_t>(row * 72 + 39)],
                  inside ? small.bytes[static_cast<std::size_t>(row * 41 + 39)] : 0x11);
        EXPECT_EQ(output_.bytes[static_cast<std::size_t>(row * 72 + 40)], 0x11);
    }
    Destroy();

    // An aux image of more than twice the output's size is drawn as far as there is room.
    platform().properties["persist.vendor.camera.tessola.cb.debugview"] = "3";
    Image large(301, 205, 302, 6, 1);
    inputs_ = {main_.list.data(), large.list.data()};
    CreateAndProcess();
    EXPECT_EQ(output_.Padding(), std::string(output_.Padding().size(), 0x11));
    EXPECT_EQ(output_.bytes[47 * 72 + 63], large.bytes[94 * 302 + 126]);
    Destroy();

    platform().properties["persist.vendor.camera.tessola.cb.debugview"] = "1";
    Image flat(64, 1, 72, 6, 7);
    outputs_ = {flat.list.data()};
    CreateAndProcess();
    EXPECT_EQ(flat.Pixels(64, 1), main_.Pixels(64, 1));
    Destroy();

    Image likeOutput(64, 48, 72, 8, 0);
    inputs_[0] = likeOutput.list.data();
    outputs_ = {output_.list.data()};
    output_.bytes.assign(output_.bytes.size(), 0x11);
    CreateAndProcess();
    EXPECT_EQ(output_.Pixels(), likeOutput.Pixels());
    EXPECT_EQ(output_.Padding(), std::string(output_.Padding().size(), 0x11));
    Destroy();

    // Without padding, of odd height, and the source with more rows than there is room for.
    Image packed(64, 48, 64, 4, 0);
    Image shorter(64, 31, 64, 5, 7);
    inputs_[0] = packed.list.data();
    outputs_ = {shorter.list.data()};
    CreateAndProcess();
    EXPECT_EQ(shorter.Pixels(), packed.Pixels(64, 31));
}

TEST_F(NodeTest, StoppedRequestTouchesNothing) {
    platform().properties["persist.vendor.camera.tessola.cb.dumpimg"] = "1";
    Create();
    Process();
    const std::size_t dumps = DumpNames().size();
    platform().stop = 1;
    platform().engine.calls.clear();
    platform().log.clear();
    platform().published.clear();
    EXPECT_EQ(Process(), 0u);
    EXPECT_TRUE(OutputIsBlank());
    EXPECT_TRUE(platform().engine.calls.empty());
    EXPECT_TRUE(platform().published.empty());
    EXPECT_TRUE(platform().log.empty());
    EXPECT_EQ(DumpNames().size(), dumps);
    platform().stop = 2;
    EXPECT_EQ(Process(), 0u);
    EXPECT_EQ(Value<std::uint64_t>(LastPublished().data[2]), 2u) << "stopped ones do not count";
}

TEST_F(NodeTest, InterfaceWithoutFunctions) {
    Create();
    Record table = Interface();
    table.Set<void*>(24, nullptr);
    table.Set<void*>(32, nullptr);
    table.Set<void*>(144, nullptr);
    Call(104, table.data());
    EXPECT_EQ(Process(), 0u);
    EXPECT_TRUE(OutputIsRendered());
    Record output(32);
    EXPECT_EQ(Call(112, createInfo_.Get<void*>(16), output.data(), output.data()), 0u);
    EXPECT_EQ(output.Get<std::uint64_t>(0), 5u);
}

TEST_F(NodeTest, DumpsHoldTheRequest) {
    setenv("TZ", "UTC", 1);
    platform().properties["persist.vendor.camera.tessola.cb.dumpimg"] = "2";
    main_.list.SetWords(24, {62, 47}); // the list's own plane size names the text file
    metadata_.Set(Slot(0) + 192, std::uint8_t{2});
    metadata_.SetWords(Slot(0) + 204, {4, 6, 10, 12, 20, 22, 5, 6});
    const support::ImportPatch clock(library_, "gettimeofday",
                                     reinterpret_cast<void*>(+[](timeval* now, void*) {
                                         *now = {1706745599, 999999}; // 2024-01-31 23:59:59
                                         return 0;
                                     }));
    CreateAndProcess();
    const std::string stem = "IMG_20240131_235959_";
    EXPECT_EQ(DumpNames(),
              (Texts{stem + "0_62x47_metadata.txt", stem + "0_80x48.Y8", stem + "0_80x48.nv12",
                     stem + "1_96x48.nv12", stem + "res_72x48.nv12"}));
    const std::filesystem::path folder = kDumpFolder;
    EXPECT_EQ(ReadDeviceFile(folder / (stem + "0_80x48.nv12")),
              std::string(main_.bytes.begin(), main_.bytes.end()));
    EXPECT_EQ(ReadDeviceFile(folder / (stem + "1_96x48.nv12")),
              std::string(aux_.bytes.begin(), aux_.bytes.end()));
    EXPECT_EQ(ReadDeviceFile(folder / (stem + "res_72x48.nv12")),
              std::string(output_.bytes.begin(), output_.bytes.end()));
    EXPECT_EQ(ReadDeviceFile(folder / (stem + "0_80x48.Y8")), std::string(1000, '\xD0'));
    EXPECT_EQ(ReadDeviceFile(folder / (stem + "0_62x47_metadata.txt")),
              "[0]\ni32BlurIntensity=37\nptFocus_x=24\nptFocus_y=18\n"
              "i32MainWidth_CropNoScale=64\ni32MainHeight_CropNoScale=48\n"
              "i32AuxWidth_CropNoScale=64\ni32AuxHeight_CropNoScale=48\ni32ImageDegree=90\n\n"
              "facenum=2\n[0_face_0]\nleft=4\ntop=6\nright=13\nbottom=17\norient=1\n"
              "[0_face_1]\nleft=20\ntop=22\nright=24\nbottom=27\norient=1\n");

    // The same second again: the text is begun anew, a longer image keeps its tail.
    metadata_.Set(Slot(0) + 192, std::uint8_t{0});
    main_.list.Set<std::uint64_t>(344, 0);
    Process();
    EXPECT_EQ(ReadDeviceFile(folder / (stem + "0_80x48.nv12")).size(), main_.bytes.size());
    const std::string text = ReadDeviceFile(folder / (stem + "0_62x47_metadata.txt"));
    EXPECT_EQ(text.substr(text.size() - 10), "facenum=0\n");

    std::filesystem::remove_all(root_.string() + kDumpFolder);
    platform().log.clear();
    main_.list.Set(344, main_.bytes.data() + 80 * 48);
    EXPECT_EQ(Process(), 0u);
    EXPECT_TRUE(OutputIsRendered());
    EXPECT_EQ(platform().Texts(6),
              Texts{"TSL_CTB: saveFile: #: Failed to open file: /data/vendor/camera/" + stem +
                    "0_62x47_metadata.txt\n"});
}

TEST_F(NodeTest, DumpsFollowEveryRouteButNeedABufferForDepth) {
    for (const char* value : {"0", "", "no"}) {
        platform().properties["persist.vendor.camera.tessola.cb.dumpimg"] = value;
        CreateAndProcess();
        EXPECT_TRUE(DumpNames().empty());
        Destroy();
    }
    platform().properties["persist.vendor.camera.tessola.cb.dumpimg"] = "5";
    platform().properties["persist.vendor.camera.tessola.cb.debugview"] = "1";
    CreateAndProcess();
    for (const std::string& name : DumpNames()) {
        EXPECT_EQ(name.find(".Y8"), std::string::npos);
    }
    EXPECT_EQ(DumpNames().size(), 4u);
}

} // namespace
} // namespace contract

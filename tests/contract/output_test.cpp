// What reaches the output: rendering, fallback, debug views, published tags, dumps.

#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

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
    Create();
    for (std::uint64_t frame = 1; frame <= 3; ++frame) {
        request_.Set(16, frame * 100);
        platform().readRequestIds.clear();
        ASSERT_EQ(Process(), 0u);
        EXPECT_EQ(platform().readRequestIds, std::vector<std::uint64_t>(3, frame * 100));
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
}

TEST_F(NodeTest, RankDecidesTheMasterWhileTwoAreLinked) {
    struct Case {
        float first, second;
        std::uint32_t linked, master, activeMap;
    };
    for (const Case& test :
         {Case{1, 2, 2, 20, 3}, Case{2, 1, 2, 10, 3}, Case{1, 1, 2, 10, 3}, Case{NAN, 1, 2, 10, 3},
          Case{2, 1, 1, 10, 0}, Case{2, 1, 3, 20, 0}, Case{2, 1, 4, 20, 0}, Case{1, 2, 0, 0, 0}}) {
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
                  Texts{"TSL_CTB: DoProcess: #: " + function + " failed res = -8589934592"});
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
    for (const std::int32_t size : {1, 1000, 800, 1200, 1200}) {
        platform().engine.size = size;
        Process();
        EXPECT_TRUE(OutputIsRendered());
    }
    EXPECT_EQ(g_mallocSizes, (std::vector<std::size_t>{1, 1000, 1200}));

    const Texts noBuffer = {"TSL_CTB: TSL_CTB: DoProcess: #: m_pDisparityData == nullptr\n"};
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
    // A query that fails need not have written a size.
    platform().engine.sizesDespiteFailure = false;
    platform().engine.results = {{"TSL_DCIR_GetDisparityDataSize", -7}};
    CreateAndProcess();
    EXPECT_EQ(platform().Texts(6),
              (Texts{"TSL_CTB: DoProcess: #: TSL_DCIR_GetDisparityDataSize failed res = -7",
                     noBuffer[0]}));
    EXPECT_TRUE(OutputIsMain());
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
    depth.bytes = before;
    depth.list.Set(336, depth.bytes.data());
    outputs_ = {output_.list.data()};
    EXPECT_EQ(Process(), 0u);
    EXPECT_TRUE(depth.bytes == before) << "an earlier request's depth output";
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
            for (const auto& [row, column] : {std::pair(0, 0), {5, 27}, {19, 7}}) {
                EXPECT_EQ(output_.bytes[static_cast<std::size_t>(row * 72 + column)],
                          aux_.bytes[static_cast<std::size_t>(2 * row * 96 + 2 * column)]);
            }
            for (const auto& [row, pair] : {std::pair(0, 0), {9, 13}}) {
                const int to = (48 + row) * 72 + 2 * pair;
                const int from = (40 + 2 * row) * 96 + 4 * pair;
                EXPECT_TRUE(std::equal(&output_.bytes[static_cast<std::size_t>(to)],
                                       &output_.bytes[static_cast<std::size_t>(to + 2)],
                                       &aux_.bytes[static_cast<std::size_t>(from)]));
            }
            EXPECT_EQ(output_.bytes[28], main_.bytes[28]);
            EXPECT_EQ(output_.bytes[20 * 72], main_.bytes[20 * 80]);
        } else {
            EXPECT_TRUE(OutputShows(number == 1 ? main_ : aux_));
        }
        Destroy();
    }
}

// Each test runs in every debug view, with one image that cannot be used.
class UnusableImage : public NodeTest {
protected:
    using Spoil = std::function<void(Record&)>;

    static Spoil Set32(std::size_t offset, std::uint32_t value) {
        return [=](Record& list) { list.Set(offset, value); };
    }
    static Spoil NoAddress(std::size_t plane) {
        return [=](Record& list) { list.Set<void*>(336 + 8 * plane, nullptr); };
    }

    // `name`: of the image in the line that tells of it; null: its format alone is told.
    void InEachView(Image& image, const Spoil& spoil, const char* name, bool copied) {
        for (const char* view : {"0", "1", "2", "3"}) {
            SCOPED_TRACE(std::string("view ") + view);
            platform().properties["persist.vendor.camera.tessola.cb.debugview"] = view;
            ASSERT_EQ(Create(), 0u);
            ASSERT_EQ(Process(), 0u); // leaves descriptors that must not be used again
            const Record good = image.list;
            spoil(image.list);
            platform().log.clear();
            platform().engine.calls.clear();
            EXPECT_EQ(Process(), 0u);
            // The views of the aux image need no main image.
            const bool auxIsShown = &image == &main_ && *view >= '2';
            EXPECT_EQ(OutputIsMain(), copied);
            EXPECT_EQ(OutputIsBlank(), !copied && !auxIsShown);
            if (auxIsShown) {
                EXPECT_EQ(OutputShows(aux_), *view == '2');
                EXPECT_EQ(output_.bytes[0], aux_.bytes[0]);
            }
            EXPECT_TRUE(platform().engine.calls.empty());
            if (*view == '0') {
                EXPECT_EQ(DepthEffect(), 1u);
            }
            EXPECT_EQ(Value<std::int32_t>(LastPublished().data[4]), 0) << "an earlier depth size";
            EXPECT_EQ(platform().Texts(6), Errors(image.list, name,
                                                  copied       ? "the main image is copied"
                                                  : auxIsShown ? "the aux image is shown"
                                                               : "no photo is written"));
            image.list = good;
            Destroy();
        }
    }

private:
    static Texts Errors(const Record& list, const char* name, const char* outcome) {
        Texts errors;
        if (list.Get<std::uint32_t>(16) != 3) {
            errors.push_back("TSL_BTB: TSL_CTB: PrepareImage: #:  format is not supported!\n");
        }
        if (name != nullptr) {
            const auto word = [&list](std::size_t at) { return list.Get<std::int32_t>(at); };
            char text[256];
            std::snprintf(text, sizeof(text),
                          "TSL_CTB: TSL_CTB: ProcessRequest: #: %s image cannot be used! Format "
                          "%d, [w, h]: [%d, %d], pitch %d, planes %d, addresses [%p, %p], %s\n",
                          name, word(16), word(8), word(12), word(32), word(232),
                          list.Get<void*>(336), list.Get<void*>(344), outcome);
            errors.emplace_back(text);
        }
        return errors;
    }
};

TEST_F(UnusableImage, AuxLeavesTheMainImage) {
    InEachView(aux_, Set32(16, 0), nullptr, true);
    InEachView(aux_, Set32(232, 1), "Aux", true); // no chroma
    InEachView(aux_, NoAddress(0), "Aux", true);
    InEachView(aux_, NoAddress(1), "Aux", true);
    InEachView(aux_, Set32(32, 55), "Aux", true); // a pitch below the width
    InEachView(aux_, Set32(8, 0), "Aux", true);
}

TEST_F(UnusableImage, MainOrOutputLeavesNothingWritten) {
    InEachView(main_, Set32(16, 5), "Main", false);
    InEachView(main_, Set32(12, 0), "Main", false);
    InEachView(main_, Set32(232, 0), "Main", false);
    InEachView(output_, Set32(16, 2), nullptr, false);
    InEachView(output_, Set32(32, static_cast<std::uint32_t>(-72)), "Output", false);
}

TEST_F(NodeTest, OtherCodeOfTheSameFormatAndMorePlanesThanThereAre) {
    Create();
    for (Image* image : {&main_, &aux_, &output_}) {
        image->list.Set(16, 4u);
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
    platform().properties["persist.vendor.camera.tessola.cb.dumpimg"] = "2";
    main_.list.SetWords(24, {62, 47}); // the list's own plane size names the text file
    metadata_.Set(Slot(0) + 192, std::uint8_t{2});
    metadata_.SetWords(Slot(0) + 204, {10, 9, 10, 12, 20, 22, 5, 6});
    const support::ImportPatch clock(library_, "gettimeofday",
                                     reinterpret_cast<void*>(+[](timeval* now, void*) {
                                         *now = {kDumpTime, 999999};
                                         return 0;
                                     }));
    umask(0);
    // A service has no standard input: its files may get descriptor 0.
    const int input = ::dup(STDIN_FILENO);
    ::close(STDIN_FILENO);
    CreateAndProcess();
    ::dup2(input, STDIN_FILENO);
    ::close(input);
    const std::string stem = "IMG_20240131_235959_";
    EXPECT_EQ(DumpNames(),
              (Texts{stem + "0_62x47_metadata.txt", stem + "0_80x48.Y8", stem + "0_80x48.nv12",
                     stem + "1_96x40.nv12", stem + "res_72x48.nv12"}));
    const std::filesystem::path folder = kDumpFolder;
    EXPECT_EQ(std::filesystem::status(root_.string() + kDumpFolder + ("/" + stem + "0_80x48.nv12"))
                  .permissions(),
              std::filesystem::perms(0777));
    EXPECT_EQ(ReadDeviceFile(folder / (stem + "0_80x48.nv12")),
              std::string(main_.bytes.begin(), main_.bytes.end()));
    EXPECT_EQ(ReadDeviceFile(folder / (stem + "1_96x40.nv12")),
              std::string(aux_.bytes.begin(), aux_.bytes.end()));
    EXPECT_EQ(ReadDeviceFile(folder / (stem + "res_72x48.nv12")),
              std::string(output_.bytes.begin(), output_.bytes.end()));
    EXPECT_EQ(ReadDeviceFile(folder / (stem + "0_80x48.Y8")), std::string(1000, '\xD0'));
    EXPECT_EQ(ReadDeviceFile(folder / (stem + "0_62x47_metadata.txt")),
              "[0]\ni32BlurIntensity=37\nptFocus_x=19\nptFocus_y=18\n"
              "i32MainWidth_CropNoScale=96\ni32MainHeight_CropNoScale=72\n"
              "i32AuxWidth_CropNoScale=126\ni32AuxHeight_CropNoScale=90\ni32ImageDegree=90\n\n"
              "facenum=2\n[0_face_0]\nleft=4\ntop=6\nright=23\nbottom=29\norient=1\n"
              "[0_face_1]\nleft=24\ntop=32\nright=33\nbottom=43\norient=1\n");

    // The same second again: the text is begun anew, a longer image keeps its tail.
    metadata_.Set(Slot(0) + 192, std::uint8_t{0});
    main_.list.Set<std::uint64_t>(344, 0);
    Process();
    EXPECT_EQ(ReadDeviceFile(folder / (stem + "0_80x48.nv12")).size(), main_.bytes.size());
    const std::string text = ReadDeviceFile(folder / (stem + "0_62x47_metadata.txt"));
    EXPECT_EQ(text.substr(text.size() - 10), "facenum=0\n");

    std::filesystem::remove_all(root_.string() + kDumpFolder);
    const auto unexpected = +[](int, const void*, std::size_t) -> ssize_t {
        ADD_FAILURE() << "written without a file";
        return -1;
    };
    const support::ImportPatch write(library_, "write", reinterpret_cast<void*>(unexpected));
    platform().log.clear();
    main_.list.Set(344, main_.bytes.data() + 80 * 48);
    EXPECT_EQ(Process(), 0u);
    EXPECT_TRUE(OutputIsRendered());
    EXPECT_EQ(platform().Texts(6),
              Texts{"TSL_BTB: TSL_CTB: saveFile: #: Failed to open file: /data/vendor/camera/" +
                    stem + "0_62x47_metadata.txt\n"});
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

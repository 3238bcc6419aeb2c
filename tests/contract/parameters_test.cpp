// Collection of a request's parameters: buffers, consistency, crops, focus, faces.

#include <algorithm>
#include <functional>
#include <random>

#include "tests/contract/fixture.h"

namespace contract {
namespace {

using Texts = std::vector<std::string>;
using Words = std::vector<std::int32_t>;

Words FocusPoint(const Published& published) {
    Words point(2);
    std::memcpy(point.data(), published.data[6].data(), 8);
    return point;
}

void SetSize(Image& image, int width, int height) {
    image.list.SetWords(8, {width, height});
    image.list.SetWords(32, {width});
}

TEST_F(NodeTest, RequestsWithoutTheirBuffersAreRefused) {
    platform().properties["persist.vendor.camera.tessola.log"] = "2";
    CreateAndProcess();
    struct Case {
        const char* what;
        std::function<void()> arrange;
    };
    Image depth(80, 48, 80, 5, 8, 1);
    const Case cases[] = {
        {"no input array", [this] { request_.Set<void*>(40, nullptr); }},
        {"no output array", [this] { request_.Set<void*>(56, nullptr); }},
        {"one input", [this] { request_.Set(32, 1u); }},
        {"first input null", [this] { inputs_[0] = nullptr; }},
        {"second input null", [this] { inputs_[1] = nullptr; }},
        {"no output", [this] { request_.Set(48, 0u); }},
        {"null output",
         [this] {
             outputs_.push_back(nullptr);
             request_.Set(48, 2u);
         }},
        {"only a depth output", [&] { outputs_[0] = depth.list.data(); }},
        {"two masters", [this] { aux_.list.Set(824, 0u); }},
        {"no master", [this] { main_.list.Set(824, 4u); }},
    };
    const Published published = LastPublished();
    for (const Case& test : cases) {
        SCOPED_TRACE(test.what);
        const auto inputs = inputs_;
        const auto outputs = outputs_;
        platform().log.clear();
        platform().engine.calls.clear();
        Process(); // fills in the record, which the case then spoils
        platform().log.clear();
        platform().published.clear();
        Blank();
        test.arrange();
        request_.Set(40, test.what == std::string("no input array") ? nullptr : inputs_.data());
        request_.Set(56, test.what == std::string("no output array") ? nullptr : outputs_.data());
        EXPECT_EQ(Call(88, request_.data()), 5u);
        EXPECT_EQ(platform().Texts(6), (Texts{"GetBokehParams: #: errCode = 5: NULL POINTER!",
                                              "BaseProcessRequest: #:  res: 5 NULL POINTER!",
                                              "ProcessRequest: #:  res: 5 NULL POINTER!"}));
        EXPECT_TRUE(platform().published.empty());
        EXPECT_TRUE(OutputIsBlank());
        inputs_ = inputs;
        outputs_ = outputs;
        main_.list.Set(824, 0u);
        aux_.list.Set(824, 1u);
    }
    platform().metadata.erase(TagId("InputMetadataBokeh") | 0x08000000);
    platform().log.clear();
    EXPECT_EQ(Process(), 5u);
    EXPECT_EQ(platform().Texts(6), (Texts{"BaseProcessRequest: #: errCode = 5: NULL POINTER!",
                                          "ProcessRequest: #:  res: 5 NULL POINTER!"}));
    EXPECT_EQ(platform().Texts(3),
              (Texts{"TSL_CTB: NodeProcRequest: #:  (IN)\n",
                     "TSL_CTB: ProcessRequest: #: : inputNum(2), outputNum(1)(IN)\n",
                     "TSL_CTB: NodeProcRequest: #:  (OUT) res = 5\n"}));
}

TEST_F(NodeTest, MasterCameraPicksTheMainImage) {
    struct Case {
        const char* what;
        std::uint32_t master;
        std::vector<Words> inputEntries; // node, instance, index, camera
        std::uint32_t ports[2];
        bool firstIsMain;
    };
    const Case cases[] = {
        {"by its place", 20, {}, {0, 1}, false},
        {"unknown: the primary", 99, {}, {0, 1}, true},
        {"mapped", 10, {{501, 2, 5, 10}}, {1, 5}, false},
        {"last entry wins", 10, {{501, 2, 5, 10}, {501, 2, 6, 10}}, {6, 5}, true},
        {"of other nodes", 10, {{500, 2, 5, 10}, {501, 1, 6, 10}}, {0, 5}, true},
        {"of an unlinked camera", 10, {{501, 2, 5, 30}}, {0, 5}, true},
    };
    platform().properties["persist.vendor.camera.tessola.cb.debugview"] = "1";
    for (const Case& test : cases) {
        SCOPED_TRACE(test.what);
        inputConfig_.Set(0, static_cast<std::uint32_t>(test.inputEntries.size()));
        for (std::size_t k = 0; k < test.inputEntries.size(); ++k) {
            const Words& entry = test.inputEntries[k];
            inputConfig_.SetWords(8 + 48 * k, {entry[0], entry[1], entry[2]});
            inputConfig_.Set(8 + 48 * k + 32, entry[3]);
        }
        metadata_.Set(16, test.master);
        main_.list.Set(824, test.ports[0]);
        aux_.list.Set(824, test.ports[1]);
        CreateAndProcess();
        EXPECT_TRUE(output_.Pixels() == (test.firstIsMain ? main_ : aux_).Pixels());
        Destroy();
    }
}

TEST_F(NodeTest, CalibrationMustFitTheCameras) {
    platform().properties["persist.vendor.camera.tessola.log"] = "6";
    platform().engine.calibrationSizes[0] = 6499; // still 64 pixels
    metadata_.Set(Slot(1) + 396, 50);
    Create();
    const auto errors = [this] {
        platform().log.clear();
        Process();
        return platform().Texts(6);
    };
    const Texts auxDiffers = {
        "TSL_CTB: CheckParamConsistency: #: Aux camera parameter inconsistency!Calibration [w, h]: "
        "[64, 48], ActiveArraySize [w, h]: [64, 50]\n"};
    EXPECT_EQ(errors(), auxDiffers);
    EXPECT_TRUE(OutputIsMain());
    const Texts debug = platform().Texts(3);
    EXPECT_EQ(std::count(debug.begin(), debug.end(),
                         "TSL_CTB: ProcessRequest: #: CalibDataSuccess falil, copy image!\n"),
              1);
    EXPECT_EQ(errors(), auxDiffers) << "checked again until it fits";
    metadata_.Set(Slot(0) + 392, 65);
    EXPECT_EQ(errors(),
              (Texts{"TSL_CTB: CheckParamConsistency: #: Master camera parameter "
                     "inconsistency!Calibration [w, h]: [64, 48], ActiveArraySize [w, h]: [65, "
                     "48]\n",
                     auxDiffers[0]}));
    metadata_.Set(Slot(0) + 392, 64);
    metadata_.Set(Slot(1) + 396, 48);
    EXPECT_EQ(errors(), Texts{});
    EXPECT_TRUE(OutputIsMain()) << "a node that did not fit never renders";
    metadata_.Set(Slot(1) + 396, 50);
    EXPECT_EQ(errors(), Texts{}) << "checked no more once it fits";
    for (const std::string& text : platform().Texts(3)) {
        EXPECT_EQ(text.find("Calibration sizes"), std::string::npos);
    }
}

TEST_F(NodeTest, CropSizes) {
    for (std::int32_t& size : platform().engine.calibrationSizes) {
        size = 400000;
    }
    platform().engine.calibrationSizes[1] = platform().engine.calibrationSizes[3] = 300000;
    platform().properties["persist.vendor.camera.tessola.log"] = "6";
    struct Case {
        Words applied;
        int width, height;
        Words result;
        const char* total;
    };
    const Case cases[] = {
        {{0, 0, 4000, 3000}, 4000, 3000, {4000, 3000}, "[0,0 4000x3000 (1.33333)]"},
        {{500, 375, 3000, 2250}, 4000, 3000, {3000, 2250}, "[500,375 3000x2250 (1.33333)]"},
        {{0, 0, 4000, 2250}, 4000, 3000, {3000, 2250}, "[500,375 3000x2250 (1.33333)]"},
        {{0, 0, 4000, 3000}, 4000, 2250, {4000, 2250}, "[0,375 4000x2250 (1.77778)]"},
        {{500, 375, 3000, 2250}, 1920, 1080, {3000, 1688}, "[500,656 3000x1688 (1.77725)]"},
        // Without area: the rectangle stays.
        {{0, 0, 0, 0}, 4000, 3000, {4000, 3000}, "[0,0 4000x3000 (1.33333)]"},
        {{0, 0, 4000, 0}, 4000, 3000, {4000, 3000}, "[0,0 4000x3000 (1.33333)]"},
        {{-2000, -1500, 4000, 3000}, 4000, 3000, {4000, 3000}, "[0,0 4000x3000 (1.33333)]"},
        {{0, 0, 4000, 3000}, 0, 0, {4000, 3000}, "[0,0 4000x3000 (1.33333)]"},
        // Slightly too narrow: one pixel more at either side.
        {{0, 0, 4000, 3000}, 13340, 10000, {4002, 3000}, "[-1,0 4002x3000 (1.334)]"},
    };
    Create();
    for (const Case& test : cases) {
        SCOPED_TRACE(test.total);
        for (int slot = 0; slot < 2; ++slot) {
            metadata_.SetWords(Slot(slot) + 8, {0, 0, 4000, 3000});
            metadata_.SetWords(Slot(slot) + 88, {0, 0, 4000, 3000});
            metadata_.SetWords(Slot(slot) + 384, {0, 0, 4000, 3000});
        }
        metadata_.SetWords(Slot(0) + 88, test.applied);
        SetSize(main_, test.width, test.height);
        platform().log.clear();
        ASSERT_EQ(Process(), 0u);
        EXPECT_EQ(metadata_.Get<std::int32_t>(Slot(0) + 128), test.width) << "residual crop";
        std::string cropLine;
        std::string paramsLine;
        for (const std::string& text : platform().Texts(3)) {
            if (cropLine.empty() && text.find("totalCropRegion") != std::string::npos) {
                cropLine = text;
            }
            if (text.find("MasterCam[w, h]") != std::string::npos) {
                paramsLine = text;
            }
        }
        EXPECT_NE(cropLine.find("totalCropRegion: " + std::string(test.total) +
                                ", preAppliedCropRegion: " + test.total),
                  std::string::npos)
            << cropLine;
        const std::string sizes = "[" + std::to_string(test.result[0]) + " " +
                                  std::to_string(test.result[1]) + "], AuxCam[w, h]:[4000 3000]";
        EXPECT_NE(paramsLine.find(sizes), std::string::npos) << paramsLine;
    }
}

TEST_F(NodeTest, EngineGetsTheRequestsImageInfo) {
    platform().imageDegree = 270;
    metadata_.SetWords(Slot(0) + 88, {8, 6, 48, 36});
    CreateAndProcess();
    EXPECT_EQ(platform().engine.imageInfos.back(), (Words{48, 36, 64, 48, 270}));
    EXPECT_EQ(platform().engine.blur, 37);
    for (const std::uint32_t level : {0u, 99u, 100u, 150u, 0x80000000u, 0xFFFFFFFFu}) {
        metadata_.Set(4, level);
        Process();
        EXPECT_EQ(platform().engine.blur, static_cast<int>(std::min(level, 100u)));
    }
    Destroy();
    platform().hasSettings = false;
    CreateAndProcess();
    EXPECT_EQ(platform().engine.imageInfos.back()[4], 0);
}

TEST_F(NodeTest, FocusFollowsTheAutoFocusRegion) {
    struct Case {
        const char* what;
        int width, height;
        Words crop;
        Words focus;
        Words point;
    };
    const Case cases[] = {
        {"scale 1", 4000, 3000, {0, 0, 4000, 3000}, {1000, 1000, 1999, 1999}, {1500, 1500}},
        {"odd size", 4000, 3000, {0, 0, 4000, 3000}, {1000, 1000, 1998, 1998}, {1499, 1499}},
        {"all zero", 4000, 3000, {0, 0, 4000, 3000}, {0, 0, 0, 0}, {2000, 1500}},
        {"x of 0", 4000, 3000, {0, 0, 4000, 3000}, {0, 500, 1, 700}, {1, 600}},
        {"left of the crop", 4000, 3000, {1000, 500, 2000, 1500}, {100, 800, 599, 899}, {500, 700}},
        {"halves away from zero",
         4000,
         3000,
         {0, 0, 8000, 6000},
         {1001, 1001, 1101, 1101},
         {526, 526}},
        {"crossed corners", 4000, 3000, {0, 0, 4000, 3000}, {900, 900, 100, 950}, {2000, 1500}},
        {"empty crop", 4000, 3000, {0, 0, 0, 3000}, {1000, 1000, 1999, 1999}, {2000, 1500}},
        {"odd image", 4001, 3001, {0, 0, 0, 0}, {1, 1, 2, 2}, {2000, 1500}},
        {"widest corners", 4000, 3000, {0, 0, 1, 1}, {INT32_MIN, 0, INT32_MAX, 10}, {2000, 1500}},
        {"far out",
         4000,
         3000,
         {INT32_MIN, INT32_MIN, 1, 1},
         {INT32_MAX, INT32_MAX, INT32_MAX, INT32_MAX},
         {INT32_MAX, INT32_MAX}},
    };
    Create();
    for (const Case& test : cases) {
        SCOPED_TRACE(test.what);
        SetSize(main_, test.width, test.height);
        metadata_.SetWords(Slot(0) + 8, test.crop);
        metadata_.SetWords(Slot(0) + 136, test.focus);
        ASSERT_EQ(Process(), 0u);
        EXPECT_EQ(FocusPoint(LastPublished()), test.point);
    }
}

TEST_F(NodeTest, FacesAreCleanedMappedAndFocused) {
    struct Case {
        const char* what;
        std::vector<Words> faces;
        int count;
        std::int32_t afMode;
        std::int64_t selected; // -1: not supplied
        std::int32_t rotation;
        Words seen; // by the engine: point, count, then left, top, right, bottom, orientation
        int cleaned;
    };
    const Case cases[] = {
        {"none", {}, 0, 4, -1, 0, {1500, 1500, 0}, 0},
        {"half scale",
         {{1001, 1001, 101, 101}},
         1,
         4,
         -1,
         0,
         {525, 525, 1, 501, 501, 550, 550, 1},
         1},
        {"too small dropped, largest chosen",
         {{0, 0, 1, 50}, {100, 100, 40, 40}, {200, 200, 60, 60}},
         3,
         4,
         -1,
         -90,
         {114, 114, 2, 50, 50, 69, 69, 2, 100, 100, 129, 129, 2},
         2},
        {"equal areas: the first",
         {{100, 100, 40, 40}, {200, 200, 40, 40}},
         2,
         4,
         -1,
         44,
         {59, 59, 2, 50, 50, 69, 69, 1, 100, 100, 119, 119, 1},
         2},
        {"selected",
         {{100, 100, 80, 80}, {200, 200, 40, 40}},
         2,
         4,
         1,
         45,
         {109, 109, 2, 50, 50, 89, 89, 3, 100, 100, 119, 119, 3},
         2},
        {"selected out of range",
         {{100, 100, 80, 80}, {200, 200, 40, 40}},
         2,
         4,
         2,
         359,
         {69, 69, 2, 50, 50, 89, 89, 1, 100, 100, 119, 119, 1},
         2},
        {"not continuous",
         {{100, 100, 80, 80}},
         1,
         1,
         -1,
         180,
         {1500, 1500, 1, 50, 50, 89, 89, 4},
         1},
    };
    SetSize(main_, 4000, 3000);
    metadata_.SetWords(Slot(0) + 8, {0, 0, 8000, 6000});
    metadata_.SetWords(Slot(0) + 136, {2000, 2000, 3999, 3999});
    std::uint32_t selected = 0;
    Record oem(408);
    platform().metadata[TagId("OEMFDResults") | 0x08000000] = oem.data();
    Create();
    for (const Case& test : cases) {
        SCOPED_TRACE(test.what);
        for (std::size_t k = 0; k < test.faces.size(); ++k) {
            metadata_.SetWords(Slot(0) + 204 + 16 * k, test.faces[k]);
        }
        metadata_.Set(Slot(0) + 192, static_cast<std::uint8_t>(test.count));
        metadata_.Set(Slot(0) + 400, test.afMode);
        oem.Set(404, test.rotation);
        selected = static_cast<std::uint32_t>(test.selected);
        const std::uint32_t tag = TagId("SelectFaceIndex") | 0x08000000;
        platform().metadata.erase(tag);
        if (test.selected >= 0) {
            platform().metadata[tag] = &selected;
        }
        ASSERT_EQ(Process(), 0u);
        EXPECT_EQ(platform().engine.focus, test.seen);
        EXPECT_EQ(FocusPoint(LastPublished()), Words(test.seen.begin(), test.seen.begin() + 2));
        EXPECT_EQ(metadata_.Get<std::uint8_t>(Slot(0) + 192), test.cleaned);
    }
    // More faces than the record has room for, and a reference without area.
    for (std::size_t k = 0; k < 10; ++k) {
        metadata_.SetWords(Slot(0) + 204 + 16 * k, {10, 10, 100, 100});
    }
    metadata_.Set(Slot(0) + 192, std::uint8_t{255});
    metadata_.SetWords(Slot(0) + 8, {0, 0, 0, 0});
    metadata_.Set(Slot(0) + 400, 4);
    oem.Set(404, 0);
    ASSERT_EQ(Process(), 0u);
    ASSERT_EQ(platform().engine.focus.size(), 3u + 10 * 5);
    EXPECT_EQ(Words(platform().engine.focus.begin() + 2, platform().engine.focus.begin() + 8),
              (Words{10, 0, 0, 0, 0, 1}))
        << "an empty rectangle, not one with a wrapped edge";
    EXPECT_EQ(FocusPoint(LastPublished()), (Words{2000, 1500})) << "nothing to focus on";
}

TEST_F(NodeTest, BareFaceIndexIsReadWithoutAPool) {
    std::uint32_t selected = 1;
    metadata_.Set(Slot(0) + 192, std::uint8_t{2});
    metadata_.SetWords(Slot(0) + 204, {0, 0, 40, 40, 30, 30, 10, 10});
    metadata_.Set(Slot(0) + 400, 4);
    platform().metadata[TagId("SelectFaceIndex")] = &selected;
    CreateAndProcess();
    EXPECT_EQ(FocusPoint(LastPublished()), (Words{19, 19}));
    Destroy();
    createInfo_.Set(36, 2u);
    metadata_.Set(Slot(0) + 192, std::uint8_t{2});
    CreateAndProcess();
    EXPECT_EQ(FocusPoint(LastPublished()), (Words{34, 34}));
}

TEST_F(NodeTest, AnyMetadataIsHarmless) {
    platform().properties["persist.vendor.camera.tessola.log"] = "6";
    Create();
    std::mt19937 random(20240131);
    const std::int32_t extremes[] = {0, 1, -1, 2, 64, 48, INT32_MAX, INT32_MIN, INT32_MAX - 1};
    for (int round = 0; round < 3000; ++round) {
        for (int slot = 0; slot < 2; ++slot) {
            for (std::size_t word = 8; word < 408; word += 4) {
                const bool extreme = random() % 3 == 0;
                metadata_.Set(Slot(slot) + word,
                              extreme ? extremes[random() % std::size(extremes)]
                                      : static_cast<std::int32_t>(random()) >> (random() % 32));
            }
        }
        ASSERT_EQ(Process(), 0u);
        platform().log.clear();
        platform().published.resize(1);
    }
}

} // namespace
} // namespace contract

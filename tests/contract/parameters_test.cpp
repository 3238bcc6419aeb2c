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
        EXPECT_EQ(platform().Texts(6),
                  (Texts{"TSL_BTB: GetBokehParams: #: errCode = 5: NULL POINTER!",
                         "TSL_BTB: BaseProcessRequest: #:  res: 5 NULL POINTER!",
                         "TSL_CTB: ProcessRequest: #:  res: 5 NULL POINTER!"}));
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
    EXPECT_EQ(platform().Texts(6),
              (Texts{"TSL_BTB: BaseProcessRequest: #: errCode = 5: NULL POINTER!",
                     "TSL_CTB: ProcessRequest: #:  res: 5 NULL POINTER!"}));
    EXPECT_EQ(platform().Texts(3),
              (Texts{"TSL_CTB: TSL_CTB: NodeProcRequest: #:  (IN)\n",
                     "TSL_CTB: TSL_CTB: ProcessRequest: #: : inputNum(2), outputNum(1)(IN)\n",
                     "TSL_CTB: TSL_CTB: NodeProcRequest: #:  (OUT) res = 5\n"}));
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
        {"unknown: the primary", 99, {}, {0, 1}, false},
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
        EXPECT_TRUE(OutputShows(test.firstIsMain ? main_ : aux_));
        Destroy();
    }
}

TEST_F(NodeTest, CalibrationMustFitTheCameras) {
    platform().properties["persist.vendor.camera.tessola.log"] = "6";
    metadata_.Set(Slot(1) + 396, 122);
    Create();
    const auto errors = [this] {
        platform().log.clear();
        Process();
        return platform().Texts(6);
    };
    const auto differs = [](const char* role, const char* calibration, const char* activeArray) {
        return std::string("TSL_BTB: TSL_CTB: CheckParamConsistency: #: ") + role +
               " camera parameter inconsistency!Calibration [w, h]: [" + calibration +
               "], ActiveArraySize [w, h]: [" + activeArray + "]\n";
    };
    const std::string auxDiffers = differs("Aux", "168, 120", "168, 122");
    EXPECT_EQ(errors(), Texts{auxDiffers});
    EXPECT_TRUE(OutputIsMain());
    const Texts debug = platform().Texts(3);
    EXPECT_EQ(std::count(debug.begin(), debug.end(),
                         "TSL_CTB: TSL_CTB: ProcessRequest: #: CalibDataSuccess falil, copy "
                         "image!\n"),
              1);
    EXPECT_EQ(errors(), Texts{auxDiffers}) << "checked again until it fits";
    metadata_.Set(Slot(0) + 392, 129);
    EXPECT_EQ(errors(), (Texts{differs("Master", "128, 96", "129, 96"), auxDiffers}));
    metadata_.Set(Slot(0) + 392, 128);
    metadata_.Set(Slot(1) + 396, 120);
    metadata_.Set(16, 20u);
    EXPECT_EQ(errors(), (Texts{differs("Aux", "168, 120", "128, 96"),
                               differs("Master", "128, 96", "168, 120")}))
        << "the second input is the master's";
    metadata_.Set(16, 10u);
    EXPECT_EQ(errors(), Texts{});
    EXPECT_TRUE(OutputIsMain()) << "a node that did not fit never renders";
    metadata_.Set(Slot(1) + 396, 122);
    EXPECT_EQ(errors(), Texts{}) << "checked no more once it fits";
    for (const std::string& text : platform().Texts(3)) {
        EXPECT_EQ(text.find("Calibration sizes"), std::string::npos);
    }
}

// The main camera's active array and applied crop, the image's size, the size that is published,
// and the crop as it is logged.
struct CropCase {
    Words activeArray;
    Words applied;
    int width, height;
    Words result;
    const char* total;
};

std::vector<CropCase> CropCases() {
    const Words whole = {0, 0, 4000, 3000};
    const char* const wholeText = "[0,0 4000x3000 (1.33333)]";
    const Words negative = {-1000, -750, 4000, 3000};
    constexpr std::int32_t kMost = INT32_MAX;
    return {
        {whole, whole, 4000, 3000, {4000, 3000}, wholeText},
        {whole, {500, 375, 3000, 2250}, 4000, 3000, {3000, 2250}, "[500,375 3000x2250 (1.33333)]"},
        {whole, {0, 0, 4000, 2250}, 4000, 3000, {3000, 2250}, "[500,375 3000x2250 (1.33333)]"},
        {whole, whole, 4000, 2250, {4000, 2250}, "[0,375 4000x2250 (1.77778)]"},
        {whole, {500, 375, 3000, 2250}, 1920, 1080, {3000, 1688}, "[500,656 3000x1688 (1.77725)]"},
        {{100, 40, 4000, 3000},
         {300, 0, 3400, 3000},
         4000,
         3000,
         {3400, 2550},
         "[400,265 3400x2550 (1.33333)]"},
        // A wider crop cuts as its columns were cut, a taller one as its rows.
        {whole, {500, 0, 3000, 1500}, 4000, 3000, {2000, 1500}, "[1000,750 2000x1500 (1.33333)]"},
        {whole, {0, 600, 1800, 1800}, 4000, 3000, {1800, 1350}, "[1100,825 1800x1350 (1.33333)]"},
        // Without area: the rectangle stays.
        {whole, {0, 0, 0, 0}, 4000, 3000, {4000, 3000}, wholeText},
        {whole, {0, 0, 4000, 0}, 4000, 3000, {4000, 3000}, wholeText},
        {whole, {0, 0, 0, 3000}, 4000, 3000, {4000, 3000}, wholeText},
        {whole, {500, 375, 0, 0}, 4000, 3000, {4000, 3000}, wholeText},
        {whole, {500, 375, 4000, 0}, 4000, 3000, {4000, 3000}, wholeText},
        {whole, {500, 375, 0, 3000}, 4000, 3000, {4000, 3000}, wholeText},
        {whole, {-2000, -1500, 4000, 3000}, 4000, 3000, {4000, 3000}, wholeText},
        {whole, whole, 0, 0, {4000, 3000}, wholeText},
        {whole, whole, 0, 3000, {4000, 3000}, wholeText},
        {whole, whole, 4000, 0, {4000, 3000}, wholeText},
        // Slightly too narrow: one pixel more at either side.
        {whole, whole, 13340, 10000, {4002, 3000}, "[-1,0 4002x3000 (1.334)]"},
        // Aspects 0.001 and 0.002: the tolerance itself, to the last bit.
        {{0, 0, 100, 100000},
         {0, 0, 100, 100000},
         200,
         100000,
         {100, 100000},
         "[0,0 100x100000 (0.001)]"},
        // Negative offsets widen.
        {whole, negative, 4000, 3000, {8000, 6000}, "[-2000,-1500 8000x6000 (1.33333)]"},
        // What no 32-bit word can hold stays as it is: extents, and starts in each direction.
        {{0, 0, 1200000000, 900000000},
         negative,
         4000,
         3000,
         {1200000000, 900000000},
         "[0,0 1200000000x900000000 (1.33333)]"},
        {{0, 0, 900000000, 1200000000},
         negative,
         4000,
         3000,
         {900000000, 675000000},
         "[0,262500000 900000000x675000000 (1.33333)]"},
        {{INT32_MIN + 10, 0, 4000, 3000},
         negative,
         4000,
         3000,
         {4000, 3000},
         "[-2147483638,0 4000x3000 (1.33333)]"},
        {{kMost - 10, 0, 4000, 3000},
         {500, 375, 3000, 2250},
         4000,
         3000,
         {4000, 3000},
         "[2147483637,0 4000x3000 (1.33333)]"},
        {{0, kMost - 10, 4000, 3000},
         {500, 375, 3000, 2250},
         4000,
         3000,
         {4000, 3000},
         "[0,2147483637 4000x3000 (1.33333)]"},
        {{kMost - 500, kMost - 375, 4000, 3000},
         {500, 375, 3000, 2250},
         4000,
         3000,
         {3000, 2250},
         "[2147483647,2147483647 3000x2250 (1.33333)]"},
    };
}

TEST_F(NodeTest, CropSizes) {
    platform().properties["persist.vendor.camera.tessola.log"] = "6";
    metadata_.SetWords(Slot(1) + 384, {0, 0, 2000, 1500});
    metadata_.SetWords(Slot(1) + 88, {0, 0, 2000, 1500});
    const std::int32_t calibration[] = {400000, 300000, 200000, 150000};
    std::copy_n(calibration, 4, platform().engine.calibrationSizes); // the engine runs
    Create();
    const std::vector<CropCase> cases = CropCases();
    for (const CropCase& test : cases) {
        SCOPED_TRACE(std::to_string(&test - cases.data()));
        metadata_.SetWords(Slot(0) + 384, test.activeArray);
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
        const std::string total = test.total;
        EXPECT_NE(cropLine.find("totalCropRegion: " + total), std::string::npos) << cropLine;
        EXPECT_NE(cropLine.find("preAppliedCropRegion: " + total), std::string::npos);
        const std::string sizes = "[" + std::to_string(test.result[0]) + " " +
                                  std::to_string(test.result[1]) + "], AuxCam[w, h]:[2000 1430]";
        EXPECT_NE(paramsLine.find(sizes), std::string::npos) << paramsLine;
    }
}

TEST_F(NodeTest, EngineGetsTheRequestsImageInfo) {
    platform().imageDegree = 270;
    CreateAndProcess();
    const Engine& engine = platform().engine;
    const void* const mainLuma = main_.bytes.data();
    const void* const auxLuma = aux_.bytes.data();
    const void* const outputLuma = output_.bytes.data();
    EXPECT_EQ(engine.imageInfos.back(), (Words{96, 72, 126, 90, 270}));
    EXPECT_EQ(engine.images, (std::vector<const void*>{mainLuma, auxLuma, mainLuma, outputLuma}));
    EXPECT_EQ(engine.focus, (Words{19, 18, 0}));
    EXPECT_EQ(engine.room, engine.size);
    EXPECT_EQ(engine.processSize, engine.activeSize);
    EXPECT_EQ(engine.processData, engine.depthValue);
    EXPECT_EQ(engine.blur, 37);
    for (const std::uint32_t level : {0u, 99u, 100u, 150u, 0x80000000u, 0xFFFFFFFFu}) {
        metadata_.Set(4, level);
        Process();
        EXPECT_EQ(platform().engine.blur, static_cast<int>(std::min(level, 100u)));
    }
    Destroy();
    platform().hasSettings = false;
    CreateAndProcess();
    EXPECT_EQ(engine.imageInfos.back()[4], 0);
    Destroy();

    metadata_.Set(16, 20u); // now the second input is the master's
    platform().engine.calibrationSizes[0] = 16800;
    platform().engine.calibrationSizes[1] = 12000;
    platform().engine.calibrationSizes[2] = 12800;
    platform().engine.calibrationSizes[3] = 9600;
    CreateAndProcess();
    EXPECT_EQ(engine.imageInfos.back(), (Words{126, 90, 96, 72, 0}));
    EXPECT_EQ(engine.images, (std::vector<const void*>{auxLuma, mainLuma, auxLuma, outputLuma}));
    EXPECT_EQ(engine.focus, (Words{20, 34, 0}));
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
        {"scale 1", 4000, 3000, {0, 0, 4000, 3000}, {1000, 700, 1999, 1299}, {1500, 1000}},
        {"odd size", 4000, 3000, {0, 0, 4000, 3000}, {1000, 700, 1998, 1298}, {1499, 999}},
        {"y of 0", 4000, 3000, {0, 0, 4000, 3000}, {500, 0, 700, 0}, {2000, 1500}},
        {"one pixel", 4000, 3000, {0, 0, 4000, 3000}, {7, 5, 7, 5}, {7, 5}},
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
        {"crop without height",
         4000,
         3000,
         {0, 0, 4000, 0},
         {1000, 1000, 1999, 1999},
         {2000, 1500}},
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

// A main image of 4000 x 3000 pixels that shows 8000 x 6000 sensor pixels from (100, 40) on.
class FaceTest : public NodeTest {
protected:
    FaceTest() {
        SetSize(main_, 4000, 3000);
        metadata_.SetWords(Slot(0) + 8, {100, 40, 8000, 6000});
        metadata_.SetWords(Slot(0) + 136, {2000, 2000, 3999, 3999});
        metadata_.Set(Slot(0) + 400, 4);
        platform().metadata[TagId("OEMFDResults") | 0x08000000] = faceResults_.data();
        Create();
    }

    void SetFaces(const std::vector<Words>& faces) {
        for (std::size_t k = 0; k < faces.size(); ++k) {
            metadata_.SetWords(Slot(0) + 204 + 16 * k, faces[k]);
        }
        metadata_.Set(Slot(0) + 192, static_cast<std::uint8_t>(faces.size()));
    }

    Record faceResults_{408};
};

TEST_F(FaceTest, FacesAreCleanedMappedAndFocused) {
    struct Case {
        const char* what;
        std::vector<Words> faces;
        std::int32_t afMode;
        std::int64_t selected; // -1: not supplied
        Words seen; // by the engine: point, count, then left, top, right, bottom, orientation
        int cleaned;
    };
    const std::vector<Words> pair = {{100, 140, 80, 90}, {200, 80, 60, 40}};
    const Case cases[] = {
        {"none", {}, 4, -1, {1450, 1480, 0}, 0},
        {"half scale", {{1001, 945, 101, 61}}, 4, -1, {475, 467, 1, 451, 453, 500, 482, 1}, 1},
        {"too small dropped, largest chosen",
         {{0, 0, 1, 50}, {100, 140, 40, 60}, {200, 80, 50, 1}, {300, 90, 60, 80}},
         4,
         -1,
         {114, 44, 2, 0, 50, 19, 79, 1, 100, 25, 129, 64, 1},
         2},
        {"two by two is a face",
         {{100, 140, 1, 2}, {100, 140, 2, 2}, {100, 140, 2, 1}},
         4,
         -1,
         {0, 50, 1, 0, 50, 0, 50, 1},
         1},
        {"equal areas: the first",
         {{100, 140, 40, 60}, {200, 80, 60, 40}},
         4,
         -1,
         {9, 64, 2, 0, 50, 19, 79, 1, 50, 20, 79, 39, 1},
         2},
        {"selected", pair, 4, 1, {64, 29, 2, 0, 50, 39, 94, 1, 50, 20, 79, 39, 1}, 2},
        {"selected out of range", pair, 4, 2, {19, 72, 2, 0, 50, 39, 94, 1, 50, 20, 79, 39, 1}, 2},
        {"none after some", {}, 4, -1, {1450, 1480, 0}, 0},
        {"not continuous", pair, 1, 0, {1450, 1480, 2, 0, 50, 39, 94, 1, 50, 20, 79, 39, 1}, 2},
    };
    std::uint32_t selected = 0;
    for (const Case& test : cases) {
        SCOPED_TRACE(test.what);
        SetFaces(test.faces);
        metadata_.Set(Slot(0) + 400, test.afMode);
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
}

TEST_F(FaceTest, RotationBecomesTheNearestQuarterTurn) {
    SetFaces({{100, 140, 80, 90}});
    for (const auto& [rotation, code] : {std::pair(0, 1),
                                         {44, 1},
                                         {45, 3},
                                         {134, 3},
                                         {135, 4},
                                         {224, 4},
                                         {225, 2},
                                         {314, 2},
                                         {315, 1},
                                         {359, 1},
                                         {360, 1},
                                         {450, 3},
                                         {-90, 2},
                                         {-45, 1},
                                         {-46, 2},
                                         {-360, 1}}) {
        SCOPED_TRACE(rotation);
        faceResults_.Set(404, rotation);
        ASSERT_EQ(Process(), 0u);
        EXPECT_EQ(platform().engine.focus.back(), code);
    }
}

TEST_F(FaceTest, MoreFacesThanTheRecordHoldsAndNoAreaToMapThemFrom) {
    SetFaces(std::vector<Words>(10, {10, 10, 100, 100}));
    metadata_.Set(Slot(0) + 192, std::uint8_t{255});
    metadata_.SetWords(Slot(0) + 8, {0, 0, 0, 0});
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
    metadata_.SetWords(Slot(0) + 204, {9, 8, 20, 10, 20, 16, 5, 6});
    metadata_.Set(Slot(0) + 400, 4);
    platform().metadata[TagId("SelectFaceIndex")] = &selected;
    CreateAndProcess();
    EXPECT_EQ(FocusPoint(LastPublished()), (Words{21, 13}));
    Destroy();
    createInfo_.Set(36, 2u);
    metadata_.Set(Slot(0) + 192, std::uint8_t{2});
    CreateAndProcess();
    EXPECT_EQ(FocusPoint(LastPublished()), (Words{28, 25}));
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

// Documented answers of single operations that no caller behind the callback table provokes.

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <numeric>
#include <utility>

#include "bokehbase/crop_region.h"
#include "bokehbase/log.h"
#include "node/capture_bokeh.h"
#include "platform/device_names.h"
#include "tests/support/platform.h"

extern "C" void ChiNodeEntry(ChiNodeCallbacks* callbacks) noexcept;

namespace {
int g_newCallsLeft = -1; // until one fails; negative: none does

// A handle slot, and whether the memory that it names was freed while it still named it.
void** g_slot = nullptr;
bool g_freedWhileNamed = false;

void Free(void* memory) {
    g_freedWhileNamed |= g_slot != nullptr && *g_slot == memory;
    std::free(memory);
}
} // namespace

// Not inlined: g++ would take the pair of malloc and delete for a mistake.
// The forms for arrays stand here as well, since a sanitizer has its own that do not call the
// others.
[[gnu::noinline]] void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    void* memory = g_newCallsLeft == 0 ? nullptr : std::malloc(size);
    g_newCallsLeft -= g_newCallsLeft >= 0 ? 1 : 0;
    return memory;
}
[[gnu::noinline]] void* operator new(std::size_t size) {
    void* memory = operator new[](size, std::nothrow);
    return memory != nullptr ? memory : throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete[](void* memory) noexcept {
    Free(memory);
}
[[gnu::noinline]] void operator delete[](void* memory, std::size_t) noexcept {
    Free(memory);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    Free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    Free(memory);
}

namespace {

using support::platform;
using Texts = std::vector<std::string>;

struct Node : ChiNodeCaptureBokeh {
    using ChiNodeCaptureBokeh::IniEngine;
    using ChiNodeCaptureBokeh::m_cameraInfo;
    using ChiNodeCaptureBokeh::m_focusParam;
    using ChiNodeCaptureBokeh::m_frameParams;
    using ChiNodeCaptureBokeh::m_numLinkedCameras;
    using ChiNodeCaptureBokeh::m_resultDataCTB;
    using ChiNodeCaptureBokeh::UpdataCTBParam;
    using ChiNodeCaptureBokeh::UpdateActiveMap;
};

class OperationsTest : public ::testing::Test {
protected:
    OperationsTest() {
        platform() = {};
        node_ = std::make_unique<Node>();
    }
    Texts Errors() const { return platform().Texts(ANDROID_LOG_ERROR); }

    std::unique_ptr<Node> node_;
};

TEST_F(OperationsTest, AbsentRecordsAreRefusedByName) {
    std::vector<CameraInfo> cameras(4);
    frame_params_t params = {};
    OutputMetadataBokeh result = {};
    ChiNodeProcessRequestInfo request = {.size = sizeof(request), .hNodeSession = node_.get()};
    EXPECT_EQ(node_->BaseInitialize(nullptr, cameras, params, result), CDKResultEInvalidPointer);
    EXPECT_EQ(node_->FillVendorTagIds(params.tagInfo), CDKResultEInvalidPointer);
    EXPECT_EQ(node_->GetBokehParams(&request, cameras, params), CDKResultEInvalidPointer);
    node_->UpdateActiveMap();
    EXPECT_EQ(node_->m_resultDataCTB.activeMap, 0u);

    // Made, but never initialized.
    ChiNodeCallbacks callbacks = {.size = sizeof(callbacks)};
    ChiNodeEntry(&callbacks);
    EXPECT_EQ(callbacks.processRequest(&request), CDKResultEInvalidPointer);

    EXPECT_EQ(Errors(), (Texts{"TSL_BTB: BaseInitialize: #: errCode = 5: NULL POINTER!",
                               "TSL_BTB: FillVendorTagIds: #: errCode = 5: NULL POINTER!",
                               "TSL_BTB: GetBokehParams: #: errCode = 5: NULL POINTER!",
                               "TSL_BTB: UpdateActiveMap: #: NULL POINTER!",
                               "TSL_CTB: NodeProcRequest: #: errCode = 5: NULL POINTER!"}));
}

TEST_F(OperationsTest, EmptyCameraEntriesArePassedOver) {
    node_->m_numLinkedCameras = 2;
    PhysicalCameraConfig first = {.cameraId = 7, .masterRank = 1};
    PhysicalCameraConfig second = {.cameraId = 8, .masterRank = 2};
    InputMetadataBokeh metadata = {.masterCameraId = 8};
    metadata.cameraMetadata[0].cameraId = 70;
    metadata.cameraMetadata[1].cameraId = 80;
    node_->m_frameParams.pInputMetadata = &metadata;
    const struct {
        const PhysicalCameraConfig* configs[2];
        std::uint32_t master;
    } cases[] = {{{&first, &second}, 80},
                 {{nullptr, &second}, 70},
                 {{&first, nullptr}, 70},
                 {{nullptr, nullptr}, 70}};
    for (const auto& [configs, master] : cases) {
        node_->m_cameraInfo = {{configs[0], 0}, {configs[1], 1}, {}, {}};
        node_->UpdateActiveMap();
        EXPECT_EQ(node_->m_resultDataCTB.masterCameraId, master);
        EXPECT_EQ(node_->m_resultDataCTB.activeMap, 3u);
    }

    // The master stands behind an empty entry.
    ChiImageList images[3] = {};
    images[0].portIndex = 4;
    images[1].portIndex = 5;
    images[2].format.format = kChiFormatNV12;
    ChiImageList* inputs[] = {&images[0], &images[1]};
    ChiImageList* outputs[] = {&images[2]};
    ChiNodeProcessRequestInfo request = {.size = sizeof(request),
                                         .inputNum = 2,
                                         .inputs = inputs,
                                         .outputNum = 1,
                                         .outputs = outputs};
    const std::vector<CameraInfo> cameras = {{nullptr, 4}, {&second, 5}, {}, {}};
    EXPECT_EQ(node_->GetBokehParams(&request, cameras, node_->m_frameParams), CDKResultSuccess);
    EXPECT_EQ(node_->m_frameParams.pMainBuffer, inputs[1]);
}

TEST_F(OperationsTest, AResultWithoutANameReadsTheSameInBothLines) {
    ChiNodeInterface platformTable = {.size = sizeof(platformTable)};
    platformTable.getVendorTagBase = [](ChiVendorTagBaseQuery*) -> CDKResult { return 0xFFFFFFFE; };
    node_->m_frameParams.tagInfo.pChiNodeInterface = &platformTable;
    ChiNodeCreateInfo info = {.size = sizeof(info)};
    EXPECT_EQ(node_->BaseInitialize(&info, node_->m_cameraInfo, node_->m_frameParams,
                                    node_->m_resultDataCTB),
              0xFFFFFFFE);
    EXPECT_EQ(node_->m_numLinkedCameras, 2u) << "until a configuration is read";
    EXPECT_EQ(Errors(),
              (Texts{"TSL_BTB: TSL_CTB: operator(): #: Error: -2 during GetVendorTagBase for: "
                     "com.qti.chi.multicamerainputmetadata InputMetadataBokeh\n",
                     "TSL_BTB: BaseInitialize: #:  res: -2 NULL POINTER!"}));
}

TEST_F(OperationsTest, FaceArraysThatExistStayAsTheyAre) {
    // No room for the frame's rectangles: the focus record's pair is made all the same.
    g_newCallsLeft = 0;
    EXPECT_FALSE(node_->IniEngine());
    g_newCallsLeft = -1;
    EXPECT_EQ(node_->m_frameParams.pFaceRects, nullptr);
    EXPECT_NE(node_->m_focusParam.pFaceRects, nullptr);
    EXPECT_NE(node_->m_focusParam.pFaceOrients, nullptr);

    node_ = std::make_unique<Node>();
    node_->IniEngine();
    const TSL_RECT* rects = node_->m_frameParams.pFaceRects;
    const std::int32_t* orients = node_->m_focusParam.pFaceOrients;
    node_->m_frameParams.i32FaceNum = 3;
    node_->IniEngine();
    EXPECT_EQ(node_->m_frameParams.pFaceRects, rects);
    EXPECT_EQ(node_->m_focusParam.pFaceOrients, orients);
    EXPECT_EQ(node_->m_frameParams.i32FaceNum, 3);

    // Half a pair is none, and is left as it is.
    TSL_RECT* const whole = std::exchange(node_->m_frameParams.pFaceRects, nullptr);
    EXPECT_FALSE(node_->IniEngine());
    EXPECT_EQ(node_->m_frameParams.pFaceRects, nullptr);
    node_->m_frameParams.pFaceRects = whole;
}

TEST_F(OperationsTest, TheHandleIsClearedOnceItsNodeIsGone) {
    ChiNodedestroyInfo info = {.size = sizeof(info), .hNodeSession = node_.release()};
    ChiNodeCallbacks callbacks = {.size = sizeof(callbacks)};
    ChiNodeEntry(&callbacks);
    g_slot = &info.hNodeSession;
    EXPECT_EQ(callbacks.destroy(&info), CDKResultSuccess);
    g_slot = nullptr;
    EXPECT_TRUE(g_freedWhileNamed);
    EXPECT_EQ(info.hNodeSession, nullptr);
}

TEST_F(OperationsTest, FacesNeedBothArrays) {
    InputMetadataBokeh metadata = {};
    metadata.cameraMetadata[0].faceCount = 1;
    metadata.cameraMetadata[0].faces[0] = {1, 1, 8, 8};
    TSL_RECT rects[kFaceCapacity] = {};
    std::int32_t orients[kFaceCapacity] = {};
    frame_params_t params = {};
    params.pInputMetadata = &metadata;
    params.pFaceRects = rects;
    node_->UpdateFocusROIBasedFace(0, params);
    EXPECT_EQ(params.i32FaceNum, 0);
    params.pFaceOrients = orients;
    node_->UpdateFocusROIBasedFace(0, params);
    EXPECT_EQ(params.i32FaceNum, 1);

    // Nor does the engine get faces of half a pair.
    node_->IniEngine();
    node_->m_frameParams.pInputMetadata = &metadata;
    node_->m_frameParams.i32FaceNum = 1;
    node_->UpdataCTBParam();
    EXPECT_EQ(node_->m_focusParam.i32FaceNum, 1);
    TSL_RECT* const own = std::exchange(node_->m_frameParams.pFaceRects, nullptr);
    node_->UpdataCTBParam();
    EXPECT_EQ(node_->m_focusParam.i32FaceNum, 0);
    node_->m_frameParams.pFaceRects = own;
    std::int32_t* const ownOrients = std::exchange(node_->m_frameParams.pFaceOrients, nullptr);
    node_->UpdataCTBParam();
    EXPECT_EQ(node_->m_focusParam.i32FaceNum, 0);
    node_->m_frameParams.pFaceOrients = ownOrients;
}

TEST_F(OperationsTest, AFaceInTheCornerTakesTheFocusAndAnUnmappedOneDoesNot) {
    InputMetadataBokeh metadata = {};
    CameraMetadata& camera = metadata.cameraMetadata[0];
    TSL_RECT rects[kFaceCapacity] = {};
    std::int32_t orients[kFaceCapacity] = {};
    frame_params_t params = {};
    params.pFaceRects = rects;
    params.pFaceOrients = orients;
    params.pInputMetadata = &metadata;
    camera.afMode = kAfModeContinuousPicture;
    const struct {
        std::uint32_t sensorWidth;
        std::int32_t width;
        std::int32_t height;
        TSL_POINT focus;
    } cases[] = {
        {8000, 4000, 3000, {0, 0}},
        {0, 4000, 3000, {2000, 1500}},
        // Images without area.
        {8000, 0, 3000, {0, 1500}},
        {8000, 4000, 0, {2000, 0}},
    };
    for (const auto& [sensorWidth, width, height, focus] : cases) {
        params.stMainImage = {.i32Width = width, .i32Height = height};
        camera.scalerCropRegion = {0, 0, sensorWidth, 6000};
        camera.faceCount = 1;
        camera.faces[0] = {0, 0, 2, 2};
        node_->UpdateFocusROI(0, params);
        EXPECT_EQ(params.ptFocus.x, width / 2);
        node_->UpdateFocusROIBasedFace(0, params);
        EXPECT_EQ(rects[0].right, 0);
        EXPECT_EQ(params.ptFocus.x, focus.x);
        EXPECT_EQ(params.ptFocus.y, focus.y);
    }
}

// An NV12 image whose bytes count up from `first`.
struct Picture {
    Picture(std::int32_t width, std::int32_t height, std::int32_t pitch, std::uint8_t first)
        : bytes(static_cast<std::size_t>(pitch * (height + height / 2))) {
        std::iota(bytes.begin(), bytes.end(), first);
        image = {.u32Format = PLIM_PAF_NV12, .i32Width = width, .i32Height = height};
        image.pu8Plane[0] = bytes.data();
        image.pu8Plane[1] = bytes.data() + pitch * height;
        image.i32Pitch[0] = image.i32Pitch[1] = pitch;
    }
    std::uint8_t At(int plane, int row, int byte) const {
        return image.pu8Plane[plane][row * image.i32Pitch[plane] + byte];
    }
    std::vector<std::uint8_t> bytes;
    PLIM_OFFSCREEN image;
};

TEST_F(OperationsTest, MergesAtAnyScaleAndAtNoneBelowOne) {
    Picture source(12, 8, 13, 5);
    Picture target(14, 10, 15, 100);
    const std::vector<std::uint8_t> before = target.bytes;
    node_->MergeImage(&target.image, &source.image, 0);
    node_->MergeImage(&target.image, &source.image, -1);
    node_->MergeImage(nullptr, &source.image, 1);
    node_->MergeImage(&target.image, nullptr, 1);
    EXPECT_EQ(target.bytes, before);

    for (const int scale : {1, 2, 3, 100}) {
        Picture merged(14, 10, 15, 100);
        node_->MergeImage(&merged.image, &source.image, scale);
        for (int plane = 0; plane < 2; ++plane) {
            const int part = plane + 1;
            const int columns = (12 / part + scale - 1) / scale;
            const int rows = (8 / part + scale - 1) / scale;
            for (int row = 0; row < 10 / part; ++row) {
                for (int byte = 0; byte < 15; ++byte) {
                    const bool covered = row < rows && byte < columns * part;
                    ASSERT_EQ(merged.At(plane, row, byte),
                              covered ? source.At(plane, row * scale,
                                                  byte / part * scale * part + byte % part)
                                      : target.At(plane, row, byte))
                        << "scale " << scale << ", plane " << plane << ", row " << row << ", byte "
                        << byte;
                }
            }
        }
    }
}

TEST_F(OperationsTest, DescriptorsFollowTheirListAndStayWithoutOne) {
    PLIM_OFFSCREEN image = {.u32Format = 7, .i32Width = 8};
    node_->PrepareImage(nullptr, image);
    EXPECT_EQ(image.i32Width, 8);
    EXPECT_EQ(image.u32Format, 7u);

    // By the names of the list's fields, however a device's headers arrange them.
    std::uint8_t pixels[2] = {};
    ChiImageList list = {};
    list.format.width = 30;
    list.format.height = 20;
    list.format.format = kChiFormatNV12;
    list.format.plane[0].stride = 32;
    list.format.plane[1].stride = 99;
    list.format.numberOfPlanes = 2;
    list.planeAddress[0] = pixels;
    list.planeAddress[1] = pixels + 1;
    list.planeAddress[2] = pixels;
    node_->PrepareImage(&list, image);
    EXPECT_EQ(image.u32Format, PLIM_PAF_NV12);
    EXPECT_EQ(image.i32Width, 30);
    EXPECT_EQ(image.i32Height, 20);
    EXPECT_EQ(image.i32Pitch[0], 32);
    EXPECT_EQ(image.i32Pitch[1], 32);
    EXPECT_EQ(image.pu8Plane[0], pixels);
    EXPECT_EQ(image.pu8Plane[1], pixels + 1);
    EXPECT_EQ(image.pu8Plane[2], nullptr);
}

TEST_F(OperationsTest, CropsOfNegativeExtentFollowTheArithmetic) {
    const auto fitted = [](CropRegion region, const CropRegion& other) {
        region.fit(other);
        return region.toString();
    };
    // A part of 1000 in a full extent of -1000: as much as the whole is cut off at each end.
    EXPECT_EQ(fitted({0, 0, 4000, 3000}, {-1000, -1000, 1000, 1000}),
              "[3500,3000 -3000x-3000 (1)]");
    // Aspects of another sign cut more than the whole.
    EXPECT_EQ(fitted({0, 0, 4000, 3000}, {0, 0, -100, 100}), "[3500,0 -3000x3000 (-1)]");
    EXPECT_EQ(fitted({0, 0, -4000, 3000}, {0, 0, 100, 100}), "[0,3499 -4000x-3998 (1.0005)]");
}

TEST_F(OperationsTest, NoMemoryForADebugLineCostsTheLineAlone) {
    platform().properties[device::kLogMaskProperty] = "6";
    node_ = nullptr; // its end clears the mask
    node_ = std::make_unique<Node>();
    CameraMetadata camera = {};
    camera.scalerCropRegion = camera.activeArraySize = {0, 0, 4000, 3000};
    std::size_t printed = 0;
    for (int left = 40; left >= 0; --left) {
        platform().log.clear();
        g_newCallsLeft = left;
        const CropSize size = getCropRegions(&camera, 4000, 3000);
        const bool oneFailed = g_newCallsLeft < 0;
        g_newCallsLeft = -1;
        ASSERT_EQ(size.width, 4000);
        ASSERT_EQ(size.height, 3000);
        ASSERT_TRUE(oneFailed || platform().log.size() == 1);
        printed += platform().log.size();
    }
    EXPECT_GT(printed, 0u);
    EXPECT_LT(printed, 41u);
}

} // namespace

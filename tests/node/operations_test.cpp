// Documented answers of single operations that no caller behind the callback table provokes.

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <numeric>

#include "bokehbase/crop_region.h"
#include "bokehbase/log.h"
#include "node/capture_bokeh.h"
#include "platform/device_names.h"
#include "tests/support/platform.h"

extern "C" void ChiNodeEntry(ChiNodeCallbacks* callbacks) noexcept;

namespace {
int g_newCallsLeft = -1; // until one fails; negative: none does
}

// Not inlined: g++ would take the pair of malloc and delete for a mistake.
[[gnu::noinline]] void* operator new(std::size_t size) {
    void* memory = g_newCallsLeft == 0 ? nullptr : std::malloc(size);
    g_newCallsLeft -= g_newCallsLeft >= 0 ? 1 : 0;
    return memory != nullptr ? memory : throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace {

using support::platform;
using Texts = std::vector<std::string>;

struct Node : ChiNodeCaptureBokeh {
    using ChiNodeCaptureBokeh::m_frameParams;
    using ChiNodeCaptureBokeh::m_resultDataCTB;
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

    EXPECT_EQ(Errors(), (Texts{"BaseInitialize: #: errCode = 5: NULL POINTER!",
                               "FillVendorTagIds: #: errCode = 5: NULL POINTER!",
                               "GetBokehParams: #: errCode = 5: NULL POINTER!",
                               "UpdateActiveMap: #: NULL POINTER!",
                               "NodeProcRequest: #: errCode = 5: NULL POINTER!"}));
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

TEST_F(OperationsTest, AnAbsentListLeavesItsDescriptor) {
    PLIM_OFFSCREEN image = {.u32Format = 7, .i32Width = 8};
    node_->PrepareImage(nullptr, image);
    EXPECT_EQ(image.i32Width, 8);
    EXPECT_EQ(image.u32Format, 7u);
}

TEST_F(OperationsTest, CropAtTheToleranceStaysAsItIs) {
    // Aspects 0.001 and 0.002: their difference is the tolerance, to the last bit.
    CameraMetadata camera = {};
    camera.activeArraySize = {0, 0, 1, 1000};
    const CropSize size = getCropRegions(&camera, 2, 1000);
    EXPECT_EQ(size.width, 1);
    EXPECT_EQ(size.height, 1000);
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

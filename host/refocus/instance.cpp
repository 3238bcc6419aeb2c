#include "host/refocus/instance.h"

#include <cstring>

#include "host/refocus/image.h"
#include "host/refocus/image_memory.h"
#include "host/refocus/renderer.h"

namespace refocus {
namespace {

Error CheckFocus(const TSL_DCR_FOCUSPARAM* focus) {
    if (focus == nullptr) {
        return Error::kNullArgument;
    }
    const bool faces = focus->i32FaceNum >= 0 && focus->i32FaceNum <= kFaceCapacity &&
                       (focus->i32FaceNum == 0 || focus->pFaceRects != nullptr);
    return faces ? Error::kNone : Error::kFaceList;
}

Error FirstOf(std::initializer_list<Error> checks) {
    for (const Error check : checks) {
        if (check != Error::kNone) {
            return check;
        }
    }
    return Error::kNone;
}

std::int32_t SizeOf(const DepthMap& depth) {
    return static_cast<std::int32_t>(depth.bytes.total());
}

} // namespace

Instance::~Instance() {
    depth_.reset();
    FreeImageMemory();
}

void Instance::Reset() {
    depth_.reset();
}

Error Instance::SetImageInfo(const TSL_DCR_CAMERAIMAGEINFO* info) {
    if (info == nullptr) {
        return Error::kNullArgument;
    }
    const Error error = CheckImageInfo(*info);
    if (error == Error::kNone) {
        imageInfo_ = *info;
    }
    return error;
}

Error Instance::SetCalibration(const TSL_DCR_CALDATA* data) {
    if (data == nullptr || data->pCaliData == nullptr) {
        return Error::kNullArgument;
    }
    if (data->i32CaliDataSize != static_cast<std::int32_t>(kCalibrationBytes)) {
        return Error::kCalibrationSize;
    }
    Calibration parsed;
    const Error error = ParseCalibration({data->pCaliData, kCalibrationBytes}, parsed);
    if (error == Error::kNone) {
        calibration_ = parsed;
        depth_.reset();
    }
    return error;
}

Error Instance::RequireCalibration() const {
    return calibration_ ? Error::kNone : Error::kNoCalibration;
}

Error Instance::CalcDisparity(const PLIM_OFFSCREEN* main, const PLIM_OFFSCREEN* aux,
                              const TSL_DCR_FOCUSPARAM* focus) {
    depth_.reset();
    Error error =
        FirstOf({CheckImage(main), CheckImage(aux), CheckFocus(focus), RequireCalibration()});
    if (error != Error::kNone) {
        return error;
    }
    const ImageGeometry geometry = GeometryOf(imageInfo_, *calibration_);
    error = CheckCrops(geometry, *calibration_);
    if (error != Error::kNone) {
        return error;
    }
    DepthMap depth;
    error = EstimateDepth(ViewOf(*main), ViewOf(*aux).luma, *calibration_, geometry,
                          main->i32Pitch[0], depth);
    if (error == Error::kNone) {
        depth_ = depth;
    }
    return error;
}

Error Instance::DisparitySize(std::int32_t* size) const {
    if (size == nullptr) {
        return Error::kNullArgument;
    }
    if (!depth_) {
        return Error::kNoDisparity;
    }
    *size = SizeOf(*depth_);
    return Error::kNone;
}

Error Instance::Disparity(void* data, std::int32_t* size) const {
    if (data == nullptr || size == nullptr) {
        return Error::kNullArgument;
    }
    if (!depth_) {
        return Error::kNoDisparity;
    }
    if (*size < SizeOf(*depth_)) {
        return Error::kDisparitySize;
    }
    std::memcpy(data, depth_->bytes.data, depth_->bytes.total());
    *size = SizeOf(*depth_);
    return Error::kNone;
}

Error Instance::Process(const PLIM_OFFSCREEN* main, const void* disparity, std::int32_t size,
                        const TSL_DCR_BLURPARAM* blur, const TSL_DCR_FOCUSPARAM* focus,
                        const PLIM_OFFSCREEN* output) const {
    if (disparity == nullptr || blur == nullptr) {
        return Error::kNullArgument;
    }
    const Error error = FirstOf({CheckImage(main), CheckImage(output), CheckFocus(focus)});
    if (error != Error::kNone) {
        return error;
    }
    if (!depth_) {
        return Error::kNoDisparity;
    }
    if (size != SizeOf(*depth_)) {
        return Error::kDisparitySize;
    }
    if (blur->i32BlurIntensity < 0 || blur->i32BlurIntensity > 100) {
        return Error::kBlurIntensity;
    }
    const Nv12View input = ViewOf(*main);
    Nv12View target = ViewOf(*output);
    if (input.luma.size() != depth_->size || target.luma.size() != depth_->size) {
        return Error::kImageMismatch;
    }
    // Only read; cv::Mat has no view of constant bytes.
    const cv::Mat bytes(depth_->bytes.size(), CV_8UC1, const_cast<void*>(disparity));
    const cv::Mat map = bytes.colRange(0, depth_->size.width);
    CopyImage(*main, *output);
    RenderBokeh(input, map, depth_->scale, FocusRangeOf(map, *focus), blur->i32BlurIntensity,
                target);
    FreeUnusedImageMemory();
    return Error::kNone;
}

} // namespace refocus

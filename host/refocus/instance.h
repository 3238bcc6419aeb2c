#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "engine/refocus_engine.h"
#include "host/refocus/calibration.h"
#include "host/refocus/depth_estimator.h"
#include "host/refocus/error.h"

namespace refocus {

// The object behind one engine handle: calibration, camera image info, and the depth of the last
// picture. Keeps no pointer of its caller's after a call. Used by one thread at a time.
//
// Pointers may be null and records may contain anything: every call checks its arguments first, and
// a call that fails writes no output and changes no state, except that CalcDisparity first discards
// the disparity of the previous picture.
class Instance {
public:
    Instance() = default;
    ~Instance();
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;

    // Discards the depth of the last picture; calibration and image info stay.
    void Reset();

    // Takes effect with the next CalcDisparity.
    Error SetImageInfo(const TSL_DCR_CAMERAIMAGEINFO* info);
    Error SetCalibration(const TSL_DCR_CALDATA* data);

    // kNone, or kNoCalibration before SetCalibration.
    Error RequireCalibration() const;
    // Only after SetCalibration.
    const Calibration& calibration() const { return *calibration_; }

    Error CalcDisparity(const PLIM_OFFSCREEN* main, const PLIM_OFFSCREEN* aux,
                        const TSL_DCR_FOCUSPARAM* focus);

    // Bytes of the disparity data: the main image's pitch times its height.
    Error DisparitySize(std::int32_t* size) const;
    // `size` holds the bytes of room on entry and the bytes written afterwards.
    Error Disparity(void* data, std::int32_t* size) const;

    // `disparity` holds `size` bytes in the layout of Disparity, whose values the caller may have
    // edited. `output` may be the main image.
    Error Process(const PLIM_OFFSCREEN* main, const void* disparity, std::int32_t size,
                  const TSL_DCR_BLURPARAM* blur, const TSL_DCR_FOCUSPARAM* focus,
                  const PLIM_OFFSCREEN* output) const;

private:
    std::optional<Calibration> calibration_;
    TSL_DCR_CAMERAIMAGEINFO imageInfo_{};
    std::optional<DepthMap> depth_;
};

} // namespace refocus

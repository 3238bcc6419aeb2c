#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "engine/refocus_engine.h"
#include "host/refocus/calibration.h"
#include "host/refocus/depth_estimator.h"
#include "host/refocus/error.h"

namespace refocus {

// What stands behind one engine handle: calibration, camera image info, and the depth of the last
// picture. Keeps no pointer of its caller's beyond a call. One thread at a time.
//
// Pointers may be null and records may hold anything: every call checks before it acts, and a call
// that fails writes no output. The one exception to "changes nothing" is CalcDisparity, after whose
// failure there is no disparity.
class Instance {
public:
    // Forgets the picture; calibration and image info stay.
    void Reset();

    // Takes effect with the next CalcDisparity.
    Error SetImageInfo(const TSL_DCR_CAMERAIMAGEINFO* info);
    Error SetCalibration(const TSL_DCR_CALDATA* data);

    // kNoCalibration before SetCalibration; else the calibration holds the sizes.
    Error RequireCalibration() const;
    const Calibration& calibration() const { return *calibration_; }

    Error CalcDisparity(const PLIM_OFFSCREEN* main, const PLIM_OFFSCREEN* aux,
                        const TSL_DCR_FOCUSPARAM* focus);

    // Bytes of the disparity data: the main image's pitch times its height.
    Error DisparitySize(std::int32_t* size) const;
    // `size`: room in, bytes written out.
    Error Disparity(void* data, std::int32_t* size) const;

    // `disparity` holds `size` bytes as Disparity gave them, unchanged or edited by the caller.
    Error Process(const PLIM_OFFSCREEN* main, const void* disparity, std::int32_t size,
                  const TSL_DCR_BLURPARAM* blur, const TSL_DCR_FOCUSPARAM* focus,
                  const PLIM_OFFSCREEN* output) const;

private:
    std::optional<Calibration> calibration_;
    TSL_DCR_CAMERAIMAGEINFO imageInfo_{};
    std::optional<DepthMap> depth_;
};

} // namespace refocus

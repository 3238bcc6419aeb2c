#include "tools/run/capture_request.h"

#include <algorithm>
#include <cstdlib>
#include <string>

#include "host/picture/errors.h"
#include "host/properties/property_control.h"
#include "platform/device_names.h"

namespace {

// Half the width of the auto-focus region around a point, as a share of the picture's width.
constexpr int kFocusRegionShare = 40;

// The region whose middle the node takes as exactly this point. Column and row 0 mean "no focus" to
// the node, so the next ones stand for them.
ChiWeightedRegion RegionAround(Point point, Size image) {
    if (point.x < 0 || point.y < 0 || point.x >= image.width || point.y >= image.height) {
        throw UseError("--focus: expected a point of the main picture, " +
                       std::to_string(image.width) + "x" + std::to_string(image.height) +
                       ", found " + std::to_string(point.x) + "," + std::to_string(point.y));
    }
    const int x = std::max(point.x, 1);
    const int y = std::max(point.y, 1);
    const int reach = std::min(
        {image.width / kFocusRegionShare, x, y, image.width - 1 - x, image.height - 1 - y});
    return {x - reach, y - reach, x + reach, y + reach};
}

} // namespace

host::UseCase UseCaseOf(const RenderOptions& options, Size main, Size aux) {
    return {main, aux, main, options.rotation};
}

host::Request RequestOf(const RenderOptions& options, const host::UseCase& useCase, Size main) {
    host::Request request = host::PlainRequest(useCase, 1);
    CameraMetadata& camera = request.metadata.cameraMetadata[0];
    if (options.focus) {
        camera.focusRect = RegionAround(*options.focus, main);
    }
    if (options.afRegion) {
        camera.focusRect = *options.afRegion;
    }
    // A tap focuses once on its place; without one the camera follows what it finds.
    constexpr std::int32_t kAfModeAuto = 1;
    const bool placed = options.focus || options.afRegion;
    camera.afMode = options.afMode.value_or(placed ? kAfModeAuto : kAfModeContinuousPicture);
    std::ranges::copy(options.faces, camera.faces);
    camera.faceCount = static_cast<std::uint8_t>(options.faces.size());
    request.metadata.blurLevel = options.blur;
    request.selectedFace = options.selectedFace;
    request.faceRotation = options.faceRotation;
    return request;
}

void SetProperties(const RenderOptions& options) {
    const auto set = [](const std::string& name, const std::string& value) {
        if (property_set(name.c_str(), value.c_str()) != 0) {
            throw UseError("--set: expected a property that can be set, found \"" + name + "=" +
                           value + "\"");
        }
    };
    if (options.dump) {
        set(device::kDumpProperty, "1");
    }
    if (options.debugView) {
        set(device::kDebugViewProperty, std::to_string(*options.debugView));
    }
    if (options.logMask) {
        set(device::kLogMaskProperty, std::to_string(*options.logMask));
    }
    for (const auto& [name, value] : options.properties) { // last: said more explicitly
        set(name, value);
    }
}

int DebugView() {
    char value[kPropertyValueMax] = {};
    property_get(device::kDebugViewProperty, value, "0");
    const int view = std::atoi(value);
    return view >= 1 && view <= 3 ? view : 0;
}

bool IsCopy(const host::Published& published, int debugView) {
    return debugView == 0 &&
           (published.result.depthEffectInfo != 0 || published.depthPictureSize <= 0);
}

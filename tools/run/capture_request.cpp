#include "tools/run/capture_request.h"

#include <algorithm>
#include <string>

#include <fmt/core.h>

#include "host/picture/errors.h"
#include "tools/run/crop_search.h"

namespace {

// An auto-focus region whose middle, as the node computes it, is exactly this point.
ChiWeightedRegion RegionAround(Point point, Size image) {
    // The region reaches a fortieth of the width to each side, or less near an edge: it must stay
    // in the image for its middle to be the point.
    constexpr int kFocusRegionShare = 40;
    const auto [x, y] = point;
    const int reach = std::min(
        {image.width / kFocusRegionShare, x, y, image.width - 1 - x, image.height - 1 - y});
    return {x - reach, y - reach, x + reach, y + reach};
}

Json ImageJson(const std::filesystem::path& file, const host::Image& image) {
    return {{"file", file.string()},
            {"width", image.width()},
            {"height", image.height()},
            {"pitch", image.pitch()}};
}

} // namespace

host::UseCase UseCaseOf(const Sensors& sensors, Size image, std::uint32_t rotation) {
    return {sensors.main, sensors.aux, image, rotation};
}

void SetAppliedCrop(CameraMetadata& camera, Size sensor, Size image, Size part, const char* name,
                    std::vector<std::string>& notes) {
    const auto applied = FindAppliedCrop(sensor, image, part);
    // Only the front end's crop is searched for: the node ignores the sensor's and computes the
    // residual one from the image.
    if (applied) {
        camera.ifeAppliedCrop = applied->crop;
    }
    if (!applied || applied->part != part) {
        notes.push_back(fmt::format(
            "the {} crop, {}, is none that a sensor of {} and an image of {} can have; {} is taken",
            name, InWords(part), InWords(sensor), InWords(image),
            applied ? InWords(applied->part) : "the whole sensor"));
    }
}

void CheckFocus(Point focus, Size image) {
    if (focus.x < 0 || focus.y < 0 || focus.x >= image.width || focus.y >= image.height) {
        Refuse("--focus", "a point of the main picture, " + InWords(image),
               fmt::format("{},{}", focus.x, focus.y));
    }
}

void CheckFaces(const std::vector<ChiRect>& faces, Size image) {
    for (const ChiRect& face : faces) {
        // Offset and width together may leave the 32-bit range.
        const auto right = face.left + static_cast<std::int64_t>(face.width);
        const auto bottom = face.top + static_cast<std::int64_t>(face.height);
        if (face.left < 0 || face.top < 0 || right > image.width || bottom > image.height) {
            Refuse("--face", "a rectangle in the main picture, " + InWords(image),
                   fmt::format("{},{},{},{}", face.left, face.top, face.width, face.height));
        }
    }
}

void CheckPitch(int pitch, int width, const std::filesystem::path& file) {
    if (pitch != 0 && pitch < width) {
        Refuse("--pitch",
               fmt::format("at least {}, the bytes of a row of {}", width, file.string()),
               std::to_string(pitch));
    }
}

host::Request RequestOf(const RenderOptions& options, const Sensors& sensors,
                        const host::UseCase& useCase, Size main, Size aux,
                        std::vector<std::string>& notes) {
    host::Request request = host::PlainRequest(useCase, 1);
    CameraMetadata& camera = request.metadata.cameraMetadata[0];
    // The node maps places from the scaler's crop region to the image. The options give them in the
    // image's pixels, so the region is as large as the image.
    const host::Request ofImage = host::PlainRequest(UseCaseOf({main, aux}, main, 0), 1);
    camera.scalerCropRegion = ofImage.metadata.cameraMetadata[0].scalerCropRegion;
    camera.focusRect = ofImage.metadata.cameraMetadata[0].focusRect;
    if (options.focus) {
        CheckFocus(*options.focus, main);
        const Point focus{std::max(options.focus->x, 1), std::max(options.focus->y, 1)};
        if (focus.x != options.focus->x || focus.y != options.focus->y) {
            notes.push_back(fmt::format("--focus: the node takes {},{} as no focus; {},{} is used",
                                        options.focus->x, options.focus->y, focus.x, focus.y));
        }
        camera.focusRect = RegionAround(focus, main);
    }
    if (options.afRegion) {
        const ChiWeightedRegion& region = camera.focusRect = *options.afRegion;
        if (region.xMin < 0 || region.yMin < 0 || region.xMax >= main.width ||
            region.yMax >= main.height) {
            Refuse("--af-region", "edges in the main picture, " + InWords(main),
                   fmt::format("{},{},{},{}", region.xMin, region.yMin, region.xMax, region.yMax));
        }
    }
    CheckFaces(options.faces, main);
    if (options.selectedFace && *options.selectedFace >= options.faces.size()) {
        Refuse("--select-face",
               fmt::format("the number, from 0, of one of {} --face", options.faces.size()),
               std::to_string(*options.selectedFace));
    }
    // A camera app sets mode 1 (auto) for a tap on the screen; otherwise focus is continuous.
    constexpr std::int32_t kAfModeAuto = 1;
    const bool placed = options.focus || options.afRegion;
    camera.afMode = options.afMode.value_or(placed ? kAfModeAuto : kAfModeContinuousPicture);
    std::ranges::copy(options.faces, camera.faces);
    camera.faceCount = static_cast<std::uint8_t>(options.faces.size());
    if (options.mainCrop) {
        SetAppliedCrop(camera, sensors.main, main, *options.mainCrop, "main", notes);
    }
    if (options.auxCrop) {
        SetAppliedCrop(request.metadata.cameraMetadata[1], sensors.aux, aux, *options.auxCrop,
                       "aux", notes);
    }
    request.metadata.blurLevel = options.blur.value_or(100);
    request.selectedFace = options.selectedFace;
    request.faceRotation = options.faceRotation;
    if (options.faceRotation && options.faces.empty()) {
        notes.emplace_back(kNoFacesToTurn);
    }
    return request;
}

Json ParametersJson(const RenderOptions& options, const host::Request& request,
                    const Outcome& outcome) {
    const CameraMetadata& camera = request.metadata.cameraMetadata[0];
    const ChiWeightedRegion& region = camera.focusRect;
    Json faces = Json::array();
    for (const ChiRect& face : options.faces) {
        faces.push_back({face.left, face.top, face.width, face.height});
    }
    Json properties = Json::object();
    for (const auto& [name, value] : options.properties) {
        properties[name] = value;
    }
    // The libraries that were taken by default are named as well, so that the JSON tells how to
    // repeat the run.
    const Libraries libraries = FindLibraries(options);
    return {{"main", ImageJson(options.main, *request.inputs[0])},
            {"aux", ImageJson(options.aux, *request.inputs[1])},
            {"afRegion", {region.xMin, region.yMin, region.xMax, region.yMax}},
            {"afMode", camera.afMode},
            {"faces", faces},
            {"faceRotation", OrNull(options.faceRotation)},
            {"selectedFace", OrNull(options.selectedFace)},
            {"blur", request.metadata.blurLevel},
            {"rotation", options.rotation.value_or(0)},
            {"mainCrop", OrNull(options.mainCrop)},
            {"auxCrop", OrNull(options.auxCrop)},
            {"mainSensor", OrNull(options.mainSensor)},
            {"auxSensor", OrNull(options.auxSensor)},
            {"debugView", outcome.debugView},
            {"dump", options.dump},
            {"properties", properties},
            {"failures", options.failures},
            {"calibration", outcome.calibration},
            {"node", libraries.node.string()},
            {"engine", libraries.engine.string()}};
}

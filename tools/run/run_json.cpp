#include "tools/run/run_json.h"

#include "tools/files/json_text.h"

namespace {

using Json = nlohmann::ordered_json;

Json ImageFacts(const std::filesystem::path& file, const host::Image& image) {
    return {{"file", file.string()},
            {"width", image.width()},
            {"height", image.height()},
            {"pitch", image.pitch()}};
}

Json Faces(const std::vector<ChiRect>& faces) {
    Json list = Json::array();
    for (const ChiRect& face : faces) {
        list.push_back({face.left, face.top, face.width, face.height});
    }
    return list;
}

template <typename Value>
Json OrNull(const std::optional<Value>& value) {
    return value ? Json(*value) : Json(nullptr);
}

} // namespace

Json TagsJson(const host::Published& published) {
    return {{"SupportedFeature", published.supportedFeature},
            {"CurrentMode", published.currentMode},
            {"ProcessedFrameNumber", published.processedFrameNumber},
            {"FrameDimension", published.frameDimension},
            {"depthpicturesize", published.depthPictureSize},
            {"OutputMetadataBokeh",
             {{"masterCameraId", published.result.masterCameraId},
              {"activeMap", published.result.activeMap},
              {"depthEffectInfo", published.result.depthEffectInfo}}},
            {"PtFocus", published.focusPoint}};
}

Json ParametersJson(const RunFacts& facts) {
    const RenderOptions& options = facts.options;
    const CameraMetadata& camera = facts.request.metadata.cameraMetadata[0];
    const ChiWeightedRegion& region = camera.focusRect;
    Json properties = Json::object();
    for (const auto& [name, value] : options.properties) {
        properties[name] = value;
    }
    return {{"main", ImageFacts(options.main, *facts.request.inputs[0])},
            {"aux", ImageFacts(options.aux, *facts.request.inputs[1])},
            {"afRegion", {region.xMin, region.yMin, region.xMax, region.yMax}},
            {"afMode", camera.afMode},
            {"faces", Faces(options.faces)},
            {"faceRotation", OrNull(options.faceRotation)},
            {"selectedFace", OrNull(options.selectedFace)},
            {"blur", options.blur},
            {"rotation", options.rotation},
            {"debugView", facts.debugView},
            {"dump", options.dump},
            {"properties", properties},
            {"calibration", facts.calibration},
            {"node", facts.node},
            {"engine", facts.engine}};
}

std::string ReportText(const RunFacts& facts, const Outcome& outcome) {
    const auto& published = outcome.result.published;
    Json report;
    report["result"] = outcome.result.code;
    report["copiedMainImage"] = outcome.copied;
    report["reasons"] = outcome.reasons;
    report["complaints"] = outcome.result.complaints;
    report["published"] = published ? TagsJson(*published) : Json(nullptr);
    report["parameters"] = ParametersJson(facts);
    return JsonText(report);
}

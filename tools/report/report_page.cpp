#include "tools/report/report_page.h"

#include <string_view>

#include "engine/refocus_engine.h"
#include "host/picture/false_colour.h"
#include "tools/files/json_text.h"
#include "tools/report/page_files.h"

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

namespace {

Json ToJson(Size size) {
    return {size.width, size.height};
}

Json ToJson(const ReportMap& map) {
    return {{"size", ToJson(map.full)}, {"uri", map.uri}, {"low", map.low}, {"high", map.high}};
}

Json ToJson(const ReportCrop& crop) {
    return {{"part", ToJson(crop.part)},
            {"sensor", crop.sensor ? ToJson(*crop.sensor) : Json(nullptr)}};
}

template <typename Value>
Json OrNull(const std::optional<Value>& value) {
    return value ? ToJson(*value) : Json(nullptr);
}

Json ToJson(const ReportOverlays& overlays) {
    Json faces = Json::array();
    for (const DumpedFace& face : overlays.faces) {
        faces.push_back({{"edges", {face.left, face.top, face.right, face.bottom}},
                         {"turn", FaceDegrees(face.orient)}});
    }
    Json focus;
    if (overlays.focus) {
        focus = {overlays.focus->x, overlays.focus->y};
    }
    Json region;
    if (const auto& af = overlays.afRegion) {
        region = {af->xMin, af->yMin, af->xMax, af->yMax};
    }
    return {{"focus", focus},
            {"afRegion", region},
            {"faces", faces},
            {"mainCrop", OrNull(overlays.mainCrop)},
            {"auxCrop", OrNull(overlays.auxCrop)}};
}

Json ToJson(const ReportFinding& finding) {
    constexpr const char* kKinds[] = {"good", "note", "wrong"};
    return {{"kind", kKinds[static_cast<int>(finding.kind)]},
            {"name", finding.name},
            {"text", finding.text}};
}

Json LogJson(const std::vector<host::LogRecord>& log) {
    constexpr std::string_view kLetters = "??VDIWEFS"; // by AndroidLogPriority
    Json lines = Json::array();
    for (const host::LogRecord& record : log) {
        const auto priority = static_cast<std::size_t>(record.priority);
        constexpr double kNanoseconds = 1e-9;
        const double seconds =
            static_cast<double>(record.time.tv_sec - log.front().time.tv_sec) +
            static_cast<double>(record.time.tv_nsec - log.front().time.tv_nsec) * kNanoseconds;
        lines.push_back(
            {{"priority", std::string(1, priority < kLetters.size() ? kLetters[priority] : '?')},
             {"tag", record.tag},
             {"seconds", seconds},
             {"text", record.text}});
    }
    return lines;
}

// The path as a link: relative, and no byte of a name taken for anything else.
std::string LinkTo(const fs::path& file, const fs::path& folder) {
    const std::string path = fs::absolute(file)
                                 .lexically_normal()
                                 .lexically_relative(fs::absolute(folder).lexically_normal())
                                 .string();
    constexpr std::string_view kPlain =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~/";
    constexpr std::string_view kHex = "0123456789ABCDEF";
    std::string link;
    for (const char character : path) {
        if (kPlain.find(character) != std::string_view::npos) {
            link += character;
        } else {
            const auto byte = static_cast<unsigned char>(character);
            link += {'%', kHex[byte >> 4], kHex[byte & 15]};
        }
    }
    return link;
}

Json DataOf(const Report& report, const fs::path& folder) {
    Json data{
        {"command", report.command},
        {"title", report.title},
        {"findings", Json::array()},
        {"pictures", Json::object()},
        {"comparisons", Json::array()},
        {"disparity", OrNull(report.disparity)},
        {"focusDisparity", report.focusDisparity ? Json(*report.focusDisparity) : Json(nullptr)},
        {"overlays", ToJson(report.overlays)},
        {"sections", Json::array()},
        {"log", LogJson(report.log)},
        {"links", Json::array()},
        {"colours", FalseColourSteps()}};
    for (const ReportFinding& finding : report.findings) {
        data["findings"].push_back(ToJson(finding));
    }
    for (const ReportPicture& picture : report.pictures) {
        data["pictures"][picture.name] = {{"size", ToJson(picture.full)}, {"uri", picture.uri}};
    }
    for (const ReportComparison& comparison : report.comparisons) {
        data["comparisons"].push_back({{"before", comparison.before},
                                       {"after", comparison.after},
                                       {"difference", ToJson(comparison.difference)}});
    }
    for (const ReportSection& section : report.sections) {
        data["sections"].push_back({{"title", section.title}, {"values", section.values}});
    }
    for (const ReportLink& link : report.links) {
        data["links"].push_back({{"name", link.name},
                                 {"file", link.file.filename().string()},
                                 {"target", LinkTo(link.file, folder)}});
    }
    return data;
}

// Inside a script element only "<" could end it, and in JSON it stands in strings alone.
std::string ScriptText(const Json& data) {
    std::string text;
    for (const char character : JsonText(data, -1)) {
        if (character == '<') {
            text += "\\u003c";
        } else {
            text += character;
        }
    }
    return text;
}

// Each mark of the page, filled once; what is put in is not searched again.
std::string Filled(std::string_view page,
                   const std::vector<std::pair<std::string_view, std::string_view>>& parts) {
    std::string filled;
    for (const auto& [mark, text] : parts) { // in the page's order
        const auto at = page.find(mark);
        filled += page.substr(0, at);
        filled += text;
        page.remove_prefix(at + mark.size());
    }
    return filled += page;
}

} // namespace

std::string PageOf(const Report& report, const fs::path& folder) {
    const std::string data = ScriptText(DataOf(report, folder));
    return Filled(kPageHtml, {{"{page.css}", kPageCss}, {"{data}", data}, {"{page.js}", kPageJs}});
}

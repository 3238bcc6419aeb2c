#include "tools/report/report.h"

#include <algorithm>
#include <cstdint>
#include <span>
#include <string_view>

#include <fmt/format.h>

#include "engine/refocus_engine.h"
#include "host/picture/errors.h"
#include "host/picture/false_colour.h"
#include "host/picture/image_file.h"
#include "host/picture/nv12.h"
#include "tools/compare/difference.h"
#include "tools/files/json_text.h"
#include "tools/files/progress.h"
#include "tools/report/page_files.h"

namespace fs = std::filesystem;
namespace {

constexpr int kLongestSide = 1600; // of a picture in a page
constexpr int kJpegQuality = 92;

std::string Base64(std::span<const std::uint8_t> bytes) {
    constexpr std::string_view kDigits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const auto byte = [&](std::size_t at) -> std::uint32_t {
            return at < bytes.size() ? bytes[at] : 0;
        };
        const std::uint32_t group = byte(i) << 16 | byte(i + 1) << 8 | byte(i + 2);
        for (std::size_t digit = 0; digit < 4; ++digit) {
            const bool padding = i + digit > bytes.size();
            text += padding ? '=' : kDigits[group >> (18 - 6 * digit) & 63];
        }
    }
    return text;
}

Size Reduced(Size size) {
    const int longest = std::max(size.width, size.height);
    if (longest <= kLongestSide) {
        return size;
    }
    const auto side = [longest](int pixels) {
        const std::int64_t scaled = std::int64_t{pixels} * kLongestSide / longest;
        return std::max(static_cast<int>(scaled) / 2 * 2, 2);
    };
    return {side(size.width), side(size.height)};
}

// Reduced by leaving out pixels, so that each value that remains is a true one.
host::Image Sampled(const host::Image& grey, int width) {
    const Size size = Reduced({width, grey.height()});
    host::Image sampled(host::Image::Format::Y8, size.width, size.height, size.width);
    // The middle one of the pixels that a reduced pixel stands for.
    const auto source = [](int i, int full, int reduced) {
        return static_cast<int>((std::int64_t{2} * i + 1) * full / (std::int64_t{2} * reduced));
    };
    std::uint8_t* to = sampled.bytes().data();
    for (int y = 0; y < size.height; ++y) {
        const std::uint8_t* from =
            grey.plane(0) +
            static_cast<std::ptrdiff_t>(source(y, grey.height(), size.height)) * grey.pitch();
        for (int x = 0; x < size.width; ++x) {
            *to++ = from[source(x, width, size.width)];
        }
    }
    return sampled;
}

// A picture of numbers. `full`: its size before it was reduced.
Json MapJson(Size full, const host::Image& grey, int low, int high) {
    return {{"size", {full.width, full.height}},
            {"uri", "data:image/png;base64," + Base64(EncodePng(grey))},
            {"low", low},
            {"high", high}};
}

Json CropJson(int width, int height) {
    return {{"part", {width, height}}, {"sensor", nullptr}};
}

// A relative link. All bytes of a name are escaped that could mean anything but themselves.
std::string LinkTo(const fs::path& file, const fs::path& folder) {
    constexpr std::string_view kPlain =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~/";
    std::string link;
    for (const char character : fs::absolute(file)
                                    .lexically_normal()
                                    .lexically_relative(fs::absolute(folder).lexically_normal())
                                    .string()) {
        link += kPlain.find(character) != std::string_view::npos
                    ? std::string(1, character)
                    : fmt::format("%{:02X}", static_cast<unsigned char>(character));
    }
    return link;
}

// JSON for a script element, which only a "<" could end. In JSON it occurs in strings alone.
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

} // namespace

Report::Report(const std::string& command, const std::string& title)
    : data_{{"command", command},
            {"title", title},
            {"findings", Json::array()},
            {"pictures", Json::object()},
            {"comparisons", Json::array()},
            {"disparity", nullptr},
            {"focusDisparity", nullptr},
            {"overlays",
             {{"focus", nullptr},
              {"afRegion", nullptr},
              {"faces", Json::array()},
              {"mainCrop", nullptr},
              {"auxCrop", nullptr}}},
            {"sections", Json::array()},
            {"log", Json::array()},
            {"links", Json::array()},
            {"colours", FalseColourSteps()}} {}

void Report::AddFinding(Kind kind, const std::string& name, const std::string& text) {
    constexpr const char* kKinds[] = {"good", "note", "wrong"};
    data_["findings"].push_back(
        {{"kind", kKinds[static_cast<int>(kind)]}, {"name", name}, {"text", text}});
    hasWrong_ = hasWrong_ || kind == Kind::kWrong;
}

void Report::AddPicture(const std::string& name, const host::Image& image) {
    const Size size = Reduced({image.width(), image.height()});
    const RgbImage picture = Nv12ToRgb(
        size.width == image.width() ? image : ScaleNv12(image, size.width, size.height, 0));
    data_["pictures"][name] = {
        {"size", {image.width(), image.height()}},
        {"uri", "data:image/jpeg;base64," + Base64(EncodeJpeg(picture, kJpegQuality))}};
}

void Report::AddComparison(const std::string& before, const host::Image& a,
                           const std::string& after, const host::Image& b) {
    if (a.width() == b.width() && a.height() == b.height()) {
        const host::Image map = DifferenceMap(a, b);
        data_["comparisons"].push_back(
            {{"before", before},
             {"after", after},
             {"difference",
              MapJson({a.width(), a.height()}, map, 0, *std::ranges::max_element(map.bytes()))}});
    }
}

void Report::SetFocus(Point focus) {
    data_["overlays"]["focus"] = {focus.x, focus.y};
}

void Report::SetAfRegion(const ChiWeightedRegion& region) {
    data_["overlays"]["afRegion"] = {region.xMin, region.yMin, region.xMax, region.yMax};
}

void Report::SetSensors(Size main, Size aux) {
    for (const auto& [crop, sensor] : {std::pair("mainCrop", main), std::pair("auxCrop", aux)}) {
        if (Json& shown = data_["overlays"][crop]; !shown.is_null()) {
            shown["sensor"] = {sensor.width, sensor.height};
        }
    }
}

void Report::SetParameters(const DumpParameters& parameters) {
    SetFocus({parameters.focusX, parameters.focusY});
    Json& overlays = data_["overlays"];
    overlays["mainCrop"] = CropJson(parameters.mainCropWidth, parameters.mainCropHeight);
    overlays["auxCrop"] = CropJson(parameters.auxCropWidth, parameters.auxCropHeight);
    for (const DumpedFace& face : parameters.faces) {
        overlays["faces"].push_back({{"edges", {face.left, face.top, face.right, face.bottom}},
                                     {"turn", FaceDegrees(face.orient)}});
    }
    AddSection("Parameters", ToJson(parameters));
}

void Report::SetDisparity(const host::Image& disparity, int width) {
    int low = 255;
    int high = 0;
    const auto row = [&](int y) {
        return std::span(disparity.row(0, y), static_cast<std::size_t>(width));
    };
    for (int y = 0; y < disparity.height(); ++y) {
        const auto [lowest, highest] = std::ranges::minmax(row(y));
        low = std::min(low, int{lowest});
        high = std::max(high, int{highest});
    }
    data_["disparity"] = MapJson({width, disparity.height()}, Sampled(disparity, width), low, high);
    if (const Json& focus = data_["overlays"]["focus"]; !focus.is_null()) {
        const int x = focus[0];
        const int y = focus[1];
        if (x >= 0 && x < width && y >= 0 && y < disparity.height()) {
            data_["focusDisparity"] = row(y)[static_cast<std::size_t>(x)];
        }
    }
}

void Report::AddSection(const std::string& title, const Json& values) {
    data_["sections"].push_back({{"title", title}, {"values", values}});
}

void Report::AddLog(const std::vector<host::LogRecord>& log) {
    for (const host::LogRecord& record : log) {
        const timespec& start = log.front().time;
        data_["log"].push_back(
            {{"priority", std::string(1, host::PriorityLetter(record.priority))},
             {"tag", record.tag},
             {"seconds", static_cast<double>(record.time.tv_sec - start.tv_sec) +
                             static_cast<double>(record.time.tv_nsec - start.tv_nsec) * 1e-9},
             {"text", record.text}});
    }
}

void Report::AddLink(const std::string& name, const fs::path& file) {
    links_.emplace_back(name, file);
}

std::string Report::Page(const fs::path& folder) const {
    Json data = data_;
    for (const auto& [name, file] : links_) {
        data["links"].push_back(
            {{"name", name}, {"file", file.filename().string()}, {"target", LinkTo(file, folder)}});
    }
    const std::string script = ScriptText(data);
    std::string_view rest = kPageHtml;
    std::string page;
    // The marks in the order of the page. What replaces them is not searched for marks.
    for (const auto& [mark, text] :
         {std::pair<std::string_view, std::string_view>("{page.css}", kPageCss),
          {"{data}", script},
          {"{page.js}", kPageJs}}) {
        const auto at = rest.find(mark);
        page += rest.substr(0, at);
        page += text;
        rest.remove_prefix(at + mark.size());
    }
    return page += rest;
}

ReportFile::ReportFile(const fs::path& file)
    : folder_(file.parent_path()), name_(file.filename().string()) {
    if (fs::is_directory(folder_.path() / name_)) {
        Refuse(file.string(), "a file", "a folder");
    }
}

void ReportFile::Write(const Report& report) {
    const Progress progress("writing the report");
    folder_.Write(name_, report.Page(folder_.path()));
}

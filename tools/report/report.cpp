#include "tools/report/report.h"

#include <algorithm>
#include <cstdint>
#include <future>
#include <map>
#include <set>
#include <span>
#include <string_view>

#include <opencv2/core.hpp>

#include <fmt/format.h>

#include "engine/refocus_engine.h"
#include "host/picture/errors.h"
#include "host/picture/false_colour.h"
#include "host/picture/image_file.h"
#include "host/picture/nv12.h"
#include "tools/compare/matrix.h"
#include "tools/files/console.h"
#include "tools/files/json_text.h"
#include "tools/files/progress.h"
#include "tools/report/depth_of_field.h"
#include "tools/report/page_text.h"
#include "tools/run/log_lines.h"

namespace fs = std::filesystem;
namespace {

constexpr int kPartPixels = 1 << 22;    // which every browser decodes at once
constexpr int kReducedPixels = 1 << 20; // which a browser shows in a fraction of a second

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
            // No byte of the input contributes to a digit of padding.
            const bool padding = i + digit > bytes.size();
            text += padding ? '=' : kDigits[group >> (18 - 6 * digit) & 63];
        }
    }
    return text;
}

// All samples of an image as rows of numbers: luma, and below it U on the left and V on the right.
// A grey PNG keeps each of them as it is; colours would be rounded.
host::Image NumbersOf(const host::Image& image, int width) {
    const bool chroma = image.format() == host::Image::Format::Nv12;
    const int pairs = (width + 1) / 2;
    const int below = chroma ? image.planeRows(1) : 0;
    host::Image numbers(host::Image::Format::Y8, chroma ? 2 * pairs : width, image.height() + below,
                        chroma ? 2 * pairs : width);
    cv::Mat rows(numbers.height(), numbers.width(), CV_8UC1, numbers.plane(0));
    MatrixOf(image, 0).colRange(0, width).copyTo(rows(cv::Rect(0, 0, width, image.height())));
    for (int channel = 0; chroma && channel < 2; ++channel) {
        cv::Mat part = rows(cv::Rect(channel * pairs, image.height(), pairs, below));
        cv::extractChannel(MatrixOf(image, 1), part, channel);
    }
    return numbers;
}

int RowsOfPart(int width) {
    return std::max(1, kPartPixels / width);
}

// The parts of a picture as PNG files in Base64, in script elements of their names: a browser keeps
// the text of a type that it does not know and shows nothing of it.
std::string PartElements(const Report::Picture& picture) {
    const host::Image samples = NumbersOf(*picture.image, picture.width);
    const int rows = RowsOfPart(picture.width);
    std::vector<std::future<std::string>> encoded;
    for (int top = 0; top < samples.height(); top += rows) {
        encoded.push_back(std::async(std::launch::async, [&samples, top, rows] {
            return Base64(EncodePng(samples, top, std::min(rows, samples.height() - top)));
        }));
    }
    std::string elements;
    for (std::size_t i = 0; i < encoded.size(); ++i) {
        elements += fmt::format("<script type=\"text/plain\" id=\"{}\">{}</script>\n",
                                picture.parts[i], encoded[i].get());
    }
    return elements;
}

std::string Thumbnail(const host::Image& image) {
    constexpr int kSide = 240; // pixels; twice what a tile shows on screens of twice the density
    constexpr int kQuality = 70;
    const double scale = 1.0 * kSide / std::max({image.width(), image.height(), kSide});
    const auto side = [scale](int pixels) {
        return std::max(static_cast<int>(pixels * scale) / 2 * 2, 2);
    };
    return Base64(EncodeJpeg(
        Nv12ToRgb(ScaleNv12(image, side(image.width()), side(image.height()), 0)), kQuality));
}

Json CropJson(int width, int height) {
    return {{"part", {width, height}}, {"sensor", nullptr}};
}

} // namespace

std::optional<std::pair<host::Image, int>> Reduced(const host::Image& image) {
    int level = 0; // each has half the columns and rows of the one before
    while (std::int64_t{image.width() >> level} * (image.height() >> level) > kReducedPixels) {
        ++level;
    }
    if (level == 0 || image.format() != host::Image::Format::Nv12) {
        return std::nullopt;
    }
    return std::pair(
        ScaleNv12(image, (image.width() >> level) / 2 * 2, (image.height() >> level) / 2 * 2, 0),
        level);
}

const char* NameOf(Report::Kind kind) {
    constexpr const char* kNames[] = {"good", "note", "wrong"};
    return kNames[static_cast<int>(kind)];
}

// What stays null or empty is absent to the page's script.
Report::Report(const std::string& command, const std::string& title)
    : data_{{"command", command},
            {"title", title},
            {"verdict", nullptr},
            {"findings", Json::array()},
            {"pictures", Json::object()},
            {"comparisons", Json::array()},
            {"disparity", nullptr},
            {"focusDisparity", nullptr},
            {"depthOfField", nullptr},
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

void Report::SetVerdict(Kind kind, const std::string& text) {
    data_["verdict"] = {{"kind", NameOf(kind)}, {"text", text}};
}

void Report::AddFinding(Kind kind, const std::string& name, const std::string& text) {
    data_["findings"].push_back({{"kind", NameOf(kind)}, {"name", name}, {"text", text}});
}

Json Report::PictureJson(const host::Image& image, int width) {
    Picture picture{&image, width, {}};
    const bool chroma = image.format() == host::Image::Format::Nv12;
    const int height = image.height() + (chroma ? image.planeRows(1) : 0);
    for (int top = 0; top < height; top += RowsOfPart(width)) {
        picture.parts.push_back(fmt::format("part{}.{}", pictures_.size(), picture.parts.size()));
    }
    const Json parts = picture.parts;
    pictures_.push_back(std::move(picture));
    return {{"size", {width, image.height()}}, {"parts", parts}};
}

void Report::AddPicture(const std::string& name, const host::Image& image) {
    // The tile shows the output, or else the first picture that there is.
    if (name == "output" || tilePicture_ == nullptr) {
        tilePicture_ = &image;
    }
    data_["pictures"][name] = PictureJson(image, image.width());
}

void Report::AddSamePicture(const std::string& name, const std::string& other) {
    // The entry is copied first, since a new one may move the others in memory.
    const Json same = data_["pictures"][other];
    data_["pictures"][name] = same;
}

void Report::AddComparison(const std::string& before, const std::string& after, bool framed) {
    const Json& pictures = data_["pictures"];
    if (pictures.contains(before) && pictures.contains(after) &&
        pictures[before]["size"] == pictures[after]["size"]) {
        data_["comparisons"].push_back({{"before", before}, {"after", after}, {"framed", framed}});
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
    parameters_ = parameters;
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
    // The scale of the page goes from the lowest to the highest value in sight, padding left out.
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
    data_["disparity"] = PictureJson(disparity, width);
    data_["disparity"].update({{"low", low}, {"high", high}});
    const auto depth = parameters_ ? DepthOfFieldOf(disparity, width, *parameters_) : std::nullopt;
    if (depth) {
        data_["depthOfField"] = {
            {"low", depth->low}, {"high", depth->high}, {"radius", depth->radius}};
    }
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
        // Times count from the first message, since only their distances matter.
        const timespec& start = log.front().time;
        data_["log"].push_back(
            {{"priority", std::string(1, host::PriorityLetter(record.priority))},
             {"tag", record.tag},
             {"seconds", static_cast<double>(record.time.tv_sec - start.tv_sec) +
                             static_cast<double>(record.time.tv_nsec - start.tv_nsec) * 1e-9},
             {"text", record.text},
             {"success", IsLoudSuccess(record)}});
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
    // The page has the reduced pictures before its script and the whole ones at its end, so that it
    // shows something while it is still read.
    std::string reduced;
    std::string pictures;
    std::map<std::string, Json> reducedEntries; // by the first part of the whole picture
    for (const Picture& picture : pictures_) {
        if (const auto small = Reduced(*picture.image)) {
            const std::string part = "reduced-" + picture.parts.front();
            reduced += PartElements({&small->first, small->first.width(), {part}});
            reducedEntries[picture.parts.front()] = {
                {"size", small->first.size()}, {"parts", {part}}, {"level", small->second}};
        }
        pictures += PartElements(picture);
    }
    for (Json& entry : data["pictures"]) {
        const auto found = reducedEntries.find(entry["parts"].front());
        if (found != reducedEntries.end()) {
            entry["reduced"] = found->second;
        }
    }
    return CapturePage(data, reduced, pictures);
}

Json Report::Tile() const {
    int wrong = 0;
    std::set<std::string> problems;
    for (const Json& finding : data_["findings"]) {
        if (finding["kind"] == "wrong") {
            ++wrong;
            problems.insert(finding["name"].get<std::string>());
        }
    }
    problems.erase("");
    const Json& pictures = data_["pictures"];
    const Json& focus = data_["overlays"]["focus"];
    return {{"verdict", data_["verdict"]},
            {"findings", wrong},
            {"problems", problems},
            {"size", pictures.empty() ? Json() : pictures.begin().value()["size"]},
            {"blur", parameters_ ? Json(parameters_->blur) : Json()},
            {"focus", focus},
            {"psnr", OrNull(psnr_)},
            {"ssim", OrNull(ssim_)},
            {"thumbnail", tilePicture_ == nullptr ? "" : Thumbnail(*tilePicture_)}};
}

ReportFile::ReportFile(const fs::path& file) : folder_(file.parent_path()), file_(file) {
    // The place is refused now, and not after a run of minutes.
    if (fs::is_directory(file)) {
        Refuse(file.string(), "a file", "a folder");
    }
}

ReportFile::~ReportFile() {
    if (!committed_) {
        PrintNotice(fmt::format("note: {}: not written by this run", file_.string()));
    }
}

void ReportFile::Write(const Report& report) {
    const Progress progress("writing the report");
    folder_.Write(file_.filename().string(), report.Page(folder_.path()));
}

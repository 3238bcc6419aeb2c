#include "tools/replay/stored_result.h"

#include <algorithm>
#include <fstream>
#include <system_error>

#include <fmt/core.h>
#include <zlib.h>

#include "host/picture/file_bytes.h"
#include "tools/replay/replay_process.h"

namespace fs = std::filesystem;

namespace {

// Everything that the options can change about a result, besides the files that they name. One that
// is left out here would let a stale result pass; a time limit or a trace changes no result.
Json OptionsJson(const ReplayOptions& options) {
    Json faces = Json::array();
    for (const ChiRect& face : options.faces) {
        faces.push_back({face.left, face.top, face.width, face.height});
    }
    const auto point = [](Point at) { return Json{at.x, at.y}; };
    return {{"blur", OrNull(options.blur)},
            {"focus", options.focus ? point(*options.focus) : Json()},
            {"rotation", OrNull(options.rotation)},
            {"faces", faces},
            {"noFaces", options.noFaces},
            {"faceRotation", OrNull(options.faceRotation)},
            {"mainCrop", OrNull(options.mainCrop)},
            {"auxCrop", OrNull(options.auxCrop)},
            {"mainSensor", OrNull(options.mainSensor)},
            {"auxSensor", OrNull(options.auxSensor)},
            {"mainWidth", OrNull(options.mainWidth)},
            {"auxWidth", OrNull(options.auxWidth)},
            {"pitch", options.pitch},
            {"skipBokeh", options.skipBokeh},
            {"debugView", OrNull(options.debugView)},
            {"log", OrNull(options.logMask)},
            {"properties", options.properties},
            {"failures", options.failures}};
}

// Bounds the nesting: comparing and printing JSON recurse into it.
Json ParseShallow(std::span<const std::uint8_t> text) {
    constexpr int kDeepest = 16;
    bool deep = false;
    const auto note = [&deep](int depth, Json::parse_event_t, const Json&) {
        deep = deep || depth > kDeepest;
        return !deep;
    };
    Json json = Json::parse(text.begin(), text.end(), note, false);
    return deep ? Json() : json;
}

} // namespace

std::string Digest(const fs::path& path, std::uintmax_t most) {
    std::ifstream stream(path, std::ios::binary);
    std::vector<char> block(std::size_t{1} << 18);
    uLong crc = ::crc32(0, nullptr, 0);
    uLong adler = ::adler32(0, nullptr, 0);
    while (stream && most > 0) {
        stream.read(block.data(),
                    static_cast<std::streamsize>(std::min<std::uintmax_t>(most, block.size())));
        const auto count = static_cast<uInt>(stream.gcount());
        crc = ::crc32(crc, reinterpret_cast<const Bytef*>(block.data()), count);
        adler = ::adler32(adler, reinterpret_cast<const Bytef*>(block.data()), count);
        most -= count;
    }
    std::error_code error;
    const auto size = fs::file_size(path, error);
    return fmt::format("{} bytes {:08x}{:08x}", error ? 0 : size, crc, adler);
}

std::vector<std::string> ContentOf(const DumpSet& set, std::uintmax_t most) {
    // A longer file is refused by its size, which a digest holds, too.
    most = std::min<std::uintmax_t>(most, kMostFileBytes);
    std::vector<std::string> lines;
    for (const auto& file : set.files) {
        if (file) {
            lines.push_back(fmt::format("{} {}x{} {}", RoleName(file->name.role), file->name.first,
                                        file->name.height, Digest(file->path, most)));
        }
    }
    if (const fs::path calibration = CalibrationBeside(set); !calibration.empty()) {
        lines.push_back("calibration " + Digest(calibration, most));
    }
    return lines;
}

Json KeyOf(const ReplayOptions& options, const Libraries& libraries) {
    const auto& calibration = options.calibration;
    return {{"node", Digest(libraries.node, kWhole)},
            {"engine", Digest(libraries.engine, kWhole)},
            {"calibration", calibration.empty() ? Json() : Json(Digest(calibration, kWhole))},
            {"options", OptionsJson(options)}};
}

std::optional<Json> ParseResult(std::span<const std::uint8_t> text, const Json& key) {
    const Json result = ParseShallow(text);
    const auto isText = [&result](const char* name) {
        return result.contains(name) && result[name].is_string();
    };
    const bool whole = result.is_object() && isText("status") && isText("reason") &&
                       result.contains("key") && result["key"] == key;
    if (!whole) {
        return std::nullopt;
    }
    // A result that ran to its end has a report, and of two builds it has their comparison.
    const bool reports = result.contains("report") && result["report"].is_object() &&
                         result["report"].value("comparison", Json()).contains("failures") ==
                             key.contains("reference");
    return reports || !IsFinal(result["status"]) ? std::optional(result) : std::nullopt;
}

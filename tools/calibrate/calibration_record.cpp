#include "tools/calibrate/calibration_record.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <exception>
#include <numbers>
#include <string_view>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "host/picture/errors.h"
#include "host/picture/file_bytes.h"

namespace fs = std::filesystem;

namespace {

refocus::CameraCalibration CameraOf(const LensMatrices& lens, Size size, const char* name) {
    cv::Mat camera;
    cv::Mat distortion;
    lens.camera.convertTo(camera, CV_64F);
    lens.distortion.convertTo(distortion, CV_64F);
    distortion = distortion.reshape(1, 1);
    // The engine's record has room for the rational model: k1 to k6, p1 and p2.
    constexpr int kTerms = 8;
    for (int i = kTerms; i < distortion.cols; ++i) {
        if (distortion.at<double>(0, i) != 0) {
            Refuse(fmt::format("{} camera", name), "at most 8 terms of distortion",
                   "those of a thin prism or a tilt");
        }
    }
    const auto term = [&](int i) {
        return i < distortion.cols ? distortion.at<double>(0, i) : 0.0;
    };
    refocus::CameraCalibration record;
    record.width = size.width * kCalibrationUnitsPerPixel;
    record.height = size.height * kCalibrationUnitsPerPixel;
    record.fx = camera.at<double>(0, 0);
    record.fy = camera.at<double>(1, 1);
    record.cx = camera.at<double>(0, 2);
    record.cy = camera.at<double>(1, 2);
    // OpenCV's order is k1, k2, p1, p2, k3, k4, k5, k6.
    record.k = {term(0), term(1), term(4), term(5), term(6), term(7)};
    record.p = {term(2), term(3)};
    return record;
}

// OpenCV allocates as many numbers as the file states, and a damaged file may state billions.
bool IsSmallMatrix(const cv::FileNode& node) {
    constexpr int kMost = 100;
    const auto isFew = [](const cv::FileNode& side) {
        return side.isInt() && static_cast<int>(side) >= 0 && static_cast<int>(side) <= kMost;
    };
    return node.isMap() && isFew(node["rows"]) && isFew(node["cols"]);
}

// `elements`: how many numbers the matrix must have; 0: at least four.
cv::Mat ReadMatrix(cv::FileStorage& storage, const fs::path& path, const char* name, int elements) {
    const cv::FileNode node = storage[name];
    const UseError noMatrix(fmt::format(
        "{}: expected a matrix {}, found something else under this name", path.string(), name));
    if (!node.empty() && !IsSmallMatrix(node)) {
        throw noMatrix;
    }
    cv::Mat matrix;
    try {
        node >> matrix;
    } catch (const std::exception&) { // not numbers, or not as many as stated
        throw noMatrix;
    }
    const auto count = static_cast<int>(matrix.total());
    if (matrix.channels() != 1 || (elements > 0 ? count != elements : count < 4)) {
        Refuse(path.string(),
               fmt::format("a matrix {} of {} numbers", name,
                           elements > 0 ? fmt::to_string(elements) : "4 or more"),
               count == 0 ? "none" : fmt::to_string(count));
    }
    return matrix;
}

// OpenCV's parsers call themselves for each level of a text. Each level starts with one of these
// characters, of which a calibration has some dozens: in numbers "-" stands before a digit.
bool IsShallow(std::string_view text) {
    // This is far below the depth at which the recursion would use up the stack.
    constexpr int kMostLevels = 1000;
    int levels = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool item =
            text[i] == '-' &&
            !(i + 1 < text.size() && std::isdigit(static_cast<unsigned char>(text[i + 1])));
        levels += item || std::string_view("[{<:").find(text[i]) != std::string_view::npos ? 1 : 0;
    }
    return levels <= kMostLevels;
}

cv::FileStorage Open(const fs::path& path) {
    // OpenCV writes a few kilobytes; a larger file is no calibration.
    constexpr std::size_t kMostBytes = 65536;
    const Bytes bytes = ReadFileBytes(path, kMostBytes);
    const std::string text(bytes.begin(), bytes.end());
    if (!IsShallow(text)) {
        Refuse(path.string(), "the matrices of a calibration", "a text of too many parts");
    }
    if (text.find('\0') != std::string::npos) { // where OpenCV's parsers take the text to end
        Refuse(path.string(), "the matrices of a calibration", "a file that is no text");
    }
    try {
        cv::FileStorage storage(text, cv::FileStorage::READ | cv::FileStorage::MEMORY);
        if (storage.isOpened() && storage.root().isMap()) {
            return storage;
        }
    } catch (const std::exception&) { // another kind of file; not all that OpenCV throws is its own
    }
    Refuse(path.string(), "OpenCV's YAML, XML or JSON with named matrices", "another kind of file");
}

constexpr double kDegrees = 180 / std::numbers::pi;

double Pixels(std::int32_t units) {
    return static_cast<double>(units) / kCalibrationUnitsPerPixel;
}

// Lines with a heading of twelve characters before the first.
std::string CameraText(const char* name, const refocus::CameraCalibration& camera) {
    const double width = Pixels(camera.width);
    const double height = Pixels(camera.height);
    // The field of view is that of a pinhole camera, without distortion.
    const auto view = [](double side, double focal) {
        return 2 * std::atan(side / 2 / focal) * kDegrees;
    };
    std::string text =
        fmt::format("{:<12} {:g}x{:g} pixels, field of view {:.1f} x {:.1f} degrees\n"
                    "{:12} focal length {:.2f}, {:.2f} pixels, centre {:.2f}, {:.2f}\n",
                    name, width, height, view(width, camera.fx), view(height, camera.fy), "",
                    camera.fx, camera.fy, camera.cx, camera.cy);
    const auto isZero = [](double term) { return term == 0; };
    if (std::ranges::all_of(camera.k, isZero) && std::ranges::all_of(camera.p, isZero)) {
        return text + fmt::format("{:12} no distortion\n", "");
    }
    return text + fmt::format("{:12} distortion: radial {:.4g}, tangential {:.4g}\n", "",
                              fmt::join(camera.k, " "), fmt::join(camera.p, " "));
}

// Where the aux camera is. The translation is the main camera's position in the aux camera's frame,
// so that the signs are reversed.
const char* SideOf(const std::array<double, 3>& translation) {
    const bool beside = std::abs(translation[0]) >= std::abs(translation[1]);
    const double along = beside ? translation[0] : translation[1];
    return beside ? (along < 0 ? "right of" : "left of") : (along < 0 ? "below" : "above");
}

} // namespace

refocus::Calibration RecordOf(const LensMatrices& main, Size mainSize, const LensMatrices& aux,
                              Size auxSize, const cv::Mat& rotation, const cv::Mat& translation) {
    refocus::Calibration calibration;
    calibration.main = CameraOf(main, mainSize, "main");
    calibration.aux = CameraOf(aux, auxSize, "aux");
    cv::Mat r;
    cv::Mat t;
    rotation.convertTo(r, CV_64F);
    translation.convertTo(t, CV_64F);
    std::copy_n(r.ptr<double>(), calibration.rotation.size(), calibration.rotation.begin());
    std::copy_n(t.ptr<double>(), calibration.translation.size(), calibration.translation.begin());
    // The engine's own check decides, so that no file is written that it would refuse.
    if (refocus::ValidateCalibration(calibration) != refocus::Error::kNone) {
        const auto& [x, y, z] = calibration.translation;
        throw UseError(fmt::format(
            "expected numbers that a pair of cameras side by side can have, found: focal lengths "
            "{:f} and {:f} pixels, translation {:f}, {:f}, {:f} mm",
            calibration.main.fx, calibration.aux.fx, x, y, z));
    }
    return calibration;
}

refocus::Calibration ReadOpenCvFiles(const fs::path& intrinsics, const fs::path& extrinsics,
                                     Size mainSize, Size auxSize, double unit) {
    cv::FileStorage lenses = Open(intrinsics);
    cv::FileStorage pose = Open(extrinsics);
    const LensMatrices main{ReadMatrix(lenses, intrinsics, "M1", 9),
                            ReadMatrix(lenses, intrinsics, "D1", 0)};
    const LensMatrices aux{ReadMatrix(lenses, intrinsics, "M2", 9),
                           ReadMatrix(lenses, intrinsics, "D2", 0)};
    const cv::Mat rotation = ReadMatrix(pose, extrinsics, "R", 9);
    const cv::Mat translation = ReadMatrix(pose, extrinsics, "T", 3);
    return RecordOf(main, mainSize, aux, auxSize, rotation, translation * unit);
}

double NearestSearched(const refocus::Calibration& calibration) {
    constexpr double kSearchedShare = 1.0 / 6; // of the side along which the cameras stand
    const auto& t = calibration.translation;
    const auto& main = calibration.main;
    const bool beside = std::abs(t[0]) >= std::abs(t[1]);
    // Depth = focal length * baseline / disparity, at the largest disparity that the engine
    // searches.
    const double disparity = kSearchedShare * Pixels(beside ? main.width : main.height);
    return (beside ? main.fx : main.fy) * std::hypot(t[0], t[1], t[2]) / disparity;
}

std::string ToText(const refocus::Calibration& calibration) {
    const auto& r = calibration.rotation;
    const auto& t = calibration.translation;
    // The trace of a rotation matrix is 1 + 2 cos(angle).
    const double cosine = std::clamp((r[0] + r[4] + r[8] - 1) / 2, -1.0, 1.0);
    return CameraText("main camera", calibration.main) + CameraText("aux camera", calibration.aux) +
           fmt::format("{:<12} the aux camera is {:.2f} mm {} the main one ({:.3f})\n"
                       "{:<12} the cameras look {:.2f} degrees apart\n"
                       "{:<12} {} degrees\n"
                       "{:<12} {}\n",
                       "distance", std::hypot(t[0], t[1], t[2]), SideOf(t), fmt::join(t, ", "),
                       "rotation", std::acos(cosine) * kDegrees, "mount angle",
                       calibration.mountAngle, "nearest",
                       calibration.nearestDistance > 0
                           ? fmt::format("{:.0f} mm", calibration.nearestDistance)
                           : fmt::format("not given: what is nearer than {:.0f} mm the engine does "
                                         "not search: `calibrate --nearest`",
                                         NearestSearched(calibration)));
}

nlohmann::ordered_json ToJson(const refocus::Calibration& calibration) {
    const auto camera = [](const refocus::CameraCalibration& c) {
        return nlohmann::ordered_json{{"width", Pixels(c.width)},
                                      {"height", Pixels(c.height)},
                                      {"focalLength", {c.fx, c.fy}},
                                      {"centre", {c.cx, c.cy}},
                                      {"radial", c.k},
                                      {"tangential", c.p}};
    };
    return {
        {"main", camera(calibration.main)},     {"aux", camera(calibration.aux)},
        {"rotation", calibration.rotation},     {"translation", calibration.translation},
        {"mountAngle", calibration.mountAngle}, {"nearestDistance", calibration.nearestDistance}};
}

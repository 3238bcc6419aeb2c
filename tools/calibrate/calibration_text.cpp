#include "tools/calibrate/calibration_text.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numbers>

namespace {

using refocus::Calibration;
using refocus::CameraCalibration;

constexpr double kUnitsPerPixel = kCalibrationUnitsPerPixel;
constexpr double kDegrees = 180 / std::numbers::pi;

template <typename... Values>
std::string Print(const char* format, Values... values) {
    char text[200];
    std::snprintf(text, sizeof text, format, values...);
    return text;
}

std::string CameraText(const char* name, const CameraCalibration& camera) {
    const double width = camera.width / kUnitsPerPixel;
    const double height = camera.height / kUnitsPerPixel;
    const auto view = [](double side, double focal) {
        return 2 * std::atan(side / 2 / focal) * kDegrees;
    };
    std::string text = Print("%-12s %gx%g pixels, field of view %.1f x %.1f degrees\n", name, width,
                             height, view(width, camera.fx), view(height, camera.fy)) +
                       Print("%12s focal length %.2f, %.2f pixels, centre %.2f, %.2f\n", "",
                             camera.fx, camera.fy, camera.cx, camera.cy);
    const auto none = [](double term) { return term == 0; };
    if (std::ranges::all_of(camera.k, none) && std::ranges::all_of(camera.p, none)) {
        return text + Print("%12s no distortion\n", "");
    }
    text += Print("%12s distortion: radial", "");
    for (const double term : camera.k) {
        text += Print(" %.4g", term);
    }
    return text + Print(", tangential %.4g %.4g\n", camera.p[0], camera.p[1]);
}

std::string SideOf(const std::array<double, 3>& translation) {
    // A point of the main camera's origin is at the translation in the aux camera's frame.
    const bool beside = std::abs(translation[0]) >= std::abs(translation[1]);
    const double along = beside ? translation[0] : translation[1];
    return beside ? (along < 0 ? "right of" : "left of") : (along < 0 ? "below" : "above");
}

} // namespace

std::string InWords(const Calibration& calibration) {
    const auto& r = calibration.rotation;
    const auto& t = calibration.translation;
    const double cosine = std::clamp((r[0] + r[4] + r[8] - 1) / 2, -1.0, 1.0);
    return CameraText("main camera", calibration.main) + CameraText("aux camera", calibration.aux) +
           Print("%-12s the aux camera is %.2f mm %s the main one (%.3f, %.3f, %.3f)\n", "distance",
                 std::hypot(t[0], t[1], t[2]), SideOf(t).c_str(), t[0], t[1], t[2]) +
           Print("%-12s the cameras look %.2f degrees apart\n", "rotation",
                 std::acos(cosine) * kDegrees) +
           Print("%-12s %d degrees\n", "mount angle", calibration.mountAngle) +
           (calibration.nearestDistance > 0
                ? Print("%-12s %.0f mm\n", "nearest", calibration.nearestDistance)
                : Print("%-12s unknown\n", "nearest"));
}

nlohmann::ordered_json ToJson(const Calibration& calibration) {
    const auto camera = [](const CameraCalibration& c) {
        return nlohmann::ordered_json{{"width", c.width / kUnitsPerPixel},
                                      {"height", c.height / kUnitsPerPixel},
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

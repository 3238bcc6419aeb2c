#include "tools/calibrate/calibration_record.h"

#include <algorithm>
#include <string>

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
    constexpr int kTerms = 8;
    for (int i = kTerms; i < distortion.cols; ++i) {
        if (distortion.at<double>(0, i) != 0) {
            throw UseError(std::string(name) +
                           " camera: expected at most 8 terms of distortion, found a thin prism's "
                           "or a tilt's");
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
    record.k = {term(0), term(1), term(4), term(5), term(6), term(7)};
    record.p = {term(2), term(3)};
    return record;
}

// OpenCV makes room for whatever count of numbers a file states; a lens has few.
bool IsSmallMatrix(const cv::FileNode& node) {
    constexpr int kMost = 100;
    const auto isFew = [](const cv::FileNode& side) {
        return side.isInt() && static_cast<int>(side) >= 0 && static_cast<int>(side) <= kMost;
    };
    return node.isMap() && isFew(node["rows"]) && isFew(node["cols"]);
}

cv::Mat ReadMatrix(cv::FileStorage& storage, const fs::path& path, const char* name, int elements) {
    const cv::FileNode node = storage[name];
    const UseError noMatrix(path.string() + ": expected a matrix " + name +
                            ", found something else under this name");
    if (!node.empty() && !IsSmallMatrix(node)) {
        throw noMatrix;
    }
    cv::Mat matrix;
    try {
        node >> matrix;
    } catch (const cv::Exception&) { // numbers that are none, or not as many as stated
        throw noMatrix;
    }
    const auto count = static_cast<int>(matrix.total());
    if (matrix.channels() != 1 || (elements > 0 ? count != elements : count < 4)) {
        throw UseError(path.string() + ": expected a matrix " + name + " of " +
                       (elements > 0 ? std::to_string(elements) : "4 or more") +
                       " numbers, found " + (count == 0 ? "none" : std::to_string(count)));
    }
    return matrix;
}

cv::FileStorage Open(const fs::path& path) {
    const Bytes bytes = ReadFileBytes(path); // says why not, where it cannot be read
    const std::string text(bytes.begin(), bytes.end());
    try {
        cv::FileStorage storage(text, cv::FileStorage::READ | cv::FileStorage::MEMORY);
        if (storage.isOpened()) {
            return storage;
        }
    } catch (const cv::Exception&) { // it is no such file
    }
    throw UseError(path.string() + ": expected OpenCV's YAML, found another kind of file");
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
    if (refocus::ValidateCalibration(calibration) != refocus::Error::kNone) {
        throw UseError(
            "expected numbers that a pair of cameras side by side can have, found: focal "
            "lengths " +
            std::to_string(calibration.main.fx) + " and " + std::to_string(calibration.aux.fx) +
            " pixels, translation " + std::to_string(calibration.translation[0]) + ", " +
            std::to_string(calibration.translation[1]) + ", " +
            std::to_string(calibration.translation[2]) + " mm");
    }
    return calibration;
}

refocus::Calibration ReadOpenCvFiles(const fs::path& intrinsics, const fs::path& extrinsics,
                                     Size mainSize, Size auxSize, double unit) {
    cv::FileStorage lenses = Open(intrinsics);
    cv::FileStorage places = Open(extrinsics);
    const LensMatrices main{ReadMatrix(lenses, intrinsics, "M1", 9),
                            ReadMatrix(lenses, intrinsics, "D1", 0)};
    const LensMatrices aux{ReadMatrix(lenses, intrinsics, "M2", 9),
                           ReadMatrix(lenses, intrinsics, "D2", 0)};
    const cv::Mat rotation = ReadMatrix(places, extrinsics, "R", 9);
    const cv::Mat translation = ReadMatrix(places, extrinsics, "T", 3);
    return RecordOf(main, mainSize, aux, auxSize, rotation, translation * unit);
}

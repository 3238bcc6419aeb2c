#include "host/refocus/calibration.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <type_traits>

#include <zlib.h>

namespace refocus {
namespace {

constexpr std::array<std::uint8_t, 8> kMagic{'R', 'F', 'C', 'A', 'L', 'I', 'B', '2'};
constexpr std::uint32_t kVersion = 1;
constexpr std::size_t kChecksumOffset = kCalibrationBytes - 4;

// The file as it lies in memory.
struct File {
    std::array<std::uint8_t, 8> magic = kMagic;
    std::uint32_t version = kVersion;
    std::uint32_t reserved = 0;
    Calibration calibration;
    std::array<std::uint8_t, kChecksumOffset - 336> zeros{};
    std::uint32_t checksum = 0;
};
static_assert(std::endian::native == std::endian::little);
static_assert(std::is_trivially_copyable_v<File> && sizeof(File) == kCalibrationBytes);
static_assert(offsetof(File, calibration.aux) == 120 && offsetof(File, calibration.aux.p) == 208);
static_assert(offsetof(File, calibration.rotation) == 224);
static_assert(offsetof(File, calibration.nearestDistance) == 328);
static_assert(offsetof(File, checksum) == kChecksumOffset);

std::uint32_t ChecksumOf(const std::uint8_t* file) {
    return static_cast<std::uint32_t>(crc32(0, file, kChecksumOffset));
}

// False for NaN.
bool IsBetween(double value, double low, double high) {
    return value > low && value < high;
}

bool ValidCamera(const CameraCalibration& camera) {
    const double width = camera.width / double{kCalibrationUnitsPerPixel};
    const double height = camera.height / double{kCalibrationUnitsPerPixel};
    if (!IsBetween(width, 15.999, 65536.0) || !IsBetween(height, 15.999, 65536.0)) {
        return false;
    }
    // Fields of view from a tenth of a degree to 175 degrees include all phone cameras.
    const double extent = std::max(width, height);
    const bool lens = IsBetween(camera.fx, extent / 50.0, extent * 500.0) &&
                      IsBetween(camera.fy, extent / 50.0, extent * 500.0) &&
                      IsBetween(camera.cx, 0.0, width) && IsBetween(camera.cy, 0.0, height);
    const auto small = [](double value) { return IsBetween(value, -1000.0, 1000.0); };
    return lens && std::all_of(camera.k.begin(), camera.k.end(), small) &&
           std::all_of(camera.p.begin(), camera.p.end(), small);
}

bool ValidRotation(const std::array<double, 9>& r) {
    for (std::size_t i = 0; i < 3; ++i) {
        for (std::size_t j = 0; j < 3; ++j) {
            const double dot =
                r[3 * i] * r[3 * j] + r[3 * i + 1] * r[3 * j + 1] + r[3 * i + 2] * r[3 * j + 2];
            if (!IsBetween(dot - (i == j ? 1.0 : 0.0), -1e-3, 1e-3)) {
                return false;
            }
        }
    }
    const double determinant = r[0] * (r[4] * r[8] - r[5] * r[7]) -
                               r[1] * (r[3] * r[8] - r[5] * r[6]) +
                               r[2] * (r[3] * r[7] - r[4] * r[6]);
    // Both cameras face the same scene: the cosine of the rotation's angle, (trace - 1) / 2, allows
    // 45 degrees.
    return determinant > 0.0 && (r[0] + r[4] + r[8] - 1.0) / 2.0 > 0.707;
}

} // namespace

Error ValidateCalibration(const Calibration& calibration) {
    const auto& t = calibration.translation;
    const bool angle = calibration.mountAngle >= 0 && calibration.mountAngle < 360 &&
                       calibration.mountAngle % 90 == 0;
    const bool valid = ValidCamera(calibration.main) && ValidCamera(calibration.aux) &&
                       ValidRotation(calibration.rotation) &&
                       IsBetween(std::hypot(t[0], t[1], t[2]), 0.01, 1e5) && angle &&
                       calibration.nearestDistance >= 0.0 && calibration.nearestDistance < 1e7;
    return valid ? Error::kNone : Error::kCalibrationValues;
}

Error ParseCalibration(std::span<const std::uint8_t> bytes, Calibration& calibration) {
    if (bytes.size() != kCalibrationBytes) {
        return Error::kCalibrationSize;
    }
    if (!std::equal(kMagic.begin(), kMagic.end(), bytes.begin())) {
        return Error::kCalibrationMagic;
    }
    File file;
    std::memcpy(&file, bytes.data(), sizeof(file));
    if (file.version != kVersion) {
        return Error::kCalibrationVersion;
    }
    if (file.checksum != ChecksumOf(bytes.data())) {
        return Error::kCalibrationChecksum;
    }
    const Error error = ValidateCalibration(file.calibration);
    if (error == Error::kNone) {
        calibration = file.calibration;
    }
    return error;
}

std::array<std::uint8_t, kCalibrationBytes> WriteCalibration(const Calibration& calibration) {
    File file;
    file.calibration = calibration;
    auto bytes = std::bit_cast<std::array<std::uint8_t, kCalibrationBytes>>(file);
    const std::uint32_t checksum = ChecksumOf(bytes.data());
    std::memcpy(bytes.data() + kChecksumOffset, &checksum, sizeof(checksum));
    return bytes;
}

Calibration CalibrationOfRectifiedPair(const RectifiedPair& pair) {
    const auto camera = [](int width, int height, double fx, double fy) {
        CameraCalibration result;
        result.width = width * kCalibrationUnitsPerPixel;
        result.height = height * kCalibrationUnitsPerPixel;
        result.fx = fx;
        result.fy = fy;
        result.cx = (width - 1) / 2.0;
        result.cy = (height - 1) / 2.0;
        return result;
    };
    Calibration calibration;
    calibration.main = camera(pair.mainWidth, pair.mainHeight, pair.focalLength, pair.focalLength);
    calibration.aux =
        camera(pair.auxWidth, pair.auxHeight, pair.focalLength * pair.auxWidth / pair.mainWidth,
               pair.focalLength * pair.auxHeight / pair.mainHeight);
    calibration.translation = {-pair.baseline, 0.0, 0.0};
    calibration.nearestDistance = pair.nearestDistance;
    return calibration;
}

} // namespace refocus

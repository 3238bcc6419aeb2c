#include "host/refocus/calibration.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace refocus {
namespace {

constexpr std::array<std::uint8_t, 8> kMagic{'R', 'F', 'C', 'A', 'L', 'I', 'B', '2'};
constexpr std::uint32_t kVersion = 1;
constexpr std::size_t kChecksumOffset = kCalibrationBytes - 4;

using FileBytes = std::array<std::uint8_t, kCalibrationBytes>;

std::uint32_t Crc32(std::span<const std::uint8_t> bytes) {
    std::uint32_t crc = 0xFFFFFFFFu;
    for (const std::uint8_t byte : bytes) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc >> 1) ^ ((crc & 1u) != 0 ? 0xEDB88320u : 0u);
        }
    }
    return ~crc;
}

template <typename Unsigned>
void PutUnsigned(Unsigned value, std::uint8_t* at) {
    for (std::size_t i = 0; i < sizeof(Unsigned); ++i) {
        at[i] = static_cast<std::uint8_t>(value >> (8 * i));
    }
}

template <typename Unsigned>
Unsigned GetUnsigned(const std::uint8_t* at) {
    Unsigned value = 0;
    for (std::size_t i = 0; i < sizeof(Unsigned); ++i) {
        value |= static_cast<Unsigned>(at[i]) << (8 * i);
    }
    return value;
}

// Walks the file's fields in order and puts them or gets them, so that the layout stands once.
class Putter {
public:
    explicit Putter(FileBytes& bytes) : bytes_(bytes) {}

    void Field(const std::uint32_t& value) { Put(value); }
    void Field(const std::int32_t& value) { Put(std::bit_cast<std::uint32_t>(value)); }
    void Field(const double& value) { Put(std::bit_cast<std::uint64_t>(value)); }

private:
    template <typename Unsigned>
    void Put(Unsigned value) {
        PutUnsigned(value, bytes_.data() + at_);
        at_ += sizeof(Unsigned);
    }

    FileBytes& bytes_;
    std::size_t at_ = kMagic.size();
};

class Getter {
public:
    explicit Getter(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    void Field(std::uint32_t& value) { value = Get<std::uint32_t>(); }
    void Field(std::int32_t& value) { value = std::bit_cast<std::int32_t>(Get<std::uint32_t>()); }
    void Field(double& value) { value = std::bit_cast<double>(Get<std::uint64_t>()); }

private:
    template <typename Unsigned>
    Unsigned Get() {
        const Unsigned value = GetUnsigned<Unsigned>(bytes_.data() + at_);
        at_ += sizeof(Unsigned);
        return value;
    }

    std::span<const std::uint8_t> bytes_;
    std::size_t at_ = kMagic.size();
};

template <typename Walker, typename Camera>
void WalkCamera(Walker& walker, Camera& camera) {
    walker.Field(camera.width);
    walker.Field(camera.height);
    walker.Field(camera.fx);
    walker.Field(camera.fy);
    walker.Field(camera.cx);
    walker.Field(camera.cy);
    for (auto& value : camera.k) {
        walker.Field(value);
    }
    for (auto& value : camera.p) {
        walker.Field(value);
    }
}

template <typename Walker, typename Record>
void WalkFile(Walker& walker, std::uint32_t& version, Record& calibration) {
    std::uint32_t gap = 0;
    walker.Field(version);
    walker.Field(gap);
    WalkCamera(walker, calibration.main);
    WalkCamera(walker, calibration.aux);
    for (auto& value : calibration.rotation) {
        walker.Field(value);
    }
    for (auto& value : calibration.translation) {
        walker.Field(value);
    }
    walker.Field(calibration.mountAngle);
    walker.Field(gap);
    walker.Field(calibration.nearestDistance);
}

bool WithinOpen(double value, double low, double high) {
    return value > low && value < high; // false for what is not a number
}

bool ValidCamera(const CameraCalibration& camera) {
    const double width = camera.width / double{kCalibrationUnitsPerPixel};
    const double height = camera.height / double{kCalibrationUnitsPerPixel};
    if (!WithinOpen(width, 15.999, 65536.0) || !WithinOpen(height, 15.999, 65536.0)) {
        return false;
    }
    // Fields of view from 175 degrees down to a tenth of one: what lies beyond is no phone camera.
    const double extent = std::max(width, height);
    const bool lens = WithinOpen(camera.fx, extent / 50.0, extent * 500.0) &&
                      WithinOpen(camera.fy, extent / 50.0, extent * 500.0) &&
                      WithinOpen(camera.cx, 0.0, width) && WithinOpen(camera.cy, 0.0, height);
    const auto small = [](double value) { return WithinOpen(value, -1000.0, 1000.0); };
    return lens && std::all_of(camera.k.begin(), camera.k.end(), small) &&
           std::all_of(camera.p.begin(), camera.p.end(), small);
}

bool ValidRotation(const std::array<double, 9>& r) {
    for (std::size_t i = 0; i < 3; ++i) {
        for (std::size_t j = 0; j < 3; ++j) {
            const double dot =
                r[3 * i] * r[3 * j] + r[3 * i + 1] * r[3 * j + 1] + r[3 * i + 2] * r[3 * j + 2];
            if (!WithinOpen(dot - (i == j ? 1.0 : 0.0), -1e-3, 1e-3)) {
                return false;
            }
        }
    }
    const double determinant = r[0] * (r[4] * r[8] - r[5] * r[7]) -
                               r[1] * (r[3] * r[8] - r[5] * r[6]) +
                               r[2] * (r[3] * r[7] - r[4] * r[6]);
    // The cameras look the same way: cos of the turn is (trace - 1) / 2, here at most 45 degrees.
    return determinant > 0.0 && (r[0] + r[4] + r[8] - 1.0) / 2.0 > 0.707;
}

} // namespace

Error ValidateCalibration(const Calibration& calibration) {
    const auto& t = calibration.translation;
    const bool angle = calibration.mountAngle >= 0 && calibration.mountAngle < 360 &&
                       calibration.mountAngle % 90 == 0;
    const bool valid = ValidCamera(calibration.main) && ValidCamera(calibration.aux) &&
                       ValidRotation(calibration.rotation) &&
                       WithinOpen(std::hypot(t[0], t[1], t[2]), 0.01, 1e5) && angle &&
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
    Calibration parsed;
    std::uint32_t version = 0;
    Getter getter(bytes);
    WalkFile(getter, version, parsed);
    if (version != kVersion) {
        return Error::kCalibrationVersion;
    }
    if (GetUnsigned<std::uint32_t>(bytes.data() + kChecksumOffset) !=
        Crc32(bytes.first(kChecksumOffset))) {
        return Error::kCalibrationChecksum;
    }
    const Error error = ValidateCalibration(parsed);
    if (error == Error::kNone) {
        calibration = parsed;
    }
    return error;
}

FileBytes WriteCalibration(const Calibration& calibration) {
    FileBytes bytes{};
    std::copy(kMagic.begin(), kMagic.end(), bytes.begin());
    std::uint32_t version = kVersion;
    Putter putter(bytes);
    WalkFile(putter, version, calibration);
    PutUnsigned(Crc32(std::span(bytes).first(kChecksumOffset)), bytes.data() + kChecksumOffset);
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

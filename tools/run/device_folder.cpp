#include "tools/run/device_folder.h"

#include <algorithm>
#include <fstream>
#include <system_error>

#include "host/filesystem/device_root.h"
#include "host/picture/errors.h"
#include "host/refocus/calibration.h"
#include "platform/device_names.h"

namespace fs = std::filesystem;

namespace {

// Where the device's absolute path leads in a folder that stands for its root.
fs::path PlaceIn(const fs::path& root, const char* devicePath) {
    return root / fs::path(devicePath).relative_path();
}

Bytes ReadCalibration(const fs::path& path) {
    Bytes bytes = ReadFileBytes(path);
    if (bytes.size() != device::kCalibrationFileSize) {
        throw UseError(path.string() + ": expected a calibration file of " +
                       std::to_string(device::kCalibrationFileSize) + " bytes, found " +
                       std::to_string(bytes.size()) + " bytes");
    }
    return bytes;
}

// Only the ratio of depths shows in a picture, so any lens and distance of the cameras will do.
Bytes RectifiedCalibration(Size main, Size aux, std::uint32_t rotation) {
    refocus::RectifiedPair pair;
    pair.mainWidth = main.width;
    pair.mainHeight = main.height;
    pair.auxWidth = aux.width;
    pair.auxHeight = aux.height;
    pair.focalLength = main.width;
    pair.baseline = 12;
    refocus::Calibration calibration = refocus::CalibrationOfRectifiedPair(pair);
    calibration.mountAngle = static_cast<std::int32_t>(rotation); // the pictures stand as given
    if (refocus::ValidateCalibration(calibration) != refocus::Error::kNone) {
        throw UseError("expected pictures that a pair of cameras can have, found " +
                       std::to_string(main.width) + "x" + std::to_string(main.height) + " and " +
                       std::to_string(aux.width) + "x" + std::to_string(aux.height));
    }
    const auto bytes = refocus::WriteCalibration(calibration);
    return {bytes.begin(), bytes.end()};
}

void MakeFolder(const fs::path& path) {
    std::error_code error;
    fs::create_directories(path, error);
    if (error) {
        throw UseError(path.string() + ": cannot make this folder: " + error.message());
    }
}

void WriteFile(const fs::path& path, const Bytes& bytes) {
    std::ofstream stream(path, std::ios::binary | std::ios::trunc);
    stream.write(reinterpret_cast<const char*>(bytes.data()),
                 static_cast<std::streamsize>(bytes.size()));
    stream.close();
    if (!stream) {
        throw UseError(path.string() + ": cannot be written");
    }
}

} // namespace

DeviceFolder::DeviceFolder(const RenderOptions& options) : rotation_(options.rotation) {
    if (!options.calibration.empty()) {
        calibration_ = ReadCalibration(options.calibration);
        calibrationSource_ = options.calibration.string();
    }
    if (options.deviceRoot.empty()) {
        temporary_.emplace();
        root_ = temporary_->path();
    } else {
        root_ = fs::absolute(options.deviceRoot);
    }
    host::SetDeviceRoot(root_);
}

DeviceFolder::~DeviceFolder() {
    host::SetDeviceRoot({});
}

void DeviceFolder::Prepare(Size main, Size aux) {
    if (calibration_.empty()) {
        for (const char* path : device::kCalibrationPaths) {
            if (calibrationSource_.empty() && fs::exists(PlaceIn(root_, path))) {
                calibrationSource_ = PlaceIn(root_, path).string();
            }
        }
    }
    if (calibrationSource_.empty()) {
        calibration_ = RectifiedCalibration(main, aux, rotation_);
        calibrationSource_ = "rectified pair";
    }
    MakeFolder(PlaceIn(root_, device::kDumpFolder));
    for (const auto& entry : fs::directory_iterator(PlaceIn(root_, device::kDumpFolder))) {
        before_.emplace(entry.path(), entry.last_write_time());
    }
    if (!calibration_.empty()) {
        const fs::path file = PlaceIn(root_, device::kCalibrationPaths[0]);
        MakeFolder(file.parent_path());
        WriteFile(file, calibration_);
    }
}

std::vector<fs::path> DeviceFolder::Dumps() const {
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(PlaceIn(root_, device::kDumpFolder))) {
        const auto old = before_.find(entry.path());
        if (old == before_.end() || old->second != entry.last_write_time()) {
            files.push_back(entry.path());
        }
    }
    std::ranges::sort(files);
    return files;
}

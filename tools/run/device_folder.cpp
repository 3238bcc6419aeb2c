#include "tools/run/device_folder.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <system_error>

#include <fmt/core.h>

#include "host/filesystem/device_root.h"
#include "host/picture/errors.h"
#include "platform/device_names.h"
#include "tools/files/interruption.h"
#include "tools/files/output_folder.h"

namespace fs = std::filesystem;

namespace {

// Where the device's absolute path leads in a folder that stands for its root.
fs::path PlaceIn(const fs::path& root, const char* devicePath) {
    return root / fs::path(devicePath).relative_path();
}

Bytes ReadCalibration(const fs::path& path) {
    // One byte more shows that a file is too long without reading all of it.
    Bytes bytes = ReadFileStart(path, device::kCalibrationFileSize + 1);
    const auto size = fs::file_size(path);
    if (bytes.size() != device::kCalibrationFileSize || size != bytes.size()) {
        // What the system makes while it is read has no size before.
        Refuse(path, fmt::format("a calibration file of {} bytes", device::kCalibrationFileSize),
               size < bytes.size() ? "another number" : fmt::format("{} bytes", size));
    }
    return bytes;
}

// Pictures show only ratios of depths, so any focal length and baseline will do.
Bytes RectifiedCalibration(Size main, Size aux, std::uint32_t mountAngle,
                           const std::string& source) {
    refocus::RectifiedPair pair;
    pair.mainWidth = main.width;
    pair.mainHeight = main.height;
    pair.auxWidth = aux.width;
    pair.auxHeight = aux.height;
    pair.focalLength = main.width;
    pair.baseline = 12;
    refocus::Calibration calibration = refocus::CalibrationOfRectifiedPair(pair);
    calibration.mountAngle = static_cast<std::int32_t>(mountAngle);
    if (refocus::ValidateCalibration(calibration) != refocus::Error::kNone) {
        Refuse(source,
               fmt::format("sensors with sides of {} to {} pixels", kShortestSensorSide,
                           kLongestSensorSide),
               InWords(main) + " and " + InWords(aux));
    }
    const auto bytes = refocus::WriteCalibration(calibration);
    return {bytes.begin(), bytes.end()};
}

} // namespace

TemporaryFolder::TemporaryFolder() {
    std::error_code missing;
    // The error code is taken instead of the exception, which would not name TMPDIR.
    const fs::path temporary = fs::temp_directory_path(missing);
    if (missing) {
        const char* const given = std::getenv("TMPDIR");
        Refuse("TMPDIR", "a folder for temporary files", given != nullptr ? given : "no /tmp");
    }
    std::string name = (temporary / "bokehnode-XXXXXX").string();
    const auto delay = DelayInterruption();
    if (::mkdtemp(name.data()) == nullptr) {
        Cannot("make a temporary folder", name, std::strerror(errno));
    }
    path_ = name;
    RemoveWhenInterrupted(path_, Removal::kWithEverything);
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
    KeepWhenInterrupted(path_);
}

DeviceFolder::DeviceFolder(const RunOptions& options) {
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
    // The paths are in the node's order, so that the source named here is the file that the node
    // takes.
    for (const char* path : device::kCalibrationPaths) {
        if (calibrationSource_.empty() && fs::exists(PlaceIn(root_, path))) {
            calibrationSource_ = PlaceIn(root_, path).string();
        }
    }
    host::SetDeviceRoot(root_);
}

// Later calls must not find a folder that has gone.
DeviceFolder::~DeviceFolder() {
    host::SetDeviceRoot({});
}

refocus::Calibration DeviceFolder::Found() const {
    refocus::Calibration calibration;
    // Where no calibration can be read, the aux camera is taken to be right of the main one.
    calibration.translation = {-1, 0, 0};
    const Bytes bytes = !calibration_.empty() ? calibration_
                        : calibrationSource_.empty()
                            ? Bytes()
                            : ReadFileStart(calibrationSource_, refocus::kCalibrationBytes);
    refocus::ParseCalibration(bytes, calibration);
    return calibration;
}

int DeviceFolder::AuxSide(std::uint32_t rotation) const {
    const refocus::Calibration calibration = Found();
    // What the images are turned by against the calibration decides on which side the aux camera
    // shows.
    const auto turned = (static_cast<int>(rotation) - calibration.mountAngle + 360) % 360;
    const auto& [x, y, z] = calibration.translation;
    if (turned % 180 != 0 || std::abs(x) < std::abs(y)) {
        return 0;
    }
    return (x < 0) == (turned == 0) ? 1 : -1;
}

void DeviceFolder::Prepare(Size main, Size aux, std::uint32_t mountAngle,
                           const std::string& source) {
    if (calibrationSource_.empty()) {
        calibration_ = RectifiedCalibration(main, aux, mountAngle, source);
        calibrationSource_ = "rectified pair";
    }
    // An interruption removes the temporary root: made after that, folders would bring it back.
    const auto delay = DelayInterruption();
    OutputFolder(DumpFolder()).Commit(); // makes the folder
    // The caller's folder may hold dumps of earlier runs. One that is overwritten has a new time.
    for (const auto& entry : fs::directory_iterator(DumpFolder())) {
        before_.emplace(entry.path(), entry.last_write_time());
    }
    if (!calibration_.empty()) {
        WriteFile(PlaceIn(root_, device::kCalibrationPaths[0]), calibration_);
    }
}

fs::path DeviceFolder::DumpFolder() const {
    return PlaceIn(root_, device::kDumpFolder);
}

std::vector<fs::path> DeviceFolder::Dumps() const {
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(DumpFolder())) {
        const auto old = before_.find(entry.path());
        if (old == before_.end() || old->second != entry.last_write_time()) {
            files.push_back(entry.path());
        }
    }
    std::ranges::sort(files);
    return files;
}

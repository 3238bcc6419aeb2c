#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/picture/file_bytes.h"
#include "host/refocus/calibration.h"
#include "tools/run/run_options.h"

// A folder of this run alone, gone with everything in it when the object goes.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

// The folder in place of the device's root: the caller's own, or a temporary one. While the object
// lives, the node's absolute paths lead into it.
class DeviceFolder {
public:
    // Reads what is needed; makes and writes nothing in the caller's folder.
    explicit DeviceFolder(const RunOptions& options);
    ~DeviceFolder();
    DeviceFolder(const DeviceFolder&) = delete;
    DeviceFolder& operator=(const DeviceFolder&) = delete;

    // Makes the device's folders and writes the calibration that the node shall find: the caller's
    // file, else the one that the caller's folder holds already, else that of a rectified pair with
    // sensors of these sizes, mounted at `mountAngle` degrees. Throws UseError, for impossible
    // sizes with `source` as the name of what they come from.
    void Prepare(Size main, Size aux, std::uint32_t mountAngle, const std::string& source);

    // Of the calibration that the node shall find, as far as the stand-in engine can read it; of a
    // rectified pair otherwise. MountAngle: the rotation, in degrees, of images that stand as
    // calibrated. AuxSide: 1 for an aux camera right of the main one in images of this rotation, -1
    // left of it, 0 for one above or below.
    std::int32_t MountAngle() const { return Found().mountAngle; }
    int AuxSide(std::uint32_t rotation) const;

    // The calibration file that was written; empty where the caller's folder has one already.
    const Bytes& calibrationFile() const { return calibration_; }
    // Where the calibration came from, in words.
    const std::string& calibration() const { return calibrationSource_; }

    // Where the node dumps, and the files that it has dumped since Prepare.
    std::filesystem::path DumpFolder() const;
    std::vector<std::filesystem::path> Dumps() const;

private:
    refocus::Calibration Found() const;

    std::filesystem::path root_;
    std::optional<TemporaryFolder> temporary_;
    std::map<std::filesystem::path, std::filesystem::file_time_type> before_; // dumps at Prepare
    Bytes calibration_;
    std::string calibrationSource_;
};

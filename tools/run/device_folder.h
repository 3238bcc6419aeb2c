#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/picture/file_bytes.h"
#include "tools/files/temporary_folder.h"
#include "tools/run/run_options.h"

// The folder in place of the device's root: the caller's own, or a temporary one. While the object
// lives, the node's absolute paths lead into it.
class DeviceFolder {
public:
    // Reads what is needed; makes and writes nothing in the caller's folder.
    explicit DeviceFolder(const RenderOptions& options);
    ~DeviceFolder();
    DeviceFolder(const DeviceFolder&) = delete;
    DeviceFolder& operator=(const DeviceFolder&) = delete;

    // Makes the device's folders and writes the calibration that the node shall find: the caller's
    // file, else the one that the caller's folder holds already, else a rectified pair's of these
    // sizes. Throws UseError.
    void Prepare(Size main, Size aux);

    bool temporary() const { return temporary_.has_value(); }

    // Where the calibration came from, in words.
    const std::string& calibration() const { return calibrationSource_; }

    // The files that the node has dumped since Prepare.
    std::vector<std::filesystem::path> Dumps() const;

private:
    std::filesystem::path root_;
    std::optional<TemporaryFolder> temporary_;
    std::map<std::filesystem::path, std::filesystem::file_time_type> before_; // dumps at Prepare
    Bytes calibration_;
    std::string calibrationSource_;
    std::uint32_t rotation_ = 0;
};

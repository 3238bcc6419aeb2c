#pragma once

#include <filesystem>
#include <string>
#include <vector>

// Control of the file system stand-in (libhostfilesystem.so): the node opens its files by the
// device's absolute paths; those below "/mnt/vendor/persist/", "/vendor/etc/" and "/data/vendor/"
// lead into a folder of this machine instead. Every other path is left alone.
//
// The call points "fopen", "fseek", "ftell", "fread", "fclose", "open", "write" and "close" see
// only files opened by such a path. A failing fopen or open gives null or -1 whatever the armed
// result; a failing fread or write still moves as many items or bytes as its result says; a failing
// fclose or close has closed the file.
//
// Thread-safe.
namespace host {

// The folder that stands for the device's root; folders below it are not created. Empty: there is
// no device, and its paths are not found (ENOENT). That is the state at start.
void SetDeviceRoot(std::filesystem::path root);
std::filesystem::path DeviceRoot();

// Device paths of the files that are open at this moment.
std::vector<std::string> OpenDeviceFiles();

} // namespace host

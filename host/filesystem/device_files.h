#pragma once

#include <cstdio>
#include <string>

#include "host/filesystem/device_root.h"

// What the interposed functions share: where device paths lead, and which files came from one.
// Internal to libhostfilesystem.so. Thread-safe.
namespace host::devicefiles {

// True where the path is one of the device's.
bool IsDevicePath(const char* path);

// The path's place in the device root, or an empty string where it is not to be found.
std::string Locate(const char* devicePath);

void Opened(std::FILE* stream, const char* devicePath);
void Opened(int descriptor, const char* devicePath);

bool IsOpen(const std::FILE* stream);
bool IsOpen(int descriptor);

// To be called before the file is closed, since its number may be another's right after. False
// where the file is not one of the device's.
bool Closing(const std::FILE* stream);
bool Closing(int descriptor);

} // namespace host::devicefiles

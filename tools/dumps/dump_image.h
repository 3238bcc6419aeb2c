#pragma once

#include <filesystem>
#include <optional>

#include "host/picture/file_bytes.h"
#include "host/picture/image.h"
#include "tools/dumps/dump_set.h"
#include "tools/dumps/parameter_text.h"

// What a dump's bytes should be, and the image they make.

// Bytes of an NV12 dump of this pitch and height.
std::size_t Nv12Bytes(int pitch, int height);
std::size_t Y8Bytes(int pitch, int height);

// The image, of `width` pixels a row; what the file has beyond it is left out. Throws UseError that
// names the file where it has fewer bytes than its name says.
host::Image ReadNv12Dump(const std::filesystem::path& path, int width, int pitch, int height);
host::Image ReadY8Dump(const std::filesystem::path& path, int width, int pitch, int height);

// The same from bytes; what is missing stays 0.
host::Image Nv12FromBytes(const Bytes& bytes, int width, int pitch, int height);
host::Image Y8FromBytes(const Bytes& bytes, int width, int pitch, int height);

// Pixels in a row of the main image, which the parameters' name tells; its pitch where it does not.
int MainWidth(const DumpSet& set);

// The same for the output: the main image's where they are as high.
int OutputWidth(const DumpSet& set);

// For the aux image no name tells it. It is the main image's where pitch and height are the same;
// else the part of the sensor that it shows has its aspect, and padding that is one value from top
// to bottom gives the width where the aspect leaves a choice. `bytes` are the file's.
int AuxWidth(const DumpSet& set, const DumpParameters* parameters, const Bytes& bytes);

// Pixels in a row of this file of the set, read where needed.
int WidthOf(const DumpSet& set, DumpRole role);

// The set's parameters. Throws UseError where there are none.
ParameterText ReadParameters(const DumpSet& set);

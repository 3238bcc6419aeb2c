#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "host/picture/file_bytes.h"
#include "host/picture/image.h"
#include "tools/dumps/dump_set.h"
#include "tools/dumps/parameter_text.h"

// Dumped images: how many bytes they have, how wide they are, their pixels. Sizes are in pixels,
// pitches in bytes.

// A row has less padding than this: a phone's cameras, graphics processor and video codecs have
// rows aligned to powers of two up to 256 bytes.
constexpr int kMostPadding = 256;

// Y8 for the disparity, NV12 for the three images.
host::Image::Format FormatOf(DumpRole role);

// Bytes of an image with this pitch and height, or with those that the dump's name gives.
std::size_t ImageBytes(host::Image::Format format, int pitch, int height);
std::size_t ImageBytes(const DumpName& name);

// Whether there can be an image of this pitch and height: no longer than the tool takes pictures
// to be, and for NV12 an even pitch and two rows.
bool CanBeImage(host::Image::Format format, int pitch, int height);

// The image that a dump's bytes hold. Bytes that are missing are 0, further ones are ignored.
// `width` is limited to the pitch. For NV12 the pitch must be even.
host::Image ImageFromBytes(host::Image::Format format, const Bytes& bytes, int width, int pitch,
                           int height);

// The same from a file. Throws UseError if it cannot be read or has too few bytes.
host::Image ReadImageDump(const std::filesystem::path& path, host::Image::Format format, int width,
                          int pitch, int height);
host::Image ReadImageDump(const DumpFile& file, int width);

// What the files that the node wrote into this folder for one request lack of a whole set, a line
// each, after the reason for which the folder takes no more, as on a full disk. `disparity`:
// whether one was due.
std::vector<std::string> MissingOfSet(const std::filesystem::path& folder,
                                      const std::vector<std::filesystem::path>& files,
                                      bool disparity);

// Throws UseError if the set has no parameters or they cannot be read.
ParameterText ReadParameters(const DumpSet& set);

// Width of a file's image, read where needed. Names give it for the main image, by way of the
// parameters' name, and so for the output and the disparity. Where they do not it is the pitch.
int WidthOf(const DumpSet& set, DumpRole role);

// Width of the aux image, which no name gives. With the main image's pitch and height it has the
// main image's width, too. Otherwise its aspect is that of the sensor's part that it shows, and
// padding, which has one value from top to bottom, decides where the aspect leaves a choice.
// `parameters` may be null; `bytes` are the aux file's.
int AuxWidth(const DumpSet& set, const DumpParameters* parameters, const Bytes& bytes);

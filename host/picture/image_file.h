#pragma once

#include <filesystem>
#include <optional>

#include "host/picture/file_bytes.h"
#include "host/picture/image.h"
#include "host/picture/rgb_image.h"

// The longest side of a picture that the tool takes, in pixels.
constexpr int kLongestSide = 16384;
// The longest row of a dump, in bytes.
constexpr int kLongestPitch = 4 * kLongestSide;

// A JPEG or PNG picture, told apart by its first bytes. Grey becomes RGB, 16 bits become 8, what is
// transparent becomes black. The picture is as stored; `clockwise`, if given, is set to the degrees
// by which a JPEG's EXIF wants it turned, or to nothing where there is no such tag or it wants it
// mirrored. Throws UseError that names the file, what was expected and found.
RgbImage ReadImageFile(const std::filesystem::path& path, std::optional<int>* clockwise = nullptr);

// `clockwise`: 0, 90, 180 or 270 degrees.
RgbImage Turned(const RgbImage& picture, int clockwise);

// The picture as a PNG file's bytes; `height` rows of a Y8 image from `top` as one in grey.
Bytes EncodePng(const RgbImage& image);
Bytes EncodePng(const host::Image& grey, int top, int height);

// The picture as a JPEG file's bytes, with colours at full size. `quality`: 1 to 100.
Bytes EncodeJpeg(const RgbImage& image, int quality);

#pragma once

#include <filesystem>
#include <optional>

#include "host/picture/image.h"
#include "host/picture/rgb_image.h"

// A file that holds a picture, whatever its kind.
struct PictureFile {
    enum class Kind { kRgb, kNv12, kY8 };

    Kind kind = Kind::kRgb;
    RgbImage rgb;           // of a PNG or JPEG picture
    host::Image image;      // of a dump
    bool widthKnown = true; // false: a dump of which only the pitch is known

    int width() const { return kind == Kind::kRgb ? rgb.width : image.width(); }
    int height() const { return kind == Kind::kRgb ? rgb.height : image.height(); }
};

// The picture's kind by the file's name; everything that is no dump counts as PNG or JPEG.
PictureFile::Kind KindOf(const std::filesystem::path& path);

// Dumps are told by ".nv12" and ".Y8", and their names say pitch and height. `width`, in pixels, is
// that of a dump; without one it comes from the other files of its set, else it is the pitch.
// Throws UseError.
PictureFile ReadPictureFile(const std::filesystem::path& path, std::optional<int> width);

// Any kind as red, green and blue; disparity as grey.
RgbImage ToRgb(const PictureFile& picture);

RgbImage GreyToRgb(const host::Image& image);

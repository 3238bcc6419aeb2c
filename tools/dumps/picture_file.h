#pragma once

#include <filesystem>
#include <optional>

#include "host/picture/image.h"
#include "host/picture/rgb_image.h"

// A file that holds a picture: PNG or JPEG, or a dump.
struct PictureFile {
    enum class Kind { kRgb, kNv12, kY8 };

    Kind kind = Kind::kRgb;
    RgbImage rgb;           // of a PNG or JPEG picture
    host::Image image;      // of a dump
    bool widthKnown = true; // false: a dump of which only the pitch is known

    int width() const { return kind == Kind::kRgb ? rgb.width : image.width(); }
    int height() const { return kind == Kind::kRgb ? rgb.height : image.height(); }
};

// The kind by the file name's extension: .nv12 and .Y8 are dumps, all others PNG or JPEG.
PictureFile::Kind KindOf(const std::filesystem::path& path);

// A dump's name gives its pitch and height. Its width is `width`, in pixels, or else follows from
// the other files of its set, or else is the pitch. Throws UseError.
PictureFile ReadPictureFile(const std::filesystem::path& path, std::optional<int> width);

// The picture in red, green and blue; a disparity in grey.
RgbImage ToRgb(const PictureFile& picture);

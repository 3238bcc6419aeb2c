#include "tools/dumps/picture_file.h"

#include <algorithm>
#include <string>

#include <fmt/format.h>

#include "host/picture/errors.h"
#include "host/picture/image_file.h"
#include "host/picture/nv12.h"
#include "tools/dumps/dump_image.h"
#include "tools/dumps/dump_name.h"
#include "tools/files/console.h"

namespace fs = std::filesystem;

namespace {

// Nothing if only the pitch is known. A width that the user states comes before what the set tells.
std::optional<int> DumpWidth(const fs::path& path, const SizedName& name,
                             std::optional<int> width) {
    if (width && *width > name.first) {
        Refuse("--width", fmt::format("at most {}, the pitch of {}", name.first, path.string()),
               fmt::to_string(*width));
    }
    if (!width) {
        const auto set = SetOfFile(path);
        if (set && set->file(DumpRole::kParameters)) {
            return WidthOf(*set, ParseDumpName(path.filename().string())->role);
        }
    }
    return width;
}

RgbImage GreyToRgb(const host::Image& image) {
    RgbImage picture(image.width(), image.height());
    for (int y = 0; y < picture.height; ++y) {
        const std::uint8_t* row = image.row(0, y);
        for (int x = 0; x < picture.width; ++x) {
            picture.Set(x, y, {row[x], row[x], row[x]});
        }
    }
    return picture;
}

} // namespace

PictureFile::Kind KindOf(const fs::path& path) {
    std::string extension = path.extension().string();
    // Only ASCII letters are lowered: std::tolower would follow the locale.
    std::ranges::transform(extension, extension.begin(),
                           [](char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; });
    if (extension == ".nv12") {
        return PictureFile::Kind::kNv12;
    }
    return extension == ".y8" ? PictureFile::Kind::kY8 : PictureFile::Kind::kRgb;
}

PictureFile ReadPictureFile(const fs::path& path, std::optional<int> width) {
    PictureFile picture;
    picture.kind = KindOf(path);
    if (picture.kind == PictureFile::Kind::kRgb) {
        std::optional<int> clockwise;
        picture.rgb = ReadImageFile(path, &clockwise);
        // The picture is not turned, since pictures are compared and converted sample by sample
        // here; `render` does turn.
        if (clockwise.value_or(0) != 0) {
            PrintNotice(
                fmt::format("note: {}: taken as stored, not turned by the {} degrees of its "
                            "EXIF orientation",
                            path.string(), *clockwise));
        }
        return picture;
    }
    const auto name = ParseSizedName(path.filename().string());
    if (!name) {
        Refuse(path.string(),
               "a name that ends in pitch and height, such as _4096x3000" +
                   path.extension().string(),
               "none in it");
    }
    const bool nv12 = picture.kind == PictureFile::Kind::kNv12;
    ReadFileStart(path, 0); // refuses what is no file before its set is looked at
    const auto known = DumpWidth(path, *name, width);
    picture.widthKnown = known.has_value();
    picture.image = ReadImageDump(path, nv12 ? host::Image::Format::Nv12 : host::Image::Format::Y8,
                                  known.value_or(name->first), name->first, name->second);
    return picture;
}

RgbImage ToRgb(const PictureFile& picture) {
    switch (picture.kind) {
    case PictureFile::Kind::kNv12:
        return Nv12ToRgb(picture.image);
    case PictureFile::Kind::kY8:
        return GreyToRgb(picture.image);
    default:
        return picture.rgb;
    }
}

#include "tools/commands/commands.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include <fmt/core.h>

#include "host/picture/errors.h"
#include "host/picture/image_file.h"
#include "tools/commands/shared_options.h"
#include "tools/compare/difference.h"
#include "tools/dumps/dump_image.h"
#include "tools/dumps/picture_file.h"
#include "tools/files/console.h"
#include "tools/files/json_text.h"
#include "tools/files/output_folder.h"
#include "tools/files/progress.h"

namespace fs = std::filesystem;
using Kind = PictureFile::Kind;

namespace {

// Paths are empty where they were not given.
struct DiffOptions {
    fs::path a;
    fs::path b;
    std::optional<int> width;
    fs::path heatMap;
    fs::path mask;
    bool json = false;
};

Size SizeOf(const PictureFile& picture) {
    return {picture.width(), picture.height()};
}

// If only the pitch of a dump is known, its width is taken to be the other's: a dump and the PNG
// that was made of it can be compared without --width.
void AgreeOnWidth(PictureFile& picture, const PictureFile& other) {
    const bool narrower = !picture.widthKnown && other.widthKnown && picture.kind != Kind::kRgb &&
                          other.width() < picture.width();
    if (narrower) {
        const host::Image& image = picture.image;
        picture.image = ImageFromBytes(image.format(), image.bytes(), other.width(), image.pitch(),
                                       image.height());
    }
}

struct Pictures {
    PictureFile a;
    PictureFile b;
    host::Image mask; // without a size: everything is compared
};

// The brightness of the mask's pixels.
host::Image ReadMask(const fs::path& path, Size size) {
    const RgbImage picture = ToRgb(ReadPictureFile(path, {}));
    if (Size{picture.width, picture.height} != size) {
        Refuse("--mask", "a picture of " + InWords(size),
               InWords(Size{picture.width, picture.height}));
    }
    host::Image mask(host::Image::Format::Y8, size.width, size.height, size.width);
    for (std::size_t i = 0; i < mask.bytes().size(); ++i) {
        const std::uint8_t* const pixel = &picture.bytes[3 * i];
        mask.bytes()[i] = static_cast<std::uint8_t>((pixel[0] + pixel[1] + pixel[2]) / 3);
    }
    if (std::ranges::max(mask.bytes()) < 128) {
        Refuse("--mask", "a picture with white pixels, which are compared", "none");
    }
    return mask;
}

Pictures Read(const DiffOptions& options) {
    const Progress progress("reading the pictures");
    auto other =
        std::async(std::launch::async, [&] { return ReadPictureFile(options.b, options.width); });
    Pictures pictures;
    pictures.a = ReadPictureFile(options.a, options.width);
    pictures.b = other.get();
    AgreeOnWidth(pictures.a, pictures.b);
    AgreeOnWidth(pictures.b, pictures.a);
    if (pictures.a.kind != pictures.b.kind) { // pictures of two kinds are compared as RGB
        for (PictureFile* picture : {&pictures.a, &pictures.b}) {
            picture->rgb = ToRgb(*picture);
            picture->kind = Kind::kRgb;
        }
    }
    return pictures;
}

// Refuses to replace one of the pictures, or the mask, with the map of their differences.
void CheckHeatMap(const DiffOptions& options) {
    std::error_code none; // if there is no such file yet
    for (const fs::path& input : {options.a, options.b, options.mask}) {
        if (!options.heatMap.empty() && fs::equivalent(options.heatMap, input, none)) {
            Refuse("--heat-map", "a file of its own", input.string() + ", which is compared");
        }
    }
}

std::vector<std::string> WriteHeatMap(const fs::path& path, const Pictures& pictures) {
    const Progress progress("drawing the differences");
    const host::Image map = pictures.a.kind == Kind::kRgb
                                ? DifferenceMap(pictures.a.rgb, pictures.b.rgb, pictures.mask)
                                : DifferenceMap(pictures.a.image, pictures.b.image, pictures.mask);
    return WriteFile(path, EncodePng(HeatMap(map)));
}

// Tells that a dump is longer than its name says: the surplus is not compared.
void NoteSurplus(const fs::path& path, const PictureFile& picture) {
    std::error_code none;
    const auto size = fs::file_size(path, none);
    const auto rows = picture.image.bytes().size();
    if (KindOf(path) != Kind::kRgb && !none && size > rows) {
        PrintNotice(
            fmt::format("note: {}: {} bytes more than its name says, which are not compared",
                        path.string(), size - rows));
    }
}

void Print(const DiffOptions& options, const Json& answer, const std::string& words,
           const std::vector<std::string>& written) {
    if (options.json) {
        Json report{{"a", options.a.string()}, {"b", options.b.string()}};
        report.update(answer);
        report["written"] = written;
        std::printf("%s", JsonText(report).c_str());
    } else {
        PrintText(words);
        PrintWritten(written);
    }
}

int Diff(const DiffOptions& options) {
    CheckHeatMap(options);
    Pictures pictures = Read(options);
    const PictureFile& a = pictures.a;
    const PictureFile& b = pictures.b;
    if (SizeOf(a) != SizeOf(b)) {
        const std::string sizes[] = {InWords(SizeOf(a)), InWords(SizeOf(b))};
        // A dump without a set was read as wide as its pitch, which may be all that differs.
        const bool sure = a.widthKnown && b.widthKnown;
        Print(options, {{"identical", false}, {"sizes", sizes}},
              fmt::format("sizes differ: {} and {}{}\n", sizes[0], sizes[1],
                          sure ? "" : "; --width says how much of a dump's pitch is picture"),
              {});
        return kExitFailed;
    }
    NoteSurplus(options.a, a);
    NoteSurplus(options.b, b);
    if (!options.mask.empty()) {
        pictures.mask = ReadMask(options.mask, SizeOf(a));
    }
    std::optional<Progress> progress("comparing");
    const PictureDifference difference = a.kind == Kind::kRgb
                                             ? Compare(a.rgb, b.rgb, pictures.mask)
                                             : Compare(a.image, b.image, pictures.mask);
    progress.reset();
    std::vector<std::string> written;
    if (!options.heatMap.empty()) {
        written = WriteHeatMap(options.heatMap, pictures);
    }
    Json answer{{"width", a.width()}, {"height", a.height()}};
    answer.update(ToJson(difference));
    Print(options, answer, ToText(difference), written);
    return difference.identical() ? kExitDone : kExitFailed;
}

} // namespace

std::function<int()> PrepareDiff(Command command) {
    const auto options = std::make_shared<DiffOptions>();
    command.Path("A", "FILE", options->a, "a dump (.nv12, .Y8), or a PNG or JPEG picture")
        .Required();
    command.Path("B", "FILE", options->b, "another one of the same size").Required();
    command.Integer("--width", "PIXELS", 1, kLongestSide, options->width,
                    "pixels in a dump's row; the rest of the pitch is not\ncompared (default: as "
                    "its set tells, else the pitch)");
    command.Path("--heat-map", "FILE", options->heatMap,
                 "write a PNG of how far each place differs; grey: equal");
    command.Path("--mask", "FILE", options->mask,
                 "compare only the pixels that are white in this picture of\nthe same size");
    command.Flag("--json", options->json, "say it as JSON");
    command.Footer("Dumps of one kind are compared plane by plane, other pairs as red, green, "
                   "blue.\n"
                   "\n"
                   "Examples:\n"
                   "  bokehnode diff camera/IMG_20240131_235959_res_4096x3000.nv12 \\\n"
                   "      replayed/IMG_20240131_235959_res_4096x3000.nv12 --heat-map heat.png\n"
                   "  bokehnode diff before.png after.png --mask face.png --json\n"
                   "\n" +
                   ExitCodes("0 identical; 1 different"));
    return [options] { return Diff(*options); };
}

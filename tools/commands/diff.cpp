#include "tools/commands/commands.h"

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <system_error>

#include <CLI/App.hpp>
#include <CLI/Option.hpp>

#include "host/picture/errors.h"
#include "host/picture/image_file.h"
#include "tools/compare/difference.h"
#include "tools/dumps/dump_image.h"
#include "tools/dumps/picture_file.h"
#include "tools/files/json_text.h"
#include "tools/files/output_folder.h"
#include "tools/files/progress.h"

namespace fs = std::filesystem;
using Kind = PictureFile::Kind;

namespace {

struct DiffOptions {
    fs::path a;
    fs::path b;
    int width = 0;
    fs::path heatMap;
    bool json = false;
};

std::string SizeText(const PictureFile& picture) {
    return std::to_string(picture.width()) + "x" + std::to_string(picture.height());
}

// A dump of which only the pitch is known takes the other's width.
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
};

Pictures Read(const DiffOptions& options) {
    const Progress progress("reading the pictures");
    const auto width = options.width > 0 ? std::optional(options.width) : std::nullopt;
    auto other = std::async(std::launch::async, [&] { return ReadPictureFile(options.b, width); });
    Pictures pictures;
    pictures.a = ReadPictureFile(options.a, width);
    pictures.b = other.get();
    AgreeOnWidth(pictures.a, pictures.b);
    AgreeOnWidth(pictures.b, pictures.a);
    if (pictures.a.kind != pictures.b.kind) { // in the colours that both can be shown in
        for (PictureFile* picture : {&pictures.a, &pictures.b}) {
            picture->rgb = ToRgb(*picture);
            picture->kind = Kind::kRgb;
        }
    }
    return pictures;
}

// The map would replace what it is the map of.
void CheckHeatMap(const DiffOptions& options) {
    std::error_code none; // where there is no such file yet
    for (const fs::path& input : {options.a, options.b}) {
        if (!options.heatMap.empty() && fs::equivalent(options.heatMap, input, none)) {
            throw UseError("--heat-map: expected a file of its own, found " + input.string() +
                           ", which is compared");
        }
    }
}

void WriteHeatMap(const fs::path& path, const Pictures& pictures) {
    const Progress progress("drawing the differences");
    const host::Image map = pictures.a.kind == Kind::kRgb
                                ? DifferenceMap(pictures.a.rgb, pictures.b.rgb)
                                : DifferenceMap(pictures.a.image, pictures.b.image);
    OutputFolder folder(fs::absolute(path).parent_path());
    folder.Write(path.filename().string(), EncodePng(HeatMap(map)));
    folder.Commit();
}

// What is behind the rows that a dump's name counts is not compared.
void NoteSurplus(const fs::path& path, const PictureFile& picture) {
    std::error_code none; // a pipe has no size
    const auto size = fs::file_size(path, none);
    const auto rows = picture.image.bytes().size();
    if (KindOf(path) != Kind::kRgb && !none && size > rows) {
        std::fprintf(stderr,
                     "bokehnode: note: %s: %ju bytes more than its name says, which are not "
                     "compared\n",
                     path.c_str(), static_cast<std::uintmax_t>(size - rows));
    }
}

void Print(const DiffOptions& options, const Pictures& pictures,
           const PictureDifference& difference) {
    if (!options.json) {
        std::printf("%s", ToText(difference).c_str());
        return;
    }
    nlohmann::ordered_json report{{"a", options.a.string()},
                                  {"b", options.b.string()},
                                  {"width", pictures.a.width()},
                                  {"height", pictures.a.height()}};
    report.update(ToJson(difference));
    std::printf("%s", JsonText(report).c_str());
}

int Diff(const DiffOptions& options) {
    CheckHeatMap(options);
    const Pictures pictures = Read(options);
    const PictureFile& a = pictures.a;
    const PictureFile& b = pictures.b;
    if (a.width() != b.width() || a.height() != b.height()) {
        const bool unsure = !a.widthKnown || !b.widthKnown;
        if (options.json) {
            std::printf("%s", JsonText({{"a", options.a.string()},
                                        {"b", options.b.string()},
                                        {"identical", false},
                                        {"sizes", {SizeText(a), SizeText(b)}}})
                                  .c_str());
        } else {
            std::printf("sizes differ: %s and %s%s\n", SizeText(a).c_str(), SizeText(b).c_str(),
                        unsure ? "; --width says how much of a dump's pitch is picture" : "");
        }
        return kExitFailed;
    }
    NoteSurplus(options.a, a);
    NoteSurplus(options.b, b);
    PictureDifference difference;
    {
        const Progress progress("comparing");
        difference = a.kind == Kind::kRgb ? Compare(a.rgb, b.rgb) : Compare(a.image, b.image);
    }
    if (!options.heatMap.empty()) {
        WriteHeatMap(options.heatMap, pictures);
    }
    Print(options, pictures, difference);
    return difference.identical() ? kExitDone : kExitFailed;
}

} // namespace

std::function<int()> PrepareDiff(CLI::App& command) {
    const auto options = std::make_shared<DiffOptions>();
    command.add_option("A", options->a, "a dump (.nv12, .Y8), or a PNG or JPEG picture")
        ->required();
    command.add_option("B", options->b, "another one of the same size")->required();
    command
        .add_option("--width", options->width,
                    "pixels in a dump's row; the rest of the pitch is not\ncompared (default: as "
                    "its set tells, else the pitch)")
        ->type_name("PIXELS")
        ->check(CLI::Range(1, kLongestSide));
    command
        .add_option("--heat-map", options->heatMap,
                    "write a PNG of how far each place differs; grey: equal")
        ->type_name("FILE");
    command.add_flag("--json", options->json, "say it as JSON");
    command.footer("Dumps of one kind are compared plane by plane, other pairs as red, green, "
                   "blue.\n"
                   "\n"
                   "Examples:\n"
                   "  bokehnode diff camera/IMG_20240131_235959_res_4096x3000.nv12 \\\n"
                   "      replayed/IMG_20240131_235959_res_4096x3000.nv12 --heat-map heat.png\n"
                   "  bokehnode diff before.png after.png --json\n"
                   "\n"
                   "Exit codes: 0 identical; 1 different; 2 wrong use or unreadable input.");
    return [options] { return Diff(*options); };
}

#include "tools/commands/commands.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <fmt/core.h>

#include "host/picture/errors.h"
#include "host/picture/false_colour.h"
#include "host/picture/image_file.h"
#include "host/picture/nv12.h"
#include "platform/device_names.h"
#include "tools/commands/shared_options.h"
#include "tools/dumps/dump_name.h"
#include "tools/dumps/picture_file.h"
#include "tools/files/console.h"
#include "tools/files/json_text.h"
#include "tools/files/output_folder.h"
#include "tools/files/progress.h"

namespace fs = std::filesystem;
using Kind = PictureFile::Kind;

namespace {

constexpr char kKinds[] = "png|nv12|y8";
constexpr std::string_view kDisparityPng = "_disparity.png"; // in place of .Y8

// The pitch is 0, and texts empty, where they were not given.
struct ConvertOptions {
    std::vector<fs::path> files;
    fs::path output;
    std::string to;
    std::optional<int> width;
    int pitch = 0;
    bool falseColour = false;
    bool commands = false;
    bool force = false;
    bool json = false;
};

// What was made of one file, and its size in pixels.
struct Written {
    std::vector<std::string> files;
    fs::path path; // absolute
    int width = 0;
    int height = 0;
};

// The text as one word of a POSIX shell. Within single quotes only the quote itself has a meaning:
// it is closed, escaped and opened again.
std::string Quoted(const std::string& text) {
    constexpr char kPlain[] =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789/._-+,=";
    if (text.find_first_not_of(kPlain) == std::string::npos) {
        return text;
    }
    std::string quoted = "'";
    for (const char character : text) {
        quoted += character == '\'' ? std::string("'\\''") : std::string(1, character);
    }
    return quoted + "'";
}

// Command lines that open a dump in its true colours and without its padding.
struct Commands {
    std::string ffplay;
    std::string ffmpeg;
};

Commands CommandsFor(const fs::path& path, const PictureFile& picture) {
    const bool nv12 = picture.kind == Kind::kNv12;
    // The pitch is stated as the width, and the padding is cropped away by the filter.
    const std::string input =
        fmt::format("-f rawvideo -pixel_format {} -video_size {}x{}", nv12 ? "nv12" : "gray",
                    picture.image.pitch(), picture.image.height());
    // A raw file does not say its range or matrix, and the viewers' default is limited range.
    const std::string filter =
        fmt::format("crop={}:{}:0:0{}", picture.width(), picture.height(),
                    nv12 ? ",scale=in_range=full:out_range=full:in_color_matrix=bt601"
                           ":flags=neighbor+accurate_rnd+full_chroma_int,format=rgb24"
                         : "");
    fs::path png = path.filename();
    png.replace_extension(".png");
    const std::string file = Quoted(path.string());
    return {fmt::format("ffplay {} -vf {} {}", input, filter, file),
            fmt::format("ffmpeg -y {} -i {} -vf {} -frames:v 1 {}", input, file, filter,
                        Quoted(png.string()))};
}

Kind TargetOf(const ConvertOptions& options, Kind source) {
    if (options.to.empty()) {
        return source == Kind::kRgb ? Kind::kNv12 : Kind::kRgb;
    }
    return options.to == "png" ? Kind::kRgb : options.to == "nv12" ? Kind::kNv12 : Kind::kY8;
}

RgbImage Coloured(const host::Image& disparity) {
    return *DisparityPicture(disparity, static_cast<std::int32_t>(disparity.planeSize(0)));
}

host::Image GreyImage(const fs::path& path, const RgbImage& picture, int pitch) {
    host::Image image(host::Image::Format::Y8, picture.width, picture.height,
                      pitch > 0 ? pitch : picture.width);
    const std::uint8_t* from = picture.bytes.data();
    for (int y = 0; y < picture.height; ++y) {
        std::uint8_t* row = image.row(0, y);
        for (int x = 0; x < picture.width; ++x, from += 3) {
            // Values of a disparity must come through unchanged, so that colours are not averaged.
            if (from[0] != from[1] || from[0] != from[2]) {
                Refuse(path, "a grey picture for Y8", fmt::format("colour at {},{}", x, y));
            }
            row[x] = from[0];
        }
    }
    return image;
}

// The pitch asked for; else, if the picture was made from a dump, the one that its name tells.
int PitchFor(const ConvertOptions& options, const std::optional<SizedName>& name,
             const RgbImage& picture, Kind kind) {
    // Chroma comes in pairs: an odd last column or row of the picture has none.
    const int step = kind == Kind::kNv12 ? 2 : 1;
    const int width = picture.width / step * step;
    const int height = picture.height / step * step;
    if (options.pitch != 0) {
        if (options.pitch < width) {
            Refuse("--pitch", fmt::format("at least {}, the picture's width", width),
                   std::to_string(options.pitch));
        }
        if (options.pitch % step != 0) {
            Refuse("--pitch", "an even number for NV12", std::to_string(options.pitch));
        }
        return options.pitch;
    }
    const bool named =
        name && name->first >= width && name->first % step == 0 && name->second == height;
    return named ? name->first : width;
}

// The files of this run so far: two inputs may have the same name in different folders.
using Results = std::set<fs::path>;

// Existing pictures are replaced, since they can be made from their dumps again. Dumps are not: a
// device wrote them, and a picture has lost some of their bits.
void CheckResult(const ConvertOptions& options, const fs::path& result, bool dump,
                 const Results& earlier) {
    // "a/x.png" and "b/x.png" would replace one another in the folder of --output.
    if (earlier.contains(result)) {
        Refuse(result, "one result of this name", "a second one in the same run");
    }
    if (dump && !options.force && fs::exists(fs::symlink_status(result))) {
        Refuse(result, "no dump of this name",
               "one; --output names another folder, --force replaces it");
    }
}

Written WriteDump(const ConvertOptions& options, const fs::path& path, const RgbImage& picture,
                  Kind kind, OutputFolder& folder, const Results& earlier) {
    std::string source = path.filename().string();
    if (kind == Kind::kY8 && source.ends_with(kDisparityPng)) {
        source.replace(source.size() - kDisparityPng.size(), kDisparityPng.size(), ".png");
    }
    const auto name = ParseSizedName(source);
    const int pitch = PitchFor(options, name, picture, kind);
    const host::Image image =
        kind == Kind::kNv12 ? RgbToNv12(picture, pitch) : GreyImage(path, picture, pitch);
    const SizedName target{name ? name->base : path.stem().string(), image.pitch(), image.height(),
                           kind == Kind::kNv12 ? device::kImageDumpEnding
                                               : device::kDisparityDumpEnding};
    CheckResult(options, folder.path() / target.FileName(), true, earlier);
    folder.Write(target.FileName(), image.bytes());
    return {{}, folder.path() / target.FileName(), image.width(), image.height()};
}

Written ConvertOne(const ConvertOptions& options, const fs::path& path, const Results& earlier) {
    const Progress progress("converting " + path.filename().string());
    const PictureFile picture = ReadPictureFile(path, options.width);
    const Kind target = TargetOf(options, picture.kind);
    if (target == picture.kind || (target != Kind::kRgb && picture.kind != Kind::kRgb)) {
        Refuse(path,
               target == Kind::kRgb ? "a dump to make a PNG of"
                                    : "a PNG or JPEG picture to make a dump of",
               picture.kind == Kind::kRgb ? "a picture" : "a dump");
    }
    // Each file is committed by itself: one that fails leaves the others' results.
    OutputFolder folder(options.output.empty() ? path.parent_path() : options.output);
    Written written;
    if (target == Kind::kRgb) {
        const bool coloured = options.falseColour && picture.kind == Kind::kY8;
        std::string name = path.stem().string();
        name += picture.kind == Kind::kY8 ? kDisparityPng : ".png";
        CheckResult(options, folder.path() / name, false, earlier);
        folder.Write(name, EncodePng(coloured ? Coloured(picture.image) : ToRgb(picture)));
        written = {{}, folder.path() / name, picture.width(), picture.height()};
    } else {
        written = WriteDump(options, path, picture.rgb, target, folder, earlier);
    }
    folder.Commit();
    written.files = folder.written();
    return written;
}

Json ShowCommands(const ConvertOptions& options, const fs::path& path) {
    if (KindOf(path) == Kind::kRgb) {
        Refuse(path, "a dump", "another kind of file");
    }
    const Commands commands = CommandsFor(path, ReadPictureFile(path, options.width));
    if (!options.json) {
        PrintText(commands.ffplay + "\n" + commands.ffmpeg + "\n");
    }
    return {{"from", path.string()}, {"ffplay", commands.ffplay}, {"ffmpeg", commands.ffmpeg}};
}

Json ShowConverted(const ConvertOptions& options, const fs::path& path, Results& results) {
    const Written written = ConvertOne(options, path, results);
    results.insert(written.path);
    if (!options.json) {
        PrintWritten(written.files);
    }
    return {{"from", path.string()},
            {"written", written.files},
            {"width", written.width},
            {"height", written.height}};
}

// Refuses an option that none of the files can have a use for.
void CheckOptions(const ConvertOptions& options) {
    const auto any = [&options](Kind kind) {
        return std::ranges::find(options.files, kind, KindOf) != options.files.end();
    };
    if (options.falseColour && !any(Kind::kY8)) {
        Refuse("--false-colour", "a disparity, .Y8, to colour", "none");
    }
    if (options.pitch != 0 && !any(Kind::kRgb)) {
        Refuse("--pitch", "a picture to make a dump of", "none");
    }
    if (options.width && !any(Kind::kNv12) && !any(Kind::kY8)) {
        Refuse("--width", "a dump", "none");
    }
}

// A file that cannot be converted is reported in its place; the others are converted.
int Convert(const ConvertOptions& options) {
    CheckOptions(options);
    Json report = Json::array();
    Results results;
    int code = kExitDone;
    for (const fs::path& path : options.files) {
        const std::string mistake = MistakeIn([&] {
            report.push_back(options.commands ? ShowCommands(options, path)
                                              : ShowConverted(options, path, results));
        });
        if (!mistake.empty()) {
            PrintNotice(mistake);
            report.push_back({{"from", path.string()}, {"error", mistake}});
            code = kExitWrongUse;
        }
    }
    if (options.json) {
        std::printf("%s", JsonText(report).c_str());
    }
    return code;
}

} // namespace

std::function<int()> PrepareConvert(Command command) {
    const auto options = std::make_shared<ConvertOptions>();
    command.Paths("FILE", "FILE", options->files, "dumps (.nv12, .Y8), or PNG or JPEG pictures")
        .Required();
    command.Path("-o,--output", "DIR", options->output,
                 "folder for the results (default: each file's)");
    command.Value(
        "--to", kKinds, [options](const Argument& kind) { options->to = kind.OneOf(kKinds); },
        "kind of the results (default: a dump to png, a picture\nto nv12)");
    command.Integer("--width", "PIXELS", 1, kLongestSide, options->width,
                    "pixels in a dump's row (default: as its set tells,\nelse the pitch)");
    command.Integer("--pitch", "BYTES", 2, kLongestPitch, options->pitch,
                    "bytes from row to row of a new dump (default: the\npitch in the picture's "
                    "name, else the width)");
    command.Flag("--false-colour", options->falseColour, "disparity in colours, with a scale");
    command
        .Flag("--commands", options->commands,
              "convert nothing; print the ffplay and ffmpeg lines that open\neach dump")
        .Excludes("--false-colour");
    command.Flag("--force", options->force, "replace dumps that exist");
    command.Flag("--json", options->json, "say what was written as JSON");
    command.Footer("A dump's name says its pitch and height: NAME_4096x3000.nv12. Y8 becomes\n"
                   "NAME_disparity.png.\n"
                   "\n"
                   "Examples:\n"
                   "  bokehnode convert camera/IMG_20240131_235959_0_4096x3000.nv12 -o seen\n"
                   "  bokehnode convert camera/*.Y8 --false-colour\n"
                   "  bokehnode convert left.png --pitch 4096 -o dumps\n"
                   "  bokehnode convert --commands camera/*.nv12\n"
                   "\n" +
                   ExitCodes("0 converted"));
    return [options] { return Convert(*options); };
}

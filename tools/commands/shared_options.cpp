#include "tools/commands/shared_options.h"

#include <cstdio>
#include <stdexcept>

#include <fmt/core.h>

#include "host/control/faults.h"
#include "host/picture/errors.h"
#include "host/picture/image_file.h"
#include "platform/properties.h"

namespace {

// Faces may lie partly outside of the image here; the commands check them once its size is known.
ChiRect ParseFace(const Argument& argument) {
    const auto n = argument.Integers("L,T,W,H", -kMostPixels, kMostPixels);
    if (n[2] < 0 || n[3] < 0) {
        argument.Refuse("a width and a height of 0 or more");
    }
    return {n[0], n[1], static_cast<std::uint32_t>(n[2]), static_cast<std::uint32_t>(n[3])};
}

std::pair<std::string, std::string> ParseProperty(const Argument& argument) {
    constexpr std::size_t kLongestValue = kPropertyValueMax - 1;
    const std::string& text = argument.text;
    // The first one: a value may hold others, a name cannot.
    const auto equals = text.find('=');
    if (equals == 0 || equals == std::string::npos) {
        argument.Refuse("NAME=VALUE");
    }
    const std::string value = text.substr(equals + 1);
    if (value.size() > kLongestValue) {
        argument.Refuse(fmt::format("a value of at most {} bytes", kLongestValue));
    }
    return {text.substr(0, equals), value};
}

// Arming checks the text. The run resets all failures and arms them again before the node is made.
std::string ParseFailure(const Argument& argument) {
    try {
        host::Faults::Arm(argument.text);
    } catch (const std::invalid_argument& error) {
        throw UseError(argument.name + ": " + error.what());
    }
    return argument.text;
}

} // namespace

void AddRequestOptions(Command& command, RequestOptions& options, const std::string& defaults) {
    const auto help = [&defaults](const char* what, const std::string& ownDefault) {
        return fmt::format("{} (default: {})", what, defaults.empty() ? ownDefault : defaults);
    };
    command.Value(
        "--focus", "X,Y",
        [&options](const Argument& argument) {
            const auto n = argument.Integers("X,Y");
            options.focus = Point{n[0], n[1]};
        },
        "focus on this point of the main image, as a tap does");
    command.Repeated(
        "--face", "L,T,W,H",
        [&options](const Argument& argument) {
            // The platform's record has room for so many.
            if (options.faces.size() == kMaxFaces) {
                argument.Refuse(fmt::format("at most {} faces", kMaxFaces));
            }
            options.faces.push_back(ParseFace(argument));
        },
        help("a detected face; may be repeated", "none"));
    command.Integer("--face-rotation", "DEG", -360, 360, options.faceRotation,
                    help("rotation of all faces", "0"));
    command.Integer("--blur", "0..100", 0, 100, options.blur, help("blur level", "100"));
    command.Rotation("--rotation", options.rotation,
                     help("rotation of the images against the scene", "0"));
    command.Integer("--pitch", "BYTES", 2, kLongestPitch, options.pitch,
                    help("bytes from row to row", "the width"));
    const auto size = [&command](const char* name, std::optional<Size>& into,
                                 const std::string& what) {
        command.Value(
            name, "WxH",
            [&into](const Argument& argument) {
                into = argument.Sides("WxH", kShortestSensorSide, kLongestSensorSide);
            },
            what);
    };
    size("--main-crop", options.mainCrop,
         help("part of its sensor that the main image shows", "all"));
    size("--aux-crop", options.auxCrop, "the same of the aux image");
    size("--main-sensor", options.mainSensor,
         fmt::format("size of the main sensor (default: {})",
                     defaults.empty() ? "the image's" : "as calibrated"));
    size("--aux-sensor", options.auxSensor, "the same of the aux sensor");
}

void AddRunOptions(Command& command, RunOptions& options, const std::string& calibration) {
    command.Path("--calibration", "FILE", options.calibration,
                 fmt::format("the device's calibration file (default: {})", calibration));
    command.Integer("--debug-view", "0..3", 0, 3, options.debugView,
                    "1 main, 2 aux, 3 main with aux in its corner");
    command.Integer("--log", "MASK", 0, 255, options.logMask,
                    "log mask: 2 the node's debug lines, 6 all");
    command.Repeated(
        "--set", "NAME=VALUE",
        [&](const Argument& argument) { options.properties.push_back(ParseProperty(argument)); },
        "set a system property, as setprop; may be repeated");
    command.Repeated(
        "--fail", "CALL[:N[:RESULT]]",
        [&](const Argument& argument) { options.failures.push_back(ParseFailure(argument)); },
        "let the N-th call (default: the first) of this function of\nthe platform or the stand-in "
        "engine fail with RESULT; may be\nrepeated");
    AddOutputFile(
        command, "--trace", ".json", options.trace,
        "write each callback, operation and call as a timeline\nfor Perfetto, ending in .json");
    command.Integer("--timeout", "SECONDS", 1, 1'000'000, options.timeout,
                    "give up after this time: reading, the node and the engine,\ncomparing and "
                    "writing of one set, but not the checksums of\n`replay --all`");
    command.Path("--node", "FILE", options.node, "the node's library");
    command.Path("--engine", "FILE", options.engine, "the engine's library");
}

void AddReplayChanges(Command& command, ReplayOptions& options) {
    AddRequestOptions(command, options, "as dumped");
    command.Flag("--no-faces", options.noFaces, "leave the dumped faces out").Excludes("--face");
    command.Flag("--skip-bokeh", options.skipBokeh, "ask for the disparity but no rendering");
    command.Integer("--main-width", "PIXELS", 2, kLongestSide, options.mainWidth,
                    "pixels in a row of the main image (default: as the set\ntells)");
    command.Integer("--aux-width", "PIXELS", 2, kLongestSide, options.auxWidth,
                    "the same of the aux image");
    AddRunOptions(command, options, "the one beside the\nset, else one for a rectified pair");
}

// The list is the stand-ins' own, so that a new call point appears by itself.
std::string FailureHelp() {
    std::string help = "\n\nCalls for --fail, what it means that they fail, and RESULT if none is "
                       "given:\n";
    for (const host::CallDescription& call : host::Faults::List()) {
        help += fmt::format("  {:<40} {}{}\n", call.name, call.effect,
                            call.result ? fmt::format(" ({})", *call.result) : "");
    }
    return help;
}

std::string ExitCodes(const std::string& others) {
    return fmt::format("Exit codes: {};\n"
                       "2 wrong use, unreadable input or a file that cannot be written.",
                       others);
}

Option AddOutputFile(Command& command, const char* name, const char* ending,
                     std::filesystem::path& file, const std::string& help) {
    return command.Value(
        name, "FILE",
        [&file, ending](const Argument& argument) {
            // `--report out.png left.png ...`, with a word forgotten, must not replace a picture.
            if (std::filesystem::path(argument.text).extension() != ending) {
                argument.Refuse(std::string("a file name that ends in ") + ending);
            }
            file = argument.text;
        },
        help);
}

Option AddReportOption(Command& command, std::filesystem::path& file) {
    return AddOutputFile(command, "--report", ".html", file,
                         "write a page for a browser that shows all of it, ending\nin .html");
}

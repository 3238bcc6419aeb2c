#include "tools/commands/options.h"

#include <charconv>
#include <string>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include "host/picture/image_file.h"
#include "platform/properties.h"

namespace {

using Text = const std::string&;

[[noreturn]] void Refuse(const char* option, const std::string& expected, Text found) {
    throw CLI::ValidationError(option, "expected " + expected + ", found \"" + found + "\"");
}

// A face may lie outside the picture, as one that leaves it does, and be as small as it likes.
ChiRect ParseFace(Text text) {
    const auto n = ParseNumbers("--face", text, 4, ',', "L,T,W,H");
    if (n[2] < 0 || n[3] < 0) {
        Refuse("--face", "a width and a height of 0 or more", text);
    }
    return {n[0], n[1], static_cast<std::uint32_t>(n[2]), static_cast<std::uint32_t>(n[3])};
}

ChiWeightedRegion ParseRegion(Text text) {
    const auto n = ParseNumbers("--af-region", text, 4, ',', "L,T,R,B");
    if (n[2] < n[0] || n[3] < n[1]) {
        Refuse("--af-region", "R not left of L and B not above T", text);
    }
    return {n[0], n[1], n[2], n[3]};
}

Size ParseSize(Text text) {
    const auto n = ParseNumbers("--size", text, 2, 'x', "WxH");
    for (const int side : n) {
        if (side < 2 || side > kLongestSide || side % 2 != 0) {
            Refuse("--size", "even sides of 2 to " + std::to_string(kLongestSide), text);
        }
    }
    return {n[0], n[1]};
}

std::pair<std::string, std::string> ParseProperty(Text text) {
    const auto equals = text.find('=');
    if (equals == 0 || equals == std::string::npos) {
        Refuse("--set", "NAME=VALUE", text);
    }
    const std::string value = text.substr(equals + 1);
    if (value.size() >= static_cast<std::size_t>(kPropertyValueMax)) {
        Refuse("--set", "a value of at most " + std::to_string(kPropertyValueMax - 1) + " bytes",
               text);
    }
    return {text.substr(0, equals), value};
}

// Within bounds or refused with the bounds named.
int ParseBounded(const char* option, Text text, int low, int high) {
    const std::string form = std::to_string(low) + " to " + std::to_string(high);
    const int number = ParseNumbers(option, text, 1, ',', form).front();
    if (number < low || number > high) {
        Refuse(option, form, text);
    }
    return number;
}

void AddImageOptions(CLI::App& command, RenderOptions& options) {
    command.add_option("MAIN", options.main, "the main camera's picture, JPEG or PNG")
        ->required()
        ->type_name("FILE");
    command.add_option("AUX", options.aux, "the aux camera's picture of the same moment")
        ->required()
        ->type_name("FILE");
    command.add_option("-o,--output", options.output, "folder for the results, made if missing")
        ->required()
        ->type_name("DIR");
    AddReportOption(command, options.report);
    command.add_flag("--json", options.json, "print what tags.json says");
    command
        .add_option_function<std::string>(
            "--size", [&](Text text) { options.size = ParseSize(text); },
            "scale both pictures to this size first")
        ->type_name("WxH");
    command
        .add_option_function<std::string>(
            "--pitch",
            [&](Text text) { options.pitch = ParseBounded("--pitch", text, 2, 4 * kLongestSide); },
            "bytes from row to row (default: the width)")
        ->type_name("BYTES");
}

void AddFocusOptions(CLI::App& command, RenderOptions& options) {
    auto* point = command
                      .add_option_function<std::string>(
                          "--focus",
                          [&](Text text) {
                              const auto n = ParseNumbers("--focus", text, 2, ',', "X,Y");
                              options.focus = Point{n[0], n[1]};
                          },
                          "focus on this point, as a tap on the screen does")
                      ->type_name("X,Y");
    command
        .add_option_function<std::string>(
            "--af-region", [&](Text text) { options.afRegion = ParseRegion(text); },
            "auto-focus region, edges included")
        ->type_name("L,T,R,B")
        ->excludes(point);
    command
        .add_option_function<std::string>(
            "--af-mode", [&](Text text) { options.afMode = ParseBounded("--af-mode", text, 0, 5); },
            "auto-focus mode; 4, continuous, follows faces\n"
            "(default: 1 with --focus or --af-region, else 4)")
        ->type_name("N");
}

void AddFaceOptions(CLI::App& command, RenderOptions& options) {
    command
        .add_option_function<std::vector<std::string>>(
            "--face",
            [&](const std::vector<std::string>& texts) {
                for (Text text : texts) {
                    options.faces.push_back(ParseFace(text));
                }
                if (options.faces.size() > kMaxFaces) {
                    Refuse("--face", "at most " + std::to_string(kMaxFaces) + " faces",
                           std::to_string(options.faces.size()));
                }
            },
            "a detected face; may be repeated")
        ->type_name("L,T,W,H")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    command
        .add_option_function<std::string>(
            "--face-rotation",
            [&](Text text) {
                options.faceRotation = ParseBounded("--face-rotation", text, -360, 360);
            },
            "rotation of the faces")
        ->type_name("DEG");
    command
        .add_option_function<std::string>(
            "--select-face",
            [&](Text text) {
                options.selectedFace = static_cast<std::uint32_t>(
                    ParseBounded("--select-face", text, 0, static_cast<int>(kMaxFaces) - 1));
            },
            "focus on this face, from 0 (default: the largest)")
        ->type_name("N");
}

void AddLookOptions(CLI::App& command, RenderOptions& options) {
    command
        .add_option_function<std::string>(
            "--blur",
            [&](Text text) {
                options.blur = static_cast<std::uint32_t>(ParseBounded("--blur", text, 0, 100));
            },
            "blur level (default: 100)")
        ->type_name("0..100");
    command
        .add_option_function<std::string>(
            "--rotation",
            [&](Text text) {
                const int degrees = ParseNumbers("--rotation", text, 1, ',', "degrees").front();
                if (degrees < 0 || degrees > 270 || degrees % 90 != 0) {
                    Refuse("--rotation", "0, 90, 180 or 270", text);
                }
                options.rotation = static_cast<std::uint32_t>(degrees);
            },
            "rotation of the pictures against the scene (default: 0)")
        ->type_name("DEG");
}

void AddDeviceOptions(CLI::App& command, RenderOptions& options) {
    command.add_flag("--dump", options.dump,
                     "let the node dump images and parameters into the device\n"
                     "root's data/vendor/camera, or without --device-root\n"
                     "beside the output");
    command
        .add_option("--device-root", options.deviceRoot,
                    "folder in place of the device's / (default: a temporary one)")
        ->type_name("DIR");
    command
        .add_option("--calibration", options.calibration,
                    "calibration file (default: the device root's, or where it\n"
                    "has none, one for a rectified pair)")
        ->type_name("FILE");
}

} // namespace

void AddPropertyOptions(CLI::App& command, RenderOptions& options) {
    command
        .add_option_function<std::string>(
            "--debug-view",
            [&](Text text) { options.debugView = ParseBounded("--debug-view", text, 0, 3); },
            "1 main, 2 aux, 3 main with aux in its corner")
        ->type_name("0..3");
    command
        .add_option_function<std::string>(
            "--log", [&](Text text) { options.logMask = ParseBounded("--log", text, 0, 255); },
            "log mask: 2 the node's debug lines, 6 all")
        ->type_name("MASK");
    command
        .add_option_function<std::vector<std::string>>(
            "--set",
            [&](const std::vector<std::string>& texts) {
                for (Text text : texts) {
                    options.properties.push_back(ParseProperty(text));
                }
            },
            "set a system property, as setprop; may be repeated")
        ->type_name("NAME=VALUE")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

void AddLibraryOptions(CLI::App& command, RenderOptions& options) {
    command.add_option("--node", options.node, "the node's library")->type_name("FILE");
    command.add_option("--engine", options.engine, "the engine's library")->type_name("FILE");
}

void AddRenderOptions(CLI::App& command, RenderOptions& options) {
    AddImageOptions(command, options);
    AddFocusOptions(command, options);
    AddFaceOptions(command, options);
    AddLookOptions(command, options);
    AddPropertyOptions(command, options);
    AddDeviceOptions(command, options);
    AddLibraryOptions(command, options);
    command.footer(
        "Writes DIR/output.png, DIR/disparity.png (where the engine computed one) and\n"
        "DIR/tags.json. Places are pixels of the main picture, after --size. A report shows\n"
        "what the node dumps too: with --device-root it implies --dump.\n"
        "\n"
        "Examples:\n"
        "  bokehnode render left.png right.png -o out --focus 370,180\n"
        "  bokehnode render left.jpg right.jpg -o out --face 410,220,90,110 --blur 60\n"
        "  bokehnode render left.png right.png -o out --size 4000x3000 --pitch 4096\n"
        "  bokehnode render left.png right.png -o out --debug-view 3 --log 6 --dump\n"
        "  bokehnode render left.png right.png -o out --log 6 --report out/report.html\n"
        "\n"
        "Exit codes: 0 rendered; 1 the node or the engine failed or fell back to a copy of\n"
        "the main picture; 2 wrong use or unreadable input.");
}

CLI::Option* AddReportOption(CLI::App& command, std::filesystem::path& file) {
    return command
        .add_option("--report", file,
                    "write a page for a browser that shows all of it, ending\nin .html")
        ->type_name("FILE")
        ->check([](const std::string& text) {
            // Nobody's picture is to be lost to a forgotten word on the command line.
            const std::string ending = std::filesystem::path(text).extension().string();
            return ending == ".html" || ending == ".htm"
                       ? std::string()
                       : "expected a file name that ends in .html, found \"" + text + "\"";
        });
}

std::vector<int> ParseNumbers(const std::string& option, const std::string& text, std::size_t count,
                              char separator, const std::string& form) {
    std::vector<int> numbers;
    const char* at = text.data();
    const char* const end = at + text.size();
    while (numbers.size() < count) {
        int number = 0;
        const auto [next, error] = std::from_chars(at, end, number);
        if (error != std::errc()) {
            break;
        }
        numbers.push_back(number);
        at = next;
        if (numbers.size() < count) {
            if (at == end || *at != separator) {
                break;
            }
            ++at;
        }
    }
    if (numbers.size() != count || at != end) {
        throw CLI::ValidationError(option, "expected " + form + " in whole numbers, found \"" +
                                               text + "\"");
    }
    return numbers;
}

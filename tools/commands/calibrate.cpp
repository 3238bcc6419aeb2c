#include "tools/commands/commands.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <CLI/App.hpp>
#include <CLI/Option.hpp>

#include "host/picture/errors.h"
#include "host/picture/image_file.h"
#include "tools/calibrate/board_calibration.h"
#include "tools/calibrate/calibration_record.h"
#include "tools/commands/options.h"
#include "tools/files/json_text.h"
#include "tools/files/output_folder.h"
#include "tools/files/progress.h"

namespace fs = std::filesystem;

namespace {

struct CalibrateOptions {
    std::vector<fs::path> main;
    std::vector<fs::path> aux;
    Board board;
    bool boardGiven = false;
    std::optional<double> square;
    fs::path intrinsics;
    fs::path extrinsics;
    std::optional<Size> size;
    std::optional<Size> auxSize;
    fs::path show;
    fs::path output;
    std::int32_t mountAngle = 0;
    double nearest = 0;
    bool json = false;
};

nlohmann::ordered_json ViewsJson(const BoardCalibration& boards) {
    nlohmann::ordered_json views = nlohmann::ordered_json::array();
    for (const BoardView& view : boards.views) {
        nlohmann::ordered_json entry{{"main", view.main.string()}, {"aux", view.aux.string()}};
        if (view.dropped.empty()) {
            entry["mainError"] = view.mainError;
            entry["auxError"] = view.auxError;
        } else {
            entry["dropped"] = view.dropped;
        }
        views.push_back(entry);
    }
    return views;
}

void PrintViews(const BoardCalibration& boards) {
    for (const BoardView& view : boards.views) {
        const std::string pair = view.main.filename().string() + " " + view.aux.filename().string();
        if (view.dropped.empty()) {
            std::printf("%s: main %.3f, aux %.3f pixels off\n", pair.c_str(), view.mainError,
                        view.auxError);
        } else {
            std::printf("%s: left out: %s\n", pair.c_str(), view.dropped.c_str());
        }
    }
    std::printf("all together %.3f pixels off\n", boards.error);
}

void ShowResult(const CalibrateOptions& options, const refocus::Calibration& calibration,
                const BoardCalibration* boards) {
    if (options.json) {
        nlohmann::ordered_json report = ToJson(calibration);
        if (boards != nullptr) {
            report["views"] = ViewsJson(*boards);
            report["error"] = boards->error;
        }
        std::printf("%s", JsonText(report).c_str());
        return;
    }
    if (boards != nullptr) {
        PrintViews(*boards);
    }
    std::printf("%s", ToText(calibration).c_str());
}

int Show(const CalibrateOptions& options) {
    refocus::Calibration calibration;
    const refocus::Error error =
        refocus::ParseCalibration(ReadFileBytes(options.show), calibration);
    if (error != refocus::Error::kNone) {
        throw UseError(options.show.string() + ": expected a calibration file: " +
                       refocus::Describe(refocus::Result(error)).sentence);
    }
    ShowResult(options, calibration, nullptr);
    return kExitDone;
}

int Finish(const CalibrateOptions& options, refocus::Calibration calibration,
           const BoardCalibration* boards) {
    calibration.mountAngle = options.mountAngle;
    calibration.nearestDistance = options.nearest;
    OutputFolder folder(fs::absolute(options.output).parent_path());
    folder.Write(options.output.filename().string(), refocus::WriteCalibration(calibration));
    folder.Commit();
    ShowResult(options, calibration, boards);
    return kExitDone;
}

int CalibrateBoards(const CalibrateOptions& options) {
    if (options.main.size() != options.aux.size()) {
        throw UseError("--main and --aux: expected as many photos of each camera, found " +
                       std::to_string(options.main.size()) + " and " +
                       std::to_string(options.aux.size()));
    }
    if (!options.boardGiven || !options.square) {
        throw UseError("expected --board and --square with photos of a board, found one missing");
    }
    std::vector<std::pair<fs::path, fs::path>> photos;
    for (std::size_t i = 0; i < options.main.size(); ++i) {
        photos.emplace_back(options.main[i], options.aux[i]);
    }
    Board board = options.board;
    board.square = *options.square;
    std::optional<Progress> progress("calibrating");
    const BoardCalibration boards = CalibrateFromBoards(photos, board);
    progress.reset();
    return Finish(options, boards.calibration, &boards);
}

int Calibrate(const CalibrateOptions& options) {
    const bool boards = !options.main.empty() || !options.aux.empty();
    const bool files = !options.intrinsics.empty() || !options.extrinsics.empty();
    if ((boards ? 1 : 0) + (files ? 1 : 0) + (options.show.empty() ? 0 : 1) != 1) {
        throw UseError("expected either --main and --aux, or --intrinsics and --extrinsics, or "
                       "--show, found none or several of them");
    }
    if (!options.show.empty()) {
        if (!options.output.empty()) {
            throw UseError("--output: expected none with --show, which writes nothing, found " +
                           options.output.string());
        }
        return Show(options);
    }
    if (options.output.empty()) {
        throw UseError("--output: expected a file to write, found none");
    }
    if (boards) {
        return CalibrateBoards(options);
    }
    if (!options.size) {
        throw UseError("--size: expected the images' size, which OpenCV's files do not hold, found "
                       "none");
    }
    return Finish(options,
                  ReadOpenCvFiles(options.intrinsics, options.extrinsics, *options.size,
                                  options.auxSize.value_or(*options.size),
                                  options.square.value_or(1.0)),
                  nullptr);
}

Size ParseSides(const char* option, const std::string& text, const char* form, int least) {
    const auto n = ParseNumbers(option, text, 2, 'x', form);
    if (n[0] < least || n[1] < least || n[0] > kLongestSide || n[1] > kLongestSide) {
        throw CLI::ValidationError(option, "expected sides of " + std::to_string(least) + " to " +
                                               std::to_string(kLongestSide) + ", found \"" + text +
                                               "\"");
    }
    return {n[0], n[1]};
}

// Nothing for text that is no finite number.
std::optional<double> Number(const std::string& text) {
    double number = 0;
    const char* const end = text.data() + text.size();
    const auto [next, error] = std::from_chars(text.data(), end, number);
    const bool whole = error == std::errc() && next == end && std::isfinite(number);
    return whole ? std::optional(number) : std::nullopt;
}

void AddSources(CLI::App& command, CalibrateOptions& options) {
    command.add_option("--main", options.main, "photos of a chessboard by the main camera")
        ->type_name("FILE...");
    command
        .add_option("--aux", options.aux,
                    "photos of the same moments by the aux camera, in the\nsame order")
        ->type_name("FILE...");
    command
        .add_option_function<std::string>(
            "--board",
            [&](const std::string& text) {
                const Size size = ParseSides("--board", text, "CxR", 3);
                options.board.columns = size.width;
                options.board.rows = size.height;
                options.boardGiven = true;
            },
            "inner corners of the board, along its rows and columns")
        ->type_name("CxR");
    command
        .add_option("--square", options.square,
                    "side of a square in mm; with OpenCV's files, mm to the unit\nof T (default "
                    "there: 1)")
        ->type_name("MM")
        ->check([](const std::string& text) {
            return Number(text).value_or(0) > 0
                       ? std::string()
                       : "expected a positive number, found \"" + text + "\"";
        });
    auto* intrinsics =
        command.add_option("--intrinsics", options.intrinsics, "OpenCV's YAML with M1, D1, M2, D2");
    auto* extrinsics =
        command.add_option("--extrinsics", options.extrinsics, "OpenCV's YAML with R, T");
    intrinsics->type_name("FILE")->needs(extrinsics);
    extrinsics->type_name("FILE")->needs(intrinsics);
    for (const auto& [name, size, help] :
         {std::tuple("--size", &options.size, "size of the images that OpenCV's files are for"),
          std::tuple("--aux-size", &options.auxSize, "the aux camera's (default: the same)")}) {
        command
            .add_option_function<std::string>(
                name,
                [name = name, size = size](const std::string& text) {
                    *size = ParseSides(name, text, "WxH", 16);
                },
                help)
            ->type_name("WxH");
    }
}

} // namespace

std::function<int()> PrepareCalibrate(CLI::App& command) {
    const auto options = std::make_shared<CalibrateOptions>();
    AddSources(command, *options);
    command.add_option("--show", options->show, "put a calibration file into words")
        ->type_name("FILE");
    command.add_option("-o,--output", options->output, "the calibration file")->type_name("FILE");
    command
        .add_option("--mount-angle", options->mountAngle,
                    "rotation that the device reports for images that stand\nas these photos "
                    "(default: 0)")
        ->type_name("DEG")
        ->check(CLI::IsMember({0, 90, 180, 270}));
    command
        .add_option("--nearest", options->nearest,
                    "nearest distance of a subject, which bounds the search\n(default: unknown)")
        ->type_name("MM")
        ->check([](const std::string& text) {
            return Number(text).value_or(-1) >= 0
                       ? std::string()
                       : "expected 0 or a positive number, found \"" + text + "\"";
        });
    command.add_flag("--json", options->json, "say it as JSON");
    command.footer(
        "Examples:\n"
        "  bokehnode calibrate --main main*.jpg --aux aux*.jpg --board 9x6 --square 25 \\\n"
        "      -o dualcam_cali.bin\n"
        "  bokehnode calibrate --intrinsics intrinsics.yml --extrinsics extrinsics.yml \\\n"
        "      --size 4000x3000 -o dualcam_cali.bin\n"
        "  bokehnode calibrate --show dualcam_cali.bin\n"
        "\n"
        "Exit codes: 0 written or shown; 2 wrong use, unreadable input, or photos that give\n"
        "no calibration.");
    return [options] { return Calibrate(*options); };
}

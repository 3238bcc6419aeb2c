#include "tools/commands/commands.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <fmt/core.h>

#include "host/picture/errors.h"
#include "host/picture/image_file.h"
#include "host/picture/nv12.h"
#include "tools/calibrate/board_calibration.h"
#include "tools/calibrate/board_pictures.h"
#include "tools/calibrate/calibration_record.h"
#include "tools/commands/shared_options.h"
#include "tools/files/console.h"
#include "tools/files/json_text.h"
#include "tools/files/output_folder.h"
#include "tools/files/progress.h"
#include "tools/report/report.h"

namespace fs = std::filesystem;

namespace {

// Empty paths and sizes are those that were not given.
struct CalibrateOptions {
    std::vector<fs::path> main;
    std::vector<fs::path> aux;
    Board board;
    bool boardGiven = false;
    std::optional<double> square; // mm; with OpenCV's files, of a unit of T
    fs::path intrinsics;
    fs::path extrinsics;
    std::optional<Size> size;
    std::optional<Size> auxSize;
    fs::path show; // the file to put into words
    fs::path output;
    std::int32_t mountAngle = 0; // degrees
    double nearest = 0;          // mm; 0: unknown
    bool json = false;
    fs::path report;
};

// A page with the boards, the epipolar lines and the coverage of the frame.
std::vector<std::string> WriteReport(const CalibrateOptions& options,
                                     const refocus::Calibration& calibration,
                                     const BoardCalibration& boards, ReportFile& file) {
    const Progress progress("drawing the boards");
    std::list<host::Image> pictures; // the report shows them where they are
    Report report("calibrate", options.output.filename().string());
    const auto show = [&](const std::string& name, const RgbImage& picture) {
        report.AddPicture(name, pictures.emplace_back(RgbToNv12(picture, 0)));
    };
    constexpr double kGoodError = 0.5; // pixels
    report.SetVerdict(boards.error <= kGoodError ? Report::Kind::kGood : Report::Kind::kNote,
                      fmt::format("all together {:.3f} pixels off", boards.error));
    show("coverage", CoveragePicture(boards));
    // More photos than that make a large page and show nothing new.
    constexpr int kMostViews = 6;
    int shown = 0;
    for (const BoardView& view : boards.views) {
        const std::string name = view.main.stem().string();
        if (!view.dropped.empty()) {
            report.AddFinding(Report::Kind::kNote, name, "left out: " + view.dropped);
        } else if (shown++ < kMostViews) {
            show(name + ", epipolar lines", EpipolarPicture(boards, view));
            show(name + ", main corners",
                 CornersPicture(view.main, view.mainCorners, options.board));
            show(name + ", aux corners", CornersPicture(view.aux, view.auxCorners, options.board));
        }
    }
    report.AddSection("Calibration", ToJson(calibration));
    file.Write(report);
    file.Commit();
    return file.written();
}

Json ViewsJson(const BoardCalibration& boards) {
    Json views = Json::array();
    for (const BoardView& view : boards.views) {
        Json entry{{"main", view.main.string()}, {"aux", view.aux.string()}};
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
            PrintText(fmt::format("{}: main {:.3f}, aux {:.3f} pixels off\n", pair, view.mainError,
                                  view.auxError));
        } else {
            PrintText(fmt::format("{}: left out: {}\n", pair, view.dropped));
        }
    }
    std::printf("all together %.3f pixels off\n", boards.error);
}

// `boards`: null without photos.
void ShowResult(const CalibrateOptions& options, const refocus::Calibration& calibration,
                const BoardCalibration* boards, const std::vector<std::string>& written) {
    if (options.json) {
        Json report = ToJson(calibration);
        if (boards != nullptr) {
            report["views"] = ViewsJson(*boards);
            report["error"] = boards->error;
        }
        report["written"] = written;
        std::printf("%s", JsonText(report).c_str());
        return;
    }
    if (boards != nullptr) {
        PrintViews(*boards);
    }
    std::printf("%s", ToText(calibration).c_str());
    PrintWritten(written);
}

int Show(const CalibrateOptions& options) {
    refocus::Calibration calibration;
    // One byte more than a calibration is read, so that a longer file is refused.
    const refocus::Error error = refocus::ParseCalibration(
        ReadFileStart(options.show, refocus::kCalibrationBytes + 1), calibration);
    if (error != refocus::Error::kNone) {
        throw UseError(fmt::format("{}: expected a calibration file: {}", options.show.string(),
                                   refocus::Describe(refocus::Result(error)).sentence));
    }
    ShowResult(options, calibration, nullptr, {});
    return kExitDone;
}

int Finish(const CalibrateOptions& options, refocus::Calibration calibration,
           const BoardCalibration* boards) {
    calibration.mountAngle = options.mountAngle;
    calibration.nearestDistance = options.nearest;
    const double searched = NearestSearched(calibration);
    if (boards != nullptr && options.nearest == 0 && boards->nearest < searched) {
        PrintNotice(
            fmt::format("note: a board stood {:.0f} mm away, nearer than the {:.0f} mm from "
                        "which on the engine searches: `calibrate --nearest`",
                        boards->nearest, searched));
    }
    std::optional<ReportFile> page; // refused before anything is written
    if (!options.report.empty()) {
        if (boards == nullptr) {
            Refuse("--report", "photos of a board", "none");
        }
        page.emplace(options.report);
    }
    auto written = WriteFile(options.output, refocus::WriteCalibration(calibration));
    if (page) {
        std::ranges::move(WriteReport(options, calibration, *boards, *page),
                          std::back_inserter(written));
    }
    ShowResult(options, calibration, boards, written);
    return kExitDone;
}

int CalibrateBoards(const CalibrateOptions& options) {
    if (options.main.size() != options.aux.size()) {
        Refuse("--aux", fmt::format("as many photos as of --main, {}", options.main.size()),
               std::to_string(options.aux.size()));
    }
    if (!options.boardGiven || !options.square) {
        Refuse(options.boardGiven ? "--square" : "--board", "a value, for photos of a board",
               "none");
    }
    std::vector<std::pair<fs::path, fs::path>> photos;
    for (std::size_t i = 0; i < options.main.size(); ++i) {
        photos.emplace_back(options.main[i], options.aux[i]);
    }
    Board board = options.board;
    board.square = *options.square;
    std::optional<Progress> progress("calibrating");
    const BoardCalibration boards = CalibrateFromBoards(photos, board);
    // The progress line must be gone before results are printed.
    progress.reset();
    return Finish(options, boards.calibration, &boards);
}

int Calibrate(const CalibrateOptions& options) {
    const bool boards = !options.main.empty() || !options.aux.empty();
    const bool files = !options.intrinsics.empty() || !options.extrinsics.empty();
    // The command is used in one of three ways, which the options' own rules cannot tell.
    if ((boards ? 1 : 0) + (files ? 1 : 0) + (options.show.empty() ? 0 : 1) != 1) {
        Refuse("calibrate", "either --main and --aux, or --intrinsics and --extrinsics, or --show",
               "none or several of them");
    }
    if (!options.show.empty()) {
        for (const auto& [name, file] :
             {std::pair("--output", options.output), std::pair("--report", options.report)}) {
            if (!file.empty()) {
                Refuse(name, "none with --show, which writes nothing", file);
            }
        }
        return Show(options);
    }
    if (options.output.empty()) {
        Refuse("--output", "a file to write", "none");
    }
    if (boards) {
        return CalibrateBoards(options);
    }
    if (options.extrinsics.empty()) {
        Refuse("--intrinsics", "--extrinsics beside it", "none");
    }
    if (!options.size) {
        Refuse("--size", "the images' size, which OpenCV's files do not hold", "none");
    }
    return Finish(options,
                  ReadOpenCvFiles(options.intrinsics, options.extrinsics, *options.size,
                                  options.auxSize.value_or(*options.size),
                                  options.square.value_or(1.0)),
                  nullptr);
}

void AddSources(Command& command, CalibrateOptions& options) {
    command.Paths("--main", "FILE", options.main, "photos of a chessboard by the main camera");
    command.Paths("--aux", "FILE", options.aux,
                  "photos of the same moments by the aux camera, in the\nsame order");
    command.Value(
        "--board", "CxR",
        [&](const Argument& argument) {
            const Size size = argument.Sides("CxR", 3, kLongestSide);
            options.board.columns = size.width;
            options.board.rows = size.height;
            options.boardGiven = true;
        },
        "inner corners of the board, along its rows and columns");
    command.Value(
        "--square", "MM",
        [&](const Argument& argument) {
            options.square = argument.Number();
            if (*options.square <= 0) {
                argument.Refuse("a positive number");
            }
        },
        "side of a square in mm; with OpenCV's files, mm to the unit\nof T (default there: 1)");
    command.Path("--intrinsics", "FILE", options.intrinsics, "OpenCV's YAML with M1, D1, M2, D2");
    command.Path("--extrinsics", "FILE", options.extrinsics, "OpenCV's YAML with R, T")
        .Needs("--intrinsics");
    const auto size = [&command](const char* name, std::optional<Size>& into, const char* help) {
        command.Value(
            name, "WxH",
            [&into](const Argument& argument) { into = argument.Sides("WxH", 16, kLongestSide); },
            help);
    };
    size("--size", options.size, "size of the images that OpenCV's files are for");
    size("--aux-size", options.auxSize, "the aux camera's (default: the same)");
}

} // namespace

std::function<int()> PrepareCalibrate(Command command) {
    const auto options = std::make_shared<CalibrateOptions>();
    AddSources(command, *options);
    command.Path("--show", "FILE", options->show, "put a calibration file into words");
    command.Path("-o,--output", "FILE", options->output, "the calibration file");
    command.Rotation("--mount-angle", options->mountAngle,
                     "rotation that the device reports for images that stand\nas these photos "
                     "(default: 0)");
    command.Value(
        "--nearest", "MM",
        [options](const Argument& argument) {
            options->nearest = argument.Number();
            if (options->nearest < 0) {
                argument.Refuse("0 or a positive number");
            }
        },
        "nearest distance of a subject, which bounds the search\n(default: unknown)");
    command.Flag("--json", options->json, "say it as JSON");
    AddReportOption(command, options->report);
    command.Footer(
        "Examples:\n"
        "  bokehnode calibrate --main main*.jpg --aux aux*.jpg --board 9x6 --square 25 \\\n"
        "      -o dualcam_cali.bin\n"
        "  bokehnode calibrate --intrinsics intrinsics.yml --extrinsics extrinsics.yml \\\n"
        "      --size 4000x3000 -o dualcam_cali.bin\n"
        "  bokehnode calibrate --show dualcam_cali.bin\n"
        "\n" +
        ExitCodes("0 written or shown"));
    return [options] { return Calibrate(*options); };
}

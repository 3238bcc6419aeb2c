// calibrate and completion, run as a user does.

#include <cmath>
#include <cstdlib>

#include <nlohmann/json.hpp>

#include "host/picture/file_bytes.h"
#include "host/picture/image_file.h"
#include "host/refocus/calibration.h"
#include "tests/tool/tool_test.h"

using testing::HasSubstr;

namespace {

constexpr int kPhotoWidth = 640;
constexpr int kPhotoHeight = 480;
constexpr double kFocal = 700;
constexpr double kBaseline = 40;
constexpr double kSquare = 25;

// A board of 9x6 inner corners, turned about its upright and its level axis and moved.
struct Pose {
    double yaw;
    double pitch;
    double x;
    double y;
    double z;
};

constexpr Pose kPoses[] = {
    {0.0, 0.0, -110, -70, 420},   {0.35, 0.0, -120, -80, 450}, {-0.35, 0.1, -90, -60, 430},
    {0.0, 0.35, -130, -75, 440},  {0.1, -0.35, -80, -80, 460}, {0.25, 0.25, -110, -60, 500},
    {-0.3, -0.2, -100, -90, 410},
};

// What a pinhole camera at `offset` right of the origin sees of the board.
RgbImage Photo(const Pose& pose, double offset) {
    const double cy = std::cos(pose.yaw);
    const double sy = std::sin(pose.yaw);
    const double cp = std::cos(pose.pitch);
    const double sp = std::sin(pose.pitch);
    // Columns: the board's axes and its normal, seen by the camera.
    const double across[3] = {cy, 0, -sy};
    const double down[3] = {sy * sp, cp, cy * sp};
    const double normal[3] = {sy * cp, -sp, cy * cp};
    const double origin[3] = {pose.x - offset, pose.y, pose.z};
    const auto dot = [](const double* a, const double* b) {
        return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
    };
    const auto light = [&](double px, double py) {
        const double ray[3] = {(px - (kPhotoWidth - 1) / 2.0) / kFocal,
                               (py - (kPhotoHeight - 1) / 2.0) / kFocal, 1};
        const double reach = dot(origin, normal) / dot(ray, normal);
        const double hit[3] = {ray[0] * reach - origin[0], ray[1] * reach - origin[1],
                               ray[2] * reach - origin[2]};
        const double u = dot(hit, across) / kSquare + 1; // the corner squares start at 0
        const double v = dot(hit, down) / kSquare + 1;
        if (u < -1 || v < -1 || u > 11 || v > 8) {
            return 120.0; // the wall
        }
        const bool inside = u >= 0 && v >= 0 && u < 10 && v < 7;
        const bool dark = inside && (static_cast<int>(u) + static_cast<int>(v)) % 2 == 0;
        return dark ? 20.0 : 235.0;
    };
    return Paint(kPhotoWidth, kPhotoHeight, [&](int x, int y) {
        double sum = 0;
        for (int i = 0; i < 16; ++i) {
            sum += light(x + (i % 4 - 1.5) / 4, y + (i / 4 - 1.5) / 4);
        }
        const auto grey = static_cast<std::uint8_t>(sum / 16);
        return Colour{grey, grey, grey};
    });
}

constexpr char kIntrinsics[] = R"(%YAML:1.0
---
M1: !!opencv-matrix
   rows: 3
   cols: 3
   dt: d
   data: [ 3200.5, 0., 1999.5, 0., 3201.5, 1498.5, 0., 0., 1. ]
D1: !!opencv-matrix
   rows: 1
   cols: 5
   dt: d
   data: [ 0.11, 0.12, 0.001, 0.002, 0.13 ]
M2: !!opencv-matrix
   rows: 3
   cols: 3
   dt: d
   data: [ 1600., 0., 999.5, 0., 1601., 749.5, 0., 0., 1. ]
D2: !!opencv-matrix
   rows: 1
   cols: 8
   dt: d
   data: [ 0.21, 0.22, 0.003, 0.004, 0.23, 0.24, 0.25, 0.26 ]
)";

constexpr char kExtrinsics[] = R"(%YAML:1.0
---
R: !!opencv-matrix
   rows: 3
   cols: 3
   dt: d
   data: [ 1., 0., 0., 0., 1., 0., 0., 0., 1. ]
T: !!opencv-matrix
   rows: 3
   cols: 1
   dt: d
   data: [ -0.5, 0., 0.02 ]
)";

class CalibrateTest : public ToolTest {
protected:
    // Files of which no calibration can be made.
    void WriteUselessFiles() {
        Write("intrinsics.yml", kIntrinsics);
        Write("extrinsics.yml", kExtrinsics);
        Write("words.yml", "words");
        Write("number.yml", "%YAML:1.0\n---\nR: 5\n");
        std::string type = kExtrinsics;
        type.replace(type.find("cols: 3"), 7, "cols: x");
        Write("type.yml", type);
        Write("list.yml", "%YAML:1.0\n---\n- 1\n- 2\n");
        const std::pair<const char*, std::string> kDeep[] = {
            {"deep.yml", "%YAML:1.0\n---\nR: "},
            {"deep.json", "{\"R\":"},
            {"deep.xml", "<?xml version=\"1.0\"?>\n<opencv_storage>\n"}};
        for (const auto& [name, start] : kDeep) {
            std::string text = start;
            for (int i = 0; i < 15000; ++i) {
                text += start.starts_with('<') ? "<a>\n" : "[";
            }
            Write(name, text);
        }
        WriteBytes(folder_ / "huge.bin", {1});
        std::filesystem::resize_file(folder_ / "huge.bin", 100'000'000'000);
        WriteBytes(folder_ / "flat.png", EncodePng(RgbImage(64, 48)));
        WriteBytes(folder_ / "small.png", EncodePng(RgbImage(32, 48)));
        Write("short.bin", "short");
    }
};

TEST_F(CalibrateTest, BoardsGiveTheCamerasAndBadViewsAreLeftOut) {
    Names arguments{"calibrate",     "--board", "9x6", "--square", "25",    "--json",
                    "--mount-angle", "90",      "-o",  "cali.bin", "--main"};
    Names aux{"--aux"};
    const std::size_t count = std::size(kPoses);
    for (std::size_t i = 0; i < count; ++i) {
        const std::string number = std::to_string(i) + ".png";
        WriteBytes(folder_ / ("m" + number), EncodePng(Photo(kPoses[i], 0)));
        Pose later = kPoses[i];
        later.y += i == 2 ? 9 : 0; // the board moved between the two photos
        WriteBytes(folder_ / ("a" + number), EncodePng(Photo(later, kBaseline)));
        arguments.push_back("m" + number);
        aux.push_back("a" + number);
    }
    WriteBytes(folder_ / "none.png", EncodePng(RgbImage(kPhotoWidth, kPhotoHeight)));
    arguments.push_back("m0.png");
    aux.push_back("none.png");
    arguments.insert(arguments.end(), aux.begin(), aux.end());

    // Another order of one camera's photos, which no pair of cameras can have seen.
    Names exchanged = arguments;
    std::rotate(exchanged.end() - static_cast<std::ptrdiff_t>(count) - 1, exchanged.end() - 3,
                exchanged.end());
    const ToolRun disordered = Run(exchanged);
    EXPECT_EQ(disordered.exitCode, 2);
    EXPECT_THAT(disordered.errors, HasSubstr("the photos in the same order?"));

    const ToolRun run = Run(arguments, {"--report", "boards.html"});
    ASSERT_EQ(run.exitCode, 0) << run.errors;
    const auto report = nlohmann::json::parse(run.output);
    EXPECT_EQ(report["written"], (Names{"cali.bin", "boards.html"}));
    const std::string page = ReadText(folder_ / "boards.html");
    for (const char* picture : {"\"coverage\"", "\"m0, epipolar lines\"", "\"m0, main corners\"",
                                "\"m0, aux corners\""}) {
        EXPECT_THAT(page, HasSubstr(picture));
    }
    EXPECT_THAT(page, Not(HasSubstr("m2, main corners"))) << "of a view that is left out";
    ASSERT_EQ(report["views"].size(), count + 1);
    EXPECT_THAT(report["views"][2].value("dropped", ""), HasSubstr("fits badly"));
    EXPECT_THAT(report["views"][count].value("dropped", ""), HasSubstr("no whole board"));
    EXPECT_LT(report["error"], 0.2);
    EXPECT_LT(report["views"][0]["mainError"], 0.2);

    refocus::Calibration calibration;
    ASSERT_EQ(refocus::ParseCalibration(ReadFileBytes(folder_ / "cali.bin"), calibration),
              refocus::Error::kNone);
    EXPECT_EQ(calibration.main.width, kPhotoWidth * 100);
    EXPECT_NEAR(calibration.main.fx, kFocal, 0.01 * kFocal);
    EXPECT_NEAR(calibration.aux.fy, kFocal, 0.01 * kFocal);
    EXPECT_NEAR(calibration.translation[0], -kBaseline, 0.5);
    EXPECT_NEAR(calibration.translation[1], 0, 0.5);
    EXPECT_NEAR(calibration.rotation[0], 1, 1e-4);
    EXPECT_EQ(calibration.mountAngle, 90);

    const ToolRun shown = Run({"calibrate", "--show", "cali.bin"});
    EXPECT_EQ(shown.exitCode, 0);
    EXPECT_THAT(shown.output, HasSubstr("mm right of the main one"));
    // 700 pixels * 40 mm to a disparity of a sixth of 640 pixels.
    EXPECT_THAT(shown.output, HasSubstr("nearer than 26"));
}

TEST_F(CalibrateTest, OpenCvFilesBecomeACalibration) {
    Write("intrinsics.yml", kIntrinsics);
    Write("extrinsics.yml", kExtrinsics);
    const ToolRun run = Run({"calibrate", "--intrinsics", "intrinsics.yml", "--extrinsics",
                             "extrinsics.yml", "--size", "4000x3000", "--aux-size", "2000x1500",
                             "--square", "24", "--nearest", "300", "-o", "deep/cali.bin"});
    ASSERT_EQ(run.exitCode, 0) << run.errors;
    refocus::Calibration c;
    ASSERT_EQ(refocus::ParseCalibration(ReadFileBytes(folder_ / "deep/cali.bin"), c),
              refocus::Error::kNone);
    using Numbers = std::vector<double>;
    const auto lens = [](const refocus::CameraCalibration& camera) {
        Numbers numbers{camera.fx, camera.fy, camera.cx, camera.cy};
        numbers.insert(numbers.end(), camera.k.begin(), camera.k.end());
        numbers.insert(numbers.end(), camera.p.begin(), camera.p.end());
        return numbers;
    };
    EXPECT_EQ(lens(c.main),
              (Numbers{3200.5, 3201.5, 1999.5, 1498.5, 0.11, 0.12, 0.13, 0, 0, 0, 0.001, 0.002}));
    EXPECT_EQ(lens(c.aux), (Numbers{1600, 1601, 999.5, 749.5, 0.21, 0.22, 0.23, 0.24, 0.25, 0.26,
                                    0.003, 0.004}));
    EXPECT_EQ(std::pair(c.main.width, c.main.height), std::pair(400000, 300000));
    EXPECT_EQ(std::pair(c.aux.width, c.aux.height), std::pair(200000, 150000));
    EXPECT_EQ(c.translation, (std::array<double, 3>{-12, 0, 0.48}));
    EXPECT_EQ(c.nearestDistance, 300);
}

TEST_F(CalibrateTest, RefusesWhatGivesNoCalibration) {
    WriteUselessFiles();
    const Names before = NamesIn(folder_);
    const Names files{"calibrate", "--intrinsics", "intrinsics.yml", "--extrinsics"};
    const auto with = [](Names names, const Names& more) {
        names.insert(names.end(), more.begin(), more.end());
        return names;
    };
    const Names board{"calibrate", "--board", "9x6", "--square", "25", "-o", "c.bin"};
    const std::vector<std::pair<Names, std::string>> cases{
        {{"calibrate"}, "expected either"},
        {{"calibrate", "--show", "short.bin"}, "short.bin: expected a calibration file"},
        {with(files, {"extrinsics.yml", "-o", "c.bin"}), "--size"},
        {with(files, {"words.yml", "--size", "4000x3000", "-o", "c.bin"}), "words.yml: expected"},
        {with(files, {"intrinsics.yml", "--size", "4000x3000", "-o", "c.bin"}),
         "expected a matrix R of 9 numbers, found none"},
        {with(files, {"number.yml", "--size", "4000x3000", "-o", "c.bin"}),
         "number.yml: expected a matrix R"},
        {with(files, {"type.yml", "--size", "4000x3000", "-o", "c.bin"}),
         "type.yml: expected a matrix R"},
        {with(files, {"list.yml", "--size", "4000x3000", "-o", "c.bin"}),
         "list.yml: expected OpenCV's YAML, XML or JSON with named matrices"},
        {with(files, {"deep.yml", "--size", "4000x3000", "-o", "c.bin"}), "too many parts"},
        {with(files, {"deep.json", "--size", "4000x3000", "-o", "c.bin"}), "too many parts"},
        {with(files, {"deep.xml", "--size", "4000x3000", "-o", "c.bin"}), "too many parts"},
        {with(files, {"huge.bin", "--size", "4000x3000", "-o", "c.bin"}), "at most 65536 bytes"},
        {with(files,
              {"extrinsics.yml", "--size", "4000x3000", "-o", "c.bin", "--report", "r.html"}),
         "--report: expected photos of a board, found none"},
        {{"calibrate", "--show", "huge.bin"}, "huge.bin: expected a calibration file"},
        {with(files, {"extrinsics.yml", "--size", "400x300", "-o", "c.bin"}), "side by side"},
        {with(board, {"--main", "flat.png", "--aux", "flat.png"}),
         "expected at least 3 good views, found 0\n  flat.png: no whole board"},
        {with(board, {"--main", "flat.png", "small.png", "--aux", "flat.png", "flat.png"}),
         "small.png: expected 64x48"},
        {with(board, {"--main", "flat.png", "--aux", "flat.png", "flat.png"}),
         "--aux: expected as many photos as of --main, 1, found 2"},
        {{"calibrate", "--main", "flat.png", "--aux", "flat.png", "-o", "c.bin"}, "--board"},
        {{"calibrate", "--square", "-3"}, "--square: expected a positive number, found \"-3\""},
        {{"calibrate", "--board", "9x"}, "expected CxR"},
        {{"calibrate", "--show", "short.bin", "-o", "c.bin"}, "--output: expected none"},
        {{"calibrate", "--show", "short.bin", "--report", "r.html"}, "--report: expected none"},
        {{"calibrat"}, "completion or help, found \"calibrat\""},
        {{}, "found none"},
    };
    for (const auto& [arguments, said] : cases) {
        const ToolRun run = Run(arguments);
        EXPECT_EQ(run.exitCode, 2) << said;
        EXPECT_THAT(run.errors, HasSubstr(said));
    }
    EXPECT_EQ(NamesIn(folder_), before) << "nothing half-written";
}

// The script completes as bash runs it.
TEST_F(CalibrateTest, CompletionKnowsCommandsOptionsAndValues) {
    const ToolRun script = Run({"completion", "bash"});
    ASSERT_EQ(script.exitCode, 0) << script.errors;
    Write("completion.sh", script.output);
    Write("picture.png", "");
    const auto complete = [&](const std::string& words) {
        Write("ask.sh", "source ./completion.sh\nCOMP_WORDS=(bokehnode " + words +
                            ")\nCOMP_CWORD=$((${#COMP_WORDS[@]} - 1))\n_bokehnode\n"
                            "echo \"${COMPREPLY[*]}\" > said\n");
        const std::string command = "cd " + folder_.string() + " && bash ask.sh";
        EXPECT_EQ(std::system(command.c_str()), 0);
        return ReadText(folder_ / "said");
    };
    EXPECT_EQ(complete("re"), "render replay\n");
    EXPECT_EQ(complete("convert --to ''"), "png nv12 y8\n");
    EXPECT_EQ(complete("diff --heat"), "--heat-map\n");
    EXPECT_EQ(complete("convert pic"), "picture.png\n");
    EXPECT_EQ(complete("diff --json pic"), "picture.png\n") << "a flag takes no value";
    EXPECT_EQ(complete("calibrate --main a.png pic"), "picture.png\n");
    EXPECT_EQ(complete("completion ''"), "bash\n");
    EXPECT_EQ(complete("replay --blur ''"), "\n");
}

} // namespace

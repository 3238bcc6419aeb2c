// convert and diff, run as a user does.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <sstream>

#include <nlohmann/json.hpp>

#include "host/picture/image_file.h"
#include "host/picture/nv12.h"
#include "tests/tool/tool_test.h"
#include "tools/compare/difference.h"
#include "tools/dumps/dump_image.h"
#include "tools/dumps/parameter_text.h"

namespace fs = std::filesystem;
using testing::HasSubstr;
using Format = host::Image::Format;

namespace {

constexpr int kPictureWidth = 120;
constexpr int kPictureHeight = 80;
constexpr int kPitch = 128;
constexpr char kMain[] = "IMG_20240131_235959_0_128x80.nv12";
constexpr char kOutput[] = "IMG_20240131_235959_res_128x80.nv12";
constexpr char kDisparity[] = "IMG_20240131_235959_0_128x80.Y8";

// Broad colours, the same over each chroma sample.
RgbImage Picture() {
    return Paint(kPictureWidth, kPictureHeight, [](int x, int y) {
        const auto level = static_cast<std::uint8_t>(40 + x / 8 * 8);
        return Colour{level, static_cast<std::uint8_t>(30 + y / 8 * 16), 120};
    });
}

host::Image Dump() {
    host::Image image = RgbToNv12(Picture(), kPitch);
    for (int y = 0; y < kPictureHeight; ++y) {
        for (int x = kPictureWidth; x < kPitch; ++x) { // which no command may look at
            image.plane(0)[y * kPitch + x] = static_cast<std::uint8_t>(x * y);
        }
    }
    return image;
}

// The dump without its padding.
host::Image Cropped() {
    return ImageFromBytes(Format::Nv12, Dump().bytes(), kPictureWidth, kPitch, kPictureHeight);
}

class PictureCommandTest : public ToolTest {
protected:
    PictureCommandTest() {
        const host::Image dump = Dump();
        WriteBytes(folder_ / kMain, dump.bytes());
        host::Image changed = dump;
        changed.plane(0)[3 * kPitch + 7] ^= 0x10;
        changed.plane(0)[9 * kPitch + 5] ^= 0x01;
        changed.plane(1)[10 * kPitch + 31] ^= 0x04; // V
        changed.plane(0)[kPictureWidth] ^= 0xff;    // padding
        WriteBytes(folder_ / kOutput, changed.bytes());
        std::vector<std::uint8_t> disparity;
        for (int i = 0; i < kPitch * kPictureHeight; ++i) {
            disparity.push_back(static_cast<std::uint8_t>(i / 40));
        }
        WriteBytes(folder_ / kDisparity, disparity);
        Write("IMG_20240131_235959_0_120x80_metadata.txt", FormatParameterText({}));
    }
};

int LargestDifference(const PictureDifference& difference) {
    return std::ranges::max(difference.planes, {}, &PlaneDifference::largest).largest;
}

TEST_F(PictureCommandTest, ConvertsDumpsAndBack) {
    const ToolRun run = Run({"convert", kMain, kDisparity, "-o", "seen"});
    ASSERT_EQ(run.exitCode, 0) << run.errors;
    const fs::path png = folder_ / "seen/IMG_20240131_235959_0_128x80.png";
    EXPECT_LE(LargestDifference(ReadImageFile(png), Picture()), 4);

    // The pitch stands in the name; what was disparity comes back byte for byte.
    ASSERT_EQ(Run({"convert", png, "-o", "back"}).exitCode, 0);
    const host::Image back = ReadImageDump(folder_ / "back" / kMain, Format::Nv12, kPictureWidth,
                                           kPitch, kPictureHeight);
    const PictureDifference difference = Compare(back, Cropped());
    EXPECT_LE(LargestDifference(difference), 3) << ToText(difference);
    ASSERT_EQ(Run({"convert", "seen/IMG_20240131_235959_0_128x80_disparity.png", "--to", "y8", "-o",
                   "back"})
                  .exitCode,
              0);
    EXPECT_TRUE(Compare(ReadImageDump(folder_ / "back" / kDisparity, Format::Y8, kPictureWidth,
                                      kPitch, kPictureHeight),
                        ReadImageDump(folder_ / kDisparity, Format::Y8, kPictureWidth, kPitch,
                                      kPictureHeight))
                    .identical());
}

TEST_F(PictureCommandTest, PrintsCommandsThatOpenTheDumps) {
    if (std::system("ffmpeg -version >/dev/null 2>&1") != 0) {
        GTEST_SKIP() << "ffmpeg is missing: install the packages of scripts/packages.txt, [all]";
    }
    ASSERT_EQ(Run({"convert", kMain, kDisparity, "-o", "seen"}).exitCode, 0);
    const ToolRun run = Run({"convert", kMain, kDisparity, "--commands"});
    ASSERT_EQ(run.exitCode, 0) << run.errors;
    std::istringstream lines(run.output);
    Names pictures{"IMG_20240131_235959_0_128x80.png",
                   "IMG_20240131_235959_0_128x80_disparity.png"};
    std::size_t opened = 0;
    for (std::string line; std::getline(lines, line);) {
        if (!line.starts_with("ffmpeg ")) {
            EXPECT_TRUE(line.starts_with("ffplay ")) << line;
            continue;
        }
        const std::string command = "cd " + folder_.string() + " && " + line + " 2>ffmpeg.log";
        ASSERT_EQ(std::system(command.c_str()), 0) << command;
        ASSERT_LT(opened, pictures.size());
        EXPECT_LE(LargestDifference(ReadImageFile(folder_ / "IMG_20240131_235959_0_128x80.png"),
                                    ReadImageFile(folder_ / "seen" / pictures[opened])),
                  2)
            << line;
        ++opened;
    }
    EXPECT_EQ(opened, pictures.size());
}

TEST_F(PictureCommandTest, DiffFindsWhatDiffersAndLeavesOutPadding) {
    const ToolRun run = Run({"diff", kMain, kOutput, "--json", "--heat-map", "heat.png"});
    ASSERT_EQ(run.exitCode, 1) << run.errors;
    const auto report = nlohmann::json::parse(run.output);
    EXPECT_EQ(report["identical"], false);
    EXPECT_EQ(report["width"], kPictureWidth);
    EXPECT_EQ(report["first"]["x"], 7);
    EXPECT_EQ(report["first"]["y"], 3);
    EXPECT_EQ(report["first"]["plane"], "Y");
    const auto& planes = report["planes"];
    EXPECT_EQ(planes[0]["differing"], 2);
    EXPECT_EQ(planes[0]["largest"], 16);
    EXPECT_NEAR(planes[0]["psnr"].get<double>(),
                10 * std::log10(255.0 * 255.0 * kPictureWidth * kPictureHeight / (256 + 1)), 1e-9);
    EXPECT_TRUE(planes[1]["psnr"].is_null());
    EXPECT_EQ(planes[2]["differing"], 1);
    const RgbImage heat = ReadImageFile(folder_ / "heat.png");
    const auto colour = [&](int x, int y) { return ColourAt(heat, x, y); };
    EXPECT_EQ(colour(0, 0), colour(100, 70)) << "equal places have one colour";
    EXPECT_NE(colour(7, 3), colour(0, 0));
    EXPECT_NE(colour(31, 21), colour(0, 0)) << "chroma counts for each of its pixels";
}

// Flat pictures have a similarity that follows from their means alone.
TEST_F(PictureCommandTest, DiffMeasuresWhatTheMaskShows) {
    const auto write = [&](const std::string& name, int from, std::uint8_t above,
                           std::uint8_t below) {
        const RgbImage picture = Paint(40, 300, [&](int, int y) {
            const std::uint8_t level = y < from ? above : below;
            return Colour{level, level, level};
        });
        WriteBytes(folder_ / (name + ".png"), EncodePng(picture));
        WriteBytes(folder_ / (name + "_40x300.nv12"), RgbToNv12(picture, 0).bytes());
    };
    write("a", 300, 100, 0);
    write("b", 150, 100, 120);
    write("lower", 160, 0, 255);
    write("upper", 144, 255, 0);
    const double c1 = 2.55 * 2.55;
    const double similarity = (2 * 100 * 120 + c1) / (100 * 100 + 120 * 120 + c1);
    for (const std::string end : {".png", "_40x300.nv12"}) {
        const auto diff = [&](const Names& more) {
            const ToolRun run = Run({"diff", "a" + end, "b" + end, "--json"}, more);
            return nlohmann::json::parse(run.output);
        };
        const auto lower = diff({"--mask", "lower.png"});
        EXPECT_NEAR(lower["ssim"].get<double>(), similarity, 1e-5);
        EXPECT_EQ(lower["planes"][0]["samples"], 40 * 140);
        EXPECT_EQ(lower["planes"][0]["differing"], 40 * 140);
        EXPECT_EQ(lower["planes"][1]["samples"], end == ".png" ? 40 * 140 : 20 * 70);
        EXPECT_NEAR(lower["planes"][0]["psnr"].get<double>(), 20 * std::log10(255.0 / 20), 1e-9);
        EXPECT_EQ(lower["first"]["y"], 160);
        EXPECT_EQ(diff({"--mask", "upper.png"})["identical"], true);
    }
    WriteBytes(folder_ / "black.png", EncodePng(RgbImage(40, 300)));
    WriteBytes(folder_ / "small.png", EncodePng(RgbImage(20, 10)));
    EXPECT_THAT(Run({"diff", "a.png", "b.png", "--mask", "black.png"}).errors,
                HasSubstr("--mask: expected a picture with white pixels"));
    EXPECT_THAT(Run({"diff", "a.png", "b.png", "--mask", "small.png"}).errors,
                HasSubstr("--mask: expected a picture of 40x300, found 20x10"));
}

// A tall picture is measured in strips, the same one lying on its side at once.
TEST(Similarity, IsTheSameHoweverAPictureLies) {
    const auto picture = [](int width, int height, int change, bool tall) {
        return Paint(width, height, [&](int x, int y) {
            Colour colour = tall ? Texture(x, y) : Texture(y, x);
            colour[1] = static_cast<std::uint8_t>(colour[1] + change * ((x ^ y) & 7));
            return colour;
        });
    };
    const double tall = Compare(picture(50, 400, 0, true), picture(50, 400, 3, true)).ssim.value();
    const double flat =
        Compare(picture(400, 50, 0, false), picture(400, 50, 3, false)).ssim.value();
    EXPECT_NEAR(tall, flat, 1e-6);
    EXPECT_LT(tall, 0.999);
}

// Three pixels of a side become one.
TEST(DifferenceMap, KeepsTheLargestDifferenceWhenItIsReduced) {
    const RgbImage plain(4100, 10);
    RgbImage changed = plain;
    changed.Set(4, 4, {0, 9, 3});
    changed.Set(5, 5, {7, 0, 0});
    changed.Set(4099, 9, {0, 0, 5});
    const host::Image map = DifferenceMap(plain, changed);
    ASSERT_EQ(map.width(), 1367);
    ASSERT_EQ(map.height(), 4);
    Bytes expected(map.bytes().size());
    expected[1367 + 1] = 9;
    expected.back() = 5;
    EXPECT_EQ(map.bytes(), expected);
}

TEST_F(PictureCommandTest, DiffAnswers) {
    const host::Image dump = Dump();
    WriteBytes(folder_ / "copy_128x80.nv12", dump.bytes());
    host::Image narrow = RgbToNv12(Picture(), kPictureWidth);
    WriteBytes(folder_ / "narrow_120x80.nv12", narrow.bytes());
    WriteBytes(folder_ / "short_128x80.nv12", std::vector<std::uint8_t>(1000));
    std::vector<std::uint8_t> longer = dump.bytes();
    longer.resize(longer.size() + 1000);
    WriteBytes(folder_ / "long_128x80.nv12", longer);
    WriteBytes(folder_ / "plain.nv12", dump.bytes());
    WriteBytes(folder_ / "main.png", EncodePng(Nv12ToRgb(Cropped())));
    WriteBytes(folder_ / "small.png", EncodePng(RgbImage(20, 10)));
    const struct {
        Names arguments;
        int exitCode;
        std::string said; // on either stream
    } kCases[] = {
        {{kMain, kMain}, 0, "identical"},
        {{kMain, "copy_128x80.nv12"}, 0, "identical"},
        {{kMain, "narrow_120x80.nv12"}, 0, "identical"},
        {{"copy_128x80.nv12", "narrow_120x80.nv12"}, 1, "sizes differ: 128x80 and 120x80; --width"},
        {{"copy_128x80.nv12", "narrow_120x80.nv12", "--width", "120"}, 0, "identical"},
        {{kMain, "main.png"}, 0, "identical"},
        {{kMain, kOutput}, 1, "first difference at 7,3: Y"},
        {{"main.png", "small.png"}, 1, "120x80 and 20x10"},
        {{kMain, kOutput, "--width", "129"}, 2, "at most 128"},
        {{kMain, "none_128x80.nv12"}, 2, "none_128x80.nv12: expected a file"},
        {{kMain, "short_128x80.nv12"}, 2, "expected 15360 bytes"},
        {{kMain, "long_128x80.nv12"}, 0, "1000 bytes more than its name says"},
        {{"plain.nv12", kMain}, 2, "a name that ends in pitch and height"},
        {{kMain}, 2, "B: expected FILE, found none"},
    };
    for (const auto& [arguments, exitCode, said] : kCases) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        const ToolRun run = Run({"diff"}, arguments);
        EXPECT_EQ(run.exitCode, exitCode);
        EXPECT_THAT(run.output + run.errors, HasSubstr(said));
    }
}

TEST_F(PictureCommandTest, ConvertRefusesWhatItCannotDo) {
    WriteBytes(folder_ / "colour.png", EncodePng(Picture()));
    WriteBytes(folder_ / "IMG_20240131_235959_0_128x80.png", EncodePng(Picture()));
    const Names before = NamesIn(folder_);
    const std::vector<std::pair<Names, std::string>> cases{
        {{"convert", "none_4x4.nv12"}, "none_4x4.nv12: expected a file"},
        {{"convert", kMain, "--to", "nv12"}, "expected a PNG or JPEG picture"},
        {{"convert", kMain, "--to", "bmp"}, "--to"},
        {{"convert", "colour.png", "--to", "y8"}, "expected a grey picture"},
        {{"convert", "colour.png", "--pitch", "100"}, "--pitch: expected at least 120"},
        {{"convert", "colour.png", "--commands"}, "expected a dump"},
        {{"convert", "colour.png", "--pitch", "129"}, "--pitch: expected an even number"},
        {{"convert", "IMG_20240131_235959_0_128x80.png"}, "--force replaces it"},
        {{"convert", kMain, "--false-colour"}, "--false-colour: expected a disparity"},
        {{"convert", kDisparity, "--false-colour", "--commands"},
         "--commands beside it, found both"},
        {{"convert", kMain, "--pitch", "256"}, "--pitch: expected a picture"},
        {{"convert", "colour.png", "--width", "64"}, "--width: expected a dump"},
        {{"convert"}, "FILE"},
        {{"diff", kMain, kOutput, "--heat-map", (folder_ / kOutput).string()}, "file of its own"},
    };
    for (const auto& [arguments, said] : cases) {
        const ToolRun run = Run(arguments);
        EXPECT_EQ(run.exitCode, 2) << said;
        EXPECT_THAT(run.errors, HasSubstr(said));
    }
    EXPECT_EQ(NamesIn(folder_), before) << "nothing half-written";
    EXPECT_EQ(ReadFileBytes(folder_ / kMain), Dump().bytes());
}

// One bad file or set is an entry of its own; the others get theirs.
TEST_F(PictureCommandTest, GoesOnBehindWhatCannotBeRead) {
    fs::create_symlink("loop_4x4.nv12", folder_ / "loop_4x4.nv12");
    const std::string tooLong = std::string(30000, 'x') + "_4x4.nv12";
    const std::vector<std::pair<Names, std::string>> cases{
        {{"convert", "loop_4x4.nv12", tooLong, kMain, "--json", "-o", "out"}, "written"},
        {{"convert", "loop_4x4.nv12", tooLong, kMain, "--json", "--commands"}, "ffplay"},
        {{"inspect", "loop_4x4.nv12", tooLong, kMain, "--json"}, "findings"},
    };
    for (const auto& [arguments, key] : cases) {
        const ToolRun run = Run(arguments);
        EXPECT_EQ(run.exitCode, 2) << key;
        const auto report = nlohmann::json::parse(run.output);
        ASSERT_EQ(report.size(), 3u) << report;
        int good = 0;
        for (const auto& entry : report) {
            good += entry.contains(key) ? 1 : 0;
            EXPECT_NE(entry.contains(key), entry.contains("error")) << entry;
        }
        EXPECT_EQ(good, 1) << report;
        EXPECT_THAT(run.errors, HasSubstr("loop_4x4.nv12: "));
        EXPECT_THAT(run.errors, HasSubstr("File name too long"));
    }
}

TEST_F(PictureCommandTest, ConvertKeepsTheFirstOfTwoResultsOfOneName) {
    fs::create_directory(folder_ / "other");
    WriteBytes(folder_ / "other" / kMain, std::vector<std::uint8_t>(Dump().bytes().size(), 128));
    const ToolRun run = Run({"convert", kMain, std::string("other/") + kMain, "-o", "out"});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_THAT(run.errors, HasSubstr("found a second one in the same run"));
    const RgbImage kept = ReadImageFile(folder_ / "out/IMG_20240131_235959_0_128x80.png");
    EXPECT_EQ(kept.bytes, Nv12ToRgb(Cropped()).bytes);
}

TEST_F(PictureCommandTest, OutputThatCannotBeWrittenIsAFailure) {
    const std::string command =
        std::string(BOKEHNODE) + " completion bash >/dev/full 2>" + (folder_ / "said").string();
    EXPECT_NE(std::system(command.c_str()), 0);
    EXPECT_THAT(ReadText(folder_ / "said"), HasSubstr("cannot be written"));
}

TEST_F(PictureCommandTest, ConvertRoundsOddSidesForNv12Alone) {
    WriteBytes(folder_ / "grey.png", EncodePng(Paint(41, 31, Texture)));
    ASSERT_EQ(Run({"convert", "grey.png", "--to", "y8", "-o", "out"}).exitCode, 0);
    ASSERT_EQ(Run({"convert", "grey.png", "-o", "out"}).exitCode, 0);
    EXPECT_EQ(NamesIn(folder_ / "out"), (Names{"grey_40x30.nv12", "grey_41x31.Y8"}));
}

} // namespace

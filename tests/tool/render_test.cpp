// Runs the built tool as a user does.

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <string>

#include <sys/stat.h>

#include <nlohmann/json.hpp>
#include <png.h>

#include "host/picture/image_file.h"
#include "tests/tool/tool_test.h"

namespace fs = std::filesystem;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr int kWidth = 320;
constexpr int kHeight = 240;

// A near square, twelve pixels further left in the aux picture, before a far wall.
bool InSquare(int x, int y) {
    return x >= 110 && x < 210 && y >= 70 && y < 170;
}
constexpr int kNear = 16;
constexpr int kFar = 4;

RgbImage MainPicture(int width = kWidth, int height = kHeight) {
    return Paint(width, height, [](int x, int y) {
        return InSquare(x, y) ? Texture(x + 3000, y) : Texture(x + 1000, y + 500);
    });
}

RgbImage AuxPicture() {
    return Paint(kWidth, kHeight, [](int x, int y) {
        return InSquare(x + kNear, y) ? Texture(x + kNear + 3000, y)
                                      : Texture(x + kFar + 1000, y + 500);
    });
}

// Broad areas of strong colours, which show swapped channels and survive chroma at half size.
Colour Coloured(int x, int y) {
    constexpr std::array<Colour, 4> kColours{
        {{200, 30, 40}, {30, 60, 210}, {40, 190, 60}, {220, 200, 30}}};
    const int quarter = (x >= kWidth / 2 ? 1 : 0) + (y >= kHeight / 2 ? 2 : 0);
    return kColours[static_cast<std::size_t>(quarter)];
}

// Mean step from pixel to pixel along rows: what blur takes away.
double Sharpness(const RgbImage& picture, int left, int top, int right, int bottom) {
    double sum = 0;
    for (int y = top; y < bottom; ++y) {
        for (int x = left; x < right; ++x) {
            const auto at = static_cast<std::size_t>((y * picture.width + x) * 3 + 1);
            sum += std::abs(picture.bytes[at + 3] - picture.bytes[at]);
        }
    }
    return sum / ((right - left) * (bottom - top));
}

// The same colours in 16 bits a channel, as a scanner writes them: in the file's order of bytes.
void WriteDeepPng(const fs::path& path, const RgbImage& picture) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, file);
    png_set_IHDR(png, info, static_cast<png_uint_32>(picture.width),
                 static_cast<png_uint_32>(picture.height), 16, PNG_COLOR_TYPE_RGB,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    for (int y = 0; y < picture.height; ++y) {
        std::vector<std::uint8_t> row;
        for (int i = 0; i < picture.pitch(); ++i) {
            const auto at = static_cast<std::size_t>(y * picture.pitch() + i);
            row.insert(row.end(), 2, picture.bytes[at]);
        }
        png_write_row(png, row.data());
    }
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    std::fclose(file);
}

// A grey picture of 16x16 pixels in so many scans: each coefficient alone, bit by bit, all of them
// 0.
std::vector<std::uint8_t> ProgressiveJpeg(int scans) {
    std::vector<std::uint8_t> jpeg{0xff, 0xd8, 0xff, 0xdb, 0, 67, 0};
    jpeg.insert(jpeg.end(), 64, 1);
    jpeg.insert(jpeg.end(), {0xff, 0xc2, 0, 11, 8, 0, 16, 0, 16, 1, 1, 0x11, 0});
    for (const std::uint8_t table : std::initializer_list<std::uint8_t>{
             0x00, 0x10}) { // DC, AC: the one-bit code 0 for symbol 0
        jpeg.insert(jpeg.end(), {0xff, 0xc4, 0, 20, table, 1});
        jpeg.insert(jpeg.end(), 16, 0);
    }
    constexpr int kBits = 14;
    for (int i = 0; i < scans; ++i) {
        const int coefficient = (i + kBits - 1) / kBits;
        const int low = i == 0 ? 0 : kBits - 1 - (i - 1) % kBits;
        const int high = i == 0 || low == kBits - 1 ? 0 : low + 1;
        const auto at = static_cast<std::uint8_t>(coefficient);
        jpeg.insert(jpeg.end(), {0xff, 0xda, 0, 8, 1, 1, 0, at, at,
                                 static_cast<std::uint8_t>(high * 16 + low), 0x0f});
    }
    jpeg.insert(jpeg.end(), {0xff, 0xd9});
    return jpeg;
}

class RenderTest : public ToolTest {
protected:
    void SetUp() override {
        WriteBytes(folder_ / "main.png", EncodePng(MainPicture()));
        WriteBytes(folder_ / "aux.png", EncodePng(AuxPicture()));
    }

    ToolRun Render(const Names& more, const char* main = "main.png", const char* aux = "aux.png",
                   const char* output = "out") {
        return Run({"render", main, aux, "-o", output}, more);
    }
    nlohmann::json Tags() const {
        return nlohmann::json::parse(ReadText(folder_ / "out/tags.json"));
    }
    RgbImage Output() const { return ReadImageFile(folder_ / "out/output.png"); }
};

// What is refused, and what is said about it on standard error.
const struct {
    const char* main;
    Names more;
    Names said;
    const char* output = "out";
} kRefused[] = {
    {"none.png", {}, {"none.png", "expected a file, found none"}},
    {".", {}, {"expected a file, found a folder"}},
    {"words.txt", {}, {"words.txt", "expected a JPEG or PNG", "another kind"}},
    {"empty.png", {}, {"empty.png", "found an empty file"}},
    {"sparse.png", {}, {"sparse.png", "at most 2147483648 bytes"}},
    {"endless.png", {}, {"endless.png", "found a device or a pipe"}},
    {"pipe.png", {}, {"pipe.png", "found a device or a pipe"}},
    {"/proc/cpuinfo", {}, {"cpuinfo", "found a file of another kind"}},
    {"/sys/devices/system/cpu/online", {}, {"expected 4096 bytes", "when it was read"}},
    {"bell\a.png", {}, {"bell?.png: expected a file"}},
    {"b\x9b\xc2\x9b\xc3\xa4.png", {}, {"b??\xc3\xa4.png: expected a file"}},
    {"scans.jpg", {}, {"scans.jpg", "damaged"}},
    {"tiny.png", {}, {"tiny.png: expected", "16 to 65535 pixels", "8x8"}},
    {"main.png", {"--debug-view", "1"}, {"tags.json: cannot be written"}, "taken"},
    {"half.png", {}, {"half.png", "whole PNG", "damaged"}},
    {"half.jpg", {}, {"half.jpg", "whole JPEG", "damaged"}},
    {"main.png", {"--blur", "101"}, {"--blur", "0 to 100", "\"101\""}},
    {"main.png", {"--blur", "5x"}, {"--blur", "\"5x\""}},
    {"main.png", {"--rotation", "45"}, {"0, 90, 180 or 270", "\"45\""}},
    {"main.png", {"--focus", "12"}, {"--focus", "X,Y", "\"12\""}},
    {"main.png", {"--focus", "320,5"}, {"320x240", "320,5"}},
    {"main.png", {"--focus", "5,5", "--af-region", "1,1,2,2"}, {"--focus"}},
    {"main.png", {"--af-region", "9,9,3,12"}, {"not left of L"}},
    {"main.png", {"--af-region", "5,5,320,9"}, {"--af-region", "320x240"}},
    {"main.png", {"--face", "300,5,21,9"}, {"--face", "320x240", "300,5,21,9"}},
    {"main.png", {"--face", "9,5,21,9", "--select-face", "1"}, {"--select-face", "found 1"}},
    {"main.png", {"--size", "401x300"}, {"--size", "even", "401x300"}},
    {"main.png", {"--pitch", "319"}, {"--pitch", "at least 320", "319"}},
    {"main.png", {"--set", "persist.x"}, {"--set", "NAME=VALUE", "persist.x"}},
    {"main.png", {"--set", "a=" + std::string(92, 'x')}, {"91 bytes"}},
    {"main.png", {"--calibration", "short.bin"}, {"short.bin", "2048", "found 2047"}},
    {"main.png", {"--calibration", "/proc/cpuinfo"}, {"2048 bytes, found another number"}},
    {"main.png", {"--trace", "aux.png"}, {"--trace", "ends in .json", "aux.png"}},
    {"main.png", {"--node", "none.so"}, {"--node", "none.so"}},
    {"main.png", {}, {"words.txt", "folder"}, "words.txt"},
    {"main.png", {}, {"words.txt/deep", "folder"}, "words.txt/deep"},
    {"main.png", {"--blurr", "5"}, {"--blurr: expected"}},
};

TEST_F(RenderTest, NamesWhatIsWrongAndLeavesNothing) {
    const auto half = [](std::vector<std::uint8_t> bytes) {
        bytes.resize(bytes.size() / 2);
        return bytes;
    };
    WriteBytes(folder_ / "half.png", half(EncodePng(MainPicture())));
    WriteBytes(folder_ / "half.jpg", half(EncodeJpeg(MainPicture(), 98)));
    WriteBytes(folder_ / "words.txt", {'w', 'o', 'r', 'd', 's'});
    WriteBytes(folder_ / "empty.png", {});
    WriteBytes(folder_ / "short.bin", std::vector<std::uint8_t>(2047));
    WriteBytes(folder_ / "tiny.png", EncodePng(MainPicture(8, 8)));
    WriteBytes(folder_ / "scans.jpg", ProgressiveJpeg(600));
    WriteBytes(folder_ / "sparse.png", {0x89});
    fs::resize_file(folder_ / "sparse.png", 100'000'000'000);
    fs::create_symlink("/dev/zero", folder_ / "endless.png");
    ASSERT_EQ(::mkfifo((folder_ / "pipe.png").c_str(), 0600), 0);
    fs::create_directories(folder_ / "taken/tags.json");
    const Names before = NamesIn(folder_);
    for (const auto& [main, more, said, output] : kRefused) {
        if (*main == '/' && !fs::exists(main)) {
            continue; // not every container has /sys
        }
        SCOPED_TRACE(testing::PrintToString(said));
        const ToolRun run = Render(more, main, "aux.png", output);
        EXPECT_EQ(run.exitCode, 2);
        for (const std::string& text : said) {
            EXPECT_THAT(run.errors, HasSubstr(text));
        }
        EXPECT_EQ(NamesIn(folder_), before);
    }
    EXPECT_EQ(NamesIn(folder_ / "taken"), Names{"tags.json"});
    const std::string command = "cd " + folder_.string() + " && TMPDIR=/none " + BOKEHNODE +
                                " render main.png aux.png -o out 2>said";
    EXPECT_EQ(WEXITSTATUS(std::system(command.c_str())), 2);
    EXPECT_THAT(ReadText(folder_ / "said"), HasSubstr("TMPDIR: expected a folder"));
}

TEST_F(RenderTest, FocusedSquareStaysSharpBeforeABlurredWall) {
    const ToolRun run = Render({"--focus", "160,121", "--blur", "90", "--rotation", "0", "--json"});

    ASSERT_EQ(run.exitCode, 0) << run.errors;
    EXPECT_THAT(run.errors, Not(HasSubstr("\033"))) << "progress belongs on terminals only";
    EXPECT_EQ(NamesIn(folder_ / "out"), (Names{"disparity.png", "output.png", "tags.json"}));
    const RgbImage before = MainPicture();
    const RgbImage after = Output();
    ASSERT_EQ(after.width, kWidth);
    ASSERT_EQ(after.height, kHeight);
    EXPECT_GT(Sharpness(after, 130, 90, 190, 150), 0.8 * Sharpness(before, 130, 90, 190, 150));
    EXPECT_LT(Sharpness(after, 240, 40, 300, 200), 0.5 * Sharpness(before, 240, 40, 300, 200));

    const auto tags = Tags();
    auto printed = nlohmann::json::parse(run.output);
    EXPECT_EQ(printed["written"], (Names{"out/output.png", "out/disparity.png", "out/tags.json"}));
    for (const char* ofThisRun : {"written", "milliseconds", "peakMemoryMB"}) {
        EXPECT_EQ(printed.erase(ofThisRun), 1u) << ofThisRun;
    }
    EXPECT_EQ(printed, tags);
    EXPECT_EQ(tags["result"], 0);
    EXPECT_EQ(tags["copiedMainImage"], false);
    EXPECT_TRUE(tags["complaints"].empty()) << tags["complaints"];
    const auto& published = tags["published"];
    EXPECT_EQ(published["SupportedFeature"], "SupportedFeatureQavCTB");
    EXPECT_EQ(published["PtFocus"], (std::vector{160, 121}));
    EXPECT_EQ(published["FrameDimension"], (std::vector{kWidth, kHeight}));
    EXPECT_EQ(published["ProcessedFrameNumber"], 1);
    EXPECT_EQ(published["OutputMetadataBokeh"]["depthEffectInfo"], 0);
    EXPECT_GT(published["depthpicturesize"], 0);
    EXPECT_EQ(tags["parameters"]["blur"], 90);
}

// Cheap runs: a debug view leaves out the engine, the focus is published all the same.
TEST_F(RenderTest, PublishesTheFocus) {
    const std::pair<Names, std::vector<int>> kCases[] = {
        {{}, {160, 120}},
        {{"--focus", "31,207"}, {31, 207}},
        {{"--focus", "319,239"}, {319, 239}},
        {{"--focus", "0,0"}, {1, 1}},
        {{"--main-sensor", "640x480", "--main-crop", "320x240", "--focus", "31,207"}, {31, 207}},
        {{"--af-region", "100,40,139,59"}, {120, 50}},
        {{"--face", "10,20,31,31", "--face", "200,100,41,41"}, {220, 120}},
        {{"--face", "10,20,31,31", "--face", "200,100,41,41", "--select-face", "0"}, {25, 35}},
        {{"--face", "10,20,31,31", "--focus", "90,80"}, {90, 80}},
        {{"--face", "10,20,31,31", "--focus", "90,80", "--af-mode", "4"}, {25, 35}},
        {{"--size", "640x480", "--pitch", "704", "--focus", "600,400"}, {600, 400}},
    };
    for (const auto& [more, point] : kCases) {
        SCOPED_TRACE(testing::PrintToString(more));
        Names arguments = more;
        arguments.insert(arguments.end(), {"--debug-view", "1"});
        const ToolRun run = Render(arguments);
        ASSERT_EQ(run.exitCode, 0) << run.errors;
        EXPECT_EQ(Tags()["published"]["PtFocus"], point);
    }
    EXPECT_THAT(Render({"--focus", "0,7", "--debug-view", "1"}).errors,
                HasSubstr("note: --focus: the node takes 0,7 as no focus; 1,7 is used"));
    EXPECT_THAT(Render({"--face-rotation", "90", "--debug-view", "1"}).errors,
                HasSubstr("note: --face-rotation: there are no faces to turn"));
}

TEST_F(RenderTest, FallbackSaysSoAndCopiesTheMainPicture) {
    ASSERT_EQ(Render({}).exitCode, 0);
    WriteBytes(folder_ / "flat.png", EncodePng(Paint(kWidth, kHeight, [](int, int) {
                   return Colour{90, 140, 60};
               })));

    const ToolRun run = Render({}, "flat.png", "flat.png");

    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.errors, HasSubstr("copy of the main picture"));
    EXPECT_THAT(run.errors, HasSubstr("because: TSL_DCIR_CalcDisparityData failed"));
    EXPECT_LE(LargestDifference(Output(), ReadImageFile(folder_ / "flat.png")), 3);
    EXPECT_EQ(Tags()["copiedMainImage"], true);
    EXPECT_EQ(Tags()["published"]["OutputMetadataBokeh"]["depthEffectInfo"], 1);
    EXPECT_FALSE(fs::exists(folder_ / "out/disparity.png")) << "left from the run before";
}

// The engine finds no depth in any of these; what the images show tells why.
TEST_F(RenderTest, SaysWhyAPairGivesNoDepth) {
    WriteBytes(folder_ / "other.png", EncodePng(Paint(kWidth, kHeight, [](int x, int y) {
                   return Texture(x + 7000, y + 7000);
               })));
    WriteBytes(folder_ / "turned.png", EncodePng(Turned(AuxPicture(), 180)));
    const struct {
        const char* main;
        const char* aux;
        const char* said;
    } kCases[] = {
        {"aux.png", "main.png", "main and aux image are exchanged"},
        {"main.png", "main.png", "one and the same"},
        {"main.png", "other.png", "do not show the same scene"},
        {"main.png", "turned.png", "rotated by 180 degrees"},
    };
    for (const auto& [left, right, said] : kCases) {
        const ToolRun run = Render({}, left, right);
        EXPECT_EQ(run.exitCode, 1) << said;
        EXPECT_THAT(run.errors, HasSubstr("because: TSL_DCIR_CalcDisparityData failed (-"));
        EXPECT_THAT(run.errors, HasSubstr(said));
    }
    ASSERT_EQ(Render({"--report", "page.html"}, "main.png", "other.png").exitCode, 1);
    const std::string page = ReadText(folder_ / "page.html");
    EXPECT_THAT(page, HasSubstr("no disparity: TSL_DCIR_CalcDisparityData failed (-"));
}

// And their sets are replayed with the same calibration.
TEST_F(RenderTest, RendersPairsThatAreTurned) {
    for (const int turn : {90, 180, 270}) {
        WriteBytes(folder_ / "m.png", EncodePng(Turned(MainPicture(), turn)));
        WriteBytes(folder_ / "a.png", EncodePng(Turned(AuxPicture(), turn)));
        const std::string set = "turned" + std::to_string(turn);
        const ToolRun run =
            Render({"--rotation", std::to_string(turn), "--dump"}, "m.png", "a.png", set.c_str());
        EXPECT_EQ(run.exitCode, 0) << turn << run.errors;
        const ToolRun replay = Run({"replay", set, "-o", "replayed"});
        EXPECT_EQ(replay.exitCode, 0) << replay.output << replay.errors;
        EXPECT_THAT(replay.output, HasSubstr("_calibration.bin\n"));
    }
}

std::vector<std::uint8_t> WithOrientation(std::vector<std::uint8_t> jpeg, std::uint8_t orientation,
                                          bool bigEndian) {
    std::vector<std::uint8_t> exif{0xff, 0xe1, 0, 34, 'E', 'x', 'i', 'f', 0, 0};
    if (bigEndian) {
        exif.insert(exif.end(), {'M', 'M', 0, 42, 0, 0, 0,           8, 0, 1, 1, 0x12, 0,
                                 3,   0,   0, 0,  1, 0, orientation, 0, 0, 0, 0, 0,    0});
    } else {
        exif.insert(exif.end(), {'I', 'I', 42, 0, 8, 0,           0, 0, 1, 0, 0x12, 1, 3,
                                 0,   1,   0,  0, 0, orientation, 0, 0, 0, 0, 0,    0, 0});
    }
    jpeg.insert(jpeg.begin() + 2, exif.begin(), exif.end());
    return jpeg;
}

// As a phone stores a photo: as the sensor read it, and how to turn it. One file may lack the tag.
TEST_F(RenderTest, TurnsJpegPairsUpright) {
    const auto main = EncodeJpeg(MainPicture(), 98);
    const auto aux = EncodeJpeg(AuxPicture(), 98);
    WriteBytes(folder_ / "plain.jpg", aux);
    for (const auto& [orientation, turn] :
         {std::pair(3, 180), std::pair(6, 90), std::pair(8, 270)}) {
        const auto tag = static_cast<std::uint8_t>(orientation);
        WriteBytes(folder_ / "m.jpg", WithOrientation(main, tag, orientation == 6));
        WriteBytes(folder_ / "a.jpg", WithOrientation(aux, tag, orientation != 6));
        for (const char* second : {"a.jpg", "plain.jpg"}) {
            const ToolRun run = Render({}, "m.jpg", second);
            EXPECT_EQ(run.exitCode, 0) << orientation << run.errors;
            EXPECT_THAT(run.errors, HasSubstr(second + (": turned by " + std::to_string(turn))));
            EXPECT_EQ(Tags()["parameters"]["rotation"], turn);
        }
        ASSERT_EQ(Render({"--debug-view", "1"}, "m.jpg", "a.jpg").exitCode, 0);
        EXPECT_LE(LargestDifference(Output(), Turned(ReadImageFile(folder_ / "m.jpg"), turn)), 6);
        // One phone has one orientation: an upright aux picture lost its own.
        WriteBytes(folder_ / "a.jpg", WithOrientation(aux, 1, true));
        const ToolRun refused = Render({}, "m.jpg", "a.jpg");
        EXPECT_EQ(refused.exitCode, 2);
        EXPECT_THAT(refused.errors, HasSubstr("a.jpg: expected the EXIF orientation of m.jpg, " +
                                              std::to_string(turn) + " degrees, found 0"));
        const ToolRun stored = Render({"--as-stored"}, "m.jpg", "a.jpg");
        EXPECT_EQ(stored.exitCode, 0) << stored.errors;
        EXPECT_EQ(Output().width, kWidth);
    }
}

TEST_F(RenderTest, CalibrationOfOtherSizesFallsBackAndNamesBoth) {
    ASSERT_EQ(Render({"--device-root", "device"}).exitCode, 0);
    const ToolRun run = Render({"--device-root", "device", "--size", "400x300"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.errors, HasSubstr("because: "));
    EXPECT_THAT(run.errors, HasSubstr("[320, 240]"));
    EXPECT_THAT(run.errors, HasSubstr("[400, 300]"));
}

TEST_F(RenderTest, LibraryThatDoesNotLoadLeavesNothing) {
    WriteBytes(folder_ / "words.so", {'w', 'o', 'r', 'd', 's'});
    for (const char* option : {"--node", "--engine"}) {
        const ToolRun run = Render({option, "words.so"});
        EXPECT_EQ(run.exitCode, 2);
        EXPECT_THAT(run.errors, HasSubstr("/words.so: cannot be loaded: "));
        EXPECT_FALSE(fs::exists(folder_ / "out"));
    }
}

struct Failure {
    const char* armed;
    int exitCode;
    std::string said; // on standard error
};

TEST_F(RenderTest, ShowsWhatAFailingCallLeadsTo) {
    const Failure failures[] = {
        {"TSL_DCIR_Process", 1, "because: TSL_DCIR_Process failed (-4"},
        {"TSL_DCIR_Process:1:-77", 1, "because: TSL_DCIR_Process failed (-77"},
        {"TSL_DCIR_Process:2", 0, "note: --fail: there was no such call: TSL_DCIR_Process:2"},
        {"setMetadata", 1, "failed: the node published nothing"},
        {"TSL_DCIR_Process:0", 2, "--fail: expected TSL_DCIR_Process[:N[:RESULT]]"},
        {"TSL_DCIR_Proces", 2, ", found \"TSL_DCIR_Proces\""},
    };
    for (const Failure& failure : failures) {
        const ToolRun run = Render({"--fail", failure.armed, "--json"});
        EXPECT_EQ(run.exitCode, failure.exitCode) << failure.armed << run.errors;
        EXPECT_NE(run.errors.find(failure.said), std::string::npos) << run.errors;
        const auto json = nlohmann::json::parse(run.output);
        EXPECT_EQ(json.contains("error"), failure.exitCode == 2) << json;
    }
    EXPECT_NE(Render({"--help"}).output.find("TSL_DCIR_Process "), std::string::npos);
}

TEST_F(RenderTest, InterruptionLeavesNothing) {
    const Names before = NamesIn(folder_);
    const int signal = InterruptTool(
        {"render", "main.png", "aux.png", "-o", "deep/out", "--size", "4000x3000", "--dump"},
        folder_, [this] { return fs::exists(folder_ / "deep/out"); });
    EXPECT_EQ(signal, SIGTERM);
    EXPECT_EQ(NamesIn(folder_), before);
}

TEST_F(RenderTest, ColoursComeThroughInAllFormats) {
    const RgbImage picture = Paint(kWidth, kHeight, Coloured);
    WriteBytes(folder_ / "colours.png", EncodePng(picture));
    WriteBytes(folder_ / "colours.jpg", EncodeJpeg(picture, 98));
    WriteDeepPng(folder_ / "deep.png", picture);
    for (const char* name : {"colours.png", "colours.jpg", "deep.png"}) {
        const ToolRun run = Render({"--debug-view", "1"}, name);
        ASSERT_EQ(run.exitCode, 0) << run.errors;
        EXPECT_LE(LargestDifference(Output(), picture), 6) << name;
    }
}

TEST_F(RenderTest, DebugViews) {
    WriteBytes(folder_ / "colours.png", EncodePng(Paint(kWidth, kHeight, Coloured)));
    const auto view = [this](const char* number) {
        EXPECT_EQ(Render({"--debug-view", number}, "main.png", "colours.png").exitCode, 0);
        EXPECT_EQ(NamesIn(folder_ / "out"), (Names{"output.png", "tags.json"}));
        EXPECT_EQ(Tags()["published"]["depthpicturesize"], 0);
        return Output();
    };
    EXPECT_LE(LargestDifference(view("1"), MainPicture()), 3);
    EXPECT_LE(LargestDifference(view("2"), Paint(kWidth, kHeight, Coloured)), 6);
    const RgbImage merged = Paint(kWidth, kHeight, [](int x, int y) {
        return x < kWidth / 2 && y < kHeight / 2 ? Coloured(2 * x, 2 * y) : Colour{};
    });
    RgbImage both = view("3");
    const RgbImage main = MainPicture();
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            const auto at = static_cast<std::size_t>((y * kWidth + x) * 3 + 1);
            const RgbImage& source = x < kWidth / 2 && y < kHeight / 2 ? merged : main;
            ASSERT_NEAR(both.bytes[at], source.bytes[at], 6) << x << "," << y;
        }
    }
}

TEST_F(RenderTest, OddPicturesAreCroppedWithANote) {
    WriteBytes(folder_ / "odd.png", EncodePng(MainPicture(kWidth - 1, kHeight - 1)));
    const ToolRun run = Render({"--debug-view", "1"}, "odd.png");
    ASSERT_EQ(run.exitCode, 0) << run.errors;
    EXPECT_THAT(run.errors, HasSubstr("319x239 is cropped to even sides, 318x238"));
    EXPECT_LE(LargestDifference(Output(), MainPicture(kWidth - 2, kHeight - 2)), 3);
}

TEST_F(RenderTest, DumpsLandInTheDeviceRootOrBesideTheOutput) {
    Names suffixes{"_0_320x240.Y8", "_0_320x240.nv12", "_0_320x240_metadata.txt", "_1_320x240.nv12",
                   "_res_320x240.nv12"};
    const auto dumps = [&](const fs::path& where) {
        Names found;
        for (const std::string& name : NamesIn(where)) {
            if (name.starts_with("IMG_")) {
                found.push_back(name.substr(std::string("IMG_20240131_235959").size()));
            }
        }
        return found;
    };
    ASSERT_EQ(Render({"--dump", "--device-root", "device"}).exitCode, 0);
    EXPECT_EQ(dumps(folder_ / "device/data/vendor/camera"), suffixes);
    EXPECT_EQ(dumps(folder_ / "out"), Names{});
    ASSERT_EQ(Render({"--dump"}).exitCode, 0);
    suffixes.insert(suffixes.end() - 1, "_calibration.bin");
    EXPECT_EQ(dumps(folder_ / "out"), suffixes);
    for (int write = 1; write <= 5; ++write) { // as on a full disk
        const ToolRun run = Render({"--dump", "--fail", "write:" + std::to_string(write)});
        EXPECT_EQ(run.exitCode, 1) << write;
        EXPECT_THAT(run.errors, HasSubstr("failed: the dumps are not whole: IMG_")) << write;
    }
    // Of pictures that are small as PNG, and a page that shows the dumps.
    WriteBytes(folder_ / "flat.png", EncodePng(Paint(640, 480, [](int, int) { return Colour{}; })));
    const FileSizeLimit limit(300'000);
    for (const Names& words : {Names{"--debug-view", "1", "--dump"},
                               Names{"--debug-view", "1", "--report", "page.html"}}) {
        const ToolRun run = Render(words, "flat.png", "flat.png");
        EXPECT_EQ(run.exitCode, 1);
        EXPECT_THAT(run.errors, ContainsRegex("/bokehnode-[A-Za-z0-9]+/data/vendor/camera: cannot "
                                              "be written: File too large"));
    }
}

} // namespace

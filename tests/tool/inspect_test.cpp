// inspect, on dump sets that the node wrote and on spoiled ones.

#include <string>

#include <nlohmann/json.hpp>

#include "host/picture/image_file.h"
#include "host/picture/nv12.h"
#include "tests/tool/corruption.h"
#include "tests/tool/tool_test.h"
#include "tools/dumps/dump_image.h"
#include "tools/inspect/inspection.h"

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

namespace {

using InspectTest = CaptureTest;

// A sample of what scripts/inspect-corruptions judges.
TEST_F(InspectTest, NamesCorruptionsAndSuspectsNoGoodSet) {
    const auto captures = Make(500, 8);
    for (const SyntheticCapture& capture : captures) {
        const Inspection inspection = Inspect(FindDumpSet(capture.folder / capture.stem));
        EXPECT_TRUE(inspection.findings.empty())
            << capture.stem << ": " << inspection.findings.front().text;
        EXPECT_EQ(inspection.image(DumpRole::kMain)->width(), capture.width) << capture.stem;
        EXPECT_EQ(inspection.image(DumpRole::kAux)->width(), capture.auxWidth) << capture.stem;
    }
    constexpr int kRounds = 5;
    for (int i = 0; i < kRounds * kCorruptionKinds; ++i) {
        const SyntheticCapture& capture = captures[static_cast<std::size_t>(i) % captures.size()];
        const SyntheticCapture& other = captures[static_cast<std::size_t>(i + 1) % captures.size()];
        const fs::path spoiled = folder_ / "spoiled";
        const Corrupted corrupted =
            Corrupt(i % kCorruptionKinds, capture, other, static_cast<std::uint32_t>(i), spoiled);
        const Inspection inspection = Inspect(FindDumpSet(spoiled));
        ASSERT_FALSE(inspection.findings.empty()) << capture.stem << ": " << corrupted.what;
        const Finding& first = inspection.findings.front();
        EXPECT_EQ(NameOf(first.problem), std::string(NameOf(corrupted.problem)))
            << capture.stem << ": " << corrupted.what << ": " << first.text;
        EXPECT_EQ(first.file, corrupted.file) << capture.stem << ": " << corrupted.what;
    }
}

TEST_F(InspectTest, ShowsSetsOfAFolderAndSaysWhatIsWrong) {
    const auto captures = Make(600, 2);
    const SyntheticCapture& capture = captures[0];

    ToolRun run = Run({"inspect", "camera", "-o", "seen"});
    ASSERT_EQ(run.exitCode, 0) << run.output << run.errors;
    EXPECT_THAT(run.output, HasSubstr("0 of 2 sets look wrong"));
    const RgbImage main = ReadImageFile(folder_ / "seen" / (capture.stem + "_main.png"));
    EXPECT_EQ(main.width, capture.width);
    EXPECT_EQ(main.height, capture.height);
    EXPECT_EQ(NamesIn(folder_ / "seen").size(), 8u);

    Corrupt(10, captures[1], capture, 1, folder_ / "camera/deeper"); // output a copy
    const std::string name = captures[1].stem + "_output.png";
    fs::create_directories(folder_ / "taken" / name);
    fs::create_directories(folder_ / "taken" / (capture.stem + "_main.png"));
    run = Run({"inspect", "camera/deeper", "camera/" + capture.stem, "-o", "taken"});
    EXPECT_EQ(run.exitCode, 2) << "no picture could be written";
    EXPECT_THAT(run.output, HasSubstr("1 of 2 sets look wrong\n"));
    EXPECT_THAT(run.output, Not(HasSubstr("wrote")));
    EXPECT_THAT(run.errors, HasSubstr(name));
    run = Run({"inspect", "camera/deeper", "--json"});
    EXPECT_EQ(run.exitCode, 1);
    const auto report = nlohmann::json::parse(run.output);
    ASSERT_EQ(report.size(), 1u);
    EXPECT_EQ(report[0]["findings"][0]["problem"], "fallback");
    EXPECT_EQ(report[0]["files"]["main"]["width"], captures[1].width);
    EXPECT_TRUE(report[0]["parameters"]["blur"].is_number());
}

// What a camera writes that took nothing: neither rows nor a moment can be told from it.
TEST_F(InspectTest, SaysThatAPictureIsOneValueAllOver) {
    const SyntheticCapture capture = Make(610, 1).front();
    const DumpSet set = FindDumpSet(capture.folder / capture.stem);
    for (const DumpRole role : {DumpRole::kOutput, DumpRole::kAux, DumpRole::kMain}) {
        const DumpFile& file = *set.file(role);
        WriteBytes(file.path, Bytes(file.bytes));
        const ToolRun run = Run({"inspect", "camera"});
        const std::string note = std::string(RoleName(role)) + " is 0 all over";
        EXPECT_THAT(run.output, HasSubstr(note));
        EXPECT_THAT(run.output, Not(HasSubstr("rows repeat")));
    }
}

// Neither the aspect nor the padding tells the width of an aux image that is one value all over.
TEST_F(InspectTest, TakesAConstantAuxImageOfAnotherSize) {
    WriteBytes(folder_ / "IMG_20240131_235959_0_128x80.nv12", Bytes(128 * 120));
    WriteBytes(folder_ / "IMG_20240131_235959_1_98x64.nv12", Bytes(98 * 96));
    const ToolRun run = Run({"inspect", "."});
    EXPECT_EQ(run.exitCode, 1) << run.errors;
    EXPECT_THAT(run.output, HasSubstr("98x64, pitch 98"));
    EXPECT_THAT(run.output, HasSubstr("aux is 0 all over"));
}

// Rows aligned to 256 bytes, and a picture whose right edge is as constant as padding.
TEST_F(InspectTest, AspectTellsTheWidthOfLongRows) {
    constexpr int kPitch = 768;
    Bytes aux(kPitch * 675, 16);
    for (std::size_t i = 0; i < aux.size(); ++i) {
        aux[i] = i % kPitch < 500 ? static_cast<std::uint8_t>(i * i / 997) : 16;
    }
    const std::string base = "IMG_20240131_235959";
    WriteBytes(folder_ / (base + "_0_128x80.nv12"), Bytes(128 * 120));
    WriteBytes(folder_ / (base + "_1_768x450.nv12"), aux);
    Write(base + "_0_128x80_metadata.txt",
          FormatParameterText({50, 5, 5, 128, 80, 1200, 900, 0, {}}));
    EXPECT_THAT(Run({"inspect", "."}).output, HasSubstr("600x450, pitch 768"));
}

// Two images alone cannot tell in which of them U and V are exchanged.
TEST_F(InspectTest, BlamesNeitherOfTwoImagesForTheirChroma) {
    const SyntheticCapture capture = Make(615, 1).front();
    const DumpSet set = FindDumpSet(capture.folder / capture.stem);
    const DumpFile& aux = *set.file(DumpRole::kAux);
    host::Image image = ReadImageDump(aux, aux.name.first);
    for (int i = 0; i < static_cast<int>(image.planeSize(1)); i += 2) {
        std::swap(image.plane(1)[i], image.plane(1)[i + 1]);
    }
    WriteBytes(aux.path, image.bytes());
    EXPECT_TRUE(Inspect(set).Has(Problem::kChroma, DumpRole::kAux));
    fs::copy_file(set.file(DumpRole::kMain)->path, set.file(DumpRole::kOutput)->path,
                  fs::copy_options::overwrite_existing);
    for (const bool copied : {true, false}) {
        const Inspection inspection = Inspect(FindDumpSet(capture.folder / capture.stem));
        EXPECT_TRUE(inspection.Has(Problem::kChroma)) << copied;
        EXPECT_FALSE(inspection.Has(Problem::kChroma, DumpRole::kAux)) << copied;
        fs::remove(set.file(DumpRole::kOutput)->path);
    }
}

// A wider main camera's middle is what the aux camera shows.
TEST_F(InspectTest, TakesCamerasOfDifferentFieldsOfView) {
    const SyntheticCapture capture = Make(620, 1).front();
    const DumpSet set = FindDumpSet(capture.folder / capture.stem);
    const DumpFile& aux = *set.file(DumpRole::kAux);
    const RgbImage whole = Nv12ToRgb(ReadImageDump(aux, capture.auxWidth));
    const double share = 0.78;
    const RgbImage middle = Paint(whole.width, whole.height, [&](int x, int y) {
        const auto from = [&](int at, int side) {
            return static_cast<int>((at - side / 2.0) * share + side / 2.0);
        };
        return ColourAt(whole, from(x, whole.width), from(y, whole.height));
    });
    WriteBytes(aux.path, RgbToNv12(middle, aux.name.first).bytes());
    const Inspection inspection = Inspect(set);
    EXPECT_TRUE(inspection.findings.empty()) << inspection.findings.front().text;
}

TEST_F(InspectTest, SaysSoOfNamesThatNoPictureHas) {
    for (const char* name : {"_0_999998x999999.nv12", "_1_33x20.nv12", "_res_64x1.nv12",
                             "_0_999999x999999.Y8", "_0_999999x5_metadata.txt"}) {
        WriteBytes(folder_ / (std::string("IMG_20240131_235959") + name), {1, 2, 3});
    }
    const ToolRun run = Run({"inspect", ".", "-o", "seen"});
    EXPECT_EQ(run.exitCode, 1) << run.errors;
    for (const char* said : {"999998x999999", "33x20", "64x1", "disparity-small", "line 1"}) {
        EXPECT_THAT(run.output, HasSubstr(said));
    }
    EXPECT_EQ(Run({"replay", "."}).exitCode, 2);
}

// Sparse files take no room, whatever length they state.
TEST_F(InspectTest, ReadsNoMoreThanTheNamesAllow) {
    const std::string stem = "IMG_20240131_235959";
    for (const auto& [name, bytes] : {std::pair("_0_999998x10.nv12", 999998ull * 15),
                                      std::pair("_1_65536x2.nv12", 100'000'000'000ull),
                                      std::pair("_0_64x48.Y8", 100'000'000'000ull),
                                      std::pair("_0_64x48_metadata.txt", 100'000'000'000ull)}) {
        WriteBytes(folder_ / (stem + name), {1});
        fs::resize_file(folder_ / (stem + name), bytes);
    }
    const ToolRun run = Run({"inspect", "."});
    EXPECT_EQ(run.exitCode, 1) << run.errors;
    for (const char* said : {"999998x10, expected an even pitch", "found 100000000000", "line 1"}) {
        EXPECT_THAT(run.output, HasSubstr(said));
    }
}

// A text that Windows has copied, and crops that no product of theirs fits into an int.
TEST_F(InspectTest, NamesWhatIsWrongWithAText) {
    const std::string base = "IMG_20240131_235959";
    WriteBytes(folder_ / (base + "_0_128x80.nv12"), Bytes(128 * 120, 9));
    WriteBytes(folder_ / (base + "_1_98x64.nv12"), Bytes(98 * 96, 9));
    DumpParameters parameters{50, 5, 5, 128, 80, 2147483647, 1, 0, {}};
    Write(base + "_0_128x80_metadata.txt", FormatParameterText(parameters));
    EXPECT_THAT(Run({"inspect", "."}).output, HasSubstr("i32Aux_CropNoScale 2147483647x1"));

    std::string text = FormatParameterText(parameters);
    for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos; at += 2) {
        text.insert(at, "\r");
    }
    Write(base + "_0_128x80_metadata.txt", text);
    for (const char* command : {"inspect", "replay"}) {
        const ToolRun run = Run({command, "."});
        EXPECT_THAT(run.output + run.errors, HasSubstr("its lines end in CR LF"));
    }
    parameters = {50, 5, 5, 8, 8, 98, 64, 0, {}};
    Write(base + "_0_128x80_metadata.txt", FormatParameterText(parameters));
    EXPECT_THAT(Run({"replay", "."}).errors,
                HasSubstr("i32Main_CropNoScale: expected sides of 16 to 65535, found 8x8"));
}

TEST_F(InspectTest, RefusesPlacesWithoutSets) {
    fs::create_directories(folder_ / "empty");
    WriteBytes(folder_ / "words.txt", {'w'});
    for (const auto& [place, said] : {std::pair("none", "found nothing"),
                                      std::pair("empty", "expected a folder with dump sets"),
                                      std::pair("words.txt", "found a file of another name")}) {
        const ToolRun run = Run({"inspect", place, "-o", "seen"});
        EXPECT_EQ(run.exitCode, 2) << place;
        EXPECT_THAT(run.errors, HasSubstr(said));
        EXPECT_FALSE(fs::exists(folder_ / "seen"));
    }
}

} // namespace

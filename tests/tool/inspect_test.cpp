// inspect, on dump sets that the node wrote and on spoiled ones.

#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "host/picture/image_file.h"
#include "host/picture/nv12.h"
#include "tests/tool/corruption.h"
#include "tests/tool/made_capture.h"
#include "tests/tool/tool_runner.h"
#include "tools/dumps/dump_image.h"
#include "tools/inspect/inspection.h"

namespace fs = std::filesystem;

namespace {

// A sample of what scripts/inspect-corruptions judges.
TEST(Inspect, NamesCorruptionsAndSuspectsNoGoodSet) {
    const TestFolder folder;
    CaptureMaker maker(NODE_LIBRARY, ENGINE_LIBRARY);
    const auto captures = maker.MakeAll(500, 8, folder.path() / "good");
    for (const MadeCapture& capture : captures) {
        const Inspection inspection = Inspect(FindDumpSet(capture.folder / capture.stem));
        EXPECT_TRUE(inspection.findings.empty())
            << capture.stem << ": " << inspection.findings.front().text;
        EXPECT_EQ(inspection.image(DumpRole::kMain)->width(), capture.width) << capture.stem;
        EXPECT_EQ(inspection.image(DumpRole::kAux)->width(), capture.auxWidth) << capture.stem;
    }
    constexpr int kRounds = 5;
    for (int i = 0; i < kRounds * kCorruptionKinds; ++i) {
        const MadeCapture& capture = captures[static_cast<std::size_t>(i) % captures.size()];
        const MadeCapture& other = captures[static_cast<std::size_t>(i + 1) % captures.size()];
        const fs::path spoiled = folder.path() / "spoiled";
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

TEST(Inspect, ShowsSetsOfAFolderAndSaysWhatIsWrong) {
    const TestFolder folder;
    CaptureMaker maker(NODE_LIBRARY, ENGINE_LIBRARY);
    const auto captures = maker.MakeAll(600, 2, folder.path() / "camera");
    const MadeCapture& capture = captures[0];

    ToolRun run = RunTool({"inspect", "camera", "-o", "seen"}, folder.path());
    ASSERT_EQ(run.exitCode, 0) << run.output << run.errors;
    EXPECT_NE(run.output.find("0 of 2 sets look wrong"), std::string::npos) << run.output;
    const RgbImage main = ReadImageFile(folder.path() / "seen" / (capture.stem + "_main.png"));
    EXPECT_EQ(main.width, capture.width);
    EXPECT_EQ(main.height, capture.height);
    EXPECT_EQ(NamesIn(folder.path() / "seen").size(), 8u);

    Corrupt(10, captures[1], capture, 1, folder.path() / "camera/deeper"); // output a copy
    run = RunTool({"inspect", "camera/deeper", "--json"}, folder.path());
    EXPECT_EQ(run.exitCode, 1);
    const auto report = nlohmann::json::parse(run.output);
    ASSERT_EQ(report.size(), 1u);
    EXPECT_EQ(report[0]["findings"][0]["problem"], "fallback");
    EXPECT_EQ(report[0]["files"]["main"]["width"], captures[1].width);
    EXPECT_TRUE(report[0]["parameters"]["blur"].is_number());
}

// What a camera writes that took nothing: neither rows nor a moment can be told from it.
TEST(Inspect, SaysThatAPictureIsOneValueAllOver) {
    const TestFolder folder;
    CaptureMaker maker(NODE_LIBRARY, ENGINE_LIBRARY);
    const MadeCapture capture = maker.MakeAll(610, 1, folder.path() / "camera").front();
    const DumpSet set = FindDumpSet(capture.folder / capture.stem);
    for (const DumpRole role : {DumpRole::kOutput, DumpRole::kAux, DumpRole::kMain}) {
        const DumpFile& file = *set.file(role);
        std::ofstream(file.path, std::ios::binary) << std::string(file.bytes, '\0');
        const ToolRun run = RunTool({"inspect", "camera"}, folder.path());
        const std::string note = std::string(RoleName(role)) + " is 0 all over";
        EXPECT_NE(run.output.find(note), std::string::npos) << run.output;
        EXPECT_EQ(run.output.find("rows repeat"), std::string::npos) << run.output;
    }
}

// A wider main camera's middle is what the aux camera shows.
TEST(Inspect, TakesCamerasOfDifferentFieldsOfView) {
    const TestFolder folder;
    CaptureMaker maker(NODE_LIBRARY, ENGINE_LIBRARY);
    const MadeCapture capture = maker.MakeAll(620, 1, folder.path()).front();
    const DumpSet set = FindDumpSet(folder.path() / capture.stem);
    const DumpFile& aux = *set.file(DumpRole::kAux);
    const RgbImage whole = Nv12ToRgb(ReadImageDump(aux, capture.auxWidth));
    const double share = 0.78;
    const RgbImage middle = Paint(whole.width, whole.height, [&](int x, int y) {
        const auto from = [&](int at, int side) {
            return static_cast<int>((at - side / 2.0) * share + side / 2.0);
        };
        const std::uint8_t* colour = &whole.bytes[static_cast<std::size_t>(
            from(y, whole.height) * whole.pitch() + from(x, whole.width) * 3)];
        return Colour{colour[0], colour[1], colour[2]};
    });
    WriteBytes(aux.path, RgbToNv12(middle, aux.name.first).bytes());
    const Inspection inspection = Inspect(set);
    EXPECT_TRUE(inspection.findings.empty()) << inspection.findings.front().text;
}

TEST(Inspect, SaysSoOfNamesThatNoPictureHas) {
    const TestFolder folder;
    for (const char* name : {"_0_999998x999999.nv12", "_1_33x20.nv12", "_res_64x1.nv12",
                             "_0_999999x999999.Y8", "_0_999999x5_metadata.txt"}) {
        WriteBytes(folder.path() / (std::string("IMG_20240131_235959") + name), {1, 2, 3});
    }
    const ToolRun run = RunTool({"inspect", ".", "-o", "seen"}, folder.path());
    EXPECT_EQ(run.exitCode, 1) << run.errors;
    for (const char* said : {"999998x999999", "33x20", "64x1", "disparity-small", "line 1"}) {
        EXPECT_NE(run.output.find(said), std::string::npos) << said << "\n" << run.output;
    }
    EXPECT_EQ(RunTool({"replay", "."}, folder.path()).exitCode, 2);
}

TEST(Inspect, RefusesPlacesWithoutSets) {
    const TestFolder folder;
    fs::create_directories(folder.path() / "empty");
    WriteBytes(folder.path() / "words.txt", {'w'});
    for (const auto& [place, said] : {std::pair("none", "found nothing"),
                                      std::pair("empty", "expected a folder with dump sets"),
                                      std::pair("words.txt", "found a file of another name")}) {
        const ToolRun run = RunTool({"inspect", place, "-o", "seen"}, folder.path());
        EXPECT_EQ(run.exitCode, 2) << place;
        EXPECT_NE(run.errors.find(said), std::string::npos) << run.errors;
        EXPECT_FALSE(fs::exists(folder.path() / "seen"));
    }
}

} // namespace

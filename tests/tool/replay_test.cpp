// replay, run as a user does.

#include <fstream>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/tool/made_capture.h"
#include "tests/tool/tool_runner.h"
#include "tools/dumps/dump_image.h"
#include "tools/dumps/dump_set.h"

namespace fs = std::filesystem;
using Names = std::vector<std::string>;

namespace {

class ReplayTest : public testing::Test {
protected:
    std::vector<MadeCapture> Make(std::uint32_t seed, int count) {
        CaptureMaker maker(NODE_LIBRARY, ENGINE_LIBRARY);
        return maker.MakeAll(seed, count, folder_ / "camera");
    }
    ToolRun Replay(const MadeCapture& capture, const Names& more = {}) {
        Names arguments{"replay", "camera/" + capture.stem, "--calibration", capture.calibration};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return RunTool(arguments, folder_);
    }
    DumpParameters Parameters(const std::string& folder, const MadeCapture& capture) {
        return ReadParameters(FindDumpSet(folder_ / folder / capture.stem)).values;
    }

    const TestFolder temporary_;
    const fs::path folder_ = temporary_.path();
};

class SeededReplayTest : public ReplayTest, public testing::WithParamInterface<std::uint32_t> {};

// A sample of what scripts/replay-requests runs.
TEST_P(SeededReplayTest, RequestsComeOutTheSame) {
    for (const MadeCapture& capture : Make(GetParam(), 4)) {
        const ToolRun run = Replay(capture);
        EXPECT_EQ(run.exitCode, 0) << run.output << run.errors;
        EXPECT_NE(run.output.find("output: identical\n  disparity: identical"), std::string::npos)
            << run.output;
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, SeededReplayTest, testing::Values(900, 910));

TEST_F(ReplayTest, ChangesReachTheNodeAndShow) {
    const MadeCapture capture = Make(951, 1).front();
    const int degree = (Parameters("camera", capture).degree + 90) % 360;
    const ToolRun run =
        Replay(capture, {"--blur", "97", "--focus", "31,42", "--face", "20,30,40,50", "--rotation",
                         std::to_string(degree), "--face-orientation", "3", "-o", "new", "--json"});
    EXPECT_EQ(run.exitCode, 1) << run.errors;
    const auto report = nlohmann::json::parse(run.output);
    EXPECT_EQ(report["equal"], false);
    EXPECT_EQ(report["output"]["identical"], false);
    const DumpParameters taken = Parameters("new", capture);
    EXPECT_EQ(taken.blur, 97);
    EXPECT_EQ(taken.focusX, 31);
    EXPECT_EQ(taken.focusY, 42);
    EXPECT_EQ(taken.degree, degree);
    EXPECT_EQ(taken.faces, (std::vector<DumpedFace>{{20, 30, 59, 79, 3}}));
    // The new dumps have the old names, so that the two can be compared.
    const std::string main =
        FindDumpSet(folder_ / "camera" / capture.stem).file(DumpRole::kMain)->path.filename();
    const ToolRun diff = RunTool({"diff", "camera/" + main, "new/" + main}, folder_);
    EXPECT_EQ(diff.exitCode, 0) << diff.output;
    EXPECT_TRUE(fs::exists(folder_ / "new" / (capture.stem + "_difference.png")));
}

// What no replay of a rectified pair's default calibration shows: places that only a face's middle
// can have, faces without extent, edges of the image.
TEST_F(ReplayTest, RebuildsParametersAtTheLimits) {
    const MadeCapture capture = Make(960, 1).front();
    const DumpSet set = FindDumpSet(folder_ / "camera" / capture.stem);
    const fs::path file = set.file(DumpRole::kParameters)->path;
    DumpParameters parameters = ReadParameters(set).values;
    const int right = capture.width - 1;
    parameters.focusX = 0;
    parameters.focusY = 7;
    parameters.faces = {{0, 5, 1, 9, 4}, {right, 3, right, 2, 4}, {4, 4, 3, 40, 4}};
    const std::string text = FormatParameterText(parameters);
    WriteBytes(file, {text.begin(), text.end()});
    const ToolRun run = Replay(capture, {"-o", "new"});
    EXPECT_EQ(run.output.find("another parameter"), std::string::npos) << run.output;
    EXPECT_EQ(Parameters("new", capture), parameters);

    parameters.faces.clear();
    const std::string alone = FormatParameterText(parameters);
    WriteBytes(file, {alone.begin(), alone.end()});
    const ToolRun refused = Replay(capture);
    EXPECT_EQ(refused.exitCode, 2);
    EXPECT_NE(refused.errors.find("ptFocus"), std::string::npos) << refused.errors;
}

TEST_F(ReplayTest, EqualNeedsTheWholeDisparity) {
    const MadeCapture capture = Make(965, 1).front();
    const fs::path file =
        FindDumpSet(folder_ / "camera" / capture.stem).file(DumpRole::kDisparity)->path;
    const Bytes whole = ReadFileBytes(file);
    Bytes longer = whole;
    longer.resize(whole.size() + 1000, 7); // what an earlier, larger capture left
    Bytes changed = longer;
    changed[whole.size() - 1] ^= 1;
    const std::pair<Bytes, int> cases[] = {
        {whole, 0}, {longer, 0}, {changed, 1}, {{whole.begin(), whole.end() - 1}, 1}, {{7}, 1}};
    for (const auto& [bytes, exitCode] : cases) {
        WriteBytes(file, bytes);
        const ToolRun run = Replay(capture);
        EXPECT_EQ(run.exitCode, exitCode) << bytes.size() << " bytes: " << run.output << run.errors;
    }
    fs::remove(file);
    const ToolRun run = Replay(capture);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.output.find("the set has no disparity"), std::string::npos) << run.output;
}

TEST_F(ReplayTest, AllWorksThroughAFolderOnce) {
    const auto captures = Make(970, 3);
    const auto path = [&](std::size_t i, DumpRole role) {
        return FindDumpSet(folder_ / "camera" / captures[i].stem).file(role)->path;
    };
    auto output = ReadFileBytes(path(1, DumpRole::kOutput));
    output[0] ^= 0x40;
    WriteBytes(path(1, DumpRole::kOutput), output);
    fs::remove(path(2, DumpRole::kAux));
    const Names arguments{"replay", "camera", "--all", "--jobs", "2"};

    const ToolRun run = RunTool(arguments, folder_);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.output.find("unreadable camera/" + captures[2].stem), std::string::npos)
        << run.output;
    EXPECT_NE(run.output.find("3 sets:"), std::string::npos) << run.output;
    EXPECT_EQ(run.output.find("done before"), std::string::npos) << run.output;

    // Again: nothing runs but what has changed since.
    output[0] ^= 0x40;
    WriteBytes(path(1, DumpRole::kOutput), output);
    fs::last_write_time(path(1, DumpRole::kOutput), fs::file_time_type::clock::now());
    const ToolRun again = RunTool(arguments, folder_);
    const auto line = [&](std::size_t i) {
        const auto at = again.output.find(captures[i].stem);
        return again.output.substr(at, again.output.find('\n', at) - at);
    };
    EXPECT_NE(line(0).find("done before"), std::string::npos) << again.output;
    EXPECT_EQ(line(1).find("done before"), std::string::npos) << again.output;
    EXPECT_EQ(line(2).find("done before"), std::string::npos) << "may be readable now";
    EXPECT_TRUE(fs::exists(folder_ / "replayed" / (captures[0].stem + ".json")));

    // What is wrong for all is said once.
    for (const Names& wrong : {Names{"--calibration", "none.bin"}, {"--focus", "99999,1"}}) {
        Names all{"replay", "camera", "--all", "-o", "new"};
        all.insert(all.end(), wrong.begin(), wrong.end());
        EXPECT_EQ(RunTool(all, folder_).exitCode, 2) << wrong[1];
        EXPECT_FALSE(fs::exists(folder_ / "new")) << wrong[1];
    }
}

TEST_F(ReplayTest, RefusesWhatCannotBeReplayed) {
    const MadeCapture capture = Make(980, 1).front();
    const DumpSet set = FindDumpSet(folder_ / "camera" / capture.stem);
    std::ofstream(folder_ / "text.so") << "no library";
    const auto said = [&](const Names& more) {
        const ToolRun run = Replay(capture, more);
        EXPECT_EQ(run.exitCode, 2) << run.output;
        return run.errors;
    };
    EXPECT_NE(said({"--blur", "101"}).find("--blur"), std::string::npos);
    EXPECT_NE(said({"--aux-width", "99999"}).find("expected an even width"), std::string::npos);
    EXPECT_NE(said({"--engine", "none.so"}).find("--engine"), std::string::npos);
    EXPECT_NE(said({"--node", "text.so"}).find("text.so"), std::string::npos);
    const std::string size =
        std::to_string(capture.width) + "x" + std::to_string(capture.height) + ", found ";
    EXPECT_NE(said({"--focus", "99999,1"}).find(size + "99999,1"), std::string::npos);
    EXPECT_NE(said({"--focus", "2147483647,1"}).find("2147483647,1"), std::string::npos);
    EXPECT_NE(said({"--face", "1,1,0,9"}).find("positive width"), std::string::npos);
    EXPECT_NE(said({"--main-crop", "2147483647x2"}).find("1048576"), std::string::npos);
    const Names before = NamesIn(folder_ / "camera");
    EXPECT_NE(said({"--blur", "10", "-o", "camera/../camera"}).find("the set's own"),
              std::string::npos);
    EXPECT_EQ(NamesIn(folder_ / "camera"), before);
    const fs::path text = set.file(DumpRole::kParameters)->path;
    const Bytes parameters = ReadFileBytes(text);
    DumpParameters damaged = ReadParameters(set).values;
    damaged.auxCropWidth = 2147483647;
    const std::string far = FormatParameterText(damaged);
    WriteBytes(text, {far.begin(), far.end()});
    EXPECT_NE(said({}).find("i32AuxWidth_CropNoScale: expected"), std::string::npos);
    WriteBytes(text, parameters);
    fs::resize_file(set.file(DumpRole::kAux)->path, 100);
    EXPECT_NE(said({}).find("found 100"), std::string::npos);
    fs::resize_file(set.file(DumpRole::kParameters)->path, 30);
    EXPECT_NE(said({}).find("line 3: expected \"ptFocus_x=\""), std::string::npos) << said({});
}

} // namespace

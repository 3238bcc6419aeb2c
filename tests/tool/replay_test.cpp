// replay, run as a user does.

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <thread>

#include <nlohmann/json.hpp>

#include "host/picture/image_file.h"
#include "tests/tool/tool_test.h"
#include "tools/dumps/dump_image.h"
#include "tools/dumps/dump_set.h"

namespace fs = std::filesystem;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

namespace {

class ReplayTest : public CaptureTest {
protected:
    ToolRun Replay(const SyntheticCapture& capture, const Names& more = {}) {
        return Run({"replay", "camera/" + capture.stem, "--calibration", capture.calibration},
                   more);
    }
    DumpParameters Parameters(const std::string& folder, const SyntheticCapture& capture) {
        return ReadParameters(FindDumpSet(folder_ / folder / capture.stem)).values;
    }
};

class SeededReplayTest : public ReplayTest, public testing::WithParamInterface<std::uint32_t> {};

// A sample of what scripts/replay-requests runs.
TEST_P(SeededReplayTest, RequestsComeOutTheSame) {
    for (const SyntheticCapture& capture : Make(GetParam(), 4)) {
        const ToolRun run = Replay(capture);
        EXPECT_EQ(run.exitCode, 0) << run.output << run.errors;
        EXPECT_THAT(run.output, HasSubstr("output: identical\n  disparity: identical"));
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, SeededReplayTest, testing::Values(900, 910));

TEST_F(ReplayTest, ChangesReachTheNodeAndShow) {
    const SyntheticCapture capture = Make(951, 1).front();
    const int degree = (Parameters("camera", capture).degree + 90) % 360;
    const ToolRun run =
        Replay(capture, {"--blur", "97", "--focus", "31,42", "--face", "20,30,40,50", "--rotation",
                         std::to_string(degree), "--face-rotation", "90", "-o", "new", "--json"});
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
    const ToolRun diff = Run({"diff", "camera/" + main, "new/" + main});
    EXPECT_EQ(diff.exitCode, 0) << diff.output;
    EXPECT_TRUE(fs::exists(folder_ / "new" / (capture.stem + "_difference.png")));
}

// What no replay of a rectified pair's default calibration shows: places that only a face's middle
// can have, faces without extent, edges of the image.
TEST_F(ReplayTest, RebuildsParametersAtTheLimits) {
    const SyntheticCapture capture = Make(960, 1).front();
    const DumpSet set = FindDumpSet(folder_ / "camera" / capture.stem);
    const fs::path file = set.file(DumpRole::kParameters)->path;
    DumpParameters parameters = ReadParameters(set).values;
    const int right = capture.width - 1;
    parameters.focusX = 0;
    parameters.focusY = 7;
    parameters.faces = {{0, 5, 1, 9, 4}, {right, 3, right, 2, 4}, {4, 4, 3, 40, 4}};
    const auto write = [&] {
        const std::string text = FormatParameterText(parameters);
        WriteBytes(file, {text.begin(), text.end()});
    };
    write();
    const ToolRun run = Replay(capture, {"-o", "new"});
    EXPECT_THAT(run.output, Not(HasSubstr("changed a parameter")));
    EXPECT_EQ(Parameters("new", capture), parameters);

    parameters.faces.clear();
    write();
    const ToolRun refused = Replay(capture);
    EXPECT_EQ(refused.exitCode, 2);
    EXPECT_THAT(refused.errors, HasSubstr("ptFocus"));
}

TEST_F(ReplayTest, EqualNeedsTheWholeDisparity) {
    const SyntheticCapture capture = Make(965, 1).front();
    const fs::path file =
        FindDumpSet(folder_ / "camera" / capture.stem).file(DumpRole::kDisparity)->path;
    const Bytes whole = ReadFileBytes(file);
    EXPECT_EQ(Replay(capture, {"--pitch", std::to_string(capture.width + 96)}).exitCode, 0);
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
    EXPECT_THAT(run.output, HasSubstr("the set has no disparity"));
}

TEST_F(ReplayTest, TellsAllChangesAndASetWithoutOutput) {
    const SyntheticCapture capture = Make(967, 1).front();
    const auto report =
        nlohmann::json::parse(Replay(capture, {"--skip-bokeh", "--debug-view", "0", "--set", "a=b",
                                               "--blur", "7", "--node", NODE_LIBRARY, "--engine",
                                               ENGINE_LIBRARY, "--no-faces", "--json"})
                                  .output);
    const std::string changes = report["changed"].dump();
    for (const std::string& change :
         {std::string("--skip-bokeh"), std::string("--debug-view 0"), std::string("--set a=b"),
          std::string("-> 7"), std::string("--node ") + NODE_LIBRARY,
          std::string("--engine ") + ENGINE_LIBRARY,
          "--calibration " + capture.calibration.string()}) {
        EXPECT_THAT(changes, HasSubstr(change));
    }
    fs::remove(FindDumpSet(folder_ / "camera" / capture.stem).file(DumpRole::kOutput)->path);
    const ToolRun run = Replay(capture);
    EXPECT_EQ(run.exitCode, 0) << run.errors;
    EXPECT_THAT(run.output, HasSubstr("rendered, nothing to compare"));
    EXPECT_TRUE(nlohmann::json::parse(Replay(capture, {"--json"}).output)["equal"].is_null());
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

    const ToolRun run = Run(arguments);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_THAT(run.output,
                MatchesRegex(".*camera/" + captures[0].stem + ".*\n.*camera/" + captures[1].stem +
                             ".*\nunreadable camera/" + captures[2].stem +
                             ".*\n3 sets: 1 differs, 1 equal, 1 unreadable\n.*"));
    EXPECT_THAT(run.output, Not(HasSubstr("done before")));

    // Again, of a copy elsewhere: nothing runs but what has changed since.
    output[0] ^= 0x40;
    WriteBytes(path(1, DumpRole::kOutput), output);
    fs::create_directory(folder_ / "elsewhere");
    fs::copy(folder_ / "camera", folder_ / "elsewhere/camera"); // with new times
    const ToolRun again = Run({"replay", "elsewhere", "--all"});
    const auto line = [&](std::size_t i) {
        const auto at = again.output.find(captures[i].stem);
        return again.output.substr(at, again.output.find('\n', at) - at);
    };
    EXPECT_THAT(line(0), HasSubstr("done before"));
    EXPECT_THAT(line(1), Not(HasSubstr("done before")));
    EXPECT_THAT(line(2), Not(HasSubstr("done before"))) << "may be readable now";

    // What is wrong for all is said once.
    for (const Names& wrong :
         {Names{"--calibration", "none.bin"}, {"--focus", "99999,1"}, {"--trace", "trace.json"}}) {
        EXPECT_EQ(Run({"replay", "camera", "--all", "-o", "new"}, wrong).exitCode, 2) << wrong[1];
        EXPECT_FALSE(fs::exists(folder_ / "new")) << wrong[1];
    }
    fs::create_directory(folder_ / "month");
    fs::rename(folder_ / "camera", folder_ / "month/day");
    for (const char* place : {"month", "month/day"}) {
        EXPECT_THAT(Run({"replay", "month", "--all", "-o", place}).errors,
                    HasSubstr("another folder than the captures' own"));
    }
}

TEST_F(ReplayTest, TwoBuildsAreComparedWithTheLargestDifferenceFirst) {
    const auto captures = Make(990, 3);
    const int blurs[] = {40, 80, 7};
    for (std::size_t i = 0; i < captures.size(); ++i) {
        const DumpSet set = FindDumpSet(folder_ / "camera" / captures[i].stem);
        DumpParameters parameters = ReadParameters(set).values;
        parameters.blur = blurs[i];
        const std::string text = FormatParameterText(parameters);
        WriteBytes(set.file(DumpRole::kParameters)->path, {text.begin(), text.end()});
    }
    fs::create_directory(folder_ / "tmp");
    ::setenv("TMPDIR", (folder_ / "tmp").c_str(), 1);
    const Names all{"replay", "camera", "--all", "--jobs", "1"};
    const auto compare = [&](const Names& more, int exitCode) {
        Names arguments = more;
        arguments.emplace_back("--json");
        const ToolRun run = Run(all, arguments);
        EXPECT_EQ(run.exitCode, exitCode) << run.errors;
        return nlohmann::json::parse(run.output);
    };
    const Names toChanged{"--engine", CHANGED_ENGINE, "--against-engine", ENGINE_LIBRARY};
    const auto report = compare(toChanged, 1);
    EXPECT_EQ(report["exceeding"], 3);
    const std::size_t order[] = {2, 1, 0};
    for (std::size_t i = 0; i < 3; ++i) {
        const SyntheticCapture& capture = captures[order[i]];
        const auto& result = report["results"][i];
        EXPECT_EQ(result["set"], "camera/" + capture.stem);
        const auto& comparison = result["report"]["comparison"];
        EXPECT_EQ(comparison["disparity"]["share"], 0);
        EXPECT_EQ(comparison["depthEffectInfo"][0], 0);
        EXPECT_EQ(comparison["depthEffectInfo"][1] == 0, i > 0) << result["reason"];
        if (i > 0) {
            const double share = 1.0 * blurs[order[i]] / capture.height;
            EXPECT_NEAR(comparison["output"]["share"].get<double>(), share, 1e-9);
            EXPECT_NEAR(comparison["output"]["psnr"].get<double>(),
                        10 * std::log10(255.0 * 255.0 / (64 * share)), 1e-6);
            EXPECT_LT(comparison["output"]["ssim"], 1);
        }
    }
    // Accepted are shares, not another answer.
    const ToolRun table = Run(all, {"--engine", CHANGED_ENGINE, "--against-engine", ENGINE_LIBRARY,
                                    "--fail-above", "0.99", "--report", "builds.html"});
    EXPECT_EQ(table.exitCode, 1);
    EXPECT_THAT(ReadText(folder_ / "builds.html"),
                AllOf(HasSubstr("\"text\":\"differs from the reference build in "),
                      HasSubstr("\"kind\":\"note\"")))
        << "what is accepted is not marked as wrong";
    const std::string page =
        ReadText(folder_ / "builds.sets" / (NamesIn(folder_ / "builds.sets").front()));
    EXPECT_THAT(page, AllOf(HasSubstr("\"verdict\":{\"kind\":\"note\""),
                            HasSubstr("\"reference engine\":\"" ENGINE_LIBRARY "\"")));
    EXPECT_THAT(
        table.output,
        MatchesRegex(".*\n! .* 0 -> .*camera/" + captures[2].stem +
                     ": depthEffectInfo 0, now 1; the main image was copied: .*\n  .*camera/" +
                     captures[1].stem + "\n.*\n3 sets: 3 differs\n1 of them.*"));
    EXPECT_EQ(compare(toChanged, 1)["results"][0]["doneBefore"], true);

    const auto back = compare({"--engine", ENGINE_LIBRARY, "--against-engine", CHANGED_ENGINE}, 1);
    EXPECT_EQ(back["results"][0]["doneBefore"], false);
    EXPECT_EQ(back["results"][0]["report"]["comparison"]["depthEffectInfo"][1], 0);
    EXPECT_THAT(back["results"][0]["reason"],
                HasSubstr("the reference build: the main image was copied: TSL_DCIR_Process"));
    const Names same{"--engine", CHANGED_ENGINE, "--against-engine", CHANGED_ENGINE};
    const auto copies = compare(same, 1);
    EXPECT_EQ(copies["counts"]["equal"], 3) << "a copy is equal to a copy";
    EXPECT_EQ(copies["exceeding"], 1) << "and no photo is what a build should make";
    EXPECT_THAT(Run(all, same).output,
                ContainsRegex("\n! .*camera/" + captures[2].stem +
                              ": the reference build: the main image was copied: .*; the main "));
    ::unsetenv("TMPDIR");
    EXPECT_EQ(NamesIn(folder_ / "tmp"), Names{});
}

TEST_F(ReplayTest, AReferenceBuildThatIsLostIsAResult) {
    Make(990, 3);
    fs::create_directory(folder_ / "tmp");
    ::setenv("TMPDIR", (folder_ / "tmp").c_str(), 1);
    const std::pair<const char*, const char*> ends[] = {{"crash", "crashed: signal 6 (Aborted)"},
                                                        {"hang", "timed out after 1 s"}};
    for (const auto& [end, said] : ends) {
        const ToolRun run =
            Run({"replay", "camera", "--all", "--jobs", "1", "--json", "--against-node",
                 ENDING_NODE, "--timeout", end == std::string("hang") ? "1" : "60", "--set",
                 std::string("test.end=") + end});
        EXPECT_EQ(run.exitCode, 1) << run.errors;
        const auto lost = nlohmann::json::parse(run.output);
        EXPECT_EQ(lost["counts"][said], 3) << lost;
        EXPECT_THAT(lost["results"][0]["reason"], HasSubstr("the reference build"));
    }
    ::unsetenv("TMPDIR");
    EXPECT_EQ(NamesIn(folder_ / "tmp"), Names{});
}

TEST_F(ReplayTest, SweepsShowEachValueInASheet) {
    const SyntheticCapture capture = Make(995, 1).front();
    const auto sweep = [&](const Names& more, int exitCode) {
        const ToolRun run = Replay(capture, more);
        EXPECT_EQ(run.exitCode, exitCode) << run.errors;
        return run;
    };
    const ToolRun both = sweep({"--sweep", "blur=0,60", "--sweep", "focus=31,42/60,70", "-o",
                                "swept", "--json", "--report", "swept.html"},
                               0);
    const auto report = nlohmann::json::parse(both.output);
    ASSERT_EQ(report["results"].size(), 4);
    EXPECT_EQ(report["results"][1]["values"], "blur 60, focus 31,42");
    EXPECT_EQ(report["results"][1]["report"]["parameters"]["blur"], 60);
    EXPECT_EQ(report["written"].size(), 7);
    EXPECT_EQ(NamesIn(folder_ / "swept.sets"),
              (Names{"blur-0-focus-31-42.html", "blur-0-focus-60-70.html",
                     "blur-60-focus-31-42.html", "blur-60-focus-60-70.html"}));
    sweep({"--blur", "60", "--focus", "60,70", "-o", "one"}, 1);
    const fs::path last = folder_ / "swept" / (capture.stem + "_blur-60-focus-60-70.png");
    EXPECT_EQ(ReadText(last), ReadText(folder_ / "one" / (capture.stem + "_output.png")));
    const RgbImage picture = ReadImageFile(last);
    const RgbImage sheet = ReadImageFile(folder_ / "swept" / (capture.stem + "_sweep.png"));
    const int left = (sheet.width + 8) / 2; // two columns with margins of 8
    const int top = sheet.height - 8 - picture.height;
    for (int i = 0; i < std::min(picture.width, picture.height); ++i) {
        ASSERT_EQ(ColourAt(sheet, left + i, top + i), ColourAt(picture, i, i));
    }

    const ToolRun failing =
        sweep({"--sweep", "blur=7,20", "--engine", CHANGED_ENGINE, "-o", "failing"}, 1);
    EXPECT_THAT(failing.output, HasSubstr("failed     blur 7: "));
    EXPECT_THAT(failing.output, HasSubstr("rendered   blur 20\n"));
    EXPECT_THAT(ReadText(folder_ / "swept.html"), HasSubstr("\"page\":\"swept.sets/blur-0-"));
    const ToolRun crashing =
        sweep({"--sweep", "blur=0,60", "--sweep", "focus=31,42/60,70", "--node", ENDING_NODE,
               "--set", "test.end=crash", "-o", "failing", "--report", "swept.html"},
              1);
    EXPECT_THAT(crashing.output, HasSubstr("crashed: signal 6 (Aborted) blur 60, focus 60,70\n"));
    EXPECT_THAT(ReadText(folder_ / "swept.html"), Not(HasSubstr("\"page\":")))
        << "the pages that are there are of the run before";

    std::pair<Names, const char*> refused[] = {
        {{"--sweep", "blur=0,101"}, "--sweep: expected 0 to 100"},
        {{"--sweep", "blur="}, "--sweep"},
        {{"--sweep", "focus=1"}, "X,Y"},
        {{"--sweep", "focus=31,42/99999,1"}, "99999,1"},
        {{"--sweep", "zoom=1"}, "blur=0,20,40 or focus="},
        {{"--sweep", "blur=20,7,20"}, "each value once"},
        {{"--sweep", "blur=1", "--sweep", "blur=2"}, "one sweep of blur and one of focus"}};
    for (auto& [words, said] : refused) {
        words.insert(words.end(), {"--report", "refused.html"});
        EXPECT_THAT(sweep(words, 2).errors, HasSubstr(said));
    }
    EXPECT_FALSE(fs::exists(folder_ / "replayed"));
    EXPECT_FALSE(fs::exists(folder_ / "refused.sets"));
}

TEST_F(ReplayTest, ShardsOfOneFolderMakeUpTheWhole) {
    Make(2000, 8); // so many that hardly all fall into one shard
    fs::create_directory(folder_ / "mount");
    fs::copy(folder_ / "camera", folder_ / "mount/camera");
    const Names first{"replay", "camera", "--all", "--shard", "1/2", "--jobs", "1"};
    std::thread killed([&] {
        InterruptTool(first, folder_, [this] { return fs::exists(folder_ / "replayed"); });
    });
    const ToolRun second = Run({"replay", "mount", "--all", "--shard", "2/2"});
    killed.join();
    const auto shows = [this](const Names& more, const std::string& end) {
        const ToolRun run = Run({"replay", "mount", "--all"}, more);
        EXPECT_THAT(run.output, HasSubstr("\n8 sets: " + end)) << run.errors;
        return run.output;
    };
    EXPECT_THAT(shows({"--merge"}, ""), HasSubstr(" missing"));
    const ToolRun again = Run(first);
    const auto sets = [](const ToolRun& run) {
        return std::ranges::count(run.output, '\n') - 2; // but for the summary
    };
    EXPECT_GE(sets(again), 1);
    EXPECT_GE(sets(second), 1);
    EXPECT_EQ(sets(again) + sets(second), 8);
    EXPECT_THAT(shows({"--merge"}, "3 differs, 5 equal\n"), Not(HasSubstr("done before")));
    EXPECT_EQ(NamesIn(folder_ / "replayed").size(), 16) << "a result and a log each, no more";
    const std::string whole = shows({}, "3 differs, 5 equal\n");
    EXPECT_EQ(std::ranges::count(whole, '('), 8) << whole; // (done before)
}

TEST_F(ReplayTest, AllTrustsNoDamagedResult) {
    Make(970, 1);
    const Names arguments{"replay", "camera", "--all", "-o", "results"};
    Run(arguments);
    const fs::path file = folder_ / "results" / NamesIn(folder_ / "results").front();
    ASSERT_EQ(file.extension(), ".json");
    const std::string good = ReadText(file);
    ASSERT_THAT(Run(arguments).output, HasSubstr("done before"));
    const auto changed = [&good](const std::string& from, const std::string& to) {
        std::string text = good;
        return text.replace(text.find(from), from.size(), to);
    };
    const std::string damages[] = {
        "",
        good.substr(0, good.size() / 2),
        "[]",
        changed("\"status\": \"equal\"", "\"status\": -1"),
        changed("\"reason\"", "\"raison\""),
        changed("\"report\": {", "\"rapport\": {"),
        changed("\"report\": {",
                "\"report\": {\"a\": " + std::string(9000, '[') + std::string(9000, ']') + ","),
        std::string(1000000, '[')};
    for (const std::string& damage : damages) {
        Write("results/" + file.filename().string(), damage);
        const ToolRun run = Run(arguments);
        EXPECT_EQ(run.exitCode, 0) << run.errors;
        EXPECT_THAT(run.output, Not(HasSubstr("done before"))) << damage.substr(0, 1000);
        EXPECT_EQ(ReadText(file), good);
    }
    fs::remove(file);
    fs::create_directories(file / "kept"); // no result can be written there
    const ToolRun run = Run(arguments);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_THAT(run.errors, HasSubstr("some results are not stored: "));
}

TEST_F(ReplayTest, CrashAndHangAreResultsAndLeaveNothing) {
    const SyntheticCapture capture = Make(985, 2).front();
    WriteBytes(folder_ / "picture.png",
               EncodePng(Paint(64, 48, [](int, int) { return Colour{}; })));
    fs::create_directory(folder_ / "tmp");
    ::setenv("TMPDIR", (folder_ / "tmp").c_str(), 1);
    const auto with = [](const char* end) {
        return Names{"--node", ENDING_NODE, "--set", std::string("test.end=") + end};
    };
    const std::pair<const char*, std::string> ends[] = {{"crash", "crashed: signal 6"},
                                                        {"exit", "crashed: signal 6"},
                                                        {"_exit", "crashed: _exit(0) was called"},
                                                        {"hang", "timed out after 1 s"}};
    for (const auto& [end, said] : ends) {
        Names more = with(end);
        more.insert(more.end(), {"--timeout", end == std::string("hang") ? "1" : "60"});
        const ToolRun all = Run({"replay", "camera", "--all"}, more);
        EXPECT_EQ(all.exitCode, 1);
        EXPECT_THAT(all.output, HasSubstr("\n2 sets: 2 " + said));
        more.insert(more.end(), {"-o", "new/out"});
        for (const ToolRun& run :
             {Replay(capture, more), Run({"render", "picture.png", "picture.png"}, more)}) {
            EXPECT_EQ(run.exitCode, 1);
            EXPECT_THAT(run.errors, HasSubstr("bokehnode: " + said));
        }
    }
    // On a terminal, how far it is.
    const std::string shown = "cd " + folder_.string() +
                              " && script -qec '" BOKEHNODE
                              " replay camera --all --jobs 1 --timeout 1 --node " ENDING_NODE
                              " --set test.end=hang' /dev/null > shown";
    EXPECT_NE(std::system(shown.c_str()), 0);
    EXPECT_THAT(ReadText(folder_ / "shown"),
                ContainsRegex("1 set done, 1 of them failed, 1 left in about [0-9]+ s"));

    Names hanging{"replay", "../camera", "--all", "-o", "results"};
    for (const std::string& word : with("hang")) {
        hanging.push_back(word);
    }
    const int signal = InterruptTool(hanging, folder_ / "tmp", [this] {
        return std::ranges::any_of(NamesIn(folder_ / "tmp"), [](const std::string& name) {
            return name.starts_with("boke");
        });
    });
    EXPECT_EQ(signal, SIGTERM);
    ::unsetenv("TMPDIR");
    EXPECT_THAT(NamesIn(folder_ / "tmp"), testing::Each(Not(testing::StartsWith("bokehnode-"))));
    EXPECT_FALSE(fs::exists(folder_ / "new"));
}

TEST_F(ReplayTest, TimeoutCoversTheReadingOfFiles) {
    const SyntheticCapture capture = Make(985, 1).front();
    const fs::path picture = folder_ / "picture.png";
    WriteBytes(picture, EncodePng(Paint(64, 48, [](int, int) { return Colour{}; })));
    const HeldFile main(FindDumpSet(folder_ / "camera" / capture.stem).file(DumpRole::kMain)->path);
    const HeldFile held(picture);
    for (const ToolRun& run :
         {Replay(capture, {"--timeout", "1"}),
          Run({"render", "picture.png", "picture.png", "-o", "out", "--timeout", "1"})}) {
        EXPECT_EQ(run.exitCode, 1) << run.output;
        EXPECT_THAT(run.errors, HasSubstr("timed out after 1 s"));
    }
    EXPECT_FALSE(fs::exists(folder_ / "out"));
}

TEST_F(ReplayTest, NamesTheTemporaryFolderThatTakesNoMore) {
    const SyntheticCapture capture = Make(985, 1).front();
    const FileSizeLimit limit(60'000); // less than an image has, more than a result
    const Names cases[] = {{"camera"},
                           {"camera", "--all"},
                           {"camera", "--all", "--against-engine", ENGINE_LIBRARY},
                           {"camera", "--sweep", "blur=20"}};
    for (const Names& words : cases) {
        SCOPED_TRACE(testing::PrintToString(words));
        const ToolRun run = Run({"replay", "--calibration", capture.calibration}, words);
        EXPECT_NE(run.exitCode, 0);
        EXPECT_THAT(run.output, ContainsRegex("/bokehnode-[A-Za-z0-9]+/(data/vendor/camera|blur-20."
                                              "png): cannot be written: File too large"));
    }
}

TEST_F(ReplayTest, RefusesWhatCannotBeReplayed) {
    const SyntheticCapture capture = Make(980, 1).front();
    const DumpSet set = FindDumpSet(folder_ / "camera" / capture.stem);
    std::ofstream(folder_ / "text.so") << "no library";
    const auto said = [&](const Names& more) {
        const ToolRun run = Replay(capture, more);
        EXPECT_EQ(run.exitCode, 2) << run.output;
        return run.errors;
    };
    EXPECT_THAT(said({"--blur", "101"}), HasSubstr("--blur"));
    EXPECT_THAT(said({"--all", "--fail-above", "1"}), HasSubstr("--fail-above: expected --ag"));
    EXPECT_THAT(said({"--aux-width", "9999"}), HasSubstr("expected an even width"));
    EXPECT_THAT(said({"--engine", "none.so"}), HasSubstr("--engine"));
    EXPECT_THAT(said({"--node", "text.so"}), HasSubstr("text.so"));
    const std::string size =
        std::to_string(capture.width) + "x" + std::to_string(capture.height) + ", found ";
    EXPECT_THAT(said({"--focus", "99999,1"}), HasSubstr(size + "99999,1"));
    EXPECT_THAT(said({"--focus", "2147483647,1"}), HasSubstr("2147483647,1"));
    EXPECT_THAT(said({"--face", "1,1,-1,9"}), HasSubstr("0 or more"));
    EXPECT_THAT(said({"--main-crop", "2147483647x16"}), HasSubstr("--main-crop: expected"));
    EXPECT_THAT(said({"--aux-sensor", "640x15"}), HasSubstr("--aux-sensor: expected"));
    const Names before = NamesIn(folder_ / "camera");
    EXPECT_THAT(said({"--blur", "10", "-o", "camera/../camera"}), HasSubstr("the captures' own"));
    EXPECT_EQ(NamesIn(folder_ / "camera"), before);
    const fs::path text = set.file(DumpRole::kParameters)->path;
    const Bytes parameters = ReadFileBytes(text);
    DumpParameters damaged = ReadParameters(set).values;
    damaged.auxCropWidth = 2147483647;
    const std::string far = FormatParameterText(damaged);
    WriteBytes(text, {far.begin(), far.end()});
    EXPECT_THAT(said({}), HasSubstr("i32AuxWidth_CropNoScale: expected"));
    WriteBytes(text, parameters);
    fs::resize_file(set.file(DumpRole::kAux)->path, 100);
    EXPECT_THAT(said({}), HasSubstr("found 100"));
    fs::resize_file(set.file(DumpRole::kParameters)->path, 30);
    EXPECT_THAT(said({}), HasSubstr("line 3: expected \"ptFocus_x=\""));
}

} // namespace

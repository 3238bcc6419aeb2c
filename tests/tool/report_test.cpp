// --report, without a browser: what is in the page, and where it stands.

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "host/picture/errors.h"
#include "host/picture/image_file.h"
#include "tests/tool/tool_test.h"
#include "tools/dumps/dump_set.h"
#include "tools/files/trace_file.h"

namespace fs = std::filesystem;
using testing::HasSubstr;

namespace {

// What the page's script gets; checks that nothing else is needed to show it.
nlohmann::json DataOf(const fs::path& page) {
    const std::string text = ReadText(page);
    for (const char* foreign : {"http:", "https:", "src=\"", "@import", "url("}) {
        EXPECT_EQ(text.find(foreign), std::string::npos) << foreign << " in " << page;
    }
    const std::string start = "<script type=\"application/json\" id=\"data\">";
    const auto from = text.find(start) + start.size();
    const auto data = nlohmann::json::parse(text.substr(from, text.find("</script>", from) - from),
                                            nullptr, false);
    EXPECT_FALSE(data.is_discarded()) << page;
    return data;
}

class ReportTest : public CaptureTest {
protected:
    void SetUp() override {
        captures_ = Make(700, 2);
        set_ = "camera/" + captures_[0].stem;
        for (const char* name : {"main.png", "aux.png"}) {
            WriteBytes(folder_ / name, EncodePng(Paint(64, 48, Texture)));
        }
    }

    std::vector<SyntheticCapture> captures_;
    std::string set_;
};

TEST_F(ReportTest, HoldsWhatTheCommandKnows) {
    const std::string calibration = captures_[0].calibration;
    struct {
        Names arguments;
        Names pictures;
        Names sections;
        bool log;
        const char* verdict;
    } const kRuns[] = {
        {{"inspect", set_},
         {"aux", "main", "output"},
         {"Parameters", "Files"},
         false,
         "nothing wrong found"},
        {{"replay", set_, "--calibration", calibration},
         {"aux", "dumped output", "main", "output"},
         {"Parameters", "Published tags", "Run", "Time and memory"},
         true,
         "identical to the dump, byte for byte"},
        {{"replay", set_, "--calibration", calibration, "--focus", "31,42"},
         {"aux", "dumped output", "main", "output"},
         {"Parameters", "Published tags", "Run", "Time and memory"},
         true,
         ", as changed"},
        {{"replay", set_, "--calibration", calibration, "--debug-view", "2"},
         {"aux", "dumped output", "main", "output"},
         {"Parameters", "Published tags", "Run", "Time and memory"},
         true,
         ", as changed"},
        {{"render", "main.png", "aux.png", "-o", "out", "--debug-view", "1"},
         {"aux", "main", "output"},
         {"Parameters", "Published tags", "Request", "Time and memory"},
         true,
         "rendered"},
    };
    for (const auto& run : kRuns) {
        SCOPED_TRACE(testing::PrintToString(run.arguments));
        const ToolRun done = Run(run.arguments, {"--report", "pages/page.html"});
        ASSERT_NE(done.exitCode, 2) << done.errors;
        EXPECT_EQ(NamesIn(folder_ / "pages"), Names{"page.html"});

        const auto data = DataOf(folder_ / "pages/page.html");
        Names pictures;
        for (const auto& [name, picture] : data["pictures"].items()) {
            pictures.push_back(name);
        }
        EXPECT_EQ(pictures, run.pictures);
        EXPECT_THAT(data["verdict"]["text"].get<std::string>(), HasSubstr(run.verdict));
        Names sections;
        for (const auto& section : data["sections"]) {
            sections.push_back(section["title"]);
        }
        EXPECT_EQ(sections, run.sections);
        EXPECT_EQ(!data["log"].empty(), run.log);
        for (const auto& link : data["links"]) {
            const std::string target = link["target"];
            EXPECT_TRUE(fs::exists(folder_ / "pages" / target)) << target;
        }
    }
    EXPECT_EQ(NamesIn(folder_ / "out"), (Names{"output.png", "tags.json"}))
        << "dumped for the page alone";
}

TEST_F(ReportTest, TellsWhereTheNodeFocused) {
    ASSERT_EQ(Run({"inspect", set_, "--report", "page.html"}).exitCode, 0);
    const auto data = DataOf(folder_ / "page.html");
    const DumpSet set = FindDumpSet(folder_ / set_);
    const auto& [width, height] = std::pair(captures_[0].width, captures_[0].height);
    EXPECT_EQ(data["disparity"]["size"], (std::vector{width, height}));
    const int x = data["overlays"]["focus"][0];
    const int y = data["overlays"]["focus"][1];
    const auto& file = *set.file(DumpRole::kDisparity);
    const std::string bytes = ReadText(file.path);
    const auto at = static_cast<std::size_t>(y * file.name.first + x);
    EXPECT_EQ(data["focusDisparity"], static_cast<unsigned char>(bytes[at]));
}

TEST_F(ReportTest, PutsAFallbackAndItsReasonFirst) {
    WriteBytes(folder_ / "flat.png", EncodePng(Paint(64, 48, [](int, int) {
                   return Colour{90, 140, 60};
               })));
    const ToolRun run =
        Run({"render", "flat.png", "flat.png", "-o", "out", "--report", "out/page.html"});
    EXPECT_EQ(run.exitCode, 1) << run.errors;
    const auto data = DataOf(folder_ / "out/page.html");
    EXPECT_EQ(data["findings"][0]["kind"], "wrong");
    EXPECT_EQ(data["findings"][0]["name"], "copy");
    // The page stays, but nobody is to take it for one of a run without a node.
    EXPECT_THAT(Run({"render", "main.png", "aux.png", "-o", "out", "--report", "out/page.html",
                     "--fail", "ChiNodeUtils::SetNodeInterface"})
                    .errors,
                HasSubstr("note: out/page.html: not written by this run"));
    // In words: the engine's sentence, without its function's name.
    EXPECT_THAT(data["verdict"]["text"].get<std::string>(),
                testing::MatchesRegex("the main image was copied: [a-z][^_]+ \\(-[0-9]+\\)"));
    EXPECT_THAT(data["findings"][1]["text"].get<std::string>(), HasSubstr("TSL_DCIR_"));
}

// What an engine of another version may make of a set.
TEST_F(ReportTest, TellsHowAReplayDiffers) {
    const DumpSet set = FindDumpSet(folder_ / set_);
    const auto read = [&set](DumpRole role) { return ReadFileBytes(set.file(role)->path); };
    const Bytes output = read(DumpRole::kOutput);
    const Bytes disparity = read(DumpRole::kDisparity);
    DumpName shorter = set.file(DumpRole::kOutput)->name;
    shorter.height -= 2;
    const auto added = [](Bytes bytes, std::size_t from) {
        std::for_each(bytes.begin() + static_cast<std::ptrdiff_t>(from), bytes.end(),
                      [](std::uint8_t& byte) { ++byte; });
        return bytes;
    };
    // No bytes: no such file.
    struct {
        Bytes output;
        Bytes disparity;
        bool shorter;
        const char* kind;
        std::string verdict;
    } const kSets[] = {
        {added(output, 0), disparity, false, "wrong", "differs from the dump in 100 % of luma"},
        {added(output, 1), disparity, false, "wrong", "differs from the dump in more than 99 %"},
        {added(output, output.size() / 3 * 2), disparity, false, "wrong", "dump in chroma alone"},
        {{output.begin(), output.end() - shorter.first * 3},
         disparity,
         true,
         "wrong",
         "the set's output has another size, "},
        {{},
         added(disparity, disparity.size() - 1),
         false,
         "wrong",
         "the disparity differs from the dump; the set has no output to compare with"},
        {output,
         {},
         false,
         "wrong",
         "the output is identical to the dump; the set has no disparity to compare with"},
        {{}, disparity, false, "note", "rendered; the set has no output to compare with"},
    };
    for (const auto& each : kSets) {
        SCOPED_TRACE(each.verdict);
        const fs::path shortFile = set.folder / DumpFileName(shorter);
        for (const auto& file :
             {set.file(DumpRole::kOutput)->path, shortFile, set.file(DumpRole::kDisparity)->path}) {
            fs::remove(file);
        }
        if (!each.output.empty()) {
            WriteBytes(each.shorter ? shortFile : set.file(DumpRole::kOutput)->path, each.output);
        }
        if (!each.disparity.empty()) {
            WriteBytes(set.file(DumpRole::kDisparity)->path, each.disparity);
        }
        const ToolRun run = Run(
            {"replay", set_, "--report", "page.html", "--calibration", captures_[0].calibration});
        EXPECT_EQ(run.exitCode, each.kind == std::string("wrong") ? 1 : 0) << run.errors;
        const auto verdict = DataOf(folder_ / "page.html")["verdict"];
        EXPECT_EQ(verdict["kind"], each.kind);
        EXPECT_THAT(verdict["text"].get<std::string>(), HasSubstr(each.verdict));
    }
}

TEST_F(ReportTest, TilesOfManyAgreeWithTheirPagesAndNameTheirSets) {
    const auto path = [this](std::size_t i, DumpRole role) {
        return FindDumpSet(folder_ / "camera" / captures_[i].stem).file(role)->path;
    };
    Bytes output = ReadFileBytes(path(0, DumpRole::kOutput));
    output[output.size() / 3 * 2] ^= 0x40; // chroma alone
    WriteBytes(path(0, DumpRole::kOutput), output);
    fs::remove(path(1, DumpRole::kOutput));
    fs::create_directory(folder_ / "camera/copy");
    for (const std::string& name : NamesIn(folder_ / "camera")) {
        if (name.starts_with(captures_[0].stem)) {
            fs::copy(folder_ / "camera" / name, folder_ / "camera/copy" / name);
        }
    }
    const auto tiles = [this](const Names& more) {
        Names arguments{"replay", "camera", "--all"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        EXPECT_EQ(Run(arguments).exitCode, 1);
        std::vector<nlohmann::json> found = DataOf(folder_ / more.back())["tiles"];
        std::ranges::sort(
            found, {}, [](const nlohmann::json& tile) { return tile["title"].get<std::string>(); });
        return found;
    };
    EXPECT_EQ(Run({"replay", "camera", "--all", "-o", "one"}).exitCode, 1);
    const auto merged = tiles({"--merge", "-o", "one", "--report", "merged.html"});
    const char* const kinds[] = {"wrong", "note", "wrong"};
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(merged[i]["verdict"]["kind"], kinds[i]) << merged[i];
    }
    tiles({"-o", "one", "--report", "all.html"});
    const auto changed = tiles({"-o", "two", "--blur", "90", "--report", "all.html"});
    EXPECT_THAT(changed[0]["verdict"]["text"].get<std::string>(), HasSubstr(", as changed"));
    const auto again = tiles({"-o", "one", "--report", "all.html"});
    for (const auto& tile : again) {
        const auto page = DataOf(folder_ / tile["page"].get<std::string>());
        EXPECT_EQ(page["verdict"], tile["verdict"]) << "the page is the changed replay's";
    }
    EXPECT_EQ(again[0]["title"], "camera/" + captures_[0].stem);
    EXPECT_EQ(again[2]["title"], "camera/copy/" + captures_[0].stem);
    EXPECT_EQ(again[0]["page"], again[2]["page"]);
    EXPECT_LT(again[0]["psnr"], 100) << "of chroma";
}

TEST_F(ReportTest, RefusesWhatItCannotWriteAndLosesNothing) {
    WriteBytes(folder_ / "kept.png", {'k', 'e', 'p', 't'});
    fs::create_directory(folder_ / "folder.html");
    fs::create_directories(folder_ / "full" / (captures_[0].stem + "_output.png"));
    struct {
        Names arguments;
        Names said;
    } const kRuns[] = {
        {{"inspect", set_, "--report", "kept.png"}, {"--report", ".html", "kept.png"}},
        {{"inspect", set_, "--report", "kept.png/page.html"}, {"kept.png", "folder"}},
        {{"inspect", set_, "--report", "folder.html"}, {"folder.html", "expected a file"}},
        {{"inspect", "camera", "--report", "folder.html"}, {"folder.html", "expected a file"}},
        {{"replay", "camera", "--all", "-o", "out", "--report", "folder.html"},
         {"folder.html", "expected a file"}},
        {{"replay", set_, "-o", "out", "--report", "folder.html"}, {"expected a file"}},
        {{"replay", set_, "-o", "full", "--report", "new.html"}, {"Is a directory"}},
        {{"render", "main.png", "aux.png", "-o", "out", "--report", "folder.html"},
         {"folder.html", "expected a file"}},
    };
    const Names before = NamesIn(folder_);
    for (const auto& run : kRuns) {
        const ToolRun done = Run(run.arguments);
        EXPECT_EQ(done.exitCode, 2) << testing::PrintToString(run.arguments);
        for (const std::string& text : run.said) {
            EXPECT_THAT(done.errors, HasSubstr(text));
        }
    }
    EXPECT_EQ(NamesIn(folder_), before);
    EXPECT_EQ(ReadText(folder_ / "kept.png"), "kept");
}

} // namespace

TEST_F(ToolTest, TraceThatCannotGrowStaysWhole) {
    const fs::path file = folder_ / "trace.json";
    TraceFile trace(file);
    trace.Add(TraceEvent("first", 1, 1, 0, 1));
    trace.Commit();
    const std::string before = ReadText(file);
    {
        const FileSizeLimit limit(before.size() + 20);
        EXPECT_THROW(ExtendTrace(file, TraceEvent("second", 1, 1, 1, 1)), UseError);
    }
    EXPECT_EQ(ReadText(file), before);
    ExtendTrace(file, TraceEvent("second", 1, 1, 1, 1));
    EXPECT_EQ(Json::parse(ReadText(file))["traceEvents"].size(), 2u);
}

TEST_F(ToolTest, LogReportPutsWhatFailedOnATile) {
    // Ten requests more than the page takes of a kind; the last one lost its photo, and says
    // <script>.
    std::string log;
    for (int i = 0; i < 2010; ++i) {
        log += fmt::format("D/TSL_CTB ({0}): TSL_CTB: NodeProcRequest: 1:  (IN)\n"
                           "D/TSL_CTB ({0}): TSL_CTB: NodeProcRequest: 2:  (OUT) res = 0\n",
                           i + 1);
    }
    Write("phone.log",
          log + "E/TSL_BTB (9): TSL_CTB: saveFile: 4: Failed to open file: </script>\n");
    const ToolRun run = Run({"log", "phone.log", "--report", "pages/log.html"});
    EXPECT_THAT(run.output, HasSubstr("wrote pages/log.html"));
    const auto data = DataOf(folder_ / "pages/log.html");
    EXPECT_EQ(data["tiles"].size(), 2001u);
    EXPECT_EQ(data["tiles"].back()["verdict"]["kind"], "note");
    EXPECT_THAT(data["tiles"].back()["verdict"]["text"].get<std::string>(), HasSubstr("</script>"));
    EXPECT_EQ(data["findings"].back(), "only the first 2000 of 2010 good tiles are shown");
    EXPECT_EQ(Run({"log", "phone.log", "--report", "pages"}).exitCode, 2);
}

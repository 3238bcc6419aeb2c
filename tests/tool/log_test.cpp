#include <cstdlib>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <fmt/core.h>
#include <gtest/gtest.h>
#include <zip.h>

#include "tests/tool/tool_test.h"
#include "tools/files/json_text.h"
#include "tools/phonelog/node_history.h"

namespace {

using namespace phonelog;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

// One message of the life that the node's own test pins.
struct PinnedMessage {
    char priority;
    std::string tag;
    std::string text; // with a line number in its place, without its newline
};

std::vector<PinnedMessage> PinnedLife() {
    std::vector<PinnedMessage> life;
    std::ifstream file(NODE_LIFE);
    for (std::string line; std::getline(file, line);) {
        std::string text = line.substr(11, line.find_last_of('|') - 11);
        text.replace(text.find('#'), 1, "123");
        if (text.ends_with("\\n")) {
            text.resize(text.size() - 2);
        }
        life.push_back({line[0], line.substr(2, 7), text});
    }
    return life;
}

TEST(PhoneLogTest, TextsAreTheNodesOwn) {
    const std::string library = ReadText(NODE_LIBRARY);
    ASSERT_FALSE(library.empty());
    for (const NodeMessage& message : NodeMessages()) {
        // As a whole text, with the zero that ends it.
        EXPECT_NE(library.find(std::string(message.format) + '\0'), std::string::npos)
            << message.format;
        if (message.operation != nullptr) {
            EXPECT_NE(library.find(std::string(message.operation) + '\0'), std::string::npos)
                << message.operation;
        }
    }
    int recognised = 0;
    for (const PinnedMessage& message : PinnedLife()) {
        const auto found = Recognise(message.text);
        recognised += found && found->message != Message::Other ? 1 : 0;
    }
    EXPECT_EQ(recognised, 41) << "of the messages of the pinned life";
}

// What it returns are views of line.
std::vector<LogLine> Messages(std::string_view line) {
    std::vector<LogLine> messages;
    ForEachNodeMessage(line, [&](const LogLine& message) { messages.push_back(message); });
    return messages;
}

TEST(PhoneLogTest, ReadsEachLayout) {
    const std::string text = "TSL_CTB: NodeCreate: 7:  (IN)";
    const std::int64_t micros = ((30 * 24 + 23) * 60 + 59) * 60 * 1000000LL + 58123456;
    const std::int64_t year = 1704067200000000; // 2024
    const struct {
        std::string head;
        int thread;
        std::optional<std::int64_t> micros;
    } layouts[] = {
        {"D/TSL_CTB ( 1234): ", 0, {}},
        {"D/TSL_CTB (10083: 1234): ", 0, {}},
        {"01-31 23:59:58.123 D/TSL_CTB ( 1234): ", 0, micros - 456},
        {"01-31 23:59:58.123  1234  5678 D TSL_CTB : ", 5678, micros - 456},
        {"01-31 23:59:58.123456  1234  5678 D TSL_CTB: ", 5678, micros},
        {"01-31 23:59:58.123  1047  1234  5678 D TSL_CTB : ", 5678, micros - 456},
        {"2024-01-31 23:59:58.123456 +0100 cameraserver  1234  5678 D TSL_CTB : ", 5678,
         year + micros},
        {"1704067201.500  1234  5678 D TSL_CTB : ", 5678, year + 1500000},
        {"\x1b[38;5;75m01-31 23:59:58.123 D/TSL_CTB ( 1234): ", 0, micros - 456},
        {"half a line of another pro01-31 23:59:58.123  1234  5678 D TSL_CTB : ", 5678,
         micros - 456},
    };
    for (const auto& layout : layouts) {
        SCOPED_TRACE(layout.head);
        const std::string colourEnd = layout.head.starts_with('\x1b') ? "\x1b[0m" : "";
        const std::string line = layout.head + text + colourEnd; // the messages are views of it
        const std::vector<LogLine> messages = Messages(line);
        ASSERT_EQ(messages.size(), 1u);
        EXPECT_EQ(messages[0].process, 1234);
        EXPECT_EQ(messages[0].thread, layout.thread);
        EXPECT_EQ(messages[0].priority, 'D');
        EXPECT_EQ(messages[0].text, text);
        if (layout.micros && *layout.micros < year) { // since the start of an unnamed year
            EXPECT_EQ(*messages[0].micros - 2 * 365 * 86400000000LL, *layout.micros);
        } else {
            EXPECT_EQ(messages[0].micros, layout.micros);
        }
    }
    EXPECT_TRUE(Messages("01-31 23:59:58.123  1234  5678 I Other : TSL_CTB: of another").empty());
    EXPECT_TRUE(Messages("TSL_CTB").empty());
    // Heads that were cut by the next one.
    EXPECT_EQ(Messages("D/TSL_CTB ( 1)E/TSL_BTB ( 2): TSL_CTB: B: 2:  (OUT)").size(), 1u);
    EXPECT_EQ(Messages("D/TSL_CTB ( 1E/TSL_BTB ( 2): TSL_CTB: B: 2:  (OUT)").size(), 1u);
    EXPECT_EQ(Messages("D/TSL_CTB ( 1):E/TSL_BTB ( 2): TSL_CTB: B: 2:  (OUT)").size(), 2u);

    const auto two = Messages("01-31 23:59:58.123  1  2 D TSL_CTB : TSL_CTB: A: 1:  (IN"
                              "01-31 23:59:58.124  3  4 E TSL_BTB : TSL_CTB: B: 2:  (OUT)");
    ASSERT_EQ(two.size(), 2u);
    EXPECT_EQ(two[0].text, "TSL_CTB: A: 1:  (IN");
    EXPECT_EQ(two[1].process, 3);
}

// A capture that was replayed, and what a log must tell of it.
struct LoggedCapture {
    std::vector<std::string> lines; // "D TSL_CTB : TEXT"
    Json told;                      // of its request
    Json calibration;
};

// Cameras, each a thread, that replay captures side by side.
class SideBySide {
public:
    explicit SideBySide(const std::vector<LoggedCapture>& captures) : captures_(captures) {}

    // Between the lines of the node stand those of other programs. Lines end anywhere: those of
    // others, those of the node from which nothing is read, and the last one of some requests.
    std::string Write(std::size_t lines) {
        std::string log;
        std::size_t busy = 0;
        for (std::size_t line = 0; line < lines || busy > 0; ++line) {
            Camera& camera = cameras_[random_() % cameras_.size()];
            if (camera.at == camera.lines.size()) {
                if (line >= lines) {
                    --line;
                    continue;
                }
                Start(camera);
                ++busy;
            }
            const std::string& text = camera.lines[camera.at++];
            busy -= camera.at == camera.lines.size() ? 1 : 0;
            const std::string whole = Head(line, camera.process, camera.thread) + text;
            const auto found = Recognise(text.substr(text.find(": ") + 2));
            const bool unread = found && found->message == Message::Other;
            const bool last = found && found->message == Message::RequestOut;
            const bool cut = random_() % 8 == 0 && (unread || last);
            log += cut ? whole.substr(0, random_() % whole.size()) : whole + "\n";
            for (std::uint64_t other = random_() % 3; other > 0; --other, ++line) {
                const std::string noise = Head(line, 9, 9) + "I Other   : TSL is not a tag here";
                log += random_() % 8 == 0 ? noise.substr(0, random_() % 40) : noise + "\n";
            }
        }
        return log;
    }

    std::map<int, std::vector<Json>> ran; // by thread, in order

private:
    struct Camera {
        int process;
        int thread;
        std::vector<std::string> lines;
        std::size_t at = 0;
    };

    void Start(Camera& camera) {
        const LoggedCapture& capture = captures_[random_() % captures_.size()];
        const std::uint64_t frame = random_();
        camera.lines = capture.lines;
        camera.at = 0;
        for (std::string& line : camera.lines) {
            if (const auto at = line.find("(IN ) "); at != std::string::npos) {
                line.replace(at + 6, std::string::npos, std::to_string(frame));
            }
        }
        Json told = capture.told;
        told["frame"] = frame;
        told["calibration"] = capture.calibration;
        ran[camera.thread].push_back(std::move(told));
    }

    static std::string Head(std::size_t line, int process, int thread) {
        const std::size_t millis = line / 5;
        return fmt::format("01-31 12:{:02}:{:02}.{:03}  {}  {} ", millis / 60000,
                           millis / 1000 % 60, millis % 1000, process, thread);
    }

    const std::vector<LoggedCapture>& captures_;
    std::vector<Camera> cameras_{{1000, 1001, {}}, {1000, 1002, {}}, {2000, 2001, {}},
                                 {2000, 2002, {}}, {2000, 2003, {}}, {3000, 3000, {}}};
    std::mt19937_64 random_{5};
};

class LogTest : public CaptureTest {
protected:
    LoggedCapture Replay(const SyntheticCapture& capture, const char* verdict,
                         const Names& more) const {
        const ToolRun run = Run({"replay", "camera/" + capture.stem, "--log", "6", "--json"}, more);
        const Json json = Json::parse(run.output)["parameters"];
        LoggedCapture replayed;
        replayed.told = {{"verdict", verdict},
                         {"focus", json["focus"]},
                         {"blur", json["blur"]},
                         {"rotation", json["rotation"]},
                         {"crops", {json["mainCrop"], json["auxCrop"]}}};
        std::istringstream lines(run.errors);
        for (std::string line; std::getline(lines, line);) {
            if (line.starts_with("D/TSL_") || line.starts_with("E/TSL_")) {
                replayed.lines.push_back(line.substr(0, 1) + " " + line.substr(2, 7) + " : " +
                                         line.substr(line.find("): ") + 3));
            }
        }
        return replayed;
    }
};

TEST_F(LogTest, TellsCamerasApart) {
    const std::vector<SyntheticCapture> captures = Make(7, 2);
    Write("refused.bin", std::string(2048, 'x'));
    std::vector<LoggedCapture> replayed;
    for (const SyntheticCapture& capture : captures) {
        const Names good{"--calibration", capture.calibration};
        const Names skips{"--calibration", capture.calibration, "--skip-bokeh"};
        replayed.push_back(Replay(capture, "rendered", good));
        replayed.push_back(Replay(capture, "disparity alone", skips));
        replayed.push_back(Replay(capture, "copied", {"--calibration", "refused.bin"}));
        replayed.push_back(
            Replay(capture, "debug view", {"--calibration", "refused.bin", "--debug-view", "1"}));
    }
    for (std::size_t i = 0; i < replayed.size(); ++i) {
        replayed[i].calibration = i % 4 < 2 ? "/mnt/vendor/persist/camera/dualcam_cali.bin" : "";
    }
    SideBySide cameras(replayed);
    Write("phone.log", cameras.Write(200000));
    const ToolRun run = Run({"log", "phone.log", "--json", "--trace", "trace.json"});
    EXPECT_EQ(run.exitCode, 1) << run.errors;
    const Json json = Json::parse(run.output);
    std::map<int, std::vector<Json>> found;
    std::map<int, Json> nodes;
    for (const Json& life : json["history"]) {
        if (!life.contains("request")) {
            nodes[life["node"]] = life;
            continue;
        }
        Json told;
        for (const char* name : {"verdict", "focus", "blur", "rotation", "crops", "frame"}) {
            told[name] = life[name];
        }
        ASSERT_TRUE(life["node"].is_number()) << life;
        told["calibration"] = nodes[life["node"]]["calibration"];
        EXPECT_EQ(nodes[life["node"]]["begin"]["thread"], life["begin"]["thread"]);
        found[life["begin"]["thread"]].push_back(std::move(told));
    }
    ASSERT_EQ(found.size(), cameras.ran.size());
    for (const auto& [thread, ran] : cameras.ran) {
        ASSERT_EQ(found[thread].size(), ran.size());
        for (std::size_t i = 0; i < ran.size(); ++i) {
            EXPECT_EQ(found[thread][i], ran[i]) << thread << ": " << i;
        }
    }

    // The steps of a request fill it but for what lies between them.
    const Json trace = Json::parse(ReadText(folder_ / "trace.json"));
    std::map<int, double> requests;
    std::map<int, double> steps;
    for (const Json& event : trace["traceEvents"]) {
        const std::string name = event["name"];
        if (name.starts_with("request")) {
            requests[event["tid"]] += event["dur"].get<double>();
        } else if (!name.starts_with("node")) {
            steps[event["tid"]] += event["dur"].get<double>();
        }
    }
    ASSERT_EQ(requests.size(), cameras.ran.size());
    for (const auto& [thread, sum] : requests) {
        EXPECT_LE(steps[thread], sum);
        EXPECT_GE(steps[thread], sum * 0.75);
    }
}

struct UncommonLife {
    const char* name;
    std::string log;
    Names told;
    Names untold;
};

// Of a broken or of an unlucky phone.
std::vector<UncommonLife> UncommonLives() {
    const std::string e = "E/TSL_CTB ( 12): ";
    const std::string d = "D/TSL_CTB ( 12): TSL_CTB: ";
    const std::string used = e + "TSL_CTB: GetCalibrationData: 1: : read  cali data success, "
                                 "path: /a/cali.bin length:2";
    const std::string base = e + "BaseProcessRequest: 2: errCode = 5: NULL POINTER!\n";
    const std::string request = e + "ProcessRequest: 3:  res: 5 NULL POINTER!\n";
    const std::string begins = d + "ChiNodeBokehBase: 1:  g_enableNodeLogs 6\n" + d +
                               "Initialize: 2:  (IN)\n" + d + "IniEngine: 3:  (IN)\n";
    const std::string noSizes = " camera parameter inconsistency!Calibration [w, h]: [0, 0], "
                                "ActiveArraySize [w, h]: [8, 6]\n";
    const std::string mismatch = "TSL_CTB: CheckParamConsistency: 1: ";
    const std::string view = d + "NodeProcRequest: 1:  (IN)\n" + e + mismatch + "Master" + noSizes +
                             e + mismatch + "Aux" + noSizes + d + "UpdataCTBParam: 2:  (IN)\n" + d +
                             "NodeProcRequest: 3:  (OUT) res = 0\n";
    const std::string clock = " 12 13 D TSL_CTB : TSL_CTB: NodeProcRequest: 1:  ";
    const std::string section = " ------\n01-31 12:00:00.000" + clock + "(IN)\n";
    return {
        {"failing requests",
         used + "\n" + base + base + base + request + base + request,
         {"node 1 (process 12): calibration /a/cali.bin\n",
          "request 4 of node 1 (process 12): failed; BaseProcessRequest stopped",
          "4 of 4 requests failed", "4 times: BaseProcessRequest stopped"},
         {" ProcessRequest stopped"}},
        {"what no rule knows",
         e + "TSL_CTB: ChiNodeEntry: 1:  Chi API major version doesn't match (1:2) vs (1:0)\n" + e +
             "TSL_CTB: NodeProcRequest: 2: CHINODEPROCESSREQUESTINFO is smaller than expected\n" +
             e + "TSL_CTB: GetCalibrationData: 3: : read  cali data succ\n",
         {"1 of 1 request failed", "1 time: the request's record is smaller than expected",
          "1 time: TSL_CTB: ChiNodeEntry: 1:  Chi API major version doesn't match (1:2) vs (1:0)"},
         {"succ"}},
        {"a crash at creation",
         begins,
         {"not created; its calibration is not in the log; its creation never ended",
          "1 of 1 node could not be created"},
         {"no calibration"}},
        {"a lost line of the creation",
         begins + view,
         {"node 1 (process 12): its calibration is not in the log\n"},
         {"never ended", "not created"}},
        {"no engine",
         e + "TSL_CTB: IniEngine: 1: Initialize TSL_DCIR_Init res = -1\n" + e +
             "IniEngine: 2: res: -1 NULL POINTER!\n",
         {"1 time: TSL_DCIR_Init failed (-1)"},
         {"no calibration", "IniEngine stopped"}},
        {"a refused creation",
         e + "NodeCreate: 1: NULL POINTER!\n",
         {"node 1 (process 12): not created", "1 time: NodeCreate stopped"},
         {}},
        {"a view without calibration",
         view,
         {"request 1 (process 12): debug view; there is no fitting calibration\n",
          "1 time: there is no fitting calibration"},
         {"copied", "0x0"}},
        {"a clock set back",
         "01-31 12:00:05.000" + clock + "(IN)\n01-31 12:00:01.000" + clock + "(OUT) res = 0\n",
         {"stopped\n"},
         {" ms"}},
        {"a bug report",
         "=====\n== dumpstate: 2024\n------ TOMBSTONE" + section + "------ SYSTEM LOG (logcat)" +
             section + "------ LAST LOGCAT" + section,
         {"request 1 (01-31"},
         {"request 2"}},
        {"one of a name without a head",
         "------ SYSTEM LOG (logcat)" + section + "--------- beginning of main\n------ 0.1s" +
             section,
         {"request 1 (01-31"},
         {"request 2"}},
    };
}

TEST_F(ToolTest, LogOfUncommonLives) {
    for (const UncommonLife& row : UncommonLives()) {
        SCOPED_TRACE(row.name);
        Write("phone.log", row.log);
        const ToolRun run = Run({"log", "phone.log"});
        EXPECT_EQ(run.errors, "");
        for (const std::string& text : row.told) {
            EXPECT_THAT(run.output, HasSubstr(text));
        }
        for (const std::string& text : row.untold) {
            EXPECT_THAT(run.output, Not(HasSubstr(text)));
        }
    }
}

TEST_F(ToolTest, LogRefusesOtherKindsByName) {
    using namespace std::string_literals;
    const std::string text = "TSL_CTB: NodeCreate: 7:  (IN)\n";
    const std::pair<std::string, std::string> kinds[] = {
        {"\xff\xfe"
         "0\0"s,
         "UTF-16"},
        {"\x1f\x8b\b\0"s, "a gzip file"},
        {std::string(100000, '\0'), "binary data"},
        {"[ 01-31 23:59:58.123  1234: 5678 D/TSL_CTB ]\n" + text, "layout long"},
        {"D/TSL_CTB: " + text, "layout tag"},
        {"D( 1234: 5678) " + text, "layout process or thread"},
        {text, "layout raw"},
    };
    for (const auto& [bytes, kind] : kinds) {
        Write("phone.log", bytes);
        const ToolRun run = Run({"log", "phone.log"});
        EXPECT_EQ(run.exitCode, 2) << kind;
        EXPECT_THAT(run.errors, HasSubstr("found " + kind));
    }
}

TEST_F(ToolTest, LogReadsTheReportThatAZipFileNames) {
    const std::string line = "E/TSL_CTB ( 12): NodeCreate: 1: NULL POINTER!\n";
    const std::string name = "dumpstate-2024.txt\n";
    zip_t* const zip = zip_open((folder_ / "report.zip").c_str(), ZIP_CREATE, nullptr);
    const auto add = [zip](const char* entry, const std::string& text) {
        zip_file_add(zip, entry, zip_source_buffer(zip, text.data(), text.size(), 0), 0);
    };
    add("main_entry.txt", name);
    add("dumpstate-2024.txt", line);
    add("bugreport-old.txt", line);
    ASSERT_EQ(zip_close(zip), 0);
    const ToolRun run = Run({"log", "report.zip"});
    EXPECT_THAT(run.output, HasSubstr("1 of 1 node could not be created")) << run.errors;
}

TEST_F(ToolTest, LogOfErrorsAlone) {
    const std::string head = "01-31 12:00:00.000  1234  5678 E TSL_";
    Write("errors.log",
          head + "BTB : TSL_CTB: GetCalibrationBinData: 1: : /a/cali.bin readCaliData fail\n" +
              head + "BTB : TSL_CTB: GetCalibrationData: 2: : read  cali data fail\n" + head +
              "CTB : DoProcess: 3: TSL_DCIR_Reset failed res = -3\n" + head +
              "CTB : DoProcess: 4: TSL_DCIR_Process failed res = -4\n" + head +
              "CTB : DoProcess: 3: TSL_DCIR_Reset failed res = -3\n");
    const ToolRun run = Run({"log", "errors.log"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.output,
              "node 1 (01-31 12:00:00.000, process 1234, thread 5678): no calibration; not used: "
              "/a/cali.bin cannot be opened; no calibration file was usable\n"
              "request 1 of node 1 (01-31 12:00:00.000, process 1234, thread 5678): copied; "
              "TSL_DCIR_Reset failed (-3); TSL_DCIR_Process failed (-4); only errors are logged\n"
              "request 2 of node 1 (01-31 12:00:00.000, process 1234, thread 5678): copied; "
              "TSL_DCIR_Reset failed (-3); only errors are logged\n"
              "looks wrong: 1 of 1 node found no calibration: each photo is a copy of the main "
              "image\n"
              "looks wrong: 2 of 2 requests ended in a copy of the main image\n"
              "looks wrong: 1 time: TSL_DCIR_Process failed (-4), at 01-31 12:00:00.000\n"
              "looks wrong: 2 times: TSL_DCIR_Reset failed (-3), from 01-31 12:00:00.000 to 01-31 "
              "12:00:00.000\n"
              "looks wrong: 1 time: no calibration file was usable, at 01-31 12:00:00.000\n");
}

TEST_F(ToolTest, LogOfBrokenRequests) {
    const std::string head = "E/TSL_";
    const std::string sizes = " parameter inconsistency!Calibration [w, h]: [4, 3], "
                              "ActiveArraySize [w, h]: [8, 6]\n";
    Write("broken.log",
          // The aux camera may have the first slot.
          head + "BTB ( 12): TSL_CTB: CheckParamConsistency: 1: Aux camera" + sizes + head +
              "BTB ( 12): TSL_CTB: CheckParamConsistency: 2: Master camera" + sizes + head +
              "CTB ( 12): TSL_CTB: ProcessRequest: 3: Main image cannot be used! Format 3, [w, h]: "
              "[64, 48], pitch 0, planes 2, addresses [0x12, (nil)], no photo is written\n" +
              head + "BTB ( 12): TSL_CTB: saveFile: 4: Failed to open file: /a\x1b[2J\xff\n");
    const ToolRun run = Run({"log", "broken.log", "--trace", "trace.json"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.output,
                StartsWith("request 1 (process 12): lost; the aux camera's active array is "
                           "8x6, its calibration 4x3; the main camera's active array "
                           "is 8x6, its calibration 4x3; Main image cannot be "
                           "used (format 3, 64x48, pitch 0, 2 planes); /a?[2J"));
    EXPECT_THAT(run.output, HasSubstr("1 of 1 request wrote no photo"));
    EXPECT_THAT(run.errors, HasSubstr("the log has no times"));
    const Json json = Json::parse(Run({"log", "broken.log", "--json"}).output);
    EXPECT_EQ(json["history"].size(), 1u);
    EXPECT_EQ(json["findings"].size(), 5u);

    // What was read before a mistake is said, in the same JSON.
    const ToolRun cut = Run({"log", "broken.log", "missing.log", "--json"});
    EXPECT_EQ(cut.exitCode, 2);
    const Json said = Json::parse(cut.output);
    EXPECT_EQ(said["history"].size(), 1u);
    EXPECT_EQ("bokehnode: " + said["error"].get<std::string>() + "\n", cut.errors);

    // So is what the disk is too full for.
    const std::string command = fmt::format("cd {}; (trap '' XFSZ; ulimit -f 1; {} log broken.log "
                                            "--json --report page.html 2>said) | cat >out",
                                            folder_.string(), BOKEHNODE);
    ASSERT_EQ(std::system(command.c_str()), 0);
    EXPECT_THAT(Json::parse(ReadText(folder_ / "out"))["error"].get<std::string>(),
                HasSubstr("page.html"));
}

TEST_F(CaptureTest, TraceHoldsEveryStepOfARequest) {
    const SyntheticCapture capture = Make(7, 1).front();
    const ToolRun run = Run({"replay", "camera", "--calibration", capture.calibration, "--trace",
                             "trace.json", "--json"});
    ASSERT_EQ(run.exitCode, 0) << run.errors;
    const Json trace = Json::parse(ReadText(folder_ / "trace.json"))["traceEvents"];
    std::map<std::string, Json> byName;
    for (const Json& event : trace) {
        byName.try_emplace(event["name"], event);
    }
    for (const char* name : {"NodeCreate", "IniEngine", "property_get", "getVendorTagBase", "fread",
                             "ChiNodeUtils::GetDataList", "setMetadata", "write", "NodeDestroy"}) {
        EXPECT_TRUE(byName.contains(name)) << name;
    }
    EXPECT_EQ(byName["fread"]["args"]["detail"], "2048 bytes");
    EXPECT_THAT(byName["setMetadata"]["args"]["detail"].get<std::string>(),
                HasSubstr("\"OutputMetadataBokeh\", \"PtFocus\""));
    EXPECT_THAT(byName["ChiNodeUtils::GetDataList"]["args"]["detail"].get<std::string>(),
                HasSubstr(": found"));
    // What the request calls lies within it and adds up to no more than its time.
    const Json& request = byName["NodeProcRequest"];
    const auto end = [](const Json& event) {
        return event["ts"].get<double>() + event["dur"].get<double>();
    };
    double sum = 0;
    int count = 0;
    for (const Json& event : trace) {
        const std::string name = event["name"];
        if (event["ts"] < request["ts"] || end(event) > end(request) ||
            event["tid"] != request["tid"]) {
            continue;
        }
        if (name.starts_with("TSL_DCIR_") || name == "DumpAndSaveYUV") {
            sum += event["dur"].get<double>();
            ++count;
        }
    }
    EXPECT_LE(sum, request["dur"].get<double>());
    EXPECT_EQ(count, 7) << "six calls of the engine, and the dumps";
    const Json steps = Json::parse(run.output)["milliseconds"];
    EXPECT_EQ(steps["NodeProcRequest"].get<double>(), request["dur"].get<double>() / 1000);
    EXPECT_GT(Json::parse(run.output)["peakMemoryMB"], 1);
}

} // namespace

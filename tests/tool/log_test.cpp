#include <algorithm>
#include <array>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <fmt/core.h>
#include <gtest/gtest.h>

#include "tests/tool/tool_test.h"
#include "tools/files/json_text.h"
#include "tools/phonelog/node_history.h"

namespace {

using namespace phonelog;
using testing::HasSubstr;
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
        recognised += Recognise(message.text) ? 1 : 0;
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
        {"half a line of another pro01-31 23:59:58.123  1234  5678 D TSL_CTB : ", 5678,
         micros - 456},
    };
    for (const auto& layout : layouts) {
        SCOPED_TRACE(layout.head);
        const std::string line = layout.head + text; // the messages are views of it
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

// Several cameras, each a thread, live the pinned life side by side; between their lines stand
// those of other programs, some of them cut by a line of the node.
class SideBySide {
public:
    SideBySide() {
        const auto isRequest = [](const PinnedMessage& message) {
            return message.text.find("NodeProcRequest: 123:  (IN)") != std::string::npos;
        };
        const auto first = std::ranges::find_if(life_, isRequest);
        const auto second = std::find_if(first + 1, life_.end(), isRequest);
        const auto end = std::ranges::find_if(life_, [](const PinnedMessage& message) {
            return message.text.find("NodeDestroy") != std::string::npos;
        });
        creation_.assign(life_.begin(), first);
        requests_ = {{{first, second}, {second, end}}};
    }

    std::string Write(int cameras, std::size_t lines) {
        std::vector<std::vector<PinnedMessage>> queues(static_cast<std::size_t>(cameras),
                                                       creation_);
        std::vector<std::size_t> at(queues.size());
        std::string log;
        for (std::size_t line = 0; line < lines; ++line) {
            const std::size_t camera = random_() % queues.size();
            if (at[camera] == queues[camera].size()) {
                at[camera] = 0;
                queues[camera] = NextRequest(camera);
            }
            log += Head(camera, line) + queues[camera][at[camera]++].text + "\n";
            for (std::uint64_t other = random_() % 3; other > 0; --other) {
                const std::string noise = Head(99, line) + "TSL is not a tag here";
                log += random_() % 8 == 0 ? noise.substr(0, random_() % 40) : noise + "\n";
            }
        }
        for (std::size_t camera = 0; camera < queues.size(); ++camera) {
            for (; at[camera] < queues[camera].size(); ++at[camera]) {
                log += "\n" + Head(camera, lines) + queues[camera][at[camera]].text + "\n";
            }
        }
        return log;
    }

    // Frame and verdict by thread, in order.
    std::map<int, std::vector<std::string>> requests;

private:
    std::vector<PinnedMessage> NextRequest(std::size_t camera) {
        const bool copied = random_() % 2 == 0;
        std::vector<PinnedMessage> request = requests_[copied ? 1 : 0];
        const std::uint64_t frame = random_();
        for (PinnedMessage& message : request) {
            if (message.text.ends_with("(IN ) 77")) {
                message.text.replace(message.text.size() - 2, 2, std::to_string(frame));
            }
        }
        requests[Thread(camera)].push_back(
            fmt::format("{} {}", frame, copied ? "copied" : "rendered"));
        return request;
    }

    static int Thread(std::size_t camera) { return 4000 + static_cast<int>(camera); }

    static std::string Head(std::size_t camera, std::size_t line) {
        const std::size_t millis = line / 5;
        return fmt::format("01-31 12:{:02}:{:02}.{:03}  {}  {} {} : ", millis / 60000,
                           millis / 1000 % 60, millis % 1000, camera == 99 ? 9 : 1234,
                           Thread(camera), camera == 99 ? "I Other" : "D TSL_CTB");
    }

    std::vector<PinnedMessage> life_ = PinnedLife();
    std::vector<PinnedMessage> creation_;
    std::array<std::vector<PinnedMessage>, 2> requests_;
    std::mt19937_64 random_{5};
};

TEST_F(ToolTest, LogTellsCamerasApart) {
    SideBySide cameras;
    Write("phone.log", cameras.Write(6, 60000));
    const ToolRun run = Run({"log", "phone.log", "--json", "--trace", "trace.json"});
    EXPECT_EQ(run.exitCode, 1) << run.errors;
    const Json json = Json::parse(run.output);
    std::map<int, std::vector<std::string>> found;
    int nodes = 0;
    for (const Json& life : json["history"]) {
        if (life.contains("request")) {
            found[life["begin"]["thread"]].push_back(fmt::format(
                "{} {}", life["frame"].get<std::uint64_t>(), life["verdict"].get<std::string>()));
            EXPECT_EQ(life["focus"], Json({13, 12}));
            EXPECT_EQ(life["blur"], 37);
            EXPECT_EQ(life["failures"].size(), life["verdict"] == "copied" ? 1u : 0u);
        } else {
            ++nodes;
            EXPECT_EQ(life["calibration"], "/vendor/etc/camera/dualcam_cali.bin");
        }
    }
    EXPECT_EQ(nodes, 6);
    EXPECT_TRUE(found == cameras.requests);

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
    ASSERT_EQ(requests.size(), 6u);
    for (const auto& [thread, sum] : requests) {
        EXPECT_LE(steps[thread], sum);
        EXPECT_GE(steps[thread], sum * 0.75);
    }
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
              "looks wrong: 1 of 1 nodes have no calibration: each of their photos is a copy of "
              "the main image\n"
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
    EXPECT_THAT(run.output, HasSubstr("1 of 1 requests wrote no photo"));
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

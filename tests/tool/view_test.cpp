// The live page's server: who it answers, what it runs, and what it leaves.

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <span>
#include <sstream>
#include <string_view>
#include <thread>

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fmt/format.h>
#include <httplib.h>

#include "host/picture/image_file.h"
#include "tests/tool/tool_test.h"
#include "tools/dumps/dump_set.h"
#include "tools/files/json_text.h"
#include "tools/view/worker.h"

namespace fs = std::filesystem;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

namespace {

// Processes of a group, but for those that have ended and wait to be asked how.
int RunningIn(pid_t group) {
    int running = 0;
    for (const auto& entry : fs::directory_iterator("/proc")) {
        const std::string facts =
            ReadText(entry.path() / "stat"); // "PID (NAME) STATE PARENT GROUP ..."
        std::istringstream rest(facts.empty() ? facts : facts.substr(facts.rfind(')') + 1));
        char state = 'Z';
        pid_t parent = 0;
        pid_t itsGroup = 0;
        rest >> state >> parent >> itsGroup;
        running += itsGroup == group && state != 'Z' ? 1 : 0;
    }
    return running;
}

// A tool that serves, with all its processes in a group of their own.
class Serving {
public:
    Serving(Names arguments, const fs::path& folder) {
        arguments.insert(arguments.begin(), {BOKEHNODE, "view"});
        int ends[2] = {};
        EXPECT_EQ(::pipe(ends), 0);
        process_ = ::fork();
        if (process_ == 0) {
            ::setpgid(0, 0);
            std::signal(SIGHUP, SIG_DFL);
            ::setenv("TMPDIR", (folder / "tmp").c_str(), 1);
            ::dup2(ends[1], STDOUT_FILENO);
            ::close(ends[0]);
            std::vector<char*> pointers;
            for (std::string& argument : arguments) {
                pointers.push_back(argument.data());
            }
            pointers.push_back(nullptr);
            if (::chdir(folder.c_str()) == 0) {
                ::execv(BOKEHNODE, pointers.data());
            }
            ::_exit(127);
        }
        ::close(ends[1]);
        char character = 0;
        while (::read(ends[0], &character, 1) == 1 && character != '\n') {
            address_ += character;
        }
        ::close(ends[0]);
        constexpr std::size_t kScheme = 7; // "http://"
        const auto slash = address_.find('/', kScheme);
        host_ = address_.substr(kScheme, slash - kScheme);
        token_ = address_.substr(slash + 1, address_.size() - slash - 2);
    }
    ~Serving() {
        if (process_ > 0) {
            Interrupt();
        }
    }
    Serving(const Serving&) = delete;
    Serving& operator=(const Serving&) = delete;

    const std::string& host() const { return host_; }
    const std::string& token() const { return token_; }
    std::string path(const std::string& end) const { return "/" + token_ + "/" + end; }
    std::string origin() const { return "http://" + host_; }

    // The signal that ended it. It takes its processes along.
    int Interrupt(int signal = SIGTERM) {
        ::kill(process_, signal);
        int status = 0;
        ::waitpid(process_, &status, 0);
        EXPECT_EQ(RunningIn(process_), 0) << "a process is left";
        process_ = 0;
        return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    }

    int Status(const char* method, const std::string& path, const httplib::Headers& headers,
               const std::string& body = "") const {
        httplib::Client client(origin());
        client.set_read_timeout(60);
        httplib::Request request;
        request.method = method;
        request.path = path;
        request.headers = headers;
        request.body = body;
        const httplib::Result result = client.send(request);
        return result ? result->status : 0;
    }

    int Post(const Json& request, std::string* content = nullptr) const {
        httplib::Client client(origin());
        client.set_read_timeout(60);
        const httplib::Result result =
            client.Post(path("run"), {{"Origin", origin()}}, request.dump(), "application/json");
        if (result && content != nullptr) {
            *content = result->body;
        }
        return result ? result->status : 0;
    }

    // The JSON of the answer, without its samples; `changes` null: the set as dumped. `more`: of
    // the request.
    Json Ask(const Json& changes, const Json& more = Json::object()) const {
        Json request{{"set", 0}, {"changes", changes}, {"have", Json::array()}};
        request.update(more);
        std::string content;
        EXPECT_EQ(Post(request, &content), 200);
        std::string_view rest = content;
        for (;;) {
            std::uint32_t length = 0;
            if (rest.size() < sizeof length) {
                return {};
            }
            std::memcpy(&length, rest.data(), sizeof length);
            const Json packet = Json::parse(rest.substr(sizeof length, length));
            if (packet.contains("data") || packet.contains("error") || packet.contains("dropped")) {
                return packet;
            }
            rest.remove_prefix(sizeof length + length);
            if (packet.contains("samples")) {
                rest.remove_prefix(packet["samples"]["bytes"].get<std::size_t>());
            }
        }
    }

    Json Sets() const {
        httplib::Client client(origin());
        const httplib::Result result = client.Get(path("sets"));
        return result ? Json::parse(result->body) : Json();
    }

    Json Tiles() const {
        const httplib::Result result = httplib::Client(origin()).Post(
            path("tiles"), {{"Origin", origin()}}, "0", "application/json");
        return result ? Json::parse(result->body)["tiles"] : Json();
    }

private:
    pid_t process_ = 0;
    std::string address_;
    std::string host_;
    std::string token_;
};

std::string KeyOf(const Json& answer, const char* picture) {
    const Json& data = answer["data"];
    return (std::strcmp(picture, "disparity") == 0 ? data["disparity"]
                                                   : data["pictures"][picture])["parts"][0];
}

class ViewTest : public CaptureTest {
protected:
    ViewTest() {
        fs::create_directory(folder_ / "tmp");
        std::signal(SIGPIPE, SIG_IGN); // a refused body need not be read
    }
};

TEST_F(ViewTest, AnswersItsOwnPageAlone) {
    Make(4000, 1);
    const Serving view({"camera"}, folder_);
    ASSERT_EQ(view.token().size(), 32U);
    const httplib::Headers own{{"Origin", view.origin()}};
    const std::string body = R"({"set":0,"changes":null,"have":[]})";
    const auto post = [&](const httplib::Headers& headers) {
        return view.Status("POST", view.path("run"), headers, body);
    };
    ASSERT_EQ(post(own), 200);

    // Another name for this address, and other sites' pages.
    const std::string port = view.host().substr(view.host().find(':'));
    for (const std::string& host :
         {"evil.example" + port, "localhost" + port, std::string("[::1]")}) {
        EXPECT_EQ(view.Status("GET", view.path(""), {{"Host", host}}), 403) << host;
        EXPECT_EQ(post({{"Host", host}, {"Origin", view.origin()}}), 403) << host;
    }
    for (const std::string& origin : {std::string("http://evil.example"), std::string("null"),
                                      "https://" + view.host(), view.origin() + "0"}) {
        EXPECT_EQ(post({{"Origin", origin}}), 403) << origin;
        EXPECT_EQ(view.Status("GET", view.path("sets"), {{"Origin", origin}}), 403) << origin;
    }
    EXPECT_EQ(post({}), 403) << "a browser names the origin of every POST";

    // No token, another one, and ways out of the folder.
    for (const std::string& path :
         {std::string("/"), std::string("/sets"), "/" + view.token().substr(1) + "0/sets",
          "/" + view.token(), "/" + view.token() + "0/sets", view.path("../../etc/passwd"),
          view.path("%2e%2e/%2e%2e/etc/passwd"), view.path("sets/../../../etc/passwd"),
          view.path("camera"), view.path("/etc/passwd")}) {
        const int status = view.Status("GET", path, {});
        EXPECT_TRUE(status == 403 || status == 404) << path << ": " << status;
    }
    for (const char* method : {"PUT", "DELETE", "OPTIONS", "PATCH"}) {
        EXPECT_EQ(view.Status(method, view.path("run"), own, body), 404) << method;
    }

    // Too long, of unknown length, and nothing that the page would ask.
    EXPECT_NE(view.Status("POST", view.path("run"), own, std::string(1 << 20, '[')), 200);
    EXPECT_EQ(view.Status("POST", view.path("run"),
                          {{"Origin", view.origin()}, {"Transfer-Encoding", "chunked"}}, body),
              413);
    EXPECT_NE(view.Status("GET", view.path(std::string(100000, 'a')), {}), 200);
    for (const char* wrong : {"", "[]", "{", "{\"have\":3}", "{\"set\":-1}", "{\"set\":1}",
                              "{\"set\":\"/etc/passwd\"}", "\xff"}) {
        const int status = view.Status("POST", view.path("run"), own, wrong);
        EXPECT_TRUE(status == 400 || status == 404) << wrong << ": " << status;
    }
}

// Files are numbers in a list, and other options no option at all.
TEST_F(ViewTest, TakesNoFileAndNoOtherOptionFromAPage) {
    Make(4000, 1);
    const Serving view({"camera"}, folder_);
    const Json refused{
        {"calibration", "/etc/passwd"}, {"node", 7}, {"trace", "trace.json"}, {"set", "a=b"}};
    const std::string command = view.Ask(refused)["command"];
    EXPECT_THAT(command, Not(ContainsRegex("passwd|node=|--node|trace|a=b")));
    for (const Json& wrong : {Json{{"focus", "1,1 -o x"}}, Json{{"focus", {1.5, 2}}},
                              Json{{"blur", 101}}, Json{{"focus", {99999, 1}}}}) {
        EXPECT_TRUE(view.Ask(wrong).contains("error")) << wrong;
    }
    const std::string deep = std::string(15000, '[') + std::string(15000, ']');
    const httplib::Result nested =
        httplib::Client(view.origin())
            .Post(view.path("run"), {{"Origin", view.origin()}},
                  R"({"set":0,"changes":{"focus":)" + deep + "}}", "application/json");
    ASSERT_TRUE(nested);
    EXPECT_THAT(nested->body, HasSubstr("expected whole numbers"));
}

TEST_F(ViewTest, AnswersAHundredAtOnce) {
    Make(4000, 1);
    const Serving view({"camera"}, folder_);
    std::vector<std::thread> many;
    std::vector<int> statuses(100);
    for (int i = 0; i < 100; ++i) {
        many.emplace_back([&, i] {
            statuses[static_cast<std::size_t>(i)] =
                view.Post({{"set", 0}, {"changes", {{"blur", i}}}});
        });
    }
    for (std::thread& one : many) {
        one.join();
    }
    EXPECT_THAT(statuses, testing::Each(200));
    const Json last = view.Ask({{"blur", 3}});
    EXPECT_TRUE(last.contains("data")) << last;
    EXPECT_EQ(NamesIn(folder_), (Names{"camera", "tmp"})) << "nothing is written";
}

TEST_F(ViewTest, PageMayLoadNothingElse) {
    Make(4010, 1);
    const Serving view({"camera"}, folder_);
    httplib::Client client(view.origin());
    const httplib::Result page = client.Get(view.path(""));
    ASSERT_TRUE(page);
    const std::string policy = page->get_header_value("Content-Security-Policy");
    EXPECT_THAT(policy, HasSubstr("default-src 'none'"));
    EXPECT_THAT(policy, Not(ContainsRegex("unsafe|\\*|http")));
    EXPECT_THAT(page->body, Not(ContainsRegex("https?://")));
    // Loopback alone: the port's line in the system's table.
    const int port = std::stoi(view.host().substr(view.host().find(':') + 1));
    const std::string listens = fmt::format(":{:04X} 00000000:0000 0A", port);
    const std::string table = ReadText("/proc/net/tcp") + ReadText("/proc/net/tcp6");
    const auto at = table.find(listens);
    ASSERT_NE(at, std::string::npos);
    EXPECT_EQ(table.substr(at - 8, 8), "0100007F");
    EXPECT_EQ(table.find(listens, at + 1), std::string::npos);
}

TEST_F(ViewTest, CommandMakesTheSameBytes) {
    const SyntheticCapture capture = Make(4020, 1, "cam'era $x").front();
    const Serving view({"cam'era $x"}, folder_);
    const Json dumped = view.Ask(nullptr);
    const Json same = view.Ask(Json::object());
    EXPECT_EQ(same["data"]["verdict"]["kind"], "good") << same["data"]["verdict"];
    EXPECT_EQ(KeyOf(same, "output"), KeyOf(dumped, "output"));

    // The node and the engine have run for other requests before.
    for (const Json& other : {Json{{"blur", 80}, {"skip-bokeh", true}},
                              Json{{"debug-view", 3}, {"log", 6}}, Json{{"focus", {1, 1}}}}) {
        EXPECT_TRUE(view.Ask(other).contains("data"));
    }
    const std::string size = fmt::format("{}x{}", capture.width, capture.height);
    EXPECT_THAT(
        view.Ask({{"face", {{1, 2, 30, 40}, {5, 6, 7, 8}}},
                  {"face-rotation", 90},
                  {"focus", {3, 4}},
                  {"rotation", 0},
                  {"log", 2},
                  {"skip-bokeh", true},
                  {"main-crop", {capture.width, capture.height}},
                  {"aux-crop", {capture.width, capture.height}},
                  {"debug-view", 1}})["command"],
        HasSubstr(
            " --focus=3,4 --rotation=0 --debug-view=1 --log=2 --face-rotation=90 --main-crop=" +
            size + " --aux-crop=" + size + " --face=1,2,30,40 --face=5,6,7,8 --skip-bokeh"));
    const Json changes{{"focus", {capture.width / 3, capture.height / 3}},
                       {"blur", 37},
                       {"no-faces", true},
                       {"main-crop", {capture.width, capture.height}}};
    const Json changed = view.Ask(changes);
    ASSERT_TRUE(changed.contains("data")) << changed;
    EXPECT_NE(KeyOf(changed, "output"), KeyOf(dumped, "output"));
    const std::string command = changed["command"];
    ASSERT_TRUE(command.starts_with("bokehnode replay '/")) << command;
    const std::string line = std::string(BOKEHNODE) + command.substr(std::strlen("bokehnode")) +
                             " -o " + (folder_ / "out").string() + " > /dev/null";
    EXPECT_EQ(WEXITSTATUS(std::system(line.c_str())), 1) << line << ": it differs from the dump";
    fs::create_directory(folder_ / "copied"); // the new dumps, with the inputs of the old ones
    for (const char* from : {"cam'era $x", "out"}) {
        fs::copy(folder_ / from, folder_ / "copied",
                 fs::copy_options::recursive | fs::copy_options::overwrite_existing);
    }
    const Json copied = Serving({"copied"}, folder_).Ask(nullptr);
    for (const char* picture : {"output", "disparity"}) {
        EXPECT_EQ(KeyOf(copied, picture), KeyOf(changed, picture)) << picture;
    }
}

// Build and calibration may be made anew while the page is open.
TEST_F(ViewTest, ReplacedFilesAreLoadedAnew) {
    const SyntheticCapture capture = Make(4020, 1).front();
    const fs::path zeros = folder_ / "zeros.bin";
    WriteBytes(zeros, std::vector<std::uint8_t>(fs::file_size(capture.calibration)));
    const DumpSet set = FindDumpSet(folder_ / "camera");
    const fs::path beside = set.folder / CalibrationFileName(set.stem);
    const auto replace = [&](const fs::path& file, const fs::path& by) {
        fs::copy_file(by, folder_ / "new");
        fs::rename(folder_ / "new", folder_ / file);
    };
    struct Replaced {
        fs::path file;
        fs::path whole;
        fs::path other;
    };
    const auto check = [&](const Serving& view, const Replaced& replaced) {
        const auto output = [&] {
            const Json answer = view.Ask(Json::object());
            return answer.contains("data") ? KeyOf(answer, "output") : answer.dump();
        };
        const std::string first = output();
        EXPECT_THAT(first, Not(HasSubstr("error")));
        replace(replaced.file, replaced.other);
        EXPECT_NE(output(), first) << replaced.file;
        replace(replaced.file, replaced.whole);
        EXPECT_EQ(output(), first) << replaced.file;
    };
    const Replaced files[] = {{"engine.so", ENGINE_LIBRARY, CHANGED_ENGINE},
                              {"node.so", NODE_LIBRARY, ENDING_NODE},
                              {"given.bin", capture.calibration, zeros},
                              {beside, capture.calibration, zeros}};
    for (const Replaced& each : files) {
        replace(each.file, each.whole);
    }
    const Serving view({"camera", "--engine", "engine.so", "--node", "node.so", "--set",
                        "test.end=crash", "--calibration", "given.bin"},
                       folder_);
    for (const Replaced& each : std::span(files).first(3)) {
        check(view, each);
    }
    check(Serving({"camera"}, folder_), files[3]);
}

TEST_F(ViewTest, TwoPhotosAreRenderedAsTheyAreShown) {
    const auto paint = [&](const char* name, int near, int far) { // by their disparities
        const auto colour = [=](int x, int y) {
            const bool square = x + near >= 110 && x + near < 210 && y >= 70 && y < 170;
            return square ? Texture(x + near + 3000, y) : Texture(x + far + 1000, y + 500);
        };
        WriteBytes(folder_ / name, EncodePng(Paint(320, 240, colour)));
    };
    paint("left.png", 0, 0);
    paint("right.png", 16, 4);
    const Names words{"left.png", "right.png", "--engine", CHANGED_ENGINE};
    std::string command;
    {
        Names keeping = words;
        keeping.insert(keeping.end(), {"-o", "out"});
        const Serving view(keeping, folder_);
        const Json answer = view.Ask(Json::object());
        EXPECT_EQ(answer["data"]["verdict"]["kind"], "good") << answer["data"]["verdict"];
        command = answer["command"];
    }
    EXPECT_EQ(NamesIn(folder_ / "out"), Names{"left-1"});
    const std::string line = BOKEHNODE + command.substr(command.find(' ')) + " > /dev/null";
    EXPECT_EQ(std::system(line.c_str()), 0) << line << ": identical, after the view has ended";
    EXPECT_THAT(Serving(words, folder_).Ask({{"blur", 3}})["command"],
                ContainsRegex("replay SET .*--blur=3 .*# SET is kept only if .* -o DIR"));
}

TEST_F(ViewTest, WrongUseIsRefusedBeforeItServes) {
    Make(4060, 1);
    Write("file", "");
    struct Row {
        Names words;
        const char* said;
    };
    for (const auto& [words, said] :
         {Row{{"camera", "-o", "camera"}, "another folder than the captures' own"},
          {{"camera", "-o", "camera/new/out"}, "--output: expected a folder outside of camera"},
          {{"camera", "-o", "file/out"}, "cannot make this folder"},
          {{"camera", "--engine", "none"}, "--engine: expected a file, found \"none\""},
          {{"camera", "--node", "none"}, "--node: expected a file"},
          {{"camera", "--calibration", "camera"}, "--calibration: expected a file"},
          {{"camera", "--set", "foo"}, "--set: expected NAME=VALUE"},
          {{"none.png", "file"}, "none.png: expected a file, found none"}}) {
        const ToolRun run = Run({"view"}, words);
        EXPECT_EQ(run.exitCode, 2) << said;
        EXPECT_THAT(run.errors, HasSubstr(said));
        // In a forked child the leak sanitizer tells of the parent's thread, which is not there.
        EXPECT_THAT(run.errors, MatchesRegex("bokehnode: [^\n]*\n(==[0-9]+==[^\n]*\n)*"));
    }
    EXPECT_EQ(NamesIn(folder_), (Names{"camera", "file", "tmp"}));
}

TEST_F(ViewTest, IdleConnectionsDelayNoAnswer) {
    Make(4070, 1);
    const Serving view({"camera"}, folder_);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int port = std::stoi(view.host().substr(view.host().find(':') + 1));
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    int idle[40];
    for (int& one : idle) {
        one = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        ASSERT_EQ(::connect(one, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }
    EXPECT_EQ(view.Status("GET", view.path("sets"), {}), 200);
    // The server closes each after some seconds: the answer did not wait for that.
    char byte = 0;
    EXPECT_EQ(::recv(idle[0], &byte, 1, MSG_DONTWAIT), -1);
    std::ranges::for_each(idle, ::close);
}

Names ServeEnding(const std::string& end, const char* seconds) {
    return {"camera", "--node",          ENDING_NODE, "--node", NODE_LIBRARY,
            "--set",  "test.end=" + end, "--timeout", seconds};
}

TEST_F(ViewTest, CrashAndHangAreAnswersAndLeaveNothing) {
    Make(4030, 1);
    struct End {
        const char* end;
        const char* seconds;
        const char* said;
    };
    for (const auto& [end, seconds, said] : {End{"crash", "60", "crashed: signal 6"},
                                             {"kill", "60", "crashed: signal 9"},
                                             {"memory", "60", "out of memory"},
                                             {"exit", "60", "crashed: signal 6"},
                                             {"hang", "1", "timed out after 1 s"}}) {
        Serving view(ServeEnding(end, seconds), folder_);
        EXPECT_THAT(view.Ask(Json::object()).value("error", ""), HasSubstr(said));
        const Json next =
            view.Ask({{"node", 1}}); // may take longer than a second on a busy machine
        EXPECT_TRUE(next.contains("data") || next["error"] == said) << next;
        EXPECT_EQ(view.Interrupt(), SIGTERM);
        EXPECT_EQ(NamesIn(folder_ / "tmp"), Names{});
    }
}

TEST_F(ViewTest, ClosedTerminalAndClosedBrowserLeaveNothing) {
    Make(4030, 1);
    const auto awaitBegin = [&] { // of a run, which has a folder in the one of all runs
        const auto begun = [&] {
            const fs::recursive_directory_iterator below(folder_ / "tmp");
            return std::any_of(begin(below), end(below),
                               [&](const auto&) { return below.depth() == 1; });
        };
        while (!begun()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    };
    {
        Serving view(ServeEnding("hang", "60"), folder_);
        std::thread hanging([&] { view.Post({{"set", 0}, {"changes", Json::object()}}); });
        awaitBegin();
        EXPECT_EQ(view.Interrupt(SIGHUP), SIGHUP) << "the terminal was closed";
        hanging.join();
        EXPECT_EQ(NamesIn(folder_ / "tmp"), Names{});
    }

    for (const bool nextOne : {false, true}) {
        Serving view(ServeEnding("hang", nextOne ? "2" : "60"), folder_);
        const pid_t browser = ::fork();
        if (browser == 0) {
            view.Post({{"set", 0}, {"changes", Json::object()}});
            ::_exit(0);
        }
        awaitBegin();
        ::kill(browser, SIGKILL);
        int status = 0;
        ::waitpid(browser, &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status)) << "the run had ended before";
        if (nextOne) {
            EXPECT_EQ(view.Status("GET", view.path(""), {}), 200);
            // What the killed one has left to hang ends first.
            Json answer;
            while (!answer.contains("data")) { // a busy machine may take longer than 2 s
                answer = view.Ask({{"node", 1}});
            }
            EXPECT_EQ(answer["data"]["verdict"]["kind"], "good") << answer["data"]["verdict"];
        }
        EXPECT_EQ(view.Interrupt(), SIGTERM);
        EXPECT_EQ(NamesIn(folder_ / "tmp"), Names{});
    }
}

TEST_F(ViewTest, NewSetsShowUpWhole) {
    using Clock = std::chrono::steady_clock;
    Make(4040, 1);
    Make(4050, 1, "other");
    const DumpSet other = FindDumpSet(folder_ / "other");
    const auto& main = *other.file(DumpRole::kMain);
    const std::string whole = ReadText(main.path);
    const std::string name = "camera/" + main.path.filename().string();
    Clock::time_point written;
    const auto write = [&](std::size_t bytes) {
        written = Clock::now();
        Write(name, whole.substr(0, bytes));
    };
    // However often one looks, a file may grow that has changed in the last two seconds.
    const auto hidden = [&](const Serving& view) {
        const bool one = view.Sets().size() == 1 && view.Sets().size() == 1;
        return one || Clock::now() - written > std::chrono::seconds(2); // a slow machine
    };
    write(whole.size() / 4);
    const Serving view({"camera"}, folder_);
    EXPECT_TRUE(hidden(view)) << "at the start";
    write(whole.size() / 2);
    EXPECT_TRUE(hidden(view)) << "it grows";
    fs::copy(folder_ / "other", folder_ / "camera",
             fs::copy_options::recursive | fs::copy_options::overwrite_existing);
    const auto pause = [] { std::this_thread::sleep_for(std::chrono::milliseconds(50)); };
    while (view.Sets().size() < 2) {
        pause();
    }
    EXPECT_THAT(view.Sets()[1].get<std::string>(), HasSubstr(other.stem));

    // The tile of a set that changes is made again, and the page knows which one it replaces.
    const auto awaitTiles = [&](std::size_t count) {
        Json tiles;
        for (; tiles.size() < count; pause()) {
            tiles = view.Tiles();
        }
        return tiles;
    };
    EXPECT_EQ(awaitTiles(2)[1]["verdict"]["kind"], "good");
    write(whole.size() / 2);
    const Json tile = awaitTiles(3)[2];
    EXPECT_EQ(tile["verdict"]["kind"], "wrong");
    EXPECT_EQ(tile["page"], "live?1");
}

TEST_F(ViewTest, SavesWhatTheCommandWritesWhereItMay) {
    const SyntheticCapture capture = Make(4060, 1).front();
    const Json changes{{"blur", 21}, {"face", {{4, 6, 40, 30}, {50, 8, 20, 20}}}};
    {
        const Serving view({"camera"}, folder_);
        EXPECT_TRUE(view.Ask(changes, {{"save", true}}).contains("data"));
        EXPECT_EQ(NamesIn(folder_), (Names{"camera", "tmp"})) << "without -o";
    }
    const Serving view({"camera", "-o", "out"}, folder_);
    EXPECT_TRUE(view.Ask(Json::object()).contains("data"));
    for (int i = 0; i < 2; ++i) { // the second one is whole as well and replaces nothing
        EXPECT_TRUE(view.Ask(changes, {{"save", true}}).contains("data"));
    }
    const std::string command = view.Ask(changes)["command"];
    EXPECT_THAT(command, HasSubstr("--face=4,6,40,30 --face=50,8,20,20"));
    const std::string line = std::string(BOKEHNODE) + command.substr(std::strlen("bokehnode")) +
                             " -o " + (folder_ / "replayed").string() + " > /dev/null";
    EXPECT_EQ(WEXITSTATUS(std::system(line.c_str())), 1);
    const std::string stem = FindDumpSet(folder_ / "camera").stem;
    EXPECT_EQ(NamesIn(folder_ / "out"), (Names{stem + "-1", stem + "-2"}));
    const Names files = NamesIn(folder_ / "replayed");
    EXPECT_GE(files.size(), 6U); // a set, the output as PNG
    for (const std::string& saved : NamesIn(folder_ / "out")) {
        EXPECT_EQ(NamesIn(folder_ / "out" / saved), files);
        for (const std::string& file : files) {
            EXPECT_TRUE(ReadText(folder_ / "out" / saved / file) ==
                        ReadText(folder_ / "replayed" / file))
                << saved << ": " << file;
        }
    }
}

TEST_F(ViewTest, TraceHoldsEveryRequest) {
    Make(4090, 1);
    Write("trace.json", "of an earlier day");
    const Serving view({"camera", "--trace", "trace.json"}, folder_);
    const auto events = [&] {
        return Json::parse(ReadText(folder_ / "trace.json"))["traceEvents"];
    };
    EXPECT_EQ(events(), Json::array());
    const auto sum = [](const Json& of, std::string_view name) { // milliseconds
        double micros = 0;
        for (const Json& event : of) {
            micros += event["name"] == name ? event["dur"].get<double>() : 0;
        }
        return micros / 1000;
    };
    double end = 0;
    std::size_t known = 0;
    const auto check = [&](const Json& changes) {
        const Json answer = view.Ask(changes);
        const Json all = events();
        const Json added(all.begin() + static_cast<std::ptrdiff_t>(known), all.end());
        known = all.size();
        // These are the events of this request alone: as long as its page says, after the others.
        const Json& sections = answer["data"]["sections"];
        const auto cost = std::ranges::find_if(
            sections, [](const Json& one) { return one["title"] == "Time and memory"; });
        for (const auto& [name, length] : (*cost)["values"]["milliseconds"].items()) {
            EXPECT_NEAR(sum(added, name), length.get<double>(), 1e-6) << name;
        }
        EXPECT_FALSE((*cost)["values"].contains("peakMemoryMB")) << "all runs before count";
        EXPECT_GT(sum(added, "TSL_DCIR_Process"), 0);
        EXPECT_GT(sum(added, "setMetadata"), 0);
        for (const Json& event : added) {
            EXPECT_GT(event["ts"], end);
        }
        for (const Json& event : added) {
            end = std::max(end, event["ts"].get<double>() + event["dur"].get<double>());
        }
        return sum(added, "NodeCreate") > 0;
    };
    EXPECT_TRUE(check({{"blur", 40}}));
    EXPECT_FALSE(check({{"focus", {9, 9}}})) << "the node stays loaded";
    // Another log mask needs another node; a file moved away makes place for another one.
    EXPECT_TRUE(check({{"blur", 41}, {"rotation", 0}, {"log", 6}}));
    fs::rename(folder_ / "trace.json", folder_ / "kept.json");
    known = 0;
    EXPECT_FALSE(check({{"blur", 42}, {"rotation", 0}, {"log", 6}}));
    EXPECT_EQ(NamesIn(folder_), (Names{"camera", "kept.json", "tmp", "trace.json"}));
    EXPECT_EQ(RunTool({"view", "camera", "--trace", "camera"}, folder_).exitCode, 2);
}

TEST_F(ViewTest, CancelledRunIsShownAndNotCompared) {
    Make(4100, 1);
    const Serving view({"camera", "-o", "out"}, folder_);
    EXPECT_EQ(view.Status("POST", view.path("cancel"), {{"Origin", view.origin()}}, "7"), 200);
    const Json blurred{{"blur", 10}};
    EXPECT_TRUE(view.Ask(blurred, {{"number", 6}}).contains("data")) << "another one";
    std::string content;
    view.Post({{"set", 0}, {"changes", blurred}, {"number", 7}}, &content);
    EXPECT_THAT(content, HasSubstr("\"dropped\""));
    EXPECT_THAT(content, HasSubstr("\"samples\"")) << "the picture can be seen until the next one";
    EXPECT_TRUE(view.Ask(blurred, {{"number", 7}, {"save", true}}).contains("data"));
    EXPECT_EQ(NamesIn(folder_ / "out").size(), 1U) << "what is to be saved always is";
    const Json next = view.Ask(Json::object());
    EXPECT_EQ(next["data"]["verdict"]["kind"], "good") << "compared: " << next["data"]["verdict"];
    EXPECT_EQ(view.Status("POST", view.path("cancel"), {{"Origin", view.origin()}}, "[]"), 400);
}

TEST_F(ViewTest, ManySetsHaveTilesAndNoLinkLeadsOut) {
    Make(4070, 1);
    Make(4080, 1, "outside");
    fs::create_directory(folder_ / "camera" / "linked");
    for (const auto& file : fs::directory_iterator(folder_ / "outside")) {
        fs::create_symlink(file.path(), folder_ / "camera" / "linked" / file.path().filename());
    }
    const Serving view({"camera"}, folder_);
    Json tiles;
    while (tiles.size() < 2) { // one is inspected after the other
        tiles = view.Tiles();
    }
    EXPECT_EQ(tiles[0]["page"], "live?0");
    EXPECT_EQ(tiles[0]["verdict"]["kind"], "good") << tiles[0]["verdict"];
    EXPECT_THAT(tiles[1]["verdict"]["text"].get<std::string>(),
                HasSubstr("a link to another place"));
    EXPECT_TRUE(view.Ask(nullptr).contains("data"));
    for (const Json& changes : {Json(), Json::object()}) {
        EXPECT_THAT(view.Ask(changes, {{"set", 1}}).value("error", ""),
                    HasSubstr("a link to another place"));
    }
    // A link that appears later beside the files of a set.
    const DumpSet first = FindDumpSet(view.Sets()[0].get<std::string>());
    const auto& main = *first.file(DumpRole::kMain);
    fs::rename(main.path, folder_ / "moved");
    fs::create_symlink(folder_ / "moved", main.path);
    EXPECT_THAT(view.Ask(Json::object()).value("error", ""), HasSubstr("a link to another place"));
    fs::remove(main.path);
    fs::rename(folder_ / "moved", main.path);
    const fs::path calibration = first.folder / CalibrationFileName(first.stem);
    WriteBytes(folder_ / "moved", {1});
    fs::create_symlink(folder_ / "moved", calibration);
    EXPECT_THAT(view.Ask(Json::object()).value("error", ""),
                AllOf(HasSubstr("a link to another place"), HasSubstr(calibration.filename())));
}

TEST_F(ViewTest, OneJobRunsAndTheLastWaits) {
    const fs::path release = folder_ / "release";
    Worker worker(
        [&](const std::string& job, const Worker::Take& take) {
            Write(job, "");
            take("done ");
            while (!fs::exists(release)) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
            take(job);
            return true;
        },
        60);
    std::atomic<int> returned = 0;
    const auto start = [&](const std::string& job, std::optional<std::string>& answer) {
        return std::thread([&, job] {
            std::string text;
            if (worker.Do(job, [&](std::string_view part) { text += part; })) {
                answer = text;
            }
            ++returned;
        });
    };
    std::optional<std::string> answers[4];
    std::thread first = start("first", answers[0]);
    while (!fs::exists(folder_ / "first")) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    std::vector<std::thread> more;
    for (int i = 1; i < 4; ++i) {
        more.push_back(start(fmt::format("later{}", i), answers[i]));
    }
    while (returned < 2) { // while the first one still runs
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    Write("release", "");
    first.join();
    for (std::thread& one : more) {
        one.join();
    }
    EXPECT_EQ(answers[0], "done first");
    EXPECT_EQ(std::ranges::count_if(answers + 1, answers + 4,
                                    [](const auto& answer) { return answer.has_value(); }),
              1);
    EXPECT_THROW(worker.Do(std::string(Worker::kLongestJob + 1, 'a'), {}), std::runtime_error);
}

TEST_F(ViewTest, ProcessStaysUntilItEnds) {
    int jobs = 0; // of a process
    Worker worker(
        [&](const std::string& job, const Worker::Take& take) {
            if (job == "other" && jobs > 0) {
                return false;
            }
            if (job == "processes") {
                take(fmt::format("{} {}", ::getppid(), ::getpid()));
                return true;
            }
            take(std::to_string(++jobs));
            if (job == "crash") {
                std::abort();
            }
            while (job == "hang") {
                ::pause();
            }
            return true;
        },
        1);
    const auto answerTo = [&](const std::string& job) {
        std::string answer;
        try {
            worker.Do(job, [&](std::string_view part) { answer += part; });
        } catch (const std::runtime_error& error) {
            answer += fmt::format(" {}", error.what());
        }
        return answer;
    };
    EXPECT_EQ(answerTo("one"), "1");
    EXPECT_EQ(answerTo("one"), "2") << "the same process";
    EXPECT_EQ(answerTo("other"), "1");
    EXPECT_EQ(answerTo("crash"), "2 crashed: signal 6 (Aborted)");
    EXPECT_EQ(answerTo("one"), "1");
    EXPECT_EQ(answerTo("hang"), "2 timed out after 1 s");
    EXPECT_EQ(answerTo("other"), "1");
    for (const bool starter : {false, true}) { // killed while there is nothing to do
        std::istringstream processes(answerTo("processes"));
        pid_t starting = 0;
        pid_t working = 0;
        processes >> starting >> working;
        const pid_t killed = starter ? starting : working;
        pollfd ended{static_cast<int>(::syscall(SYS_pidfd_open, killed, 0)), POLLIN, 0};
        ::kill(killed, SIGKILL);
        ::poll(&ended, 1, -1);
        ::close(ended.fd);
        EXPECT_EQ(answerTo("one"), "1") << (starter ? "the process that starts others" : "");
    }
}

} // namespace

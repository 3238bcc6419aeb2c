#include "tools/view/live_view.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <new>
#include <optional>
#include <regex>
#include <string_view>
#include <thread>

#include <sys/mman.h>
#include <sys/stat.h>

#include <fmt/format.h>

#include "host/picture/errors.h"
#include "host/picture/nv12.h"
#include "tools/files/progress.h"
#include "tools/inspect/inspection.h"
#include "tools/report/page_text.h"
#include "tools/report/report_contents.h"
#include "tools/run/call_trace.h"
#include "tools/run/device_folder.h"
#include "tools/view/server.h"
#include "tools/view/worker.h"

namespace fs = std::filesystem;
namespace {

constexpr std::chrono::minutes kIdle(5); // a browser lets hidden pages ask once a minute

// Options of `replay` that the page may set, and what stands between several numbers of one.
constexpr std::pair<const char*, char> kOptions[] = {
    {"focus", ','}, {"blur", ','},          {"rotation", ','},  {"debug-view", ','},
    {"log", ','},   {"face-rotation", ','}, {"main-crop", 'x'}, {"aux-crop", 'x'},
    {"face", ','},  {"no-faces", ','},      {"skip-bokeh", ','}};

// "12,30" for one number or a list of numbers.
std::string NumbersText(const Json& value, char separator) {
    std::string text;
    for (const Json& number : value.is_array() ? value : Json::array({value})) {
        if (!number.is_number_integer()) {
            Refuse("changes", "whole numbers", "something else");
        }
        text += fmt::format("{}{}", text.empty() ? "" : std::string(1, separator),
                            number.get<std::int64_t>());
    }
    return text;
}

// What stands behind `bokehnode replay SET` for the changes that the page asks for: the values of
// options, or lists of values. The page names none of the files, but where they stand in the lists;
// the place after the last one is the default.
std::vector<std::string> WordsFor(const Json& changes, const ViewOptions& options) {
    std::vector<std::string> words;
    for (const auto& [name, separator] : kOptions) {
        const Json value = changes.value(name, Json::array());
        const bool one = !value.is_array() || (!value.empty() && !value.front().is_array());
        for (const Json& each : one ? Json::array({value}) : value) {
            words.push_back(each == true
                                ? fmt::format("--{}", name)
                                : fmt::format("--{}={}", name, NumbersText(each, separator)));
        }
    }
    for (const auto& [name, files] :
         {std::pair("calibration", &options.calibrations), std::pair("node", &options.nodes),
          std::pair("engine", &options.engines)}) {
        const Json given = changes.value(name, Json());
        const std::size_t index = given.is_number_unsigned() ? given.get<std::size_t>() : 0;
        if (index < files->size()) {
            words.push_back(fmt::format("--{}={}", name, fs::absolute((*files)[index]).string()));
        }
    }
    for (const std::string& property : options.properties) {
        words.push_back("--set=" + property);
    }
    return words;
}

// A word as a shell reads it.
std::string Quoted(const std::string& word) {
    static const std::regex plain("[A-Za-z0-9_./,=+:@-]+");
    return std::regex_match(word, plain)
               ? word
               : "'" + std::regex_replace(word, std::regex("'"), "'\\''") + "'";
}

bool IsWithin(const fs::path& path, const fs::path& folder) {
    const fs::path whole = fs::weakly_canonical(fs::absolute(path));
    return *whole.lexically_relative(fs::canonical(folder)).begin() != "..";
}

// The set of this name. Throws UseError if a file of it is a link out of the place of the sets.
DumpSet FindSetWithin(const fs::path& place, const std::string& name) {
    const fs::path folder = fs::is_directory(place) ? place : fs::absolute(place).parent_path();
    const auto check = [&folder](const fs::path& file) {
        if (!IsWithin(file, folder)) {
            Refuse(file.string(), "a file in " + folder.string(), "a link to another place");
        }
    };
    DumpSet set = FindDumpSet(name);
    for (const auto& file : set.files) {
        if (file) {
            check(file->path);
        }
    }
    if (const fs::path calibration = CalibrationBeside(set); !calibration.empty()) {
        check(calibration);
    }
    return set;
}

using Time = std::chrono::sys_time<std::chrono::nanoseconds>;

// Tells files from others and from what they were before. The time is that of the inode's change:
// copies and new builds may keep the time of modification.
struct Facts {
    std::string text;
    Time changed; // the last of them

    void Add(const fs::path& file) {
        struct stat found = {}; // stays as it is for a file that is missing
        ::stat(file.c_str(), &found);
        const Time time(std::chrono::seconds(found.st_ctim.tv_sec) +
                        std::chrono::nanoseconds(found.st_ctim.tv_nsec));
        text += fmt::format("{} {} {}\n", file.string(), found.st_size,
                            time.time_since_epoch().count());
        changed = std::max(changed, time);
    }
};

Facts FactsOf(const DumpSet& set) {
    Facts facts;
    facts.Add(set.folder / CalibrationFileName(set.stem));
    for (const auto& file : set.files) {
        if (file) {
            facts.Add(file->path);
        }
    }
    return facts;
}

// A packet of the answer: the length of its JSON, the JSON, and the bytes that this tells of.
std::string Packet(const Json& json) {
    const std::string text = JsonText(json, -1);
    const auto length = static_cast<std::uint32_t>(text.size());
    std::string packet(sizeof length, '\0');
    std::memcpy(packet.data(), &length, sizeof length); // little-endian, as all our machines
    return packet + text;
}

std::string_view TextOf(const Bytes& bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// The answer to a job, packet by packet. The page keeps samples by keys, and gets those that it
// does not have.
class Answer {
public:
    // `have`: the keys that the page has.
    Answer(Json have, const Worker::Take& take) : have_(std::move(have)), take_(take) {}

    void Add(const Json& packet) const { take_(Packet(packet)); }

    // A new output. A large one is sent reduced first, and for a job that has been cancelled no
    // more.
    void AddOutput(const host::Image& output, const std::function<bool()>& wanted) {
        const std::string key = KeyOf(output, output.width());
        Add({{"output", key}, {"size", output.size()}});
        const auto reduced = Has(key) ? std::nullopt : Reduced(output);
        if (reduced) {
            AddSamples(key, reduced->second, reduced->first, reduced->first.width());
        }
        if (!reduced || wanted()) {
            AddImage(output, output.width());
        }
    }

    // The report's data, after the samples of its pictures.
    void AddReport(const Report& report, const std::string& command) {
        Json data = report.data();
        const auto add = [&](Json& entry) {
            const std::string part = entry["parts"].front();
            const Report::Picture& picture = *std::ranges::find_if(
                report.pictures(), [&](const auto& one) { return one.parts.front() == part; });
            entry["parts"] = {AddImage(*picture.image, picture.width)};
        };
        std::ranges::for_each(data["pictures"], add);
        if (!data["disparity"].is_null()) {
            add(data["disparity"]);
        }
        Add({{"data", data}, {"command", command}});
    }

private:
    // The same samples have the same key.
    const std::string& KeyOf(const host::Image& image, int width) {
        std::string& key = keys_[&image];
        if (key.empty()) {
            key = fmt::format("{}x{}x{}-{:016x}", width, image.height(), image.pitch(),
                              std::hash<std::string_view>()(TextOf(image.bytes())));
        }
        return key;
    }

    bool Has(const std::string& key) const {
        return std::ranges::find(have_, Json(key)) != have_.end();
    }

    // Returns its key.
    const std::string& AddImage(const host::Image& image, int width) {
        const std::string& key = KeyOf(image, width);
        if (!Has(key)) {
            have_.push_back(key);
            AddSamples(key, 0, image, width);
        }
        return key;
    }

    void AddSamples(const std::string& key, int level, const host::Image& image, int width) const {
        Add({{"samples",
              {{"key", key},
               {"level", level},
               {"size", {width, image.height()}},
               {"pitch", image.pitch()},
               {"chroma", image.format() == host::Image::Format::Nv12},
               {"bytes", image.bytes().size()}}}});
        take_(TextOf(image.bytes()));
    }

    Json have_;
    const Worker::Take& take_;
    std::map<const host::Image*, std::string> keys_;
};

// A request of the page; not an object if it is none. What is nested deeper than any page sends is
// left out: values are copied recursively.
Json RequestIn(const std::string& body) {
    constexpr int kDeepest = 4;
    return Json::parse(
        body, [](int depth, Json::parse_event_t, const Json&) { return depth <= kDeepest; }, false);
}

// The number of the last job that its page has cancelled, in memory that the server and its
// worker's processes share.
using CancelledJob = std::atomic<std::uint64_t>;

CancelledJob& MakeCancelledJob() {
    void* const memory = ::mmap(nullptr, sizeof(CancelledJob), PROT_READ | PROT_WRITE,
                                MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        throw std::bad_alloc();
    }
    return *new (memory) CancelledJob(UINT64_MAX);
}

// Does the page's jobs in the worker's process, where a set, the node and the engine stay loaded.
class JobRunner {
public:
    JobRunner(const ParseReplay& parse, const ViewOptions& options, const CancelledJob& cancelled)
        : parse_(parse), options_(options), cancelled_(cancelled) {}

    // `job`: the set, a zero, and the page's request: what it has, the changes of a replay or none,
    // whether to save, and the number by which it can be cancelled.
    bool Do(const std::string& job, const Worker::Take& take) {
        const auto end = job.find('\0');
        const Json request = RequestIn(job.substr(end + 1));
        Answer answer(request.value("have", Json::array()), take);
        try {
            const DumpSet set = FindSetWithin(options_.place, job.substr(0, end));
            const Json changes = request.value("changes", Json());
            if (changes.is_object()) {
                return Replay(set, request, answer);
            }
            answer.AddReport(ReportOf(Inspect(set)), CommandFor(set, {}));
        } catch (const std::bad_alloc&) {
            replay_.reset();
            answer.Add({{"error", "out of memory"}});
        } catch (const std::exception& error) {
            answer.Add({{"error", error.what()}});
        }
        return true;
    }

private:
    std::string CommandFor(const DumpSet& set, const std::vector<std::string>& words) const {
        const bool kept = !options_.rendered || !options_.output.empty();
        std::string command = "bokehnode replay " + (kept ? Quoted(set.name()) : "SET");
        for (const std::string& word : words) {
            command += " " + Quoted(word);
        }
        return command + (kept ? "" : "  # SET is kept only if view is started with -o DIR");
    }

    bool Replay(const DumpSet& set, const Json& request, Answer& answer) {
        const std::vector<std::string> words = WordsFor(request["changes"], options_);
        ReplayOptions options = parse_(words);
        options.dump = request.value("save", false) && !options_.output.empty();
        options.trace = options_.trace;
        const auto [node, engine] = FindLibraries(options);
        Facts libraries;
        libraries.Add(node);
        libraries.Add(engine);
        if (!libraries_.empty() && libraries_ != libraries.text) {
            return false; // a library stays loaded to the end of its process
        }
        libraries_ = libraries.text;
        Facts facts = FactsOf(set);
        facts.Add(options.calibration);
        if (!replay_ || facts.text != facts_) {
            replay_.reset();
            replay_.emplace(set);
            facts_ = facts.text;
        }
        bool dropped = false;
        const auto wanted = [&, number = request.value("number", std::uint64_t{0})] {
            dropped = dropped || (cancelled_ == number && !options.dump);
            return !dropped;
        };
        const Replayed& replayed = replay_->Run(options, [&](const Replayed& ran) {
            if (ran.result.published) {
                answer.AddOutput(ran.output, wanted);
            }
            return wanted();
        });
        if (!wanted()) {
            answer.Add({{"dropped", true}});
            return true;
        }
        if (options.dump && replayed.result.published) {
            answer.Add({{"saved", Save(set, replayed)}});
        }
        Inspection inspection;
        inspection.set = set;
        answer.AddReport(ReportOf(inspection, replayed), CommandFor(set, words));
        return true;
    }

    // Writes the files that `replay -o` would.
    std::string Save(const DumpSet& set, const Replayed& replayed) const {
        OutputFolder folder(FreeFolder(options_.output, set.stem));
        WriteFiles(folder, set.stem, replayed);
        folder.Commit();
        return folder.path().string();
    }

    const ParseReplay& parse_;
    const ViewOptions& options_;
    const CancelledJob& cancelled_;
    std::string libraries_; // facts of this process's node and engine
    std::string facts_;     // of the set that is replayed, and of its calibration
    std::optional<LoadedReplay> replay_;
};

// The sets of the place. A set is added when its files have stayed the same for a while: while it
// is copied it grows.
class Sets {
public:
    // Returns when there is a set that no longer grows. Throws UseError where there is none at all.
    explicit Sets(const ViewOptions& options)
        : place_(options.place), rest_(options.rendered ? 0 : 2) {
        const Progress progress("waiting until the set is written");
        for (Look(); names_.empty(); Look()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
    }

    // In the order in which they appeared.
    std::vector<std::string> Names() {
        const std::lock_guard lock(mutex_);
        MistakeIn([this] { Look(); }); // a file may go while its folder is read
        return names_;
    }

    // Which sets have come to rest, in the order in which they did; again after each change.
    std::vector<std::size_t> Written() {
        const std::lock_guard lock(mutex_);
        return written_;
    }

    // Nothing if there is no such set.
    std::optional<std::string> At(const Json& index) {
        const std::lock_guard lock(mutex_);
        return index.is_number_unsigned() && index < names_.size()
                   ? std::optional(names_[index.get<std::size_t>()])
                   : std::nullopt;
    }

private:
    struct Seen {
        std::string facts;
        Time since; // when these facts came about
        bool written = false;
        std::optional<std::size_t> index = {}; // among the names
    };

    void Look() {
        const Time now = std::chrono::system_clock::now();
        for (const DumpSet& set : FindDumpSets({place_})) {
            const std::string name = fs::absolute(set.name()).lexically_normal().string();
            const Facts facts = FactsOf(set);
            Seen& seen = seen_[name];
            if (seen.facts != facts.text) {
                seen = {facts.text, std::min(now, facts.changed), false, seen.index};
            }
            if (seen.written || now - seen.since < rest_) {
                continue;
            }
            if (!seen.index) {
                seen.index = names_.size();
                names_.push_back(name);
            }
            seen.written = true;
            written_.push_back(*seen.index);
        }
    }

    const fs::path place_;
    const std::chrono::seconds rest_;
    std::mutex mutex_;
    std::vector<std::string> names_;
    std::vector<std::size_t> written_;
    std::map<std::string, Seen> seen_; // by name
};

// The tiles of the page of many, each made when a page first asks for it, and once more when its
// set has changed: then the page replaces the earlier one.
class Tiles {
public:
    // `worker`: does Inspected().
    Tiles(const fs::path& place, Worker& worker) : place_(fs::absolute(place)), worker_(worker) {}

    // How many sets there are, and some of the tiles behind those that the page has got. Sets are
    // inspected for a moment only, and for one page at a time, so that no request takes long.
    Json Behind(std::size_t have, const std::vector<std::string>& sets,
                const std::vector<std::size_t>& written) {
        using Clock = std::chrono::steady_clock;
        constexpr std::size_t kMost = 100;
        const auto end = Clock::now() + std::chrono::milliseconds(200);
        Json some = Json::array();
        if (const std::unique_lock lock(mutex_, std::try_to_lock); lock) {
            while (tiles_.size() < written.size() && Clock::now() < end) {
                tiles_.push_back(Inspect(written[tiles_.size()], sets));
            }
            for (std::size_t i = have; i < std::min(have + kMost, tiles_.size()); ++i) {
                some.push_back(tiles_[i]);
            }
        }
        return {{"sets", sets.size()}, {"tiles", some}};
    }

    // In the worker's process.
    static bool Inspected(const fs::path& place, const std::string& set, const Worker::Take& take) {
        Json tile;
        const std::string mistake =
            MistakeIn([&] { tile = ReportOf(::Inspect(FindSetWithin(place, set))).Tile(); });
        take(JsonText(mistake.empty() ? tile : Failed(mistake), -1));
        return true;
    }

private:
    static Json Failed(const std::string& mistake) {
        return {{"verdict", {{"kind", NameOf(Report::Kind::kWrong)}, {"text", mistake}}},
                {"findings", 0}};
    }

    Json Inspect(std::size_t index, const std::vector<std::string>& sets) const {
        Json tile;
        try {
            worker_.Do(sets[index], [&](std::string_view part) { tile = Json::parse(part); });
        } catch (const std::exception& error) {
            tile = Failed(error.what());
        }
        tile["title"] = fs::path(sets[index]).lexically_relative(place_).string();
        tile["page"] = fmt::format("live?{}", index);
        return tile;
    }

    const fs::path place_;
    Worker& worker_;
    std::mutex mutex_;
    std::vector<Json> tiles_; // in the order of what was written
};

Json PageData(const ViewOptions& options, const Json& sets) {
    Report report("view", options.place.string());
    report.SetVerdict(Report::Kind::kNote, "reading the set");
    Json data = report.data();
    data["live"] = {{"sets", sets},
                    {"saves", !options.output.empty()},
                    {"files",
                     {{"calibration", options.calibrations},
                      {"node", options.nodes},
                      {"engine", options.engines}}}};
    return data;
}

constexpr char kHtml[] = "text/html; charset=utf-8";

Server::Reply Refused(int status) {
    return {.status = status};
}

Server::Reply JsonReply(const Json& json) {
    return {.type = "application/json", .content = JsonText(json, -1)};
}

Server::Reply Run(const std::string& body, Sets& sets, Worker& worker) {
    const Json request = RequestIn(body);
    const auto set = request.is_object() ? sets.At(request.value("set", Json())) : std::nullopt;
    if (!set) {
        return Refused(request.is_object() ? 404 : 400);
    }
    const auto stream = [job = *set + '\0' + body, &worker](const Worker::Take& take) {
        try {
            if (!worker.Do(job, take)) {
                take(Packet({{"dropped", true}}));
            }
        } catch (const std::exception& error) {
            take(Packet({{"error", error.what()}}));
        }
    };
    return {.type = "application/octet-stream", .stream = stream};
}

// Refuses what cannot be written before anything is served.
void PrepareOutputs(const ViewOptions& options) {
    const std::vector<DumpSet> sets = FindDumpSets({options.place});
    if (!options.output.empty()) {
        RefuseSetsFolder(options.output, sets.front());
        if (fs::is_directory(options.place) && IsWithin(options.output, options.place)) {
            Refuse("--output", "a folder outside of " + options.place.string(),
                   options.output.string() + ", where what is saved would show up as a set");
        }
        const OutputFolder tried(FreeFolder(options.output, "saved")); // and removed again
    }
    if (!options.trace.empty()) {
        WriteTrace(options.trace, {}); // which each run adds to
    }
}

} // namespace

fs::path FreeFolder(const fs::path& output, const std::string& stem) {
    fs::path folder;
    for (int i = 1; folder.empty() || fs::exists(folder); ++i) {
        folder = output / fmt::format("{}-{}", stem, i);
    }
    return folder;
}

void ServeLiveView(const ViewOptions& options, const ParseReplay& parse) {
    PrepareOutputs(options);
    Sets sets(options);
    // A process that crashes leaves its temporary files in this one's folder.
    const TemporaryFolder temporary;
    ::setenv("TMPDIR", temporary.path().c_str(), 1);
    CancelledJob& cancelled = MakeCancelledJob();
    JobRunner runner(parse, options, cancelled);
    Worker worker(
        [&](const std::string& job, const Worker::Take& take) { return runner.Do(job, take); },
        options.timeout);
    Worker inspector(
        [&](const std::string& set, const Worker::Take& take) {
            return Tiles::Inspected(options.place, set, take);
        },
        options.timeout);
    Tiles tiles(options.place, inspector);
    Server server;
    const auto live = [&](const std::string&) {
        return Server::Reply{
            .type = kHtml,
            .content = LivePage(PageData(options, sets.Names()), server.Policy(), server.nonce())};
    };
    server.Get("live", live);
    server.Get("", [&](const std::string& body) {
        if (sets.Names().size() == 1) {
            return live(body);
        }
        const Json data{{"command", "view"},
                        {"title", options.place.string()},
                        {"tiles", Json::array()},
                        {"live", true}};
        return Server::Reply{.type = kHtml,
                             .content = OverviewPage(data, server.Policy(), server.nonce())};
    });
    server.Get("sets", [&](const std::string&) { return JsonReply(sets.Names()); });
    server.Post("tiles", [&](const std::string& body) {
        const Json have = Json::parse(body, nullptr, false);
        const auto written = sets.Written(); // before the names: it holds their indices
        return have.is_number_unsigned()
                   ? JsonReply(tiles.Behind(have.get<std::size_t>(), sets.Names(), written))
                   : Refused(400);
    });
    server.Post("cancel", [&](const std::string& body) {
        const Json number = Json::parse(body, nullptr, false);
        if (!number.is_number_unsigned()) {
            return Refused(400);
        }
        cancelled = number.get<std::uint64_t>();
        return JsonReply(nullptr);
    });
    server.Post("run", [&](const std::string& body) { return Run(body, sets, worker); });
    std::printf("%s\n", server.address().c_str());
    std::fflush(stdout);
    server.Run(kIdle);
}

#include "tools/view/live_view.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <optional>
#include <regex>
#include <string_view>

#include <sys/mman.h>

#include <fmt/format.h>

#include "host/picture/errors.h"
#include "host/picture/nv12.h"
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
// options, or lists of values. The page names none of the files, but where they stand in the lists.
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

// The set of this name. Throws UseError if a file of it is a link out of the place of the sets.
DumpSet FindSetWithin(const fs::path& place, const std::string& name) {
    const fs::path folder =
        fs::canonical(fs::is_directory(place) ? place : fs::absolute(place).parent_path());
    const auto check = [&folder](const fs::path& file) {
        if (*fs::canonical(file).lexically_relative(folder).begin() == "..") {
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

// Tells a set from another one and from what it was before.
std::string FactsOf(const DumpSet& set) {
    std::string facts;
    for (const auto& file : set.files) {
        if (file) {
            facts += fmt::format("{} {} {}\n", file->path.string(), file->bytes,
                                 fs::last_write_time(file->path).time_since_epoch().count());
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
            const std::string command = "bokehnode replay " + Quoted(job.substr(0, end));
            if (changes.is_object()) {
                return Replay(set, request, command, answer);
            }
            const Inspection inspection = Inspect(set);
            answer.AddReport(ReportOf(inspection), command);
        } catch (const std::bad_alloc&) {
            replay_.reset();
            answer.Add({{"error", "out of memory"}});
        } catch (const std::exception& error) {
            answer.Add({{"error", error.what()}});
        }
        return true;
    }

private:
    bool Replay(const DumpSet& set, const Json& request, std::string command, Answer& answer) {
        const std::vector<std::string> words = WordsFor(request["changes"], options_);
        for (const std::string& word : words) {
            command += " " + Quoted(word);
        }
        ReplayOptions options = parse_(words);
        options.dump = request.value("save", false) && !options_.output.empty();
        options.trace = options_.trace;
        const auto libraries = std::pair(options.node, options.engine);
        if (libraries_ && *libraries_ != libraries) {
            return false; // a library stays loaded to the end of its process
        }
        libraries_ = libraries;
        if (const std::string facts = FactsOf(set); !replay_ || facts != facts_) {
            replay_.reset();
            replay_.emplace(set);
            facts_ = facts;
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
        answer.AddReport(ReportOf(inspection, replayed), command);
        return true;
    }

    // Writes the files that `replay -o` would, into the first folder STEM-N that there is not yet.
    std::string Save(const DumpSet& set, const Replayed& replayed) const {
        RefuseSetsFolder(options_.output, set);
        fs::path place;
        for (int i = 1; place.empty() || fs::exists(place); ++i) {
            place = options_.output / fmt::format("{}-{}", set.stem, i);
        }
        OutputFolder folder(place);
        WriteFiles(folder, set.stem, replayed);
        folder.Commit();
        return place.string();
    }

    const ParseReplay& parse_;
    const ViewOptions& options_;
    const CancelledJob& cancelled_;
    std::optional<std::pair<fs::path, fs::path>> libraries_; // node and engine of this process
    std::string facts_;                                      // of the set that is replayed
    std::optional<LoadedReplay> replay_;
};

// The names of the sets of the place. A set is added when two looks in a row have found the same
// files, of the same sizes and times: while it is copied it grows.
class Sets {
public:
    explicit Sets(const fs::path& place) : place_(place) {
        for (const DumpSet& set : FindDumpSets({place})) {
            seen_[NameOf(set)] = FactsOf(set);
        }
        Look();
    }

    Json Names() {
        const std::lock_guard lock(mutex_);
        Look();
        return names_;
    }

    // Nothing if there is no such set.
    std::optional<std::string> At(const Json& index) {
        const std::lock_guard lock(mutex_);
        return index.is_number_unsigned() && index < names_.size()
                   ? std::optional(names_[index.get<std::size_t>()])
                   : std::nullopt;
    }

private:
    static std::string NameOf(const DumpSet& set) {
        return fs::absolute(set.name()).lexically_normal().string();
    }

    void Look() {
        std::map<std::string, std::string> seen;
        const std::string mistake = MistakeIn([&] {
            for (const DumpSet& set : FindDumpSets({place_})) {
                const std::string name = NameOf(set);
                if (std::ranges::find(names_, name) != names_.end()) {
                    continue;
                }
                seen[name] = FactsOf(set);
                if (seen_[name] == seen[name]) {
                    names_.push_back(name);
                }
            }
        });
        if (mistake.empty()) { // otherwise a file went while its folder was read
            seen_ = std::move(seen);
        }
    }

    fs::path place_;
    std::mutex mutex_;
    std::vector<std::string> names_;          // in the order in which they appeared
    std::map<std::string, std::string> seen_; // facts of sets that may still grow
};

// The tiles of the page of many, each made when a page first asks for it.
class Tiles {
public:
    // `worker`: does Inspected().
    Tiles(const fs::path& place, Worker& worker) : place_(fs::absolute(place)), worker_(worker) {}

    // How many sets there are, and some of the tiles behind those that the page has. Sets are
    // inspected for a moment only, and for one page at a time, so that no request takes long.
    Json Behind(std::size_t have, const Json& sets) {
        using Clock = std::chrono::steady_clock;
        constexpr std::size_t kMost = 100;
        const auto end = Clock::now() + std::chrono::milliseconds(200);
        Json some = Json::array();
        if (const std::unique_lock lock(mutex_, std::try_to_lock); lock) {
            while (tiles_.size() < sets.size() && Clock::now() < end) {
                tiles_.push_back(Inspect(sets[tiles_.size()]));
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

    Json Inspect(const std::string& set) const {
        Json tile;
        try {
            worker_.Do(set, [&](std::string_view part) { tile = Json::parse(part); });
        } catch (const std::exception& error) {
            tile = Failed(error.what());
        }
        tile["title"] = fs::path(set).lexically_relative(place_).string();
        tile["page"] = fmt::format("live?{}", tiles_.size());
        return tile;
    }

    const fs::path place_;
    Worker& worker_;
    std::mutex mutex_;
    std::vector<Json> tiles_; // in the order of the sets
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
    if (!options.output.empty()) {
        for (const DumpSet& set : FindDumpSets({options.place})) {
            RefuseSetsFolder(options.output, set);
        }
    }
    if (!options.trace.empty()) {
        WriteTrace(options.trace, {}); // which each run adds to
    }
}

} // namespace

void ServeLiveView(const ViewOptions& options, const ParseReplay& parse) {
    Sets sets(options.place);
    PrepareOutputs(options);
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
        return have.is_number_unsigned()
                   ? JsonReply(tiles.Behind(have.get<std::size_t>(), sets.Names()))
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

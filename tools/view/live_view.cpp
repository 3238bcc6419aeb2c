#include "tools/view/live_view.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <optional>
#include <string_view>

#include <fmt/format.h>

#include "host/picture/errors.h"
#include "tools/inspect/inspection.h"
#include "tools/report/page_text.h"
#include "tools/report/report_contents.h"
#include "tools/run/call_trace.h"
#include "tools/view/server.h"
#include "tools/view/worker.h"

namespace fs = std::filesystem;
namespace {

constexpr std::chrono::minutes kIdle(5); // a browser lets hidden pages ask once a minute

// Numbers that the page may change: their names in the page, the options, and what stands between
// several numbers of one option.
struct NumberOption {
    const char* name;
    const char* option;
    char separator;
};
constexpr NumberOption kNumbers[] = {{"focus", "--focus", ','},
                                     {"blur", "--blur", ','},
                                     {"rotation", "--rotation", ','},
                                     {"debugView", "--debug-view", ','},
                                     {"log", "--log", ','},
                                     {"faceRotation", "--face-rotation", ','},
                                     {"mainCrop", "--main-crop", 'x'},
                                     {"auxCrop", "--aux-crop", 'x'}};

// "12,30" for one number or a list of numbers.
std::string NumbersText(const Json& value, char separator) {
    const Json list = value.is_array() ? value : Json::array({value});
    std::string text;
    for (const Json& number : list) {
        if (!number.is_number_integer()) {
            Refuse("changes", "whole numbers", "something else");
        }
        text += fmt::format("{}{}", text.empty() ? "" : std::string(1, separator),
                            number.get<std::int64_t>());
    }
    return text;
}

// What stands behind `bokehnode replay SET` for the changes that the page asks for. The page names
// none of the files, but where they stand in the lists.
std::vector<std::string> WordsFor(const Json& changes, const ViewOptions& options) {
    std::vector<std::string> words;
    const auto value = [&changes](const char* name) { return changes.value(name, Json()); };
    for (const auto& [name, option, separator] : kNumbers) {
        if (const Json given = value(name); !given.is_null()) {
            words.push_back(fmt::format("{}={}", option, NumbersText(given, separator)));
        }
    }
    if (const Json faces = value("faces"); faces.is_array()) {
        for (const Json& face : faces) {
            words.push_back("--face=" + NumbersText(face, ','));
        }
    }
    for (const auto& [name, option] :
         {std::pair("noFaces", "--no-faces"), std::pair("skipBokeh", "--skip-bokeh")}) {
        if (value(name) == true) {
            words.emplace_back(option);
        }
    }
    for (const auto& [name, option, files] :
         {std::tuple("calibration", "--calibration", &options.calibrations),
          std::tuple("node", "--node", &options.nodes),
          std::tuple("engine", "--engine", &options.engines)}) {
        const Json given = value(name);
        const std::size_t index = given.is_number_unsigned() ? given.get<std::size_t>() : 0;
        if (index < files->size()) {
            words.emplace_back(option);
            words.push_back(fs::absolute((*files)[index]).string());
        }
    }
    for (const std::string& property : options.properties) {
        words.push_back("--set=" + property);
    }
    return words;
}

// A word as a shell reads it.
std::string Quoted(const std::string& word) {
    constexpr std::string_view kPlain =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._/,=+:@";
    if (!word.empty() && word.find_first_not_of(kPlain) == std::string::npos) {
        return word;
    }
    std::string quoted = "'";
    for (const char character : word) {
        quoted += character == '\'' ? "'\\''" : std::string(1, character);
    }
    return quoted + "'";
}

// The same samples have the same key.
std::string KeyOf(const host::Image& samples) {
    const auto& bytes = samples.bytes();
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    return fmt::format("{}x{}-{:016x}", samples.width(), samples.height(),
                       std::hash<std::string_view>()(text));
}

std::string Packed(const Json& json, std::string_view blobs = {}) {
    const std::string text = JsonText(json, -1);
    const auto length = static_cast<std::uint32_t>(text.size());
    std::string packed(sizeof length, '\0');
    std::memcpy(packed.data(), &length, sizeof length); // little-endian, as all our machines
    packed.reserve(packed.size() + text.size() + blobs.size());
    return packed.append(text).append(blobs);
}

// The report's data and, behind it, the samples of those pictures that the page does not have yet.
std::string Packed(const Report& report, const Json& have, const std::string& command) {
    Json data = report.data();
    Json list = Json::array();
    std::string blobs;
    std::map<std::string, std::string> keys; // by the first part's name
    for (const Report::Numbers& numbers : report.numbers()) {
        keys[numbers.parts.front()] = KeyOf(numbers.samples);
    }
    std::vector<std::string> sent;
    const auto take = [&](Json& entry) {
        const std::string part = entry["parts"].front();
        const std::string& key = keys[part];
        entry["parts"] = {key};
        entry.erase("reduced");
        if (std::ranges::find(have, Json(key)) != have.end() ||
            std::ranges::find(sent, key) != sent.end()) {
            return;
        }
        sent.push_back(key);
        const auto numbers = std::ranges::find_if(
            report.numbers(), [&](const auto& one) { return one.parts.front() == part; });
        const auto& bytes = numbers->samples.bytes();
        list.push_back({{"key", key},
                        {"size", entry["size"]},
                        {"pitch", numbers->samples.pitch()},
                        {"bytes", bytes.size()}});
        blobs.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    };
    std::ranges::for_each(data["pictures"], take);
    if (!data["disparity"].is_null()) {
        take(data["disparity"]);
    }
    return Packed({{"data", data}, {"command", command}, {"blobs", list}}, blobs);
}

// A job's fields, none of which holds a zero.
std::string Joined(const std::vector<std::string>& fields) {
    return fmt::format("{}", fmt::join(fields, std::string_view("\0", 1)));
}

std::vector<std::string> Split(const std::string& job) {
    std::vector<std::string> fields(1);
    for (const char character : job) {
        if (character == '\0') {
            fields.emplace_back();
        } else {
            fields.back() += character;
        }
    }
    return fields;
}

// In the job's process. Fields: what the page has and whether to replay, the set, and what stands
// behind `replay SET`.
std::string Answer(const std::string& job, const ParseReplay& parse, int timeout) {
    try {
        std::vector<std::string> fields = Split(job);
        const Json page = Json::parse(fields[0]);
        const Json& have = page["have"];
        const DumpSet set = FindDumpSet(fields[1]);
        fields.erase(fields.begin());
        std::string command = "bokehnode replay";
        for (const std::string& word : fields) {
            command += " " + Quoted(word);
        }
        fields.erase(fields.begin());
        if (page["changes"].is_null()) {
            return Packed(ReportOf(Inspect(set)), have, command);
        }
        ReplayOptions options = parse(fields);
        options.timeout = timeout;
        const Replayed replayed = Replay(set, options);
        Inspection inspection;
        inspection.set = set;
        Report report = ReportOf(inspection, replayed);
        report.AddSection("Milliseconds", StepsJson(replayed.calls));
        return Packed(report, have, command);
    } catch (const std::exception& error) {
        return Packed({{"error", error.what()}});
    }
}

// The sets of the place. A set is added when two looks in a row have found the same files of the
// same sizes: while it is copied it grows.
class Sets {
public:
    explicit Sets(const fs::path& place) : place_(place) {
        for (const DumpSet& set : FindDumpSets({place})) {
            Add(set);
        }
    }

    Json Names() {
        const std::lock_guard lock(mutex_);
        Look();
        Json names = Json::array();
        for (const fs::path& set : sets_) {
            names.push_back(set.string());
        }
        return names;
    }

    // Nothing if there is no such set.
    std::optional<fs::path> At(const Json& index) {
        const std::lock_guard lock(mutex_);
        if (!index.is_number_unsigned() || index.get<std::size_t>() >= sets_.size()) {
            return std::nullopt;
        }
        return sets_[index.get<std::size_t>()];
    }

private:
    void Add(const DumpSet& set) { sets_.push_back(fs::absolute(set.name()).lexically_normal()); }

    void Look() {
        std::map<fs::path, std::uintmax_t> sizes;
        const std::string mistake = MistakeIn([&] {
            for (const DumpSet& set : FindDumpSets({place_})) {
                const fs::path name = fs::absolute(set.name()).lexically_normal();
                if (std::ranges::find(sets_, name) != sets_.end()) {
                    continue;
                }
                bool same = true;
                for (const auto& file : set.files) {
                    if (file) {
                        sizes[file->path] = file->bytes;
                        same =
                            same && seen_.contains(file->path) && seen_[file->path] == file->bytes;
                    }
                }
                if (same) {
                    Add(set);
                }
            }
        });
        if (mistake.empty()) { // otherwise a file went while its folder was read
            seen_ = std::move(sizes);
        }
    }

    fs::path place_;
    std::mutex mutex_;
    std::vector<fs::path> sets_;              // in the order in which they appeared
    std::map<fs::path, std::uintmax_t> seen_; // sizes of the files of sets that may still grow
};

Json NamesOf(const std::vector<fs::path>& files) {
    Json names = Json::array();
    for (const fs::path& file : files) {
        names.push_back(file.string());
    }
    return names;
}

Json PageData(const ViewOptions& options, const Json& sets) {
    Report report("view", options.place.string());
    report.SetVerdict(Report::Kind::kNote, "reading the set");
    Json data = report.data();
    data["live"] = {{"sets", sets},
                    {"files",
                     {{"calibration", NamesOf(options.calibrations)},
                      {"node", NamesOf(options.nodes)},
                      {"engine", NamesOf(options.engines)}}}};
    return data;
}

constexpr char kJson[] = "application/json";
constexpr char kBytes[] = "application/octet-stream";

Server::Reply Run(const std::string& body, const ViewOptions& options, Sets& sets, Worker& worker) {
    const Json request = Json::parse(body, nullptr, false);
    if (!request.is_object() || !request.value("have", Json::array()).is_array()) {
        return {400, kJson, ""};
    }
    const auto set = sets.At(request.value("set", Json()));
    if (!set) {
        return {404, kJson, ""};
    }
    const Json changes = request.value("changes", Json());
    const Json page{{"have", request.value("have", Json::array())},
                    {"changes", changes.is_object() ? changes : Json()}};
    std::vector<std::string> fields{JsonText(page, -1), set->string()};
    try {
        if (changes.is_object()) {
            std::ranges::move(WordsFor(changes, options), std::back_inserter(fields));
        }
        std::optional<std::string> answer = worker.Do(Joined(fields));
        return answer ? Server::Reply{200, kBytes, std::move(*answer)}
                      : Server::Reply{409, kJson, ""};
    } catch (const std::exception& error) {
        return {200, kBytes, Packed({{"error", error.what()}})};
    }
}

} // namespace

void ServeLiveView(const ViewOptions& options, const ParseReplay& parse) {
    Sets sets(options.place);
    Worker worker([&](const std::string& job) { return Answer(job, parse, options.timeout); });
    Server server;
    server.Get("", [&](const std::string&) {
        return Server::Reply{
            200, "text/html; charset=utf-8",
            LivePage(PageData(options, sets.Names()), server.Policy(), server.nonce())};
    });
    server.Get("sets", [&](const std::string&) {
        return Server::Reply{200, kJson, JsonText(sets.Names(), -1)};
    });
    server.Post("run", [&](const std::string& body) { return Run(body, options, sets, worker); });
    std::printf("%s\n", server.address().c_str());
    std::fflush(stdout);
    server.Run(kIdle);
}

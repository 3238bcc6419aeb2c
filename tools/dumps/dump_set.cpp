#include "tools/dumps/dump_set.h"

#include <algorithm>
#include <map>
#include <set>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "host/picture/errors.h"

namespace fs = std::filesystem;

namespace {

// A map by folder and stem gives the sets in the order of their names on every file system.
using SetKey = std::pair<fs::path, std::string>;
using Sets = std::map<SetKey, DumpSet>;

void Add(Sets& sets, const fs::path& path) {
    const auto name = ParseDumpName(path.filename().string());
    std::error_code error;
    if (!name || !fs::is_regular_file(path, error)) {
        return;
    }
    DumpSet& set = sets[{path.parent_path(), name->stem}];
    set.folder = path.parent_path();
    set.stem = name->stem;
    auto& place = set.files[static_cast<std::size_t>(name->role)];
    DumpFile file{path, *name, fs::file_size(path, error)};
    if (!place) {
        place = std::move(file);
        return;
    }
    // Of two captures of one second, the later one has overwritten the files whose names are the
    // same, so that its files belong together.
    if (fs::last_write_time(path, error) > fs::last_write_time(place->path, error)) {
        std::swap(*place, file);
    }
    set.surplus.push_back(file.path);
}

void AddFolder(Sets& sets, const fs::path& folder) {
    // Error codes are used, so that the message can name the folder that could not be read.
    std::error_code error;
    fs::recursive_directory_iterator entries(folder, error);
    fs::path reading = folder; // the path that an error concerns
    while (!error && entries != fs::recursive_directory_iterator()) {
        reading = entries->path();
        Add(sets, reading);
        entries.increment(error);
    }
    if (error) {
        Cannot("be read", reading, error.message());
    }
}

// The folder's sets that have this stem. Looks into this folder only, since sets below it may have
// the same stem.
Sets SetsOfStem(const fs::path& folder, const std::string& stem) {
    Sets sets;
    std::error_code error;
    for (fs::directory_iterator entries(folder.empty() ? "." : folder, error), end;
         !error && entries != end; entries.increment(error)) {
        const auto name = ParseDumpName(entries->path().filename().string());
        if (name && name->stem == stem) {
            Add(sets, folder / entries->path().filename());
        }
    }
    for (auto& [key, set] : sets) {
        std::ranges::sort(set.surplus);
    }
    return sets;
}

Sets SetsOf(const fs::path& place) {
    Sets sets;
    if (fs::is_directory(place)) {
        // "DIR/" and "DIR" must give the same paths, or a set would be found twice.
        AddFolder(sets, place.has_filename() ? place : place.parent_path());
        if (sets.empty()) {
            Refuse(place.string(), "a folder with dump sets", "none in it");
        }
        return sets;
    }
    const auto name = ParseDumpName(place.filename().string());
    sets = SetsOfStem(place.parent_path(), name ? name->stem : place.filename().string());
    if (sets.empty()) {
        Refuse(place.string(), "a folder or a file of a dump set",
               fs::exists(place) ? "a file of another name" : "nothing");
    }
    return sets;
}

} // namespace

std::string DumpSet::name() const {
    std::string name = (folder / stem).string();
    // A file name may hold a newline, which would make a second line of a table.
    std::ranges::replace(name, '\n', '?');
    return name;
}

std::string CalibrationFileName(const std::string& stem) {
    return stem + "_calibration.bin";
}

fs::path CalibrationBeside(const DumpSet& set) {
    const fs::path file = set.folder / CalibrationFileName(set.stem);
    return fs::is_regular_file(file) ? file : fs::path();
}

std::vector<DumpSet> FindDumpSets(const std::vector<fs::path>& places,
                                  std::vector<RefusedPlace>& refused) {
    Sets all;
    for (const fs::path& place : places) {
        // Merged by folder and stem, so that a set that two places name is taken once.
        const std::string mistake = MistakeIn([&] { all.merge(SetsOf(place)); });
        if (!mistake.empty()) {
            refused.push_back({place, mistake});
        }
    }
    std::vector<DumpSet> list;
    for (auto& [key, set] : all) {
        list.push_back(std::move(set));
    }
    return list;
}

std::vector<DumpSet> FindDumpSets(const std::vector<fs::path>& places) {
    std::vector<RefusedPlace> refused;
    std::vector<DumpSet> sets = FindDumpSets(places, refused);
    if (!refused.empty()) {
        throw UseError(refused.front().mistake);
    }
    return sets;
}

DumpSet FindDumpSet(const fs::path& place) {
    std::vector<DumpSet> sets = FindDumpSets({place});
    if (sets.size() != 1) {
        Refuse(place.string(), "one dump set",
               fmt::format("{}; name a file of one, or use --all", sets.size()));
    }
    return std::move(sets.front());
}

std::vector<std::string> DistinctNames(const std::vector<DumpSet>& sets) {
    std::vector<std::string> names;
    std::set<std::string> taken;
    for (const DumpSet& set : sets) {
        std::string name = set.stem;
        for (int i = 2; !taken.insert(name).second; ++i) {
            name = fmt::format("{}-{}", set.stem, i);
        }
        names.push_back(name);
    }
    return names;
}

std::optional<DumpSet> SetOfFile(const fs::path& file) {
    const auto name = ParseDumpName(file.filename().string());
    if (!name) {
        return std::nullopt;
    }
    Sets sets = SetsOfStem(file.parent_path(), name->stem);
    if (sets.empty()) {
        return std::nullopt;
    }
    return std::move(sets.begin()->second);
}

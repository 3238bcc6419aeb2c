#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "tools/dumps/dump_name.h"

struct DumpFile {
    std::filesystem::path path;
    DumpName name;
    std::uintmax_t bytes = 0;
};

// The files of one capture. Any of them may be missing.
struct DumpSet {
    std::filesystem::path folder;
    std::string stem;
    std::array<std::optional<DumpFile>, 5> files; // by role
    // Two captures of one second have the same stem. Of the files of one role, `files` holds the
    // one that was written last and this list the others.
    std::vector<std::filesystem::path> surplus;

    const std::optional<DumpFile>& file(DumpRole role) const {
        return files[static_cast<std::size_t>(role)];
    }
    // For messages and results, of one line.
    std::string name() const;
};

// The calibration file that `render --dump` leaves beside a set, so that it is replayed with the
// same one; a phone leaves none. Empty if there is none.
std::filesystem::path CalibrationBeside(const DumpSet& set);
// Its name, by the set's stem.
std::string CalibrationFileName(const std::string& stem);

// The sets in these places, sorted by name. A place is a folder, for all sets in it and in the
// folders below, or a file of a set, or a set's "folder/stem". Throws UseError for a place that
// does not exist, holds no set or cannot be read.
std::vector<DumpSet> FindDumpSets(const std::vector<std::filesystem::path>& places);

struct RefusedPlace {
    std::filesystem::path place;
    std::string mistake;
};

// The same, but a place that would throw is added to `refused`, and the other places are read.
std::vector<DumpSet> FindDumpSets(const std::vector<std::filesystem::path>& places,
                                  std::vector<RefusedPlace>& refused);

// The only set in this place. Throws UseError if there is none or more than one.
DumpSet FindDumpSet(const std::filesystem::path& place);

// A name for the results of each set: its stem, with a number appended if sets of several folders
// share it. The names depend on the sets and their order alone.
std::vector<std::string> DistinctNames(const std::vector<DumpSet>& sets);

// The set of a dump, by the dump's name; the file itself is not read. Nothing if the name is not
// a dump's or the folder has no such set.
std::optional<DumpSet> SetOfFile(const std::filesystem::path& file);

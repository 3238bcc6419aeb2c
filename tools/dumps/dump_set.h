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
    // Further files of the same role and second, of another capture: only the latest of a role is
    // in `files`.
    std::vector<std::filesystem::path> surplus;

    const std::optional<DumpFile>& file(DumpRole role) const {
        return files[static_cast<std::size_t>(role)];
    }
    // As messages and results call it.
    std::string name() const { return (folder / stem).string(); }
};

// The sets in these places, sorted by name: a folder stands for all sets in it and below, a file
// for the set that it belongs to, and so does "folder/stem". Throws UseError for a place that does
// not exist, holds no set or cannot be read.
std::vector<DumpSet> FindDumpSets(const std::vector<std::filesystem::path>& places);

struct RefusedPlace {
    std::filesystem::path place;
    std::string mistake;
};

// The same, where a place that would throw is listed instead and the others are read.
std::vector<DumpSet> FindDumpSets(const std::vector<std::filesystem::path>& places,
                                  std::vector<RefusedPlace>& refused);

// The one set of this place; UseError where there are more.
DumpSet FindDumpSet(const std::filesystem::path& place);

// For each set a name for its results: the stem, with a number where sets of several folders share
// it. The same sets give the same names.
std::vector<std::string> DistinctNames(const std::vector<DumpSet>& sets);

// The set that a single dump belongs to, of which the file need not be readable; nothing for a file
// with another kind of name.
std::optional<DumpSet> SetOfFile(const std::filesystem::path& file);

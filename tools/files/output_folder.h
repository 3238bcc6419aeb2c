#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// The files of one run, which appear in their folder together or not at all: each is written under
// a temporary name beside its place, and Commit renames them. Without Commit all files are removed
// again, and so are the folders made for them. Errors are UseErrors that name the file.
class OutputFolder {
public:
    // Makes the folder and those above it where missing. Empty: the working folder.
    explicit OutputFolder(const std::filesystem::path& folder);
    ~OutputFolder();
    OutputFolder(const OutputFolder&) = delete;
    OutputFolder& operator=(const OutputFolder&) = delete;

    const std::filesystem::path& path() const { return folder_; }

    void Write(const std::string& name, std::span<const std::uint8_t> bytes);
    void Write(const std::string& name, std::string_view text);
    // To the end of a file that was written before.
    void Append(const std::string& name, std::string_view text);

    // On Commit, removes the file of this name that an earlier run may have left.
    void Drop(const std::string& name);

    // Throws where something else than a file takes the place of one. Commit begins with it.
    void CheckPlaces() const;
    void Commit();

    // The committed files, below the folder as the caller named it.
    std::vector<std::string> written() const;

private:
    void StopWatching();

    using Pending = std::pair<std::filesystem::path, std::filesystem::path>; // temporary, final

    std::filesystem::path named_; // as the caller did
    std::filesystem::path folder_;
    std::vector<std::filesystem::path> made_; // outermost first
    std::vector<Pending> pending_;
    std::vector<std::filesystem::path> dropped_;
    bool committed_ = false;
};

// Writes all bytes to an open file, where write(2) may take fewer. False: errno says why.
bool WriteAll(int file, std::span<const std::uint8_t> bytes);

// One file alone. Returns what was written, as OutputFolder::written.
std::vector<std::string> WriteFile(const std::filesystem::path& file,
                                   std::span<const std::uint8_t> bytes);

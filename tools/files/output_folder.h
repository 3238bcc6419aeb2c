#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// The files of one run, which appear in their folder together or not at all: each is written under
// a temporary name beside its place, Commit renames them. Without Commit everything is taken back,
// the folders made for it included. Errors are UseErrors that name the file.
class OutputFolder {
public:
    // Makes the folder and those above it where missing.
    explicit OutputFolder(const std::filesystem::path& folder);
    ~OutputFolder();
    OutputFolder(const OutputFolder&) = delete;
    OutputFolder& operator=(const OutputFolder&) = delete;

    const std::filesystem::path& path() const { return folder_; }

    void Write(const std::string& name, std::span<const std::uint8_t> bytes);
    void Write(const std::string& name, std::string_view text);

    // On Commit, removes what an earlier run left under this name and this one does not have.
    void Drop(const std::string& name);

    void Commit();

private:
    void StopWatching();

    using Pending = std::pair<std::filesystem::path, std::filesystem::path>; // temporary, final

    std::filesystem::path folder_;
    std::vector<std::filesystem::path> made_; // outermost first
    std::vector<Pending> pending_;
    std::vector<std::filesystem::path> dropped_;
    bool committed_ = false;
};

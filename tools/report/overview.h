#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "tools/report/report.h"

// The page of many captures: FILE.html has a tile for each, which opens the capture's own page in
// the folder FILE.sets beside it. Each capture has a page of its own since one file with every
// pixel of hundreds of captures would be too large for a browser.
class OverviewFile {
public:
    // Makes the folders. `columns`: tiles in a row, which keep their order; 0: as many as fit, the
    // worst first. Throws UseError if no page can stand there.
    OverviewFile(const std::filesystem::path& file, const std::string& command,
                 const std::string& title, std::size_t columns = 0);
    // A page of `things` that have no pages of their own, and what was found over all of them.
    OverviewFile(const std::filesystem::path& file, const std::string& command,
                 const std::string& title, const std::string& things);
    ~OverviewFile(); // a folder without pages does not stay
    OverviewFile(const OverviewFile&) = delete;
    OverviewFile& operator=(const OverviewFile&) = delete;

    // Writes the page of one capture, also from a child process. `name`: distinct, the file's.
    // Returns the capture's tile.
    nlohmann::ordered_json WritePage(const std::string& name, const std::string& title,
                                     const Report& report) const;
    // Whether this is what WritePage returns; what a file holds may be damaged.
    static bool IsTile(const nlohmann::ordered_json& tile);
    // Whether this tile's page is there, and not one that another run has put in its place.
    bool HasPage(const nlohmann::ordered_json& tile) const;

    // A tile whose page is not there opens nothing.
    void Add(nlohmann::ordered_json tile);
    // A capture or thing of which no more is known. Without `facts` the tile says what its title
    // tells of a capture.
    void AddPlain(const std::string& title, Report::Kind kind, const std::string& verdict,
                  const std::string& facts = "");
    void SetFindings(const std::vector<std::string>& findings) { data_["findings"] = findings; }

    void Commit();
    std::vector<std::string> written() const;

private:
    OverviewFile(const std::filesystem::path& file, nlohmann::ordered_json data);
    std::filesystem::path PageOf(const nlohmann::ordered_json& tile) const;

    std::filesystem::path file_;
    std::filesystem::path sets_; // empty where no page has pages of its own below it
    OutputFolder folder_;
    nlohmann::ordered_json data_; // for the page's script
};

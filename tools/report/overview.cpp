#include "tools/report/overview.h"

#include <system_error>
#include <utility>

#include "host/picture/errors.h"
#include "tools/files/progress.h"
#include "tools/replay/stored_result.h"
#include "tools/report/page_text.h"

namespace fs = std::filesystem;
namespace {

// The beginning of a page tells what was run, with which result, and its pictures need not be read.
std::string DigestOf(const fs::path& page) {
    return Digest(page, 1 << 16);
}

} // namespace

OverviewFile::OverviewFile(const fs::path& file, nlohmann::ordered_json data)
    : file_(file), folder_(file.parent_path()), data_(std::move(data)) {
    data_["tiles"] = nlohmann::ordered_json::array();
    if (fs::is_directory(file)) {
        Refuse(file.string(), "a file", "a folder");
    }
}

OverviewFile::OverviewFile(const fs::path& file, const std::string& command,
                           const std::string& title, std::size_t columns)
    : OverviewFile(file, {{"command", command}, {"title", title}, {"columns", columns}}) {
    sets_ = fs::path(file).replace_extension(".sets");
    OutputFolder(sets_).Commit(); // makes it, or throws
}

OverviewFile::OverviewFile(const fs::path& file, const std::string& command,
                           const std::string& title, const std::string& things)
    : OverviewFile(file, {{"command", command}, {"title", title}, {"things", things}}) {}

OverviewFile::~OverviewFile() {
    std::error_code notEmpty;
    fs::remove(sets_, notEmpty);
}

nlohmann::ordered_json OverviewFile::WritePage(const std::string& name, const std::string& title,
                                               const Report& report) const {
    ReportFile page(sets_ / (name + ".html"));
    page.Write(report);
    page.Commit();
    nlohmann::ordered_json tile = report.Tile();
    tile["title"] = title;
    tile["file"] = name;
    tile["digest"] = DigestOf(PageOf(tile));
    return tile;
}

bool OverviewFile::IsTile(const nlohmann::ordered_json& tile) {
    const auto text = [](const nlohmann::ordered_json& json, const char* name) {
        return json.is_object() && json.contains(name) && json[name].is_string();
    };
    // The page's name must not lead out of the folder.
    return text(tile, "title") && text(tile, "file") && text(tile, "digest") &&
           tile.contains("verdict") && text(tile["verdict"], "kind") &&
           text(tile["verdict"], "text") &&
           tile["file"].get<std::string>().find('/') == std::string::npos;
}

bool OverviewFile::HasPage(const nlohmann::ordered_json& tile) const {
    return IsTile(tile) && tile["digest"] == DigestOf(PageOf(tile));
}

fs::path OverviewFile::PageOf(const nlohmann::ordered_json& tile) const {
    return sets_ / (tile["file"].get<std::string>() + ".html");
}

void OverviewFile::Add(nlohmann::ordered_json tile) {
    tile.erase("page");
    if (HasPage(tile)) {
        tile["page"] = LinkTo(PageOf(tile), folder_.path());
    }
    data_["tiles"].push_back(std::move(tile));
}

void OverviewFile::AddPlain(const std::string& title, Report::Kind kind, const std::string& verdict,
                            const std::string& facts) {
    // Not by Add(): a page of this name would be an earlier run's.
    data_["tiles"].push_back({{"title", title},
                              {"verdict", {{"kind", NameOf(kind)}, {"text", verdict}}},
                              {"findings", 0}});
    if (!facts.empty()) {
        data_["tiles"].back()["facts"] = facts;
    }
}

void OverviewFile::Commit() {
    // This page is written last: the pages that it links to are in their places by then.
    const Progress progress("writing the report");
    folder_.Write(file_.filename().string(), OverviewPage(data_));
    folder_.Commit();
}

std::vector<std::string> OverviewFile::written() const {
    std::vector<std::string> written{file_.string()};
    if (!sets_.empty() && !fs::is_empty(sets_)) {
        written.push_back(sets_.string());
    }
    return written;
}

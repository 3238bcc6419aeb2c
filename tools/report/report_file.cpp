#include "tools/report/report_file.h"

#include <CLI/App.hpp>
#include <CLI/Option.hpp>

#include "tools/errors.h"
#include "tools/progress.h"
#include "tools/report/report_page.h"

namespace fs = std::filesystem;

CLI::Option* AddReportOption(CLI::App& command, fs::path& file) {
    return command
        .add_option("--report", file,
                    "write a page for a browser that shows all of it, ending\nin .html")
        ->type_name("FILE")
        ->check([](const std::string& text) {
            // Nobody's picture is to be lost to a forgotten word on the command line.
            const std::string ending = fs::path(text).extension().string();
            return ending == ".html" || ending == ".htm"
                       ? std::string()
                       : "expected a file name that ends in .html, found \"" + text + "\"";
        });
}

ReportFile::ReportFile(const fs::path& file)
    : folder_(fs::absolute(file).parent_path()), name_(file.filename().string()) {
    if (fs::is_directory(folder_.path() / name_)) {
        throw UseError(file.string() + ": expected a file, found a folder");
    }
}

void ReportFile::Write(const Report& report) {
    const Progress progress("writing the report");
    folder_.Write(name_, PageOf(report, folder_.path()));
}

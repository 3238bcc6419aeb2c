#include "tools/report/report_file.h"

#include "host/picture/errors.h"
#include "tools/files/progress.h"
#include "tools/report/report_page.h"

namespace fs = std::filesystem;

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

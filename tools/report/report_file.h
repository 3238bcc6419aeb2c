#pragma once

#include <filesystem>

#include "tools/files/output_folder.h"
#include "tools/report/report.h"

// The page on its way to its place: there once committed, and not before.
class ReportFile {
public:
    // Makes the folder where missing. Throws UseError where no page can stand there.
    explicit ReportFile(const std::filesystem::path& file);

    void Write(const Report& report);
    void Commit() { folder_.Commit(); }

private:
    OutputFolder folder_;
    std::string name_;
};

#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "host/log/log_control.h"
#include "platform/chi_metadata.h"
#include "tools/dumps/parameter_text.h"
#include "tools/run/run_options.h"

// What a report shows. Whatever is not known stays empty, and the page leaves it out. Places are
// pixels of the main image.

// A picture as the page holds it: scaled down where it is larger than a page needs.
struct ReportPicture {
    std::string name; // "main", "aux", "output", "dumped output"
    Size full;        // before scaling
    std::string uri;  // "data:" with the whole picture
};

// Numbers of 0 to 255 in the shades of a grey picture.
struct ReportMap {
    Size full;
    std::string uri;
    int low = 0; // the lowest and the highest number before scaling
    int high = 0;
};

// Two of the pictures, of one size, to look at against each other.
struct ReportComparison {
    std::string before;
    std::string after;
    ReportMap difference; // the largest of the planes' at each place
};

// What of a camera's sensor its image shows.
struct ReportCrop {
    Size part;
    std::optional<Size> sensor;
};

struct ReportOverlays {
    std::optional<Point> focus;
    std::optional<ChiWeightedRegion> afRegion;
    std::vector<DumpedFace> faces;
    std::optional<ReportCrop> mainCrop;
    std::optional<ReportCrop> auxCrop;
};

struct ReportFinding {
    enum class Kind { kGood, kNote, kWrong };

    Kind kind = Kind::kNote;
    std::string name; // of the problem, may be empty
    std::string text;
};

struct ReportSection {
    std::string title;
    nlohmann::ordered_json values; // an object
};

// A file to open beside the page.
struct ReportLink {
    std::string name;
    std::filesystem::path file;
};

struct Report {
    std::string command; // that made it
    std::string title;
    std::vector<ReportFinding> findings;
    std::vector<ReportPicture> pictures; // the main one first
    std::vector<ReportComparison> comparisons;
    std::optional<ReportMap> disparity; // of the main image's size; larger is nearer
    std::optional<int> focusDisparity;  // at the focus point
    ReportOverlays overlays;
    std::vector<ReportSection> sections;
    std::vector<host::LogRecord> log;
    std::vector<ReportLink> links;
};

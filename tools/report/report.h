#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "host/log/log_control.h"
#include "host/picture/geometry.h"
#include "host/picture/image.h"
#include "platform/chi_metadata.h"
#include "tools/dumps/parameter_text.h"
#include "tools/files/output_folder.h"

// A report: what is known of a run or a dump set, for a page that shows it. What is not added is
// left out of the page. Points and regions are pixels of the main image.
class Report {
public:
    // `command`: which made it.
    Report(const std::string& command, const std::string& title);

    enum class Kind { kGood, kNote, kWrong };

    void SetTitle(const std::string& title) { data_["title"] = title; }

    // The page's headline: all of it in a sentence.
    void SetVerdict(Kind kind, const std::string& text);

    // `name`: of the problem, may be empty.
    void AddFinding(Kind kind, const std::string& name, const std::string& text);

    // An NV12 image, every sample of it. Added images must outlive the report.
    void AddPicture(const std::string& name, const host::Image& image);
    // An image that is equal to an added one; costs no bytes in the page.
    void AddSamePicture(const std::string& name, const std::string& other);

    // Two added images, to be compared in the page, which opens with the first comparison. Nothing
    // happens if one is missing or their sizes differ. `framed`: equal pixels are expected, and a
    // frame shows where they are not.
    void AddComparison(const std::string& before, const std::string& after, bool framed);

    // To be drawn over the pictures.
    void SetFocus(Point focus);
    void SetAfRegion(const ChiWeightedRegion& region);
    void SetSensors(Size main, Size aux);
    // Focus, faces and crops, and a section of all parameters.
    void SetParameters(const DumpParameters& parameters);

    // The disparity, of which the first `width` bytes of each row belong to the main image. Focus
    // and parameters must have been set before.
    void SetDisparity(const host::Image& disparity, int width);

    // `values`: an object.
    void AddSection(const std::string& title, const nlohmann::ordered_json& values);
    void AddLog(const std::vector<host::LogRecord>& log);
    void AddLink(const std::string& name, const std::filesystem::path& file);

    // For the tile. `psnr`: in dB.
    void SetSimilarity(std::optional<double> psnr, std::optional<double> ssim) {
        psnr_ = psnr;
        ssim_ = ssim;
    }

    // What a page of many captures shows of this one: verdict, number of findings and their names,
    // size, blur, focus, PSNR, SSIM, and a thumbnail as Base64 of a JPEG file.
    nlohmann::ordered_json Tile() const;

    // What the page's script is given. Its pictures name their parts, which are those of
    // pictures().
    const nlohmann::ordered_json& data() const { return data_; }

    struct Picture {
        const host::Image* image;
        int width;                      // columns that are shown
        std::vector<std::string> parts; // bands of rows from top to bottom, each a file in the page
    };
    // Those that data() names.
    const std::vector<Picture>& pictures() const { return pictures_; }

    // The HTML page, which needs nothing else. `folder`: where it will stand, from which its links
    // are relative.
    std::string Page(const std::filesystem::path& folder) const;

private:
    // The entry of the first `width` columns, which are added to `pictures_`.
    nlohmann::ordered_json PictureJson(const host::Image& image, int width);

    nlohmann::ordered_json data_;
    std::vector<Picture> pictures_;
    std::vector<std::pair<std::string, std::filesystem::path>> links_;
    const host::Image* tilePicture_ = nullptr;
    std::optional<double> psnr_;
    std::optional<double> ssim_;
    std::optional<DumpParameters> parameters_;
};

// For a large NV12 image a smaller one to show until all of it is there, and its level: 1 for half
// the columns and rows, 2 for a quarter. Nothing for others.
std::optional<std::pair<host::Image, int>> Reduced(const host::Image& image);

// "good", "note" or "wrong".
const char* NameOf(Report::Kind kind);

// A page under way: the file appears when it is committed, and not before.
class ReportFile {
public:
    // Makes the folder if it is missing. Throws UseError if no page can stand there.
    explicit ReportFile(const std::filesystem::path& file);
    // Says so if it was not committed: a page of an earlier run would pass for this run's.
    ~ReportFile();
    ReportFile(const ReportFile&) = delete;
    ReportFile& operator=(const ReportFile&) = delete;

    void Write(const Report& report);
    void Commit() {
        folder_.Commit();
        committed_ = !written().empty();
    }
    std::vector<std::string> written() const { return folder_.written(); }

private:
    OutputFolder folder_;
    std::filesystem::path file_;
    bool committed_ = false;
};

#pragma once

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "host/picture/image.h"
#include "host/picture/rgb_image.h"

// What a measurement gives out: figures with their limits, and pictures.
namespace quality {

// One figure beside the limits it is held against.
struct Row {
    enum class Better { kLess, kMore };

    std::string what;
    double value = 0.0;
    std::string unit;
    std::string reference; // of the same run, in words and numbers
    Better better = Better::kLess;
    double must = 0.0;
    double aim = 0.0;

    bool Meets(double limit) const {
        return better == Better::kLess ? value <= limit : value >= limit;
    }
};

// All rows as one table, each with "aim", "must" or "MISSED".
void Print(std::ostream& out, const std::vector<Row>& rows);

// False if a row misses its must.
bool AllMeetMust(const std::vector<Row>& rows);

// The folder that pictures are written to as PNG files, if there is one.
class PictureFolder {
public:
    // Creates the folder. An empty path: nothing is written.
    explicit PictureFolder(std::filesystem::path folder);

    void Write(const std::string& name, const host::Image& image) const;
    void Write(const std::string& name, const RgbImage& picture) const;
    // A CV_32FC1 map in false colours with a scale; NaN and infinity are grey.
    void Write(const std::string& name, const cv::Mat& numbers, const std::string& unit) const;

private:
    std::filesystem::path folder_;
};

} // namespace quality

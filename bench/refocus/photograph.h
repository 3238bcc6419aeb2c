#pragma once

#include <filesystem>
#include <string>

#include <opencv2/core.hpp>

#include "engine/refocus_engine.h"
#include "host/picture/image.h"
#include "host/picture/rgb_image.h"

namespace quality {

// Header of an image for the engine; the image must outlive it.
PLIM_OFFSCREEN DescriptorOf(host::Image& image);

// The luma plane; shares the pixels.
cv::Mat LumaOf(const host::Image& image);

// Where pictures go, if anywhere.
class PictureFolder {
public:
    // Empty path: nothing is written. Makes the folder.
    explicit PictureFolder(std::filesystem::path folder);

    void Write(const std::string& name, const host::Image& image) const;
    void Write(const std::string& name, const RgbImage& picture) const;
    // CV_32FC1 in false colours with a scale; NaN and infinity are grey.
    void Write(const std::string& name, const cv::Mat& numbers, const std::string& unit) const;

private:
    std::filesystem::path folder_;
};

} // namespace quality

#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <sys/resource.h>

#include "host/picture/rgb_image.h"

// A temporary folder for a test's files.
class TestFolder {
public:
    TestFolder();
    ~TestFolder();
    TestFolder(const TestFolder&) = delete;
    TestFolder& operator=(const TestFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

// While it lives, no file of this process or a later child may grow beyond so many bytes. As on a
// full disk, a write is cut short, and the next one fails.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes);
    ~FileSizeLimit();
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit before_{};
};

// While it lives, others who open this file wait, as for a network's file system that hangs.
class HeldFile {
public:
    explicit HeldFile(const std::filesystem::path& path);
    ~HeldFile();
    HeldFile(const HeldFile&) = delete;
    HeldFile& operator=(const HeldFile&) = delete;

private:
    int file_;
};

// The result of a run of the tool.
struct ToolRun {
    int exitCode = -1; // -1: it did not exit by itself
    std::string output;
    std::string errors;
};

// Runs the built tool in this working folder. Standard error is no terminal.
ToolRun RunTool(const std::vector<std::string>& arguments, const std::filesystem::path& folder);

// Starts the tool and ends it with SIGTERM as soon as `started` holds. It makes its temporary
// folders in the working folder. Returns the signal that ended it, or 0.
int InterruptTool(const std::vector<std::string>& arguments, const std::filesystem::path& folder,
                  const std::function<bool()>& started);

// A picture by the colour of each pixel.
RgbImage Paint(int width, int height, const std::function<Colour(int x, int y)>& colourAt);

Colour ColourAt(const RgbImage& picture, int x, int y);

// The largest difference of two pictures in any channel; 255 for pictures of different sizes.
int LargestDifference(const RgbImage& a, const RgbImage& b);

// Texture without repetition, so that each block of it has one match only.
Colour Texture(int x, int y);

// Names in the folder, sorted; none if there is no folder.
std::vector<std::string> NamesIn(const std::filesystem::path& folder);

void WriteBytes(const std::filesystem::path& path, const std::vector<std::uint8_t>& bytes);
std::string ReadText(const std::filesystem::path& path);

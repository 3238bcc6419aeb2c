#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

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

// What a run of the tool came to.
struct ToolRun {
    int exitCode = -1; // -1: it did not exit by itself
    std::string output;
    std::string errors;
};

// Runs the built tool in this working folder. Standard error is no terminal.
ToolRun RunTool(const std::vector<std::string>& arguments, const std::filesystem::path& folder);

// Starts the tool, and ends it with SIGTERM as soon as `started` holds. Its temporary folders are
// in the working folder too. Returns the signal that ended it, or 0.
int InterruptTool(const std::vector<std::string>& arguments, const std::filesystem::path& folder,
                  const std::function<bool()>& started);

// A picture by the colour of each pixel.
RgbImage Paint(int width, int height, const std::function<Colour(int x, int y)>& colourAt);

// Texture without repetition, so that each place of it has one match only.
Colour Texture(int x, int y);

// Names in the folder, sorted; none where there is no folder.
std::vector<std::string> NamesIn(const std::filesystem::path& folder);

void WriteBytes(const std::filesystem::path& path, const std::vector<std::uint8_t>& bytes);

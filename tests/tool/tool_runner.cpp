#include "tests/tool/tool_runner.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

[[noreturn]] void Become(const std::vector<std::string>& arguments, const fs::path& folder,
                         const fs::path& output, const fs::path& errors) {
    std::vector<char*> pointers{const_cast<char*>(BOKEHNODE)};
    for (const std::string& argument : arguments) {
        pointers.push_back(const_cast<char*>(argument.c_str()));
    }
    pointers.push_back(nullptr);
    ::dup2(::open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666), STDOUT_FILENO);
    ::dup2(::open(errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666), STDERR_FILENO);
    if (::chdir(folder.c_str()) == 0) {
        ::execv(BOKEHNODE, pointers.data());
    }
    ::_exit(127);
}

} // namespace

TestFolder::TestFolder() {
    std::string name = (fs::temp_directory_path() / "tool-test-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error("no temporary folder");
    }
    path_ = name;
}

TestFolder::~TestFolder() {
    fs::remove_all(path_);
}

FileSizeLimit::FileSizeLimit(rlim_t bytes) {
    std::signal(SIGXFSZ, SIG_IGN); // or it would end the process
    ::getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit{bytes, before_.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limit);
}

FileSizeLimit::~FileSizeLimit() {
    ::setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, SIG_DFL);
}

HeldFile::HeldFile(const fs::path& path) : file_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    std::signal(SIGIO, SIG_IGN); // tells that somebody waits
    if (::fcntl(file_, F_SETLEASE, F_WRLCK) != 0) {
        throw std::runtime_error(path.string() + ": no lease");
    }
}

HeldFile::~HeldFile() {
    ::close(file_);
}

ToolRun RunTool(const std::vector<std::string>& arguments, const fs::path& folder) {
    const fs::path output = folder.string() + ".stdout";
    const fs::path errors = folder.string() + ".stderr";
    const pid_t child = ::fork();
    if (child == 0) {
        Become(arguments, folder, output, errors);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ToolRun run{WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadText(output), ReadText(errors)};
    fs::remove(output);
    fs::remove(errors);
    return run;
}

int InterruptTool(const std::vector<std::string>& arguments, const fs::path& folder,
                  const std::function<bool()>& started) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::setenv("TMPDIR", folder.c_str(), 1);
        Become(arguments, folder, "/dev/null", "/dev/null");
    }
    int status = 0;
    while (!started() && ::waitpid(child, &status, WNOHANG) == 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ::kill(child, SIGTERM);
    ::waitpid(child, &status, 0);
    return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
}

RgbImage Paint(int width, int height, const std::function<Colour(int x, int y)>& colourAt) {
    RgbImage picture(width, height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            picture.Set(x, y, colourAt(x, y));
        }
    }
    return picture;
}

Colour ColourAt(const RgbImage& picture, int x, int y) {
    const std::uint8_t* at = &picture.bytes[static_cast<std::size_t>(y * picture.pitch() + x * 3)];
    return {at[0], at[1], at[2]};
}

int LargestDifference(const RgbImage& a, const RgbImage& b) {
    int largest = a.width == b.width && a.height == b.height ? 0 : 255;
    for (std::size_t i = 0; largest < 255 && i < a.bytes.size(); ++i) {
        largest = std::max(largest, std::abs(a.bytes[i] - b.bytes[i]));
    }
    return largest;
}

Colour Texture(int x, int y) {
    auto hash = static_cast<std::uint32_t>(x / 2) * 2654435761u ^
                static_cast<std::uint32_t>(y / 2) * 2246822519u;
    hash = (hash ^ (hash >> 15)) * 3266489917u;
    const auto grey = static_cast<std::uint8_t>(40 + (hash >> 8) % 176);
    return {grey, grey, grey};
}

std::vector<std::string> NamesIn(const fs::path& folder) {
    std::vector<std::string> names;
    if (fs::is_directory(folder)) {
        for (const auto& entry : fs::directory_iterator(folder)) {
            names.push_back(entry.path().filename().string());
        }
    }
    std::ranges::sort(names);
    return names;
}

void WriteBytes(const fs::path& path, const std::vector<std::uint8_t>& bytes) {
    std::ofstream stream(path, std::ios::binary);
    stream.write(reinterpret_cast<const char*>(bytes.data()),
                 static_cast<std::streamsize>(bytes.size()));
}

std::string ReadText(const fs::path& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

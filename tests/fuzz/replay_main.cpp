// Runs the fuzz target over files and folders, for compilers without a fuzzer.

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

int g_count = 0;

void Run(const std::filesystem::path& file) {
    std::fprintf(stderr, "%s\n", file.c_str()); // before the run, which may end the process
    std::ifstream stream(file, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(stream), {}};
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    ++g_count;
}

} // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (!std::filesystem::is_directory(argv[i])) {
            Run(argv[i]);
            continue;
        }
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            Run(entry.path());
        }
    }
    std::fprintf(stderr, "%d inputs\n", g_count);
    return g_count > 0 ? 0 : 2; // none: wrong use
}

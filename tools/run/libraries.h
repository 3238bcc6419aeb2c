#pragma once

#include <filesystem>

// The two libraries that the pipeline loads.
struct Libraries {
    std::filesystem::path node;
    std::filesystem::path engine;
};

// Empty paths become those of the build, in ../lib beside the running program. Throws UseError
// where a file is missing.
Libraries FindLibraries(std::filesystem::path node, std::filesystem::path engine);

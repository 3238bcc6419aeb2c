#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

using Bytes = std::vector<std::uint8_t>;

// The whole file. Throws UseError where it is missing, no regular file or unreadable.
Bytes ReadFileBytes(const std::filesystem::path& path);

#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <vector>

using Bytes = std::vector<std::uint8_t>;

// More than the largest picture that the tool takes.
constexpr std::size_t kMostFileBytes = std::size_t{1} << 31;

// The whole file. Throws UseError where it is missing, no regular file, unreadable, or has more
// than `most` bytes, of which none is read then.
Bytes ReadFileBytes(const std::filesystem::path& path, std::size_t most = kMostFileBytes);

// The same, but of a longer file its first `most` bytes.
Bytes ReadFileStart(const std::filesystem::path& path, std::size_t most);

#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tools/dumps/dump_set.h"
#include "tools/files/json_text.h"
#include "tools/replay/replay.h"

// Results of earlier runs, which hold as long as nothing that they depend on changes.

constexpr std::uintmax_t kWhole = std::uintmax_t{1} << 32; // more bytes than any file should have

// The length and two checksums of the first `most` bytes, which tell versions of a file apart and
// are no protection against forgery. A file that cannot be read has the digest of an empty one.
std::string Digest(const std::filesystem::path& path, std::uintmax_t most);

// What tells the contents of two sets apart, wherever they lie: a line for each file with its
// digest. A file that cannot be read: its set's run will say why.
std::vector<std::string> ContentOf(const DumpSet& set, std::uintmax_t most);

// What every result of a run depends on beside its set.
Json KeyOf(const ReplayOptions& options, const Libraries& libraries);

// The result in this text: an object with the "key", and the texts "status" and "reason". Nothing
// if it is damaged or belongs to another key.
std::optional<Json> ParseResult(std::span<const std::uint8_t> text, const Json& key);

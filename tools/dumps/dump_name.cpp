#include "tools/dumps/dump_name.h"

#include <algorithm>
#include <charconv>
#include <system_error>

#include <fmt/format.h>

#include "platform/device_names.h"

namespace {

struct RoleFormat {
    const char* name;
    std::string_view suffix; // after the time stamp
    std::string_view ending; // after the size
};

// By DumpRole.
constexpr RoleFormat kRoles[] = {
    {"main", device::kMainDumpSuffix, device::kImageDumpEnding},
    {"aux", device::kAuxDumpSuffix, device::kImageDumpEnding},
    {"output", device::kOutputDumpSuffix, device::kImageDumpEnding},
    {"parameters", device::kMainDumpSuffix, device::kParameterDumpEnding},
    {"disparity", device::kMainDumpSuffix, device::kDisparityDumpEnding}};

const RoleFormat& RoleFormatOf(DumpRole role) {
    return kRoles[static_cast<std::size_t>(role)];
}

// std::isdigit depends on the locale and must not be given a negative char.
bool IsDigit(char character) {
    return character >= '0' && character <= '9';
}

// A whole number without sign or leading zero. Six digits at most: no picture is larger, and the
// product of two such sides stays within 64 bits.
std::optional<int> ParseSide(std::string_view text) {
    constexpr std::size_t kMostDigits = 6;
    int side = 0;
    const char* const end = text.data() + text.size();
    const auto [next, error] = std::from_chars(text.data(), end, side);
    const bool valid = error == std::errc() && next == end && text.size() <= kMostDigits &&
                       text.front() != '0' && side > 0;
    return valid ? std::optional(side) : std::nullopt;
}

// Whether the text ends in a time stamp such as 20240131_235959.
bool EndsInTime(std::string_view text) {
    constexpr std::string_view kPattern = "dddddddd_dddddd";
    return text.size() >= kPattern.size() &&
           std::ranges::equal(text.substr(text.size() - kPattern.size()), kPattern,
                              [](char character, char pattern) {
                                  return pattern == 'd' ? IsDigit(character) : character == pattern;
                              });
}

} // namespace

std::string SizedName::FileName() const {
    return fmt::format("{}_{}x{}{}", base, first, second, ending);
}

std::optional<SizedName> ParseSizedName(std::string_view fileName) {
    constexpr std::string_view kMetadata = device::kParameterDumpEnding;
    // The parameters' ending has no dot before "_metadata", so that it is looked for as a whole.
    const auto dot =
        fileName.ends_with(kMetadata) ? fileName.size() - kMetadata.size() : fileName.rfind('.');
    const std::string_view name = fileName.substr(0, dot);
    // The size is looked for from the right, since the base may hold anything.
    const auto bar = name.rfind('_');
    if (dot == std::string_view::npos || dot + 1 == fileName.size() ||
        bar == std::string_view::npos || bar == 0) {
        return std::nullopt;
    }
    const std::string_view size = name.substr(bar + 1);
    const auto cross = size.find('x');
    const auto first = ParseSide(size.substr(0, cross));
    if (!first || cross == std::string_view::npos) {
        return std::nullopt;
    }
    const auto second = ParseSide(size.substr(cross + 1));
    if (!second) {
        return std::nullopt;
    }
    return SizedName{std::string(name.substr(0, bar)), *first, *second,
                     std::string(fileName.substr(dot))};
}

std::optional<DumpName> ParseDumpName(std::string_view fileName) {
    auto sized = ParseSizedName(fileName);
    if (!sized) {
        return std::nullopt;
    }
    // Suffix and ending together tell the role: "_0" stands for three of them.
    for (std::size_t role = 0; role < std::size(kRoles); ++role) {
        const std::string_view suffix = kRoles[role].suffix;
        if (sized->ending != kRoles[role].ending || !sized->base.ends_with(suffix)) {
            continue;
        }
        std::string stem = sized->base.substr(0, sized->base.size() - suffix.size());
        if (EndsInTime(stem)) {
            return DumpName{std::move(stem), static_cast<DumpRole>(role), sized->first,
                            sized->second};
        }
    }
    return std::nullopt;
}

std::string DumpFileName(const DumpName& name) {
    const RoleFormat& role = RoleFormatOf(name.role);
    return fmt::format("{}{}_{}x{}{}", name.stem, role.suffix, name.first, name.height,
                       role.ending);
}

const char* RoleName(DumpRole role) {
    return RoleFormatOf(role).name;
}

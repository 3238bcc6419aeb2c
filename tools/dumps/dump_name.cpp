#include "tools/dumps/dump_name.h"

#include <array>
#include <charconv>
#include <regex>
#include <string_view>

#include "platform/device_names.h"

namespace {

struct RoleName {
    DumpRole role;
    const char* word;
    std::string_view suffix; // behind the time stamp
    std::string_view ending; // behind the size
};

constexpr std::array<RoleName, 5> kRoles{
    {{DumpRole::kMain, "main", device::kMainDumpSuffix, device::kImageDumpEnding},
     {DumpRole::kAux, "aux", device::kAuxDumpSuffix, device::kImageDumpEnding},
     {DumpRole::kOutput, "output", device::kOutputDumpSuffix, device::kImageDumpEnding},
     {DumpRole::kParameters, "parameters", device::kMainDumpSuffix, device::kParameterDumpEnding},
     {DumpRole::kDisparity, "disparity", device::kMainDumpSuffix, device::kDisparityDumpEnding}}};

const RoleName& NameOf(DumpRole role) {
    for (const RoleName& entry : kRoles) {
        if (entry.role == role) {
            return entry;
        }
    }
    return kRoles[0];
}

// Six digits at most: nobody has a larger picture, and products stay within 64 bits.
int Number(const std::string& digits) {
    int number = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return number;
}

} // namespace

std::string SizedName::Text() const {
    return base + "_" + std::to_string(first) + "x" + std::to_string(second) + ending;
}

std::optional<SizedName> ParseSizedName(const std::string& fileName) {
    static const std::regex kForm(
        "(.+)_([1-9][0-9]{0,5})x([1-9][0-9]{0,5})(_metadata\\.txt|\\.[^.]+)");
    std::smatch parts;
    if (!std::regex_match(fileName, parts, kForm)) {
        return std::nullopt;
    }
    return SizedName{parts[1], Number(parts[2]), Number(parts[3]), parts[4]};
}

std::optional<DumpName> ParseDumpName(const std::string& fileName) {
    static const std::regex kStem(".*[0-9]{8}_[0-9]{6}");
    const auto sized = ParseSizedName(fileName);
    if (!sized) {
        return std::nullopt;
    }
    for (const RoleName& role : kRoles) {
        if (sized->ending != role.ending || !sized->base.ends_with(role.suffix)) {
            continue;
        }
        std::string stem = sized->base.substr(0, sized->base.size() - role.suffix.size());
        if (std::regex_match(stem, kStem)) {
            return DumpName{std::move(stem), role.role, sized->first, sized->second};
        }
    }
    return std::nullopt;
}

std::string DumpFileName(const DumpName& name) {
    const RoleName& role = NameOf(name.role);
    return SizedName{name.stem + std::string(role.suffix), name.first, name.height,
                     std::string(role.ending)}
        .Text();
}

const char* RoleWord(DumpRole role) {
    return NameOf(role).word;
}

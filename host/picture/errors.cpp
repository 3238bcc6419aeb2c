#include "host/picture/errors.h"

#include <fmt/core.h>

void Refuse(const std::string& name, const std::string& expected, const std::string& found) {
    throw UseError(fmt::format("{}: expected {}, found {}", name, expected, found));
}

void Cannot(const std::string& action, const std::filesystem::path& path,
            const std::string& reason) {
    throw UseError(fmt::format("{}: cannot {}: {}", path.string(), action, reason));
}

#include "tools/run/libraries.h"

#include <utility>

#include "host/picture/errors.h"
#include "platform/device_names.h"

namespace fs = std::filesystem;

namespace {

fs::path Find(const char* option, fs::path given, const char* name) {
    if (given.empty()) {
        given = fs::read_symlink("/proc/self/exe").parent_path().parent_path() / "lib" / name;
    }
    if (!fs::is_regular_file(given)) {
        throw UseError(std::string(option) + ": expected a library, found none at " +
                       given.string());
    }
    return fs::absolute(given); // without a folder the loader would search its own
}

} // namespace

Libraries FindLibraries(fs::path node, fs::path engine) {
    return {Find("--node", std::move(node), device::kNodeLibrary),
            Find("--engine", std::move(engine), device::kEngineLibrary)};
}

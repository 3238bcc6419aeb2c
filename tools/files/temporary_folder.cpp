#include "tools/files/temporary_folder.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <system_error>

#include "host/picture/errors.h"
#include "tools/files/interruption.h"

TemporaryFolder::TemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "bokehnode-XXXXXX").string();
    const auto delay = DelayInterruption();
    if (::mkdtemp(name.data()) == nullptr) {
        throw UseError(name + ": cannot make a temporary folder: " + std::strerror(errno));
    }
    path_ = name;
    RemoveWhenInterrupted(path_, Removal::kWithEverything);
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
    KeepWhenInterrupted(path_);
}

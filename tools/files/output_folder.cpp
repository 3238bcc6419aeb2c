#include "tools/files/output_folder.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/picture/errors.h"
#include "tools/files/interruption.h"

namespace fs = std::filesystem;

namespace {

[[noreturn]] void Fail(const char* action, const fs::path& path) {
    Cannot(action, path, std::strerror(errno));
}

// Missing folders of `path`, outermost first. A link that leads nowhere counts as there, since no
// folder can be made in its place.
std::vector<fs::path> MissingFolders(const fs::path& path) {
    std::vector<fs::path> missing;
    for (fs::path folder = path; !folder.empty() && !fs::exists(fs::symlink_status(folder));
         folder = folder.parent_path()) {
        missing.insert(missing.begin(), folder);
    }
    return missing;
}

} // namespace

bool WriteAll(int file, std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(file, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return false;
        }
        bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
    return true;
}

OutputFolder::OutputFolder(const fs::path& folder)
    : named_(folder), folder_(fs::absolute(folder.empty() ? "." : folder).lexically_normal()) {
    if (!folder_.has_filename()) { // "DIR/" names DIR
        folder_ = folder_.parent_path();
    }
    for (const fs::path& missing : MissingFolders(folder_)) {
        // The folder is made and registered in one step: see interruption.h.
        const auto delay = DelayInterruption();
        if (::mkdir(missing.c_str(), 0777) != 0) {
            const int reason = errno;
            if (reason == EEXIST && fs::is_directory(missing)) {
                continue; // another thread or program was faster
            }
            for (auto made = made_.rbegin(); made != made_.rend(); ++made) {
                ::rmdir(made->c_str());
            }
            errno = reason;
            Fail("make this folder", missing);
        }
        made_.push_back(missing);
        RemoveWhenInterrupted(missing, Removal::kAlone);
    }
    if (!fs::is_directory(folder_)) {
        Refuse(folder_, "a folder", "something else");
    }
}

// Once files are renamed to their places, an interruption must not remove them any more.
void OutputFolder::StopWatching() {
    for (const auto& [temporary, final] : pending_) {
        KeepWhenInterrupted(temporary);
    }
    for (const fs::path& made : made_) {
        KeepWhenInterrupted(made);
    }
}

OutputFolder::~OutputFolder() {
    if (committed_) {
        return;
    }
    std::error_code ignored;
    for (const auto& [temporary, final] : pending_) {
        fs::remove(temporary, ignored);
    }
    for (auto made = made_.rbegin(); made != made_.rend(); ++made) {
        fs::remove(*made, ignored); // fails if another program has put something in
    }
    StopWatching();
}

void OutputFolder::Write(const std::string& name, std::span<const std::uint8_t> bytes) {
    // The temporary file stands in the same folder, since rename(2) replaces a file at once only
    // within a file system. The dot hides it from listings and patterns meanwhile.
    std::string temporary = (folder_ / ("." + name + ".XXXXXX")).string();
    int file = -1;
    {
        const auto delay = DelayInterruption();
        file = ::mkostemp(temporary.data(), O_CLOEXEC);
        if (file < 0) {
            Fail("be written", folder_ / name);
        }
        pending_.emplace_back(temporary, folder_ / name);
        RemoveWhenInterrupted(temporary, Removal::kAlone);
    }
    // mkostemp makes files for the owner alone; the result gets what open(2) would give. The mask
    // can only be read by setting it.
    const mode_t mask = ::umask(0);
    ::umask(mask);
    const bool written = WriteAll(file, bytes) && ::fchmod(file, 0666 & ~mask) == 0;
    // Network file systems and quotas report some failed writes only when the file is closed.
    if (::close(file) != 0 || !written) {
        Fail("be written", folder_ / name);
    }
}

void OutputFolder::Write(const std::string& name, std::string_view text) {
    Write(name, std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
}

void OutputFolder::Append(const std::string& name, std::string_view text) {
    const auto at = std::ranges::find(pending_, folder_ / name, &Pending::second);
    const int file = ::open(at->first.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    const bool written =
        file >= 0 &&
        WriteAll(file, {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
    if ((file >= 0 && ::close(file) != 0) || !written) {
        Fail("be written", folder_ / name);
    }
}

void OutputFolder::Drop(const std::string& name) {
    dropped_.push_back(folder_ / name);
}

// What would stop the renaming half-way is found before the first file is in its place.
void OutputFolder::CheckPlaces() const {
    const auto check = [](const fs::path& path, const char* action) {
        if (fs::is_directory(fs::symlink_status(path))) {
            errno = EISDIR;
            Fail(action, path);
        }
    };
    for (const auto& [temporary, final] : pending_) {
        check(final, "be written");
    }
    for (const fs::path& path : dropped_) {
        check(path, "be removed");
    }
}

void OutputFolder::Commit() {
    CheckPlaces();
    StopWatching();
    // From here on each file is the old or the new one as a whole, also for those who read
    // meanwhile.
    for (const auto& [temporary, final] : pending_) {
        if (::rename(temporary.c_str(), final.c_str()) != 0) {
            Fail("be written", final);
        }
    }
    for (const fs::path& path : dropped_) {
        if (::unlink(path.c_str()) != 0 && errno != ENOENT) {
            Fail("be removed", path);
        }
    }
    committed_ = true;
}

std::vector<std::string> OutputFolder::written() const {
    std::vector<std::string> files;
    for (const auto& [temporary, final] : pending_) {
        files.push_back(named_ / final.filename());
    }
    return files;
}

std::vector<std::string> WriteFile(const fs::path& file, std::span<const std::uint8_t> bytes) {
    OutputFolder folder(file.parent_path());
    folder.Write(file.filename().string(), bytes);
    folder.Commit();
    return folder.written();
}

#include "tools/files/interruption.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

struct Entry {
    std::filesystem::path path;
    Removal removal;
};

struct Watched {
    std::recursive_mutex mutex;
    std::vector<Entry> entries; // a folder comes before its files
    std::vector<pid_t> children;
};

// Never destroyed: the watching thread outlives the statics.
Watched& watched() {
    static Watched* const instance = new Watched;
    return *instance;
}

sigset_t InterruptingSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction action = {};
        sigaction(signal, nullptr, &action);
        if (action.sa_handler != SIG_IGN) { // as under nohup
            sigaddset(&signals, signal);
        }
    }
    return signals;
}

// The process ends by the signal itself, so that a calling script sees that it was interrupted.
[[noreturn]] void EndBy(int signal) {
    const sigset_t signals = InterruptingSignals();
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
    std::raise(signal);
    std::_Exit(128 + signal);
}

// The other threads still run and may put files into the folder while it is removed: tries again.
void Remove(const Entry& entry) {
    std::error_code failure;
    if (entry.removal == Removal::kAlone) {
        std::filesystem::remove(entry.path, failure);
        return;
    }
    constexpr int kTries = 500;
    for (int i = 0; i < kTries; ++i) {
        std::filesystem::remove_all(entry.path, failure);
        if (!failure) {
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

[[noreturn]] void* Watch(void*) {
    const sigset_t signals = InterruptingSignals();
    int signal = 0;
    while (sigwait(&signals, &signal) != 0) {
    }
    // Held until the process ends: no thread may register a path that nobody would remove.
    watched().mutex.lock();
    for (const pid_t child : watched().children) {
        ::kill(child, SIGTERM);
    }
    for (const pid_t child : watched().children) {
        EndByForce(child);
    }
    auto& entries = watched().entries;
    for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
        Remove(*entry);
    }
    EndBy(signal);
}

} // namespace

void WatchForInterruption() {
    const sigset_t signals = InterruptingSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr); // all later threads inherit it
    // No std::thread: what that allocates would look like a leak in a child process.
    pthread_t thread = {};
    if (const int error = ::pthread_create(&thread, nullptr, Watch, nullptr); error != 0) {
        throw std::system_error(error, std::generic_category(), "cannot start a thread");
    }
    ::pthread_detach(thread);
}

void WatchForInterruptionInChild() {
    std::construct_at(&watched().mutex); // a thread may hold it that the child does not have
    watched().children.clear();
    WatchForInterruption();
}

std::unique_lock<std::recursive_mutex> DelayInterruption() {
    return std::unique_lock(watched().mutex);
}

void RemoveWhenInterrupted(const std::filesystem::path& path, Removal removal) {
    const std::lock_guard lock(watched().mutex);
    watched().entries.push_back({path, removal});
}

void KeepWhenInterrupted(const std::filesystem::path& path) {
    const std::lock_guard lock(watched().mutex);
    std::erase_if(watched().entries, [&](const Entry& entry) { return entry.path == path; });
}

void EndWhenInterrupted(pid_t child) {
    const std::lock_guard lock(watched().mutex);
    watched().children.push_back(child);
}

void ForgetEnded(pid_t child) {
    const std::lock_guard lock(watched().mutex);
    std::erase(watched().children, child);
}

bool EndsWithin(pid_t child, std::optional<int> seconds) {
    const auto file = static_cast<int>(::syscall(SYS_pidfd_open, child, 0));
    if (file < 0) {
        return errno == ESRCH;
    }
    pollfd ended = {file, POLLIN, 0};
    int count = 0;
    do {
        count = ::poll(&ended, 1, seconds ? *seconds * 1000 : -1);
    } while (count < 0 && errno == EINTR);
    ::close(file);
    return count > 0;
}

void EndByForce(pid_t child) {
    constexpr int kPatience = 5; // seconds, in which it removes what it has made
    ::kill(child, SIGTERM);
    if (!EndsWithin(child, kPatience)) {
        ::kill(child, SIGKILL);
        EndsWithin(child, std::nullopt);
    }
}

#include "tools/files/interruption.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

namespace {

struct Entry {
    std::filesystem::path path;
    Removal removal;
};

struct Watched {
    std::recursive_mutex mutex;
    std::vector<Entry> entries; // a folder comes before its files
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

[[noreturn]] void Watch() {
    const sigset_t signals = InterruptingSignals();
    int signal = 0;
    while (sigwait(&signals, &signal) != 0) {
    }
    // Held until the process ends: no thread may register a path that nobody would remove.
    watched().mutex.lock();
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
    std::thread(Watch).detach();
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

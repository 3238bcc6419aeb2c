#include "tools/files/interruption.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <semaphore>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fmt/core.h>

namespace {

// What is to be removed when the run is interrupted.
struct Entry {
    std::filesystem::path path;
    Removal removal;
};

// The mutex is recursive, since a path is registered while DelayInterruption holds it.
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

// Signals that the caller had this program ignore, as nohup does with SIGHUP, stay ignored.
sigset_t InterruptingSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction action = {};
        sigaction(signal, nullptr, &action);
        if (action.sa_handler != SIG_IGN) {
            sigaddset(&signals, signal);
        }
    }
    return signals;
}

// In memory that parent and child share: whether the child came to its own end, as it does not
// where a library calls _exit(). Null in a process that continued in no child.
bool* reachedEnd = nullptr;

void ShareEnd() {
    void* const page =
        ::mmap(nullptr, sizeof(bool), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED) {
        throw std::runtime_error(std::string("cannot start a process: ") + std::strerror(errno));
    }
    reachedEnd = static_cast<bool*>(page);
}

void NoteEnd() {
    if (reachedEnd != nullptr) {
        *reachedEnd = true;
    }
}

// The process ends by the signal itself, so that a calling script sees that it was interrupted.
[[noreturn]] void EndBy(int signal) {
    const sigset_t signals = InterruptingSignals();
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
    // The signal is unblocked for this thread alone. It has no handler, so that it ends the
    // process.
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

// Waits, but no longer than so many seconds, if any, until this child has ended.
bool EndsWithin(pid_t child, std::optional<int> seconds) {
    // A pidfd can be waited for with a time limit, as waitpid cannot. glibc has no function for
    // this call before 2.36.
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

void EndChild(pid_t child) {
    // Seconds in which it removes what it has made: its watching thread does so whatever the others
    // do, so that only a loaded machine takes long.
    constexpr int kPatience = 60;
    ::kill(child, SIGTERM);
    if (!EndsWithin(child, kPatience)) {
        ::kill(child, SIGKILL);
        EndsWithin(child, std::nullopt);
    }
}

[[noreturn]] void* Watch(void* started) {
    static_cast<std::binary_semaphore*>(started)->release();
    const sigset_t signals = InterruptingSignals();
    int signal = 0;
    // A thread waits for the signals, since a handler could neither take a lock nor walk a folder.
    while (sigwait(&signals, &signal) != 0) {
    }
    // Held until the process ends: no thread may register a path that nobody would remove.
    watched().mutex.lock();
    // Children end first, while their folders still exist, and remove their own files.
    std::ranges::for_each(watched().children, EndChild);
    auto& entries = watched().entries;
    // In reverse, files are removed before the folders that hold them.
    for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
        Remove(*entry);
    }
    EndBy(signal);
}

} // namespace

void WatchForInterruption() {
    const sigset_t signals = InterruptingSignals();
    // All later threads inherit the mask, so that the signals reach the waiting thread alone.
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    // No std::thread: what that allocates would look like a leak in a child process.
    pthread_t thread = {};
    static std::binary_semaphore started(0);
    if (const int error = ::pthread_create(&thread, nullptr, Watch, &started); error != 0) {
        throw std::system_error(error, std::generic_category(), "cannot start a thread");
    }
    ::pthread_detach(thread);
    // A fork while the thread is about to start would copy what it holds locked then, such as the
    // sanitizers' list of threads, and the child would wait for it for ever.
    started.acquire();
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

pid_t ForkChild() {
    std::fflush(nullptr); // or the child would write it as well
    const pid_t parent = ::getpid();
    // No interruption may fall between the fork and the entry: nobody would wait for this child.
    auto delay = DelayInterruption();
    const pid_t child = ::fork();
    if (child < 0) {
        throw std::runtime_error(std::string("cannot start a process: ") + std::strerror(errno));
    }
    if (child > 0) {
        watched().children.push_back(child);
        return child;
    }
    // The child has a copy of the locked mutex and none of the threads that could unlock it.
    delay.release();
    std::construct_at(&watched().mutex); // unlocked
    watched().children.clear();
    watched().entries.clear();
    WatchForInterruption();
    // The parent may be killed outright, without a chance to end its children.
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (::getppid() != parent) {
        ::_exit(EXIT_FAILURE); // it ended before that
    }
    return 0;
}

pid_t AwaitChild(pid_t child, int& status) {
    pid_t ended = 0;
    do {
        ended = ::waitpid(child, &status, 0);
    } while (ended < 0 && errno == EINTR);
    const auto delay = DelayInterruption();
    std::erase(watched().children, ended);
    return ended;
}

std::string SignalInWords(int signal) {
    return fmt::format("crashed: signal {} ({})", signal, ::strsignal(signal));
}

void LeaveChild(int code) {
    std::fflush(nullptr);
    NoteEnd();
    ::_exit(code);
}

void ContinueInChild(std::optional<int> seconds) {
    // Parent and child both keep them registered, since either may be the only one that is
    // interrupted.
    std::vector<Entry> entries = watched().entries;
    ShareEnd();
    const pid_t child = ForkChild();
    if (child == 0) {
        std::atexit(NoteEnd);
        const auto delay = DelayInterruption();
        watched().entries = std::move(entries);
        return;
    }
    const bool ended = EndsWithin(child, seconds);
    if (!ended) {
        EndChild(child);
    }
    int status = 0;
    AwaitChild(child, status);
    if (!ended) {
        throw ChildFailure(fmt::format("timed out after {} s", *seconds));
    }
    // A library that calls _exit(0) would otherwise look like a run that succeeded.
    if (WIFEXITED(status) && !*reachedEnd) {
        throw ChildFailure(fmt::format("crashed: _exit({}) was called", WEXITSTATUS(status)));
    }
    if (WIFEXITED(status)) {
        std::_Exit(WEXITSTATUS(status)); // whatever is to be done or removed, the child has
    }
    const int signal = WTERMSIG(status);
    if (const sigset_t ours = InterruptingSignals(); sigismember(&ours, signal) == 1) {
        ::kill(::getpid(), signal); // Ctrl-C ends both
        ::pause();
    }
    throw ChildFailure(SignalInWords(signal));
}

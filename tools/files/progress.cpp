#include "tools/files/progress.h"

#include <cstdio>

#include <unistd.h>

#include "tools/files/console.h"

namespace {

// Steps of less than half a second would only flicker.
constexpr auto kQuiet = std::chrono::milliseconds(500);
constexpr auto kBeat = std::chrono::milliseconds(200);

} // namespace

Progress::Progress(const std::string& step, Clock::time_point start)
    : step_(Printable(step)), start_(start) {
    // In a file or a pipe the line would be garbage.
    if (::isatty(STDERR_FILENO) != 0) {
        thread_ = std::thread([this] { Run(); });
    }
}

Progress::~Progress() {
    if (!thread_.joinable()) {
        return;
    }
    {
        const std::lock_guard lock(mutex_);
        done_ = true;
    }
    wake_.notify_one();
    thread_.join();
}

void Progress::Run() {
    std::unique_lock lock(mutex_);
    // The destructor wakes the thread, so that a short step does not wait for the time to pass.
    if (wake_.wait_until(lock, start_ + kQuiet, [this] { return done_; })) {
        return;
    }
    do {
        const std::chrono::duration<double> taken = Clock::now() - start_;
        // The cursor returns to the line's start, where a log line may overwrite this one.
        std::fprintf(stderr, "\033[K%s ... %.1f s\r", step_.c_str(), taken.count());
        std::fflush(stderr);
    } while (!wake_.wait_for(lock, kBeat, [this] { return done_; }));
    std::fprintf(stderr, "\033[K");
    std::fflush(stderr);
}

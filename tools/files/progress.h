#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

// Shows on standard error, if that is a terminal, which step is under way and for how long, once it
// takes longer than half a second. The destructor removes the line.
class Progress {
public:
    using Clock = std::chrono::steady_clock;

    explicit Progress(const std::string& step, Clock::time_point start = Clock::now());
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

private:
    void Run();

    std::string step_;
    Clock::time_point start_;
    std::mutex mutex_;
    std::condition_variable wake_;
    bool done_ = false;
    std::thread thread_; // last: it uses the rest
};

#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include <sys/types.h>

// Does jobs one after another, each in a process of its own: what crashes or runs out of memory
// there is the answer to one job, and the next one starts afresh. One job runs and one waits at
// most.
class Worker {
public:
    // `work` gets a job and returns its answer. It may return in a child process of the one that it
    // was called in. To be made while the process has no threads but that of WatchForInterruption.
    explicit Worker(const std::function<std::string(const std::string&)>& work);
    ~Worker(); // ends the processes; no Do() may be under way
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    // Waits for the job's answer. Returns nothing if a later job came while this one had to wait.
    // `job`: at most kLongestJob bytes. Throws std::runtime_error, with how the job's process
    // ended, if it left no answer. Thread-safe.
    std::optional<std::string> Do(const std::string& job);

    static constexpr std::size_t kLongestJob = 1 << 16;

private:
    std::string Send(const std::string& job);

    pid_t process_ = 0;
    int socket_ = -1;
    int answer_ = -1; // a file in memory that all processes share
    std::mutex mutex_;
    std::condition_variable turn_;
    std::uint64_t newest_ = 0;
    bool running_ = false;
};

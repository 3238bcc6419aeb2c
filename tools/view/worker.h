#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>

#include <sys/types.h>

// Does jobs one after another in a process of their own, which keeps what it has loaded for the
// next job. A crash, a hang or a lack of memory there is the answer to one job, and the next one
// starts another process, as it does if a process was killed. One job runs and one waits at most.
class Worker {
public:
    // Gets a part of a job's answer, which is valid during the call.
    using Take = std::function<void(std::string_view part)>;
    // Does a job in the worker's process. Returns false, and hands out no part, if the job needs a
    // process that has loaded nothing yet.
    using Work = std::function<bool(const std::string& job, const Take& take)>;

    // A process that hands out nothing for so many seconds is given up. To be made while the
    // process has no threads but that of WatchForInterruption.
    Worker(Work work, int timeout);
    ~Worker(); // ends the processes; no Do() may be under way
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    // Returns when the job is done, or false if a later job came while this one had to wait. `job`:
    // at most kLongestJob bytes. Throws std::runtime_error, with how the process ended, if it did
    // not come to the job's end. Thread-safe.
    bool Do(const std::string& job, const Take& take);

    static constexpr std::size_t kLongestJob = 1 << 16;

private:
    void Start();
    void End();
    void Send(const std::string& job, const Take& take);

    const Work work_;
    const int timeout_;
    pid_t process_ = 0; // which starts the others
    int socket_ = -1;
    int answer_ = -1; // a file in memory that all processes share
    std::string part_;
    std::mutex mutex_;
    std::condition_variable turn_;
    std::uint64_t newest_ = 0;
    bool running_ = false;
};

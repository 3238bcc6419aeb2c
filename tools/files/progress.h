#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

// Says on standard error which step is under way and for how long, once it takes longer than half a
// second; only where standard error is a terminal. The line goes when the object goes.
class Progress {
public:
    explicit Progress(std::string step);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

private:
    void Run();

    std::string step_;
    std::mutex mutex_;
    std::condition_variable wake_;
    bool done_ = false;
    std::thread thread_; // last: it uses the rest
};

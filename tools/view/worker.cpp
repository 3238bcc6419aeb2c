#include "tools/view/worker.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fmt/core.h>

#include "tools/files/interruption.h"
#include "tools/files/output_folder.h"

namespace {

[[noreturn]] void Fail(const char* what) {
    throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
}

// What the worker's process says of its job, and the process that started it of its end.
struct Notice {
    enum Kind : std::int32_t { kPart, kDone, kNeedsNewProcess, kTimedOut, kEnded } kind;
    std::int32_t status = 0;  // kEnded: as of waitpid(2)
    std::uint64_t offset = 0; // kPart: where the part stands in the file of answers
    std::uint64_t bytes = 0;
};

// False at the end of the connection.
bool Receive(int socket, void* buffer, std::size_t& bytes) {
    ssize_t count = 0;
    do {
        count = ::recv(socket, buffer, bytes, 0);
    } while (count < 0 && errno == EINTR);
    bytes = static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    return count > 0;
}

bool Say(int socket, const Notice& notice) {
    return ::send(socket, &notice, sizeof notice, MSG_NOSIGNAL) == sizeof notice;
}

bool Hand(int socket, std::string_view job) {
    return ::send(socket, job.data(), job.size(), MSG_NOSIGNAL) >= 0;
}

[[noreturn]] void DoJobs(const Worker::Work& work, int socket, int answer) {
    std::string buffer(Worker::kLongestJob, '\0');
    for (std::size_t bytes = buffer.size(); Receive(socket, buffer.data(), bytes);
         bytes = buffer.size()) {
        // The file is written over: new pages would have to be cleared.
        Notice part{Notice::kPart};
        ::lseek(answer, 0, SEEK_SET);
        const bool done = work(buffer.substr(0, bytes), [&](std::string_view text) {
            part.offset += part.bytes;
            part.bytes = text.size();
            if (!WriteAll(answer,
                          {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()}) ||
                !Say(socket, part)) {
                ::_exit(EXIT_FAILURE);
            }
        });
        if (!Say(socket, {done ? Notice::kDone : Notice::kNeedsNewProcess}) || !done) {
            break;
        }
    }
    ::_exit(EXIT_SUCCESS);
}

// The process that does the jobs, from the side of the one that starts it.
class JobProcess {
public:
    JobProcess(const Worker::Work& work, int timeout, int answer, int callersSocket)
        : work_(work), timeout_(timeout), answer_(answer), callersSocket_(callersSocket) {}

    // Hands the job over, to a new process if there is none or if it was killed while it was idle.
    void Begin(std::string_view job) {
        if (!Hand(socket_, job)) {
            End();
            Start();
            Hand(socket_, job); // a failure shows in Next()
        }
    }

    // Waits for what it says next; once it has ended, how.
    Notice Next() {
        pollfd ready{socket_, POLLIN, 0};
        int count = 0;
        do {
            count = ::poll(&ready, 1, timeout_ * 1000);
        } while (count < 0 && errno == EINTR);
        Notice notice{Notice::kEnded};
        std::size_t bytes = sizeof notice;
        if (count > 0 && Receive(socket_, &notice, bytes) && bytes == sizeof notice) {
            if (notice.kind == Notice::kNeedsNewProcess) {
                End();
            }
            return notice;
        }
        if (count == 0) {
            ::kill(process_, SIGKILL); // it has made nothing that outlives this program
        }
        return {count == 0 ? Notice::kTimedOut : Notice::kEnded, End()};
    }

private:
    void Start() {
        int ends[2] = {};
        if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
            ::_exit(EXIT_FAILURE);
        }
        process_ = ForkChild();
        if (process_ == 0) {
            ::close(ends[0]);
            ::close(callersSocket_);
            DoJobs(work_, ends[1], answer_);
        }
        ::close(ends[1]);
        socket_ = ends[0];
    }

    int End() {
        int status = 0;
        if (process_ != 0) {
            ::close(std::exchange(socket_, -1));
            AwaitChild(std::exchange(process_, 0), status);
        }
        return status;
    }

    const Worker::Work& work_;
    int timeout_; // seconds
    int answer_;
    int callersSocket_;
    pid_t process_ = 0;
    int socket_ = -1;
};

// Passes jobs and notices on between the caller and the process that does the jobs. This process
// has one thread and stays small, so that a copy of it is made soon.
[[noreturn]] void Serve(const Worker::Work& work, int timeout, int socket, int answer) {
    const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    ::dup2(null, STDOUT_FILENO);
    ::dup2(null, STDERR_FILENO); // the answer holds the log
    JobProcess process(work, timeout, answer, socket);
    std::string buffer(Worker::kLongestJob, '\0');
    for (std::size_t bytes = buffer.size(); Receive(socket, buffer.data(), bytes);
         bytes = buffer.size()) {
        Notice notice{Notice::kNeedsNewProcess};
        do {
            if (notice.kind == Notice::kNeedsNewProcess) {
                process.Begin({buffer.data(), bytes});
            } else if (!Say(socket, notice)) {
                ::_exit(EXIT_FAILURE);
            }
            notice = process.Next();
        } while (notice.kind == Notice::kPart || notice.kind == Notice::kNeedsNewProcess);
        if (!Say(socket, notice)) {
            break;
        }
    }
    ::_exit(EXIT_SUCCESS);
}

} // namespace

Worker::Worker(Work work, int timeout) : work_(std::move(work)), timeout_(timeout) {
    answer_ = ::memfd_create("answer", MFD_CLOEXEC);
    if (answer_ < 0) {
        Fail("cannot start the worker");
    }
    Start();
}

Worker::~Worker() {
    End();
    ::close(answer_);
}

void Worker::Start() {
    int ends[2] = {};
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
        Fail("cannot start the worker");
    }
    process_ = ForkChild();
    if (process_ == 0) {
        ::close(ends[0]);
        Serve(work_, timeout_, ends[1], answer_);
    }
    ::close(ends[1]);
    socket_ = ends[0];
}

void Worker::End() {
    if (process_ != 0) { // it is 0 if another one could not be started
        ::kill(process_, SIGTERM);
        int status = 0;
        AwaitChild(std::exchange(process_, 0), status);
        ::close(std::exchange(socket_, -1));
    }
}

void Worker::Send(const std::string& job, const Take& take) {
    Notice notice{Notice::kEnded};
    std::size_t bytes = sizeof notice;
    if (!Hand(socket_, job)) {
        // The process was killed. This one has other threads by now; what a job uses is locked by
        // none of them, but for memory and streams, and those fork leaves unlocked.
        End();
        Start();
        if (!Hand(socket_, job)) {
            Fail("the worker");
        }
    }
    while (Receive(socket_, &notice, bytes) && notice.kind == Notice::kPart) {
        part_.resize(notice.bytes);
        for (std::size_t done = 0; done < part_.size();) {
            const ssize_t count = ::pread(answer_, part_.data() + done, part_.size() - done,
                                          static_cast<off_t>(notice.offset + done));
            if (count <= 0) {
                Fail("the worker's answer");
            }
            done += static_cast<std::size_t>(count);
        }
        take(part_);
    }
    if (bytes != sizeof notice) {
        throw std::runtime_error("the worker has ended");
    }
    if (notice.kind == Notice::kTimedOut) {
        throw std::runtime_error(fmt::format("timed out after {} s", timeout_));
    }
    if (notice.kind == Notice::kEnded) {
        throw std::runtime_error(WIFSIGNALED(notice.status) ? SignalInWords(WTERMSIG(notice.status))
                                                            : "the worker left no answer");
    }
}

bool Worker::Do(const std::string& job, const Take& take) {
    if (job.size() > kLongestJob) {
        throw std::runtime_error("the request is too long");
    }
    std::unique_lock lock(mutex_);
    const std::uint64_t mine = ++newest_;
    turn_.notify_all(); // who waits has a successor now
    turn_.wait(lock, [&] { return !running_ || mine != newest_; });
    if (mine != newest_) {
        return false;
    }
    running_ = true;
    lock.unlock();
    const auto finish = [&] {
        lock.lock();
        running_ = false;
        turn_.notify_all();
    };
    try {
        Send(job, take);
    } catch (...) {
        finish();
        throw;
    }
    finish();
    return true;
}

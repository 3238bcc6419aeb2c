#include "tools/view/worker.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tools/files/interruption.h"
#include "tools/files/output_folder.h"

namespace {

[[noreturn]] void Fail(const char* what) {
    throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
}

std::string ReadAll(int file) {
    struct stat facts = {};
    if (::fstat(file, &facts) != 0) {
        Fail("the worker's answer");
    }
    std::string bytes(static_cast<std::size_t>(facts.st_size), '\0');
    for (std::size_t done = 0; done < bytes.size();) {
        const ssize_t count =
            ::pread(file, bytes.data() + done, bytes.size() - done, static_cast<off_t>(done));
        if (count <= 0) {
            Fail("the worker's answer");
        }
        done += static_cast<std::size_t>(count);
    }
    return bytes;
}

// Starts a process for each job that comes over the socket, and sends back how it ended. This
// process has one thread and stays small, so that a copy of it is made soon.
[[noreturn]] void Serve(const std::function<std::string(const std::string&)>& work, int socket,
                        int answer) {
    const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    ::dup2(null, STDOUT_FILENO);
    ::dup2(null, STDERR_FILENO); // the answer holds the log
    std::string buffer(Worker::kLongestJob, '\0');
    for (;;) {
        const ssize_t count = ::recv(socket, buffer.data(), buffer.size(), 0);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            ::_exit(EXIT_SUCCESS);
        }
        if (::ftruncate(answer, 0) != 0 || ::lseek(answer, 0, SEEK_SET) != 0) {
            ::_exit(EXIT_FAILURE);
        }
        const pid_t child = ForkChild();
        if (child == 0) {
            ::close(socket);
            const std::string bytes = work(buffer.substr(0, static_cast<std::size_t>(count)));
            const bool written = WriteAll(
                answer, {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
            ::_exit(written ? EXIT_SUCCESS : EXIT_FAILURE);
        }
        int status = 0;
        AwaitChild(child, status);
        if (::send(socket, &status, sizeof status, MSG_NOSIGNAL) < 0) {
            ::_exit(EXIT_FAILURE);
        }
    }
}

} // namespace

Worker::Worker(const std::function<std::string(const std::string&)>& work) {
    int ends[2] = {};
    answer_ = ::memfd_create("answer", MFD_CLOEXEC);
    if (answer_ < 0 || ::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
        Fail("cannot start the worker");
    }
    process_ = ForkChild();
    if (process_ == 0) {
        ::close(ends[0]);
        Serve(work, ends[1], answer_);
    }
    ::close(ends[1]);
    socket_ = ends[0];
}

Worker::~Worker() {
    ::kill(process_, SIGTERM);
    int status = 0;
    AwaitChild(process_, status);
    ::close(socket_);
    ::close(answer_);
}

std::string Worker::Send(const std::string& job) {
    int status = 0;
    ssize_t count = ::send(socket_, job.data(), job.size(), MSG_NOSIGNAL);
    while (count >= 0 && (count = ::recv(socket_, &status, sizeof status, 0)) < 0 &&
           errno == EINTR) {
        count = 0;
    }
    if (count != sizeof status) {
        throw std::runtime_error("the worker has ended");
    }
    if (WIFSIGNALED(status)) {
        throw std::runtime_error(SignalInWords(WTERMSIG(status)));
    }
    if (WEXITSTATUS(status) != EXIT_SUCCESS) {
        throw std::runtime_error("the worker left no answer");
    }
    return ReadAll(answer_);
}

std::optional<std::string> Worker::Do(const std::string& job) {
    if (job.size() > kLongestJob) {
        throw std::runtime_error("the request is too long");
    }
    std::unique_lock lock(mutex_);
    const std::uint64_t mine = ++newest_;
    turn_.notify_all(); // who waits has a successor now
    turn_.wait(lock, [&] { return !running_ || mine != newest_; });
    if (mine != newest_) {
        return std::nullopt;
    }
    running_ = true;
    lock.unlock();
    const auto finish = [&] {
        lock.lock();
        running_ = false;
        turn_.notify_all();
    };
    try {
        std::string answer = Send(job);
        finish();
        return answer;
    } catch (...) {
        finish();
        throw;
    }
}

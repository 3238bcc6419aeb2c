#include "tools/files/child_process.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fmt/core.h>

#include "tools/files/interruption.h"

pid_t ForkChild() {
    std::fflush(nullptr); // or the child would write it as well
    const pid_t parent = ::getpid();
    auto delay = DelayInterruption();
    const pid_t child = ::fork();
    if (child < 0) {
        throw std::runtime_error(std::string("cannot start a process: ") + std::strerror(errno));
    }
    if (child > 0) {
        EndWhenInterrupted(child);
        return child;
    }
    delay.release(); // it is the parent's
    WatchForInterruptionInChild();
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (::getppid() != parent) {
        ::_exit(EXIT_FAILURE); // it ended before it was watched
    }
    return 0;
}

std::pair<pid_t, int> AwaitChild(pid_t child) {
    siginfo_t ended = {};
    const idtype_t whom = child == 0 ? P_ALL : P_PID;
    while (::waitid(whom, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT) != 0) {
        if (errno != EINTR) {
            throw std::runtime_error(std::string("no child process: ") + std::strerror(errno));
        }
    }
    // Its id may belong to another process from waitpid on.
    const auto delay = DelayInterruption();
    int status = 0;
    ::waitpid(ended.si_pid, &status, 0);
    ForgetEnded(ended.si_pid);
    return {ended.si_pid, status};
}

std::string SignalInWords(int signal) {
    return fmt::format("crashed: signal {} ({})", signal, ::strsignal(signal));
}

void ContinueInChild(std::optional<int> seconds) {
    const pid_t child = ForkChild();
    if (child == 0) {
        return;
    }
    const bool ended = EndsWithin(child, seconds);
    if (!ended) {
        EndByForce(child);
    }
    const int status = AwaitChild(child).second;
    if (!ended) {
        throw ChildFailure(fmt::format("timed out after {} s", *seconds));
    }
    if (WIFEXITED(status)) {
        std::_Exit(WEXITSTATUS(status)); // whatever is to be done or removed, the child has
    }
    const int signal = WTERMSIG(status);
    if (signal == SIGINT || signal == SIGTERM || signal == SIGHUP) { // as Ctrl-C sends to both
        ::kill(::getpid(), signal);
        for (;;) {
            ::pause();
        }
    }
    throw ChildFailure(SignalInWords(signal));
}

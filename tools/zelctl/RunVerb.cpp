// SPDX-License-Identifier: Apache-2.0
// The verb run: a session around a command.
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <optional>

#include "Holding.h"
#include "Loop.h"
#include "Text.h"
#include "Verbs.h"

namespace zelctl {

namespace {

constexpr std::int64_t kTraceId = 1;

// Becomes the command, or tells through the pipe why not.
[[noreturn]] void become(std::vector<char*>& command, const sigset_t& mask, pid_t parent, int failure) {
    // Without the session around it the command has lost what it was started under: it is asked to end.
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    sigprocmask(SIG_SETMASK, &mask, nullptr);
    if (getppid() == parent) {
        execvp(command.front(), command.data());
    }
    const int error = errno;
    const ssize_t written = write(failure, &error, sizeof error);
    _exit(written == sizeof error ? kNotExecutable : kNotFound);
}

// A command that runs, as a child of this process and in its process group, so that the terminal is shared as
// if there were no zelctl between it and the shell.
class Command {
public:
    // Signals are passed on from before it runs: none is lost, and none ends this process instead.
    Command(const std::vector<std::string>& words, const sigset_t& mask) {
        std::vector<std::string> copies = words;
        std::vector<char*> command;
        command.reserve(words.size() + 1);
        for (std::string& word : copies) {
            command.push_back(word.data());
        }
        command.push_back(nullptr);
        std::array<int, 2> failure{-1, -1};
        const pid_t self = getpid();
        if (pipe2(failure.data(), O_CLOEXEC) != 0 || (m_pid = fork()) < 0) {
            throw Trouble(kFailed, words.front(), std::strerror(errno), "once more, with fewer processes");
        }
        if (m_pid == 0) {
            become(command, mask, self, failure[1]);
        }
        close(failure[1]);
        int error = 0;
        const bool failed = read(failure[0], &error, sizeof error) == sizeof error;
        close(failure[0]);
        if (failed) {
            waitpid(m_pid, nullptr, 0);
            throw Trouble(error == ENOENT ? kNotFound : kNotExecutable, words.front(), std::strerror(error),
                          "which " + words.front());
        }
    }

    // A signal of the terminal has reached the command already, unless it left the group; but that the
    // terminal has gone only the leader of the session is told.
    void pass(const signalfd_siginfo& info) const {
        const int signal = static_cast<int>(info.ssi_signo);
        const bool leads = getsid(0) == getpid();
        const bool toGroup =
            info.ssi_code == SI_KERNEL && !(leads && (signal == SIGHUP || signal == SIGCONT));
        if (!toGroup || getpgid(m_pid) != getpgrp()) {
            kill(m_pid, signal);
        }
    }

    // What became of it since the last look: its exit status when it has ended.
    std::optional<int> look() const {
        int status = 0;
        while (waitpid(m_pid, &status, WNOHANG | WUNTRACED) == m_pid) {
            if (WIFEXITED(status)) {
                return WEXITSTATUS(status);
            }
            if (WIFSIGNALED(status)) {
                return kSignal + WTERMSIG(status);
            }
            stopToo(WSTOPSIG(status));
        }
        return std::nullopt;
    }

private:
    // The shell sees only this process: it stops when job control has stopped the command, and goes on with
    // it.
    static void stopToo(int signal) {
        if (signal == SIGTSTP || signal == SIGTTIN || signal == SIGTTOU) {
            raise(SIGSTOP);
        }
    }

    pid_t m_pid = -1;
};

// The command is worth more than the trace: one that is not kept is only missed.
void leaveTrace(Holding& holding, Daemon& daemon, const std::string& text) {
    std::string problem = "the set is without tracing";
    try {
        holding.openTrace(kTraceId, text, Language::Cpp);
        if (daemon.keepsTrace()) {
            return;
        }
    } catch (const Trouble& trouble) {
        if (trouble.status() == kNoBus) {
            // The session has gone as well.
            throw;
        }
        problem = trouble.what();
    }
    std::fprintf(stderr, "zelctl: the daemon does not show the trace; the command is run all the same: %s\n",
                 problem.c_str());
}

}  // namespace

int run(const std::vector<std::string>& command, const std::string& trace, std::chrono::seconds limit) {
    const Bus bus;
    Daemon daemon(bus);
    Holding holding(daemon);
    if (!holding.openSession(limit)) {
        throw Trouble(kNotStarted, "the daemon reports no success",
                      "the service could not be started or told, so the command was not run",
                      "zelctl self-test");
    }
    sigset_t mask;
    sigprocmask(SIG_SETMASK, nullptr, &mask);
    // Whoever started this process may have had its own children collected by the kernel.
    signal(SIGCHLD, SIG_DFL);
    Loop loop(bus);
    std::optional<Command> running;
    std::optional<int> status;
    loop.onSignals({SIGCHLD}, [&](const signalfd_siginfo& /*info*/) {
        status = running->look();
        if (status) {
            loop.stop();
        }
    });
    loop.onSignals({SIGTERM, SIGINT, SIGHUP, SIGQUIT, SIGUSR1, SIGUSR2, SIGTSTP, SIGCONT},
                   [&](const signalfd_siginfo& info) { running->pass(info); });
    loop.onBusLost([] {
        std::fputs("zelctl: the bus has gone, and the session with it; the command runs on\n", stderr);
    });
    loop.surviveBrokenPipes();
    if (!trace.empty()) {
        leaveTrace(holding, daemon, trace);
    }
    running.emplace(command, mask);
    loop.run();
    return *status;
}

}  // namespace zelctl

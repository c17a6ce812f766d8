// SPDX-License-Identifier: Apache-2.0
// The verbs that hold something for as long as they run: open, trace open, trace close.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "Holding.h"
#include "Loop.h"
#include "Text.h"
#include "Verbs.h"

namespace zelctl {

namespace {

constexpr std::initializer_list<int> kEnding{SIGINT, SIGTERM, SIGHUP, SIGQUIT};

// From now on a signal says that it is enough; before that nothing may be held that has to be closed.
void endWithSignal(Loop& loop, const char* what) {
    loop.surviveBrokenPipes();
    loop.onSignals(kEnding, [&loop](const signalfd_siginfo& /*info*/) { loop.stop(); });
    loop.onBusLost([what] {
        throw Trouble(kNoBus, "the system bus", std::string("it has gone, and the ") + what + " with it",
                      "systemctl status dbus.service");
    });
}

class Socket {
public:
    explicit Socket(int fd) : m_fd(fd) {}
    ~Socket() {
        if (m_fd >= 0) {
            close(m_fd);
        }
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    int get() const { return m_fd; }

private:
    int m_fd;
};

// Where the holder of a trace listens: a name without a file, which goes with its process, however that ends.
struct Address {
    sockaddr_un name{};
    socklen_t size = 0;

    explicit Address(std::int64_t id) {
        const std::string text = "zelctl/" + std::to_string(geteuid()) + "/trace/" + std::to_string(id);
        name.sun_family = AF_UNIX;
        std::copy(text.begin(), text.end(), &name.sun_path[1]);
        size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + text.size());
    }
    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&name); }
};

Socket makeSocket() {
    return Socket(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
}

// Anybody may take or call a name that belongs to no file.
bool isOwn(int socket) {
    ucred peer{};
    socklen_t size = sizeof peer;
    return getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.uid == geteuid();
}

void makeSureOfTrace(Daemon& daemon, std::int64_t id) {
    if (!daemon.keepsTrace()) {
        throw Trouble(
            kFailed, "trace " + std::to_string(id), "the daemon did not keep it",
            "without the switch /etc/zel-lite/zel_lite_disable_tracing, which it reads when it starts");
    }
}

void listenAt(const Socket& socket, std::int64_t id) {
    const Address address(id);
    if (bind(socket.get(), address.get(), address.size) == 0 && listen(socket.get(), 4) == 0) {
        return;
    }
    throw Trouble(kFailed, "trace " + std::to_string(id),
                  errno == EADDRINUSE ? "that id is taken" : std::strerror(errno), "another --id");
}

}  // namespace

Status open(bool keep, std::chrono::seconds limit) {
    const Bus bus;
    Daemon daemon(bus);
    Holding holding(daemon);
    if (!holding.openSession(limit)) {
        if (!keep) {
            holding.close();
            throw Trouble(kNotStarted, "the daemon reports no success",
                          "the service could not be started or told, and the session was closed again",
                          "zelctl self-test; --keep holds the session all the same");
        }
        std::fputs(
            "zelctl: the daemon reports no success: the service could not be started or told; "
            "the session is held all the same\n",
            stderr);
    }
    Loop loop(bus);
    endWithSignal(loop, "session");
    print("session " + printable(bus.uniqueName()) + " is open until this process (" +
          std::to_string(getpid()) + ") ends\n");
    loop.run();
    holding.close();
    return kDone;
}

Status openTrace(std::int64_t id, const std::string& text, Language language, std::chrono::seconds limit) {
    const Socket listener = makeSocket();
    listenAt(listener, id);
    const Bus bus(limit);
    Daemon daemon(bus);
    Loop loop(bus);
    endWithSignal(loop, "connection that the trace belongs to");
    int closer = -1;
    loop.onReadable(listener.get(), [&] {
        const int caller = accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC);
        if (caller >= 0 && isOwn(caller) && closer < 0) {
            closer = caller;
            loop.stop();
        } else if (caller >= 0) {
            ::close(caller);
        }
    });
    Holding holding(daemon);
    holding.openTrace(id, text, language);
    makeSureOfTrace(daemon, id);
    print("trace " + std::to_string(id) + " of " + printable(bus.uniqueName()) +
          " is open until this process (" + std::to_string(getpid()) + ") ends\n");
    loop.run();
    const Socket answered(closer);
    holding.close();
    if (closer >= 0) {
        send(closer, "", 1, MSG_NOSIGNAL);
    }
    return kDone;
}

Status closeTrace(std::int64_t id) {
    const std::string where = "trace " + std::to_string(id);
    const Socket socket = makeSocket();
    const Address address(id);
    // Anybody may have taken the name, and may leave whoever calls waiting.
    const timeval limit{static_cast<time_t>(kQuestionLimit.count() * 2), 0};
    setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    if (connect(socket.get(), address.get(), address.size) != 0 || !isOwn(socket.get())) {
        throw Trouble(
            kFailed, where, "no zelctl of this user holds one of that id",
            "the id that 'zelctl trace open' has printed; only who has opened a trace can close it");
    }
    char byte = 0;
    if (recv(socket.get(), &byte, 1, 0) != 1) {
        throw Trouble(kNoAnswer, where, "its holder did not say that it is closed", "zelctl report");
    }
    return kDone;
}

}  // namespace zelctl

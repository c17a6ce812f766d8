// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What a test's own process writes to stderr, write by write.
 */
#ifndef TESTS_SUPPORT_STDERR_PACKETS_H
#define TESTS_SUPPORT_STDERR_PACKETS_H

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <optional>
#include <stdexcept>
#include <string>

/**
 * Puts a packet socket in the place of stderr while it lives, so that every write(2) is one packet. The
 * socket holds some hundred short packets; who writes more must be read by another thread meanwhile.
 */
class StderrPackets {
public:
    StderrPackets() : m_saved(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)) {
        std::array<int, 2> pair{};
        if (m_saved < 0 || socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair.data()) != 0) {
            throw std::runtime_error("StderrPackets: no socket");
        }
        m_reader = pair[0];
        dup2(pair[1], STDERR_FILENO);
        close(pair[1]);
    }
    ~StderrPackets() {
        dup2(m_saved, STDERR_FILENO);
        close(m_saved);
        close(m_reader);
    }
    StderrPackets(const StderrPackets&) = delete;
    StderrPackets& operator=(const StderrPackets&) = delete;

    /** The oldest packet not read yet; nothing when there is none now. */
    std::optional<std::string> next() { return receive(MSG_DONTWAIT); }

    /** The oldest packet not read yet, waiting for it; nothing when none came for @p seconds. */
    std::optional<std::string> await(int seconds = 30) {
        const timeval limit{seconds, 0};
        setsockopt(m_reader, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        return receive(0);
    }

private:
    std::optional<std::string> receive(int flags) {
        std::string packet(8192, '\0');
        const ssize_t size = recv(m_reader, packet.data(), packet.size(), flags);
        if (size <= 0) {
            return std::nullopt;
        }
        packet.resize(static_cast<std::size_t>(size));
        return packet;
    }

    int m_saved;
    int m_reader = -1;
};

#endif

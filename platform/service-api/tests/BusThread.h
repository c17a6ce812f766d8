// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Somebody on the bus who answers: a connection, and a thread that serves it until its end or the bus's.
 */
#ifndef SERVICE_API_TESTS_BUS_THREAD_H
#define SERVICE_API_TESTS_BUS_THREAD_H

#include <poll.h>
#include <sdbus-c++/sdbus-c++.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

class BusThread {
public:
    BusThread() : m_connection(sdbus::createSystemBusConnection()), m_wake(eventfd(0, EFD_CLOEXEC)) {}

    ~BusThread() {
        leave();
        if (m_thread.joinable()) {
            m_thread.join();
        }
        close(m_wake);
    }

    BusThread(const BusThread&) = delete;
    BusThread& operator=(const BusThread&) = delete;

    /** To be used before serve() only. */
    sdbus::IConnection& connection() { return *m_connection; }

    /** Serves what it is given, under a name, from now on. */
    void serve(const std::string& name, std::vector<std::unique_ptr<sdbus::IObject>> objects) {
        m_objects = std::move(objects);
        m_connection->requestName(name);
        m_thread = std::thread([this] { run(); });
    }

    /** Makes the thread leave the bus after what it is serving. */
    void leave() { eventfd_write(m_wake, 1); }

private:
    void run() {
        try {
            while (!waitAndProcess()) {
            }
        } catch (const sdbus::Error&) {
            // The bus has ended.
        }
        m_objects.clear();
        m_connection.reset();
    }

    bool waitAndProcess() {
        const bool more = m_connection->processPendingRequest();
        const auto data = m_connection->getEventLoopPollData();
        std::array<pollfd, 2> polled{pollfd{m_wake, POLLIN, 0}, pollfd{data.fd, data.events, 0}};
        poll(polled.data(), polled.size(), more ? 0 : data.getPollTimeout());
        return polled[0].revents != 0;
    }

    std::unique_ptr<sdbus::IConnection> m_connection;
    std::vector<std::unique_ptr<sdbus::IObject>> m_objects;
    int m_wake;
    std::thread m_thread;
};

#endif

// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A system bus of the test's own: a real dbus-daemon on a socket in the private /tmp.
 */
#ifndef TESTS_SUPPORT_PRIVATE_BUS_H
#define TESTS_SUPPORT_PRIVATE_BUS_H

#include <sys/types.h>

#include <string>

/**
 * Owns one dbus-daemon. Constructing it points DBUS_SYSTEM_BUS_ADDRESS, which libdbus and sd-bus both honour,
 * at its socket; the bus itself runs from start() to stop(). Because libdbus keeps one address and one shared
 * connection per process, a test program has one of these.
 */
class PrivateBus {
public:
    /** @param start  whether the bus runs at once */
    explicit PrivateBus(bool start = true);
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    /** Starts the bus, on the same address each time, and returns when it accepts connections. */
    void start();

    /** Ends the bus; everybody on it is disconnected. */
    void stop();

    /** Makes the bus do nothing until goOn. */
    void pause() const;
    void goOn() const;

    /** The D-Bus address. */
    const std::string& address() const { return m_address; }

private:
    const std::string m_directory = "/tmp/private-bus";
    const std::string m_address = "unix:path=" + m_directory + "/socket";
    pid_t m_pid = -1;
};

#endif

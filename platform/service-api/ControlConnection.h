// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The connection that carries one exchange of the control with systemd or the service.
 */
#ifndef SERVICE_API_CONTROL_CONNECTION_H
#define SERVICE_API_CONTROL_CONNECTION_H

#include <stdexcept>
#include <string>

#include "Bus.h"
#include "Deadline.h"

/** A call that was not answered, or was answered with an error. */
class ControlError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/**
 * A connection to the system bus, for one thread and one exchange.
 *
 * It protects itself from what strangers send to its unique name. It owns the bus name
 * `com.brenlow.ZELLite.Control`, or waits in line for it behind another such connection; the policy of the
 * bus lets only root send to both. The request for the name leaves together with the greeting, so no message
 * can arrive in between. It does not accept descriptors, so where no such policy is installed strangers can't
 * use up those of this process. What arrives all the same goes with the connection.
 */
class ControlConnection {
public:
    /** Connects. Throws std::system_error when it can't. */
    ControlConnection();

    /** A call that is filled in and then made. Throws std::system_error. */
    bus::Message newCall(const std::string& destination, const char* path, const char* interface,
                         const char* member);

    /** Makes a call. @return its reply. Throws ControlError when there is none in time, or it is an error */
    bus::Message call(const bus::Message& message, const Deadline& deadline);

private:
    void requestName();

    bus::Connection m_bus;
};

#endif

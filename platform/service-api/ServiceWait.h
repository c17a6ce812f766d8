// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Waiting for the supervised service to be there.
 */
#ifndef SERVICE_API_SERVICE_WAIT_H
#define SERVICE_API_SERVICE_WAIT_H

#include <string>

#include "ControlConnection.h"
#include "Deadline.h"

/** Bus name of the service. */
constexpr const char* kServiceName = "com.brenlow.ZELDaemon";

/** The unique name of who owns the service's bus name. Throws ControlError when nobody does. */
std::string serviceOwner(ControlConnection& connection, const Deadline& deadline);

/**
 * Waits until the service owns its bus name and its unit is not on its way down.
 *
 * @param connection  used by nobody else meanwhile
 * @param deadline    the longest wait
 * @return whether it is there; false as soon as nothing is left that would bring it. Throws ControlError when
 * the bus is lost
 */
bool waitForService(ControlConnection& connection, const Deadline& deadline);

#endif

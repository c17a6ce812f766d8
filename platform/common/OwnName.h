// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The bus name that protects a connection from strangers.
 */
#ifndef PLATFORM_COMMON_OWN_NAME_H
#define PLATFORM_COMMON_OWN_NAME_H

#include <sdbus-c++/sdbus-c++.h>

#include <chrono>
#include <cstdint>

/**
 * Makes a connection own a bus name, or wait in line for it behind another.
 *
 * The daemon's connections have names because the policy of the bus lets only root send to the connections
 * that own them or wait for them, also by their unique names. It is to be called as soon as the connection is
 * made: until then strangers can send. sdbus-c++ 1.2 greets the bus itself and accepts descriptors, so
 * neither can be done earlier, nor without them.
 *
 * @param limit  the longest wait for the bus
 * Throws sdbus::Error when the bus refuses or is lost.
 */
inline void takeOwnName(sdbus::IConnection& connection, const char* name, std::chrono::microseconds limit) {
    // No flag: where the name is taken, the connection waits for it.
    constexpr std::uint32_t kWaitInLine = 0;
    std::uint32_t result = 0;
    sdbus::createProxy(connection, "org.freedesktop.DBus", "/org/freedesktop/DBus")
        ->callMethod("RequestName")
        .onInterface("org.freedesktop.DBus")
        .withTimeout(limit)
        .withArguments(name, kWaitInLine)
        .storeResultsTo(result);
}

#endif

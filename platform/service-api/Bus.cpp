// SPDX-License-Identifier: Apache-2.0
#include "Bus.h"

#include <cstdlib>

namespace {

constexpr const char* kSystemBus = "unix:path=/run/dbus/system_bus_socket";

}  // namespace

bus::Message bus::newCall(sd_bus* connection, const char* destination, const char* path,
                          const char* interface, const char* member) {
    sd_bus_message* call = nullptr;
    check(sd_bus_message_new_method_call(connection, &call, destination, path, interface, member), member);
    return Message(call);
}

bus::Connection bus::connect() {
    sd_bus* opened = nullptr;
    check(sd_bus_new(&opened), "sd_bus_new");
    Connection connection(opened);
    const char* address = secure_getenv("DBUS_SYSTEM_BUS_ADDRESS");
    check(sd_bus_set_address(opened, address == nullptr ? kSystemBus : address), "the address of the bus");
    check(sd_bus_set_bus_client(opened, 1), "sd_bus_set_bus_client");
    check(sd_bus_negotiate_fds(opened, 0), "sd_bus_negotiate_fds");
    check(sd_bus_start(opened), "connecting to the bus");
    return connection;
}

std::string bus::Error::text(int result) const {
    if (m_error.name == nullptr) {
        return std::generic_category().message(-result);
    }
    return bus::text(m_error.name) + ": " + bus::text(m_error.message);
}

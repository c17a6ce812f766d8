// SPDX-License-Identifier: Apache-2.0
#include "ControlConnection.h"

#include <cstdint>

namespace {

constexpr const char* kOwnName = "com.brenlow.ZELLite.Control";

// Neither DO_NOT_QUEUE nor another flag: with the name taken, this connection waits for it.
constexpr std::uint32_t kWaitInLine = 0;

}  // namespace

ControlConnection::ControlConnection() : m_bus(bus::connect()) {
    requestName();
}

// Waits for no answer: that would take until after the greeting, and strangers could send messages until
// then. Without the name, everything works.
void ControlConnection::requestName() {
    const bus::Message request = newCall(bus::kName, bus::kPath, bus::kName, "RequestName");
    bus::check(sd_bus_message_append(request.get(), "su", kOwnName, kWaitInLine), "RequestName");
    bus::check(sd_bus_message_set_expect_reply(request.get(), 0), "RequestName");
    bus::check(sd_bus_send(m_bus.get(), request.get(), nullptr), "RequestName");
}

bus::Message ControlConnection::newCall(const std::string& destination, const char* path,
                                        const char* interface, const char* member) {
    return bus::newCall(m_bus.get(), destination.c_str(), path, interface, member);
}

bus::Message ControlConnection::call(const bus::Message& message, const Deadline& deadline) {
    bus::Error error;
    sd_bus_message* reply = nullptr;
    const auto limit = static_cast<std::uint64_t>(deadline.remaining().count());
    const int result = sd_bus_call(m_bus.get(), message.get(), limit, error.get(), &reply);
    if (result < 0) {
        throw ControlError(error.text(result));
    }
    return bus::Message(reply);
}

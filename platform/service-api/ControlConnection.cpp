// SPDX-License-Identifier: Apache-2.0
#include "ControlConnection.h"

#include <cstdint>
#include <cstdlib>
#include <system_error>

namespace {

constexpr const char* kOwnName = "com.brenlow.ZELLite.Control";
constexpr const char* kSystemBus = "unix:path=/run/dbus/system_bus_socket";

constexpr const char* kBus = "org.freedesktop.DBus";
constexpr const char* kBusPath = "/org/freedesktop/DBus";

// Neither DO_NOT_QUEUE nor another flag: with the name taken, this connection waits for it.
constexpr std::uint32_t kWaitInLine = 0;

const char* busAddress() {
    const char* given = secure_getenv("DBUS_SYSTEM_BUS_ADDRESS");
    return given == nullptr ? kSystemBus : given;
}

/** An error record of libsystemd that frees itself. */
class ErrorRecord {
public:
    ErrorRecord() = default;
    ~ErrorRecord() { sd_bus_error_free(&m_error); }
    ErrorRecord(const ErrorRecord&) = delete;
    ErrorRecord& operator=(const ErrorRecord&) = delete;

    sd_bus_error* get() { return &m_error; }

    /** The error's name and text; what @p result stands for where there is none. */
    std::string text(int result) const {
        if (m_error.name == nullptr) {
            return std::generic_category().message(-result);
        }
        return std::string(m_error.name) + ": " + (m_error.message == nullptr ? "" : m_error.message);
    }

private:
    sd_bus_error m_error = SD_BUS_ERROR_NULL;
};

}  // namespace

int checkBus(int result, const char* what) {
    if (result < 0) {
        throw ControlError(std::string(what) + ": " + std::generic_category().message(-result));
    }
    return result;
}

ControlConnection::ControlConnection() {
    sd_bus* bus = nullptr;
    checkBus(sd_bus_new(&bus), "sd_bus_new");
    m_bus.reset(bus);
    checkBus(sd_bus_set_address(bus, busAddress()), "the address of the bus");
    checkBus(sd_bus_set_bus_client(bus, 1), "sd_bus_set_bus_client");
    checkBus(sd_bus_negotiate_fds(bus, 0), "sd_bus_negotiate_fds");
    checkBus(sd_bus_start(bus), "connecting to the bus");
    requestName();
}

// Waits for no answer: that would take until after the greeting, and strangers could send messages until
// then. Without the name, everything works.
void ControlConnection::requestName() {
    const BusMessage request = newCall(kBus, kBusPath, kBus, "RequestName");
    checkBus(sd_bus_message_append(request.get(), "su", kOwnName, kWaitInLine), "RequestName");
    checkBus(sd_bus_message_set_expect_reply(request.get(), 0), "RequestName");
    checkBus(sd_bus_send(m_bus.get(), request.get(), nullptr), "RequestName");
}

BusMessage ControlConnection::newCall(const std::string& destination, const char* path, const char* interface,
                                      const char* member) {
    sd_bus_message* message = nullptr;
    checkBus(
        sd_bus_message_new_method_call(m_bus.get(), &message, destination.c_str(), path, interface, member),
        member);
    return BusMessage(message);
}

BusMessage ControlConnection::call(const BusMessage& message, const Deadline& deadline) {
    ErrorRecord error;
    sd_bus_message* reply = nullptr;
    const auto limit = static_cast<std::uint64_t>(deadline.remaining().count());
    const int result = sd_bus_call(m_bus.get(), message.get(), limit, error.get(), &reply);
    if (result < 0) {
        throw ControlError(error.text(result));
    }
    return BusMessage(reply);
}

// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Owners of what sd-bus hands out. None of it is thread-safe: a connection and its messages belong to one
 * thread at a time.
 */
#ifndef SERVICE_API_BUS_H
#define SERVICE_API_BUS_H

#include <systemd/sd-bus.h>

#include <memory>
#include <string>
#include <system_error>

namespace bus {

struct CloseConnection {
    // Without writing what is queued: that may never end.
    void operator()(sd_bus* connection) const { sd_bus_close_unref(connection); }
};
using Connection = std::unique_ptr<sd_bus, CloseConnection>;

struct ReleaseMessage {
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Message = std::unique_ptr<sd_bus_message, ReleaseMessage>;

/** The same message with another owner. */
inline Message share(sd_bus_message* message) {
    return Message(sd_bus_message_ref(message));
}

/** @return @p result; throws std::system_error saying @p what when it is a negative error number */
inline int check(int result, const char* what) {
    if (result < 0) {
        throw std::system_error(-result, std::generic_category(), what);
    }
    return result;
}

/** The bus itself: its name, which is that of its interface too, and its object. */
constexpr const char* kName = "org.freedesktop.DBus";
constexpr const char* kPath = "/org/freedesktop/DBus";

/** A call that is filled in and then made. Throws std::system_error. */
Message newCall(sd_bus* connection, const char* destination, const char* path, const char* interface,
                const char* member);

/**
 * Connects to the system bus, `DBUS_SYSTEM_BUS_ADDRESS` or the usual socket, without waiting for its
 * greeting. The connection takes no descriptors: the bus refuses messages with descriptors to it, so
 * strangers can't use up those of this process. Throws std::system_error.
 */
Connection connect();

/** An error record that frees itself. */
class Error {
public:
    Error() = default;
    ~Error() { sd_bus_error_free(&m_error); }
    Error(const Error&) = delete;
    Error& operator=(const Error&) = delete;

    sd_bus_error* get() { return &m_error; }

    /** The error's name and text; what @p result stands for where there is none. */
    std::string text(int result) const;

private:
    sd_bus_error m_error{};
};

/** A text of a message; empty where there is none. */
inline std::string text(const char* value) {
    return value == nullptr ? std::string() : std::string(value);
}

}  // namespace bus

#endif

// SPDX-License-Identifier: Apache-2.0
#include "support/ScriptedSystemd.h"

#include <stdexcept>
#include <utility>

ScriptedSystemd::ScriptedSystemd(const std::string& address) {
    dbus_threads_init_default();
    DBusError error;
    dbus_error_init(&error);
    m_connection = dbus_connection_open_private(address.c_str(), &error);
    if (m_connection == nullptr || dbus_bus_register(m_connection, &error) == 0 ||
        dbus_bus_request_name(m_connection, "org.freedesktop.systemd1", DBUS_NAME_FLAG_DO_NOT_QUEUE,
                              &error) != DBUS_REQUEST_NAME_REPLY_PRIMARY_OWNER) {
        throw std::runtime_error("ScriptedSystemd: no place on the bus");
    }
    dbus_connection_set_exit_on_disconnect(m_connection, 0);
    m_thread = std::thread([this] { serve(); });
}

ScriptedSystemd::~ScriptedSystemd() {
    m_stop = true;
    m_thread.join();
    dbus_connection_close(m_connection);
    dbus_connection_unref(m_connection);
}

std::vector<std::string> ScriptedSystemd::takeCalls() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return std::exchange(m_calls, {});
}

void ScriptedSystemd::serve() {
    constexpr int kPollMs = 10;
    while (!m_stop && dbus_connection_read_write(m_connection, kPollMs) != 0) {
        while (DBusMessage* message = dbus_connection_pop_message(m_connection)) {
            if (dbus_message_get_type(message) == DBUS_MESSAGE_TYPE_METHOD_CALL) {
                handle(message);
            }
            dbus_message_unref(message);
        }
    }
}

void ScriptedSystemd::handle(DBusMessage* call) {
    const char* unit = "?";
    const char* mode = "?";
    dbus_message_get_args(call, nullptr, DBUS_TYPE_STRING, &unit, DBUS_TYPE_STRING, &mode, DBUS_TYPE_INVALID);
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_calls.push_back(std::string(dbus_message_get_path(call)) + " " + dbus_message_get_interface(call) +
                          "." + dbus_message_get_member(call) + " " + dbus_message_get_signature(call) + " " +
                          unit + " " + mode);
    }
    if (DBusMessage* reply = makeReply(call)) {
        dbus_connection_send(m_connection, reply, nullptr);
        dbus_connection_flush(m_connection);
        dbus_message_unref(reply);
    }
}

DBusMessage* ScriptedSystemd::makeReply(DBusMessage* call) const {
    const char* job = "/org/freedesktop/systemd1/job/7";
    const dbus_int32_t number = 5;
    DBusMessage* reply = nullptr;
    switch (m_answer) {
        case Answer::JobPath:
            reply = dbus_message_new_method_return(call);
            dbus_message_append_args(reply, DBUS_TYPE_OBJECT_PATH, &job, DBUS_TYPE_INVALID);
            return reply;
        case Answer::ErrorWithText:
            return dbus_message_new_error(call, "org.freedesktop.systemd1.UnitMasked", "Unit is masked.");
        case Answer::ErrorWithoutText:
            return dbus_message_new_error(call, "org.freedesktop.systemd1.UnitMasked", nullptr);
        case Answer::Number:
            reply = dbus_message_new_method_return(call);
            dbus_message_append_args(reply, DBUS_TYPE_INT32, &number, DBUS_TYPE_INVALID);
            return reply;
        case Answer::Nothing:
            return dbus_message_new_method_return(call);
        case Answer::Never:
            return nullptr;
    }
    return nullptr;
}

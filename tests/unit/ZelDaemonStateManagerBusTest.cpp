// SPDX-License-Identifier: Apache-2.0
// The supervision of the service on a bus that is missing, late, restarted, or has no manager that answers.
#include <dbus/dbus.h>
#include <gmock/gmock.h>
#include <sys/ioctl.h>

#include <cstddef>
#include <functional>
#include <string>

#include "fakes/FakeDlog.h"
#include "support/PrivateBus.h"
#include "support/ScriptedSystemd.h"
#include "support/StateManagerWorld.h"
#include "support/Wait.h"

using fakes::FakeDlog;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

constexpr int kError = 6;

int lastTimeout = 0;

// Runs when the manager asks for its name, before the bus hears of it.
std::function<void(DBusConnection*)> beforeTheName;

class ZelDaemonStateManagerBusTest : public StateManagerWorld {
protected:
    ZelDaemonStateManagerBusTest() : m_bus(false) {
        lastTimeout = 0;
        beforeTheName = nullptr;
        dropConnection();
    }

    PrivateBus m_bus;
};

}  // namespace

extern "C" dbus_bool_t __real_dbus_connection_send_with_reply(DBusConnection* connection,
                                                              DBusMessage* message, DBusPendingCall** call,
                                                              int timeout);
extern "C" dbus_bool_t __wrap_dbus_connection_send_with_reply(DBusConnection* connection,
                                                              DBusMessage* message, DBusPendingCall** call,
                                                              int timeout);
// Nobody waits 25 seconds here: the time-out that was asked for is noted and shortened.
extern "C" dbus_bool_t __wrap_dbus_connection_send_with_reply(DBusConnection* connection,
                                                              DBusMessage* message, DBusPendingCall** call,
                                                              int timeout) {
    constexpr int kShort = 300;
    if (beforeTheName && dbus_message_has_member(message, "RequestName") != 0) {
        beforeTheName(connection);
    }
    lastTimeout = timeout;
    return __real_dbus_connection_send_with_reply(connection, message, call, kShort);
}

TEST_F(ZelDaemonStateManagerBusTest, WithoutABusTheManagerIsBornAndEachStartFails) {
    auto manager = bornAfterTermination();
    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre(StartsWith("Dbus Connection Error errMsg(")));
    EXPECT_EQ(FakeDlog::lines().back().function(), "m_InitDbusConnection");
    forget();

    EXPECT_FALSE(manager->Notify(kStart, TSNotifyData()));

    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("Starting ZEL", StartsWith("Dbus Connection Error errMsg("),
                            "Can't initialize dbus connection", "Starting ZEL Failed"));
}

TEST_F(ZelDaemonStateManagerBusTest, ABusThatAppearsLaterIsUsedByTheNextStart) {
    auto manager = bornAfterTermination();
    EXPECT_FALSE(manager->Notify(kStart, TSNotifyData()));
    m_bus.start();
    ScriptedSystemd systemd(m_bus.address());

    EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));

    EXPECT_EQ(systemd.takeCalls().size(), 1U);
}

TEST_F(ZelDaemonStateManagerBusTest, WithoutAManagerTheBusAnswersWithAnError) {
    m_bus.start();
    auto manager = bornAfterTermination();

    EXPECT_FALSE(manager->Notify(kStart, TSNotifyData()));

    EXPECT_THAT(FakeDlog::messages(kError),
                Contains(AllOf(StartsWith("Argument is string not object path, errMsg("),
                               HasSubstr("org.freedesktop.systemd1"))));
}

TEST_F(ZelDaemonStateManagerBusTest, AManagerThatNeverAnswersEndsInTheDefaultTimeOutsErrorMessage) {
    m_bus.start();
    ScriptedSystemd systemd(m_bus.address());
    systemd.answerWith(ScriptedSystemd::Answer::Never);
    auto manager = bornAfterTermination();

    EXPECT_FALSE(manager->Notify(kStart, TSNotifyData()));

    EXPECT_EQ(lastTimeout, -1);
    EXPECT_THAT(FakeDlog::messages(kError),
                Contains(StartsWith("Argument is string not object path, errMsg(Did not receive a reply")));
    EXPECT_EQ(systemd.takeCalls().size(), 1U);
}

TEST_F(ZelDaemonStateManagerBusTest, ABusThatWasRestartedIsConnectedToAnew) {
    m_bus.start();
    auto manager = bornAfterTermination();
    m_bus.stop();
    EXPECT_FALSE(manager->Notify(kStart, TSNotifyData()));
    m_bus.start();
    ScriptedSystemd systemd(m_bus.address());

    EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));

    EXPECT_EQ(systemd.takeCalls().size(), 1U);
}

namespace {

// The unique name of the manager's connection.
std::string uniqueName() {
    DBusConnection* manager = dbus_bus_get(DBUS_BUS_SYSTEM, nullptr);
    std::string name = dbus_bus_get_unique_name(manager);
    dbus_connection_unref(manager);
    return name;
}

// The unique name of the connection that owns a name; empty when there is none.
std::string ownerOf(const std::string& address, const char* name) {
    DBusConnection* visitor = dbus_connection_open_private(address.c_str(), nullptr);
    dbus_bus_register(visitor, nullptr);
    DBusMessage* call = dbus_message_new_method_call("org.freedesktop.DBus", "/org/freedesktop/DBus",
                                                     "org.freedesktop.DBus", "GetNameOwner");
    dbus_message_append_args(call, DBUS_TYPE_STRING, &name, DBUS_TYPE_INVALID);
    constexpr int kLimitMs = 10000;
    DBusMessage* reply = dbus_connection_send_with_reply_and_block(visitor, call, kLimitMs, nullptr);
    const char* owner = "";
    if (reply != nullptr) {
        dbus_message_get_args(reply, nullptr, DBUS_TYPE_STRING, &owner, DBUS_TYPE_INVALID);
    }
    std::string result = owner;
    if (reply != nullptr) {
        dbus_message_unref(reply);
    }
    dbus_message_unref(call);
    dbus_connection_close(visitor);
    dbus_connection_unref(visitor);
    return result;
}

// Sends a signal of about this many bytes, which lies on the manager's socket when this returns.
void sendToManager(const std::string& address, std::size_t bytes) {
    DBusConnection* manager = dbus_bus_get(DBUS_BUS_SYSTEM, nullptr);
    DBusConnection* stranger = dbus_connection_open_private(address.c_str(), nullptr);
    dbus_bus_register(stranger, nullptr);
    DBusMessage* signal = dbus_message_new_signal("/stranger", "org.example.Stranger", "Noise");
    dbus_message_set_destination(signal, dbus_bus_get_unique_name(manager));
    const std::string noise(bytes, 'x');
    const char* text = noise.c_str();
    dbus_message_append_args(signal, DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID);
    int socket = -1;
    dbus_connection_get_unix_fd(manager, &socket);
    int before = 0;
    ioctl(socket, FIONREAD, &before);

    dbus_connection_send(stranger, signal, nullptr);
    dbus_connection_flush(stranger);
    EXPECT_TRUE(becomesTrue([&] {
        int waiting = 0;
        return ioctl(socket, FIONREAD, &waiting) == 0 && waiting >= before + static_cast<int>(bytes);
    }));

    dbus_message_unref(signal);
    dbus_connection_close(stranger);
    dbus_connection_unref(stranger);
    dbus_connection_unref(manager);
}

}  // namespace

TEST_F(ZelDaemonStateManagerBusTest, ABusThatWasRestartedAfterAStrangersSignalsServesTheNextStart) {
    m_bus.start();
    auto manager = bornAfterTermination();
    for (int i = 0; i < 3; ++i) {
        sendToManager(m_bus.address(), 100);
    }
    m_bus.stop();
    m_bus.start();
    ScriptedSystemd systemd(m_bus.address());

    EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));

    EXPECT_EQ(systemd.takeCalls().size(), 1U);
}

// libdbus reads 2 KiB at once, so the news that the bus has gone lies several reads behind them.
TEST_F(ZelDaemonStateManagerBusTest, ABusThatWasRestartedAfterLongSignalsServesTheNextStart) {
    m_bus.start();
    auto manager = bornAfterTermination();
    for (int i = 0; i < 3; ++i) {
        sendToManager(m_bus.address(), 5000);
    }
    m_bus.stop();
    m_bus.start();
    ScriptedSystemd systemd(m_bus.address());

    EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));

    EXPECT_EQ(systemd.takeCalls().size(), 1U);
}

TEST_F(ZelDaemonStateManagerBusTest, ItsConnectionOwnsItsNameAlsoOnABusThatWasRestarted) {
    m_bus.start();
    auto manager = bornAfterTermination();
    const std::string first = ownerOf(m_bus.address(), "com.brenlow.ZELLite.StateManager");
    EXPECT_EQ(first, uniqueName());
    m_bus.stop();
    m_bus.start();
    ScriptedSystemd systemd(m_bus.address());

    EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));

    EXPECT_EQ(ownerOf(m_bus.address(), "com.brenlow.ZELLite.StateManager"), uniqueName());
}

TEST_F(ZelDaemonStateManagerBusTest, ANameThatAFormerInstanceStillHasIsWaitedForSilently) {
    m_bus.start();
    DBusConnection* former = dbus_connection_open_private(m_bus.address().c_str(), nullptr);
    dbus_bus_register(former, nullptr);
    dbus_bus_request_name(former, "com.brenlow.ZELLite.StateManager", 0, nullptr);

    auto manager = bornAfterTermination();

    EXPECT_THAT(FakeDlog::messages(kError), testing::IsEmpty());
    dbus_connection_close(former);
    dbus_connection_unref(former);
    EXPECT_TRUE(becomesTrue(
        [this] { return ownerOf(m_bus.address(), "com.brenlow.ZELLite.StateManager") == uniqueName(); }));
}

// libdbus stops reading when it keeps as much as it may, so an answer behind that arrives when it is dropped.
TEST_F(ZelDaemonStateManagerBusTest, AsMuchAsTheConnectionHoldsDoesNotKeepItFromItsName) {
    m_bus.start();
    beforeTheName = [this](DBusConnection* connection) {
        dbus_connection_set_max_received_size(connection, 1000);
        sendToManager(m_bus.address(), 5000);
        for (int i = 0; i < 3; ++i) {
            dbus_connection_read_write(connection, 0);
        }
    };

    auto manager = bornAfterTermination();

    EXPECT_THAT(FakeDlog::messages(kError), testing::IsEmpty());
    EXPECT_EQ(ownerOf(m_bus.address(), "com.brenlow.ZELLite.StateManager"), uniqueName());
}

TEST_F(ZelDaemonStateManagerBusTest, WhatCameBeforeItsConnectionHadItsNameIsDroppedAtOnce) {
    m_bus.start();

    auto manager = bornAfterTermination();

    DBusConnection* connection = dbus_bus_get(DBUS_BUS_SYSTEM, nullptr);
    EXPECT_EQ(dbus_connection_get_dispatch_status(connection), DBUS_DISPATCH_COMPLETE);
    dbus_connection_unref(connection);
}

TEST_F(ZelDaemonStateManagerBusTest, ABusThatDiesWhileTheManagerIsAskedFailsTheStartAndNothingElse) {
    m_bus.start();
    auto systemd = std::make_unique<ScriptedSystemd>(m_bus.address());
    systemd->answerWith(ScriptedSystemd::Answer::Never);
    auto manager = bornAfterTermination();
    std::thread end([this, &systemd] {
        becomesTrue([&systemd] { return !systemd->takeCalls().empty(); });
        m_bus.stop();
    });

    EXPECT_FALSE(manager->Notify(kStart, TSNotifyData()));

    end.join();
    EXPECT_THAT(FakeDlog::messages(kError), Contains("Starting ZEL Failed"));
}

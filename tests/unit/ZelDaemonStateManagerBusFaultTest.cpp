// SPDX-License-Identifier: Apache-2.0
// The start of the service when libdbus fails: each failure has its line, and everything is released.
#include <dbus/dbus.h>
#include <gmock/gmock.h>
#include <poll.h>

#include <chrono>
#include <string>
#include <vector>

#include "fakes/FakeControl.h"
#include "fakes/FakeDlog.h"
#include "support/OldProcess.h"
#include "support/StateManagerOnBus.h"

using fakes::Actions;
using fakes::FakeControl;
using fakes::FakeDlog;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/** How libdbus fails. */
enum class Fault {
    None,
    GetGivesAnError,
    GetGivesAnErrorAndAConnection,
    GetGivesNothing,
    RegisterGivesAnError,
    RegisterGivesAnErrorAndSuccess,
    RegisterGivesNothing,
    NameRefused,
    NameNotSent,
    NameWithoutPendingCall,
    NameWithoutReply,
    NameNeverAnswered,
    NoMessage,
    NoFirstArgument,
    NoSecondArgument,
    NoArgument,
    NotSent,
    NoPendingCall,
    NoReply,
    ConnectionLost,
    AlwaysMoreToRead,
};

/** What libdbus does for the test's thread, and what that thread has of it and must release. */
struct {
    Fault fault = Fault::None;
    int arguments = 0;
    int connections = 0;
    int messages = 0;
    int calls = 0;
    int errors = 0;
} libdbus;

// False on the system manager's thread, which uses the real libdbus.
thread_local bool isWatched = false;

bool has(Fault fault) {
    return isWatched && libdbus.fault == fault;
}

void record(const std::string& action) {
    if (isWatched) {
        Actions::add(action);
    }
}

void count(int& held, int change) {
    if (isWatched) {
        held += change;
    }
}

void setError(DBusError* error, const char* text) {
    dbus_set_error(error, "org.example.Failed", "%s", text);
    count(libdbus.errors, 1);
}

class ZelDaemonStateManagerBusFaultTest : public StateManagerOnBus {
protected:
    ZelDaemonStateManagerBusFaultTest() {
        libdbus = {};
        isWatched = true;
    }
    ~ZelDaemonStateManagerBusFaultTest() override { isWatched = false; }

    /** What is held of libdbus. */
    static std::vector<int> held() {
        return {libdbus.connections, libdbus.messages, libdbus.calls, libdbus.errors};
    }
};

}  // namespace

extern "C" DBusConnection* __real_dbus_bus_get(DBusBusType type, DBusError* error);
extern "C" DBusConnection* __wrap_dbus_bus_get(DBusBusType type, DBusError* error);
extern "C" DBusConnection* __wrap_dbus_bus_get(DBusBusType type, DBusError* error) {
    record("dbus_bus_get " + std::to_string(type) + (exists(kSubsequentStart) ? ", marked" : ""));
    if (has(Fault::GetGivesAnError) || has(Fault::GetGivesAnErrorAndAConnection)) {
        setError(error, "no bus today");
    }
    if (has(Fault::GetGivesAnError) || has(Fault::GetGivesNothing)) {
        return nullptr;
    }
    count(libdbus.connections, 1);
    return __real_dbus_bus_get(type, has(Fault::GetGivesAnErrorAndAConnection) ? nullptr : error);
}

extern "C" dbus_bool_t __real_dbus_bus_register(DBusConnection* connection, DBusError* error);
extern "C" dbus_bool_t __wrap_dbus_bus_register(DBusConnection* connection, DBusError* error);
extern "C" dbus_bool_t __wrap_dbus_bus_register(DBusConnection* connection, DBusError* error) {
    record("dbus_bus_register");
    if (has(Fault::RegisterGivesAnError) || has(Fault::RegisterGivesAnErrorAndSuccess)) {
        setError(error, "no name today");
        return has(Fault::RegisterGivesAnErrorAndSuccess) ? 1 : 0;
    }
    return has(Fault::RegisterGivesNothing) ? 0 : __real_dbus_bus_register(connection, error);
}

extern "C" DBusMessage* __real_dbus_message_new_method_call(const char* destination, const char* path,
                                                            const char* interface, const char* method);
extern "C" DBusMessage* __wrap_dbus_message_new_method_call(const char* destination, const char* path,
                                                            const char* interface, const char* method);
extern "C" DBusMessage* __wrap_dbus_message_new_method_call(const char* destination, const char* path,
                                                            const char* interface, const char* method) {
    if (has(Fault::NoMessage)) {
        return nullptr;
    }
    count(libdbus.messages, 1);
    count(libdbus.arguments, -libdbus.arguments);
    return __real_dbus_message_new_method_call(destination, path, interface, method);
}

extern "C" dbus_bool_t __real_dbus_message_iter_append_basic(DBusMessageIter* iterator, int type,
                                                             const void* value);
extern "C" dbus_bool_t __wrap_dbus_message_iter_append_basic(DBusMessageIter* iterator, int type,
                                                             const void* value);
extern "C" dbus_bool_t __wrap_dbus_message_iter_append_basic(DBusMessageIter* iterator, int type,
                                                             const void* value) {
    count(libdbus.arguments, 1);
    if (has(Fault::NoArgument) || (has(Fault::NoFirstArgument) && libdbus.arguments == 1) ||
        (has(Fault::NoSecondArgument) && libdbus.arguments == 2)) {
        return 0;
    }
    return __real_dbus_message_iter_append_basic(iterator, type, value);
}

extern "C" dbus_bool_t __real_dbus_connection_send_with_reply(DBusConnection* connection,
                                                              DBusMessage* message, DBusPendingCall** call,
                                                              int timeout);
extern "C" dbus_bool_t __wrap_dbus_connection_send_with_reply(DBusConnection* connection,
                                                              DBusMessage* message, DBusPendingCall** call,
                                                              int timeout);

namespace {

/** What is sent instead of a request for a name, in order to have it fail; null for nothing else. */
DBusMessage* falseRequest() {
    DBusMessage* instead = nullptr;
    if (has(Fault::NameRefused)) {
        const char* uniqueName = ":1.1";
        const dbus_uint32_t flags = 0;
        instead = dbus_message_new_method_call("org.freedesktop.DBus", "/org/freedesktop/DBus",
                                               "org.freedesktop.DBus", "RequestName");
        dbus_message_append_args(instead, DBUS_TYPE_STRING, &uniqueName, DBUS_TYPE_UINT32, &flags,
                                 DBUS_TYPE_INVALID);
    } else if (has(Fault::NameNeverAnswered)) {
        instead =
            dbus_message_new_method_call("org.freedesktop.systemd1", "/", "org.example", "NeverAnswered");
    }
    return instead;
}

dbus_bool_t sendRequestForName(DBusConnection* connection, DBusMessage* message, DBusPendingCall** call,
                               int timeout) {
    const char* name = "?";
    dbus_uint32_t flags = 0;
    dbus_message_get_args(message, nullptr, DBUS_TYPE_STRING, &name, DBUS_TYPE_UINT32, &flags,
                          DBUS_TYPE_INVALID);
    record("RequestName " + std::string(name) + " " + std::to_string(flags));
    if (has(Fault::NameNotSent) || has(Fault::NameWithoutPendingCall)) {
        *call = nullptr;
        return has(Fault::NameWithoutPendingCall) ? 1 : 0;
    }
    count(libdbus.calls, 1);
    DBusMessage* instead = falseRequest();
    const dbus_bool_t sent = __real_dbus_connection_send_with_reply(
        connection, instead == nullptr ? message : instead, call, timeout);
    if (instead != nullptr) {
        dbus_message_unref(instead);
    }
    return sent;
}

}  // namespace

extern "C" dbus_bool_t __wrap_dbus_connection_send_with_reply(DBusConnection* connection,
                                                              DBusMessage* message, DBusPendingCall** call,
                                                              int timeout) {
    if (dbus_message_has_member(message, "RequestName") != 0) {
        return sendRequestForName(connection, message, call, timeout);
    }
    record("send");
    if (has(Fault::NotSent) || has(Fault::NoPendingCall)) {
        *call = nullptr;
        return has(Fault::NoPendingCall) ? 1 : 0;
    }
    count(libdbus.calls, 1);
    return __real_dbus_connection_send_with_reply(connection, message, call, timeout);
}

extern "C" void __real_dbus_pending_call_block(DBusPendingCall* call);
extern "C" void __wrap_dbus_pending_call_block(DBusPendingCall* call);
extern "C" void __wrap_dbus_pending_call_block(DBusPendingCall* call) {
    record("wait");
    __real_dbus_pending_call_block(call);
}

extern "C" DBusMessage* __real_dbus_pending_call_steal_reply(DBusPendingCall* call);
extern "C" DBusMessage* __wrap_dbus_pending_call_steal_reply(DBusPendingCall* call);
extern "C" DBusMessage* __wrap_dbus_pending_call_steal_reply(DBusPendingCall* call) {
    if (has(Fault::NoReply) || has(Fault::NameWithoutReply)) {
        return nullptr;
    }
    count(libdbus.messages, 1);
    return __real_dbus_pending_call_steal_reply(call);
}

extern "C" dbus_bool_t __real_dbus_connection_get_is_connected(DBusConnection* connection);
extern "C" dbus_bool_t __wrap_dbus_connection_get_is_connected(DBusConnection* connection);
extern "C" dbus_bool_t __wrap_dbus_connection_get_is_connected(DBusConnection* connection) {
    return has(Fault::ConnectionLost) ? 0 : __real_dbus_connection_get_is_connected(connection);
}

// Stands before the clock: each look is a minute later while an answer does not come.
std::chrono::steady_clock::time_point realNow() asm("__real__ZNSt6chrono3_V212steady_clock3nowEv");
std::chrono::steady_clock::time_point laterNow() asm("__wrap__ZNSt6chrono3_V212steady_clock3nowEv");
std::chrono::steady_clock::time_point laterNow() {
    static int minutes = 0;
    return realNow() + std::chrono::minutes(has(Fault::NameNeverAnswered) ? ++minutes : minutes);
}

extern "C" int __real_poll(pollfd* polled, nfds_t count, int timeout);
extern "C" int __wrap_poll(pollfd* polled, nfds_t count, int timeout);
extern "C" int __wrap_poll(pollfd* polled, nfds_t count, int timeout) {
    return has(Fault::AlwaysMoreToRead) ? 1 : __real_poll(polled, count, timeout);
}

extern "C" void __real_dbus_connection_unref(DBusConnection* connection);
extern "C" void __wrap_dbus_connection_unref(DBusConnection* connection);
extern "C" void __wrap_dbus_connection_unref(DBusConnection* connection) {
    count(libdbus.connections, -1);
    __real_dbus_connection_unref(connection);
}

extern "C" void __real_dbus_message_unref(DBusMessage* message);
extern "C" void __wrap_dbus_message_unref(DBusMessage* message);
extern "C" void __wrap_dbus_message_unref(DBusMessage* message) {
    count(libdbus.messages, -1);
    __real_dbus_message_unref(message);
}

extern "C" void __real_dbus_pending_call_unref(DBusPendingCall* call);
extern "C" void __wrap_dbus_pending_call_unref(DBusPendingCall* call);
extern "C" void __wrap_dbus_pending_call_unref(DBusPendingCall* call) {
    count(libdbus.calls, -1);
    __real_dbus_pending_call_unref(call);
}

extern "C" dbus_bool_t __real_dbus_set_error_from_message(DBusError* error, DBusMessage* message);
extern "C" dbus_bool_t __wrap_dbus_set_error_from_message(DBusError* error, DBusMessage* message);
extern "C" dbus_bool_t __wrap_dbus_set_error_from_message(DBusError* error, DBusMessage* message) {
    const dbus_bool_t isSet = __real_dbus_set_error_from_message(error, message);
    count(libdbus.errors, isSet != 0 ? 1 : 0);
    return isSet;
}

extern "C" void __real_dbus_error_free(DBusError* error);
extern "C" void __wrap_dbus_error_free(DBusError* error);
extern "C" void __wrap_dbus_error_free(DBusError* error) {
    count(libdbus.errors, dbus_error_is_set(error) != 0 ? -1 : 0);
    __real_dbus_error_free(error);
}

TEST_F(ZelDaemonStateManagerBusFaultTest, AManagerMarksItsBirthThenRegistersOnTheSystemBus) {
    FakeDlog::recordActions();

    auto manager = bornAtBoot();

    EXPECT_THAT(actions(),
                ElementsAre("IsDebug", "log TCZelDaemonStateManager: First boot up", "dbus_bus_get 1, marked",
                            "dbus_bus_register", "RequestName com.brenlow.ZELLite.StateManager 0"));
}

TEST_F(ZelDaemonStateManagerBusFaultTest, ARestartedManagerLooksForTheServiceThenRegistersOnTheSystemBus) {
    writeFile(kSubsequentStart, "");
    writeFile(kIsRunning, "");
    FakeDlog::recordActions();

    const TCZelDaemonStateManager manager;

    EXPECT_THAT(actions(), ElementsAre("IsDebug", "log TCZelDaemonStateManager: ZEL was running before",
                                       "dbus_bus_get 1, marked", "dbus_bus_register",
                                       "RequestName com.brenlow.ZELLite.StateManager 0"));
}

TEST_F(ZelDaemonStateManagerBusFaultTest, EachFailureToConnectHasItsLineAndFailsTheStart) {
    struct Row {
        Fault fault;
        const char* line;
    };
    const std::vector<Row> rows{
        {Fault::GetGivesAnError, "Dbus Connection Error errMsg(no bus today)"},
        {Fault::GetGivesAnErrorAndAConnection, "Dbus Connection Error errMsg(no bus today)"},
        {Fault::GetGivesNothing, "Dbus Connection nullptr"},
        {Fault::RegisterGivesAnError, "Dbus Register Error errMsg(no name today)"},
        {Fault::RegisterGivesAnErrorAndSuccess, "Dbus Register Error errMsg(no name today)"},
        {Fault::RegisterGivesNothing, "Dbus Register Error ret(0)"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        forget();
        systemd->takeCalls();
        libdbus.fault = row.fault;

        auto manager = bornAfterTermination();

        EXPECT_THAT(FakeDlog::messages(kError), ElementsAre(row.line));
        EXPECT_THAT(held(), ElementsAre(0, 0, 0, 0));
        forget();

        EXPECT_FALSE(manager->Notify(kStart, TSNotifyData()));

        EXPECT_THAT(
            FakeDlog::messages(kError),
            ElementsAre("Starting ZEL", row.line, "Can't initialize dbus connection", "Starting ZEL Failed"));
        EXPECT_THAT(held(), ElementsAre(0, 0, 0, 0));
        EXPECT_THAT(systemd->takeCalls(), IsEmpty());
        libdbus.fault = Fault::None;
        EXPECT_EQ(stateOf(*manager), 0);
    }
}

TEST_F(ZelDaemonStateManagerBusFaultTest, WithoutTheNameTheManagerSaysSoOnceAndStartsTheService) {
    struct Row {
        Fault fault;
        const char* reason;
    };
    const std::vector<Row> rows{
        {Fault::NameRefused, "Cannot acquire a service starting with ':' such as \":1.1\""},
        {Fault::NameNotSent, "no answer"},
        {Fault::NameWithoutPendingCall, "no answer"},
        {Fault::NameWithoutReply, "no answer"},
        {Fault::NameNeverAnswered, "no answer"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(static_cast<int>(row.fault));
        forget();
        systemd->answerWith(ScriptedSystemd::Answer::Never);
        libdbus.fault = row.fault;

        auto manager = bornAfterTermination();

        libdbus.fault = Fault::None;
        systemd->answerWith(ScriptedSystemd::Answer::JobPath);
        EXPECT_THAT(FakeDlog::messages(kError),
                    ElementsAre(std::string("Dbus Name Error errMsg(") + row.reason + ")"));
        EXPECT_EQ(FakeDlog::lines().back().function(), "m_InitDbusConnection");
        EXPECT_THAT(held(), ElementsAre(1, 0, 0, 0));
        forget();

        EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));

        EXPECT_THAT(FakeDlog::messages(kError),
                    testing::Not(testing::Contains(testing::StartsWith("Dbus Name"))));
    }
}

TEST_F(ZelDaemonStateManagerBusFaultTest, AConnectionThatAlwaysHasMoreToReadDoesNotHoldUpAStart) {
    auto manager = bornAfterTermination();
    libdbus.fault = Fault::AlwaysMoreToRead;

    EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));
}

TEST_F(ZelDaemonStateManagerBusFaultTest, EachFailureToCallTheManagerHasItsLineAndFailsTheStart) {
    struct Row {
        Fault fault;
        const char* line;
        bool isSent;
    };
    const std::vector<Row> rows{
        {Fault::NoMessage, "Message nullptr", false},
        {Fault::NoFirstArgument, "Failed to append data, retA(0), retB(1)", false},
        {Fault::NoSecondArgument, "Failed to append data, retA(1), retB(0)", false},
        {Fault::NoArgument, "Failed to append data, retA(0), retB(0)", false},
        {Fault::NotSent, "Failed to send message", false},
        {Fault::NoPendingCall, "Pending Call nullptr", false},
        {Fault::NoReply, "Reply nullptr", true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        auto manager = bornAfterTermination();
        forget();
        systemd->takeCalls();
        libdbus.fault = row.fault;

        EXPECT_FALSE(manager->Notify(kStart, TSNotifyData()));

        EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("Starting ZEL", row.line, "Starting ZEL Failed"));
        EXPECT_EQ(FakeDlog::count(kInfo, "Dbus message send"), row.isSent ? 1U : 0U);
        EXPECT_EQ(systemd->takeCalls().size(), row.isSent ? 1U : 0U);
        EXPECT_THAT(held(), ElementsAre(1, 0, 0, 0));
        libdbus.fault = Fault::None;
        EXPECT_EQ(stateOf(*manager), 0);
    }
}

TEST_F(ZelDaemonStateManagerBusFaultTest, AStartReleasesAllButTheConnectionWhichGoesWithTheManager) {
    auto manager = bornAfterTermination();

    EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));

    EXPECT_THAT(held(), ElementsAre(1, 0, 0, 0));
    manager.reset();
    EXPECT_THAT(held(), ElementsAre(0, 0, 0, 0));
}

TEST_F(ZelDaemonStateManagerBusFaultTest, ARefusedStartReleasesAllButTheConnection) {
    auto manager = bornAfterTermination();
    systemd->answerWith(ScriptedSystemd::Answer::ErrorWithText);

    EXPECT_FALSE(manager->Notify(kStart, TSNotifyData()));

    EXPECT_THAT(held(), ElementsAre(1, 0, 0, 0));
}

TEST_F(ZelDaemonStateManagerBusFaultTest, AStartHasItsLinesMarkersAndCallsInThisOrder) {
    auto manager = bornIn(STATE_UNDEFINED);
    FakeDlog::recordActions();

    manager->Notify(kStart, TSNotifyData());

    EXPECT_THAT(
        Actions::take(),
        ElementsAre("log Notify: ZEL Daemon Notify, startZEL(1), sendNotifyCall(1), informListeners(1), "
                    "m_zelState(0), trigger(1)",
                    "log Notify: Starting ZEL",
                    "marker TCZelDaemonStateManager::Notify: executing m_StartZelDaemonService()",
                    "log m_StartZelDaemonService: m_previousZELDaemonPID(-1)", "send",
                    "log m_StartZelDaemonService: Dbus message send", "wait",
                    "log m_StartZelDaemonService: Message send success, replay "
                    "objectPath(/org/freedesktop/systemd1/job/7)",
                    "marker TCZelDaemonStateManager::Notify: m_StartZelDaemonService() completed, result [1]",
                    "CreateZelControl", "marker TCZelDaemonStateManager::Notify(trigger [1])",
                    "Notify 1 0 0 0",
                    "marker TCZelDaemonStateManager::Notify(trigger [1]) completed, result [1]."));
}

TEST_F(ZelDaemonStateManagerBusFaultTest, AFailedStartIsLoggedAfterItsMarker) {
    auto manager = bornIn(STATE_UNDEFINED);
    libdbus.fault = Fault::NotSent;
    FakeDlog::recordActions();

    manager->Notify(kStart, TSNotifyData());

    EXPECT_THAT(lastOf(Actions::take(), 4),
                ElementsAre("send", "log m_StartZelDaemonService: Failed to send message",
                            "marker TCZelDaemonStateManager::Notify: m_StartZelDaemonService() completed, "
                            "result [0]",
                            "log Notify: Starting ZEL Failed"));
}

TEST_F(ZelDaemonStateManagerBusFaultTest, OneConnectionServesAllStarts) {
    auto manager = bornIn(STATE_RUNNING);

    requestTerminate(*manager);
    manager->Notify(kStart, TSNotifyData());
    requestTerminate(*manager);
    manager->Notify(kStart, TSNotifyData());

    EXPECT_EQ(systemd->takeCalls().size(), 2U);
    EXPECT_THAT(actions(), testing::Not(testing::Contains(testing::StartsWith("dbus_bus_get"))));
}

TEST_F(ZelDaemonStateManagerBusFaultTest, ALostConnectionIsReleasedForTheNewOne) {
    auto manager = bornIn(STATE_UNDEFINED);
    libdbus.fault = Fault::ConnectionLost;

    EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));

    EXPECT_THAT(actions(), testing::Contains("dbus_bus_get 1, marked"));
    EXPECT_THAT(held(), ElementsAre(1, 0, 0, 0));
}

TEST_F(ZelDaemonStateManagerBusFaultTest, TheOldProcessIsAwaitedBeforeTheBusIsConnectedTo) {
    libdbus.fault = Fault::GetGivesNothing;
    auto manager = bornAfterTermination();
    FakeControl::terminateData.pid = 4711;
    ASSERT_TRUE(requestTerminate(*manager).result);
    libdbus.fault = Fault::None;
    forget();
    oldProcess.isScripted = true;
    oldProcess.aliveProbes = 1;

    EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));

    EXPECT_THAT(actions(),
                ElementsAre("kill 4711 0", "usleep 100000", "kill 4711 0", "dbus_bus_get 1, marked",
                            "dbus_bus_register", "RequestName com.brenlow.ZELLite.StateManager 0", "send",
                            "wait", "CreateZelControl", "Notify 1 0 0 0"));
}

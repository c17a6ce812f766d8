// SPDX-License-Identifier: Apache-2.0
// The supervision of the service on a bus that is missing, late, restarted, or has no manager that answers.
#include <dbus/dbus.h>
#include <gmock/gmock.h>

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

class ZelDaemonStateManagerBusTest : public StateManagerWorld {
protected:
    ZelDaemonStateManagerBusTest() : m_bus(false) { lastTimeout = 0; }

    // Every test leaves libdbus without a connection, so that the next one begins with a new one.
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

// SPDX-License-Identifier: Apache-2.0
// The start of the service: the answers of the system manager, and the wait for the old process.
#include <gmock/gmock.h>

#include <array>
#include <cerrno>
#include <string>
#include <vector>

#include "ZelDaemonStateManager.h"
#include "fakes/FakeControl.h"
#include "fakes/FakeDlog.h"
#include "support/OldProcess.h"
#include "support/StateManagerOnBus.h"

using fakes::FakeControl;
using fakes::FakeDlog;
using testing::ElementsAre;
using testing::IsEmpty;

using ZelDaemonStateManagerStartTest = StateManagerOnBus;

TEST_F(ZelDaemonStateManagerStartTest, TheServiceIsStartedAnewAfterEachTermination) {
    auto manager = bornIn(STATE_RUNNING);

    for (int round = 0; round < 3; ++round) {
        EXPECT_TRUE(requestTerminate(*manager).result);
        EXPECT_TRUE(manager->IsZelTerminated());
        EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));
        EXPECT_FALSE(manager->IsZelTerminated());
    }

    EXPECT_EQ(systemd->takeCalls().size(), 3U);
}

// What systemd may answer

TEST_F(ZelDaemonStateManagerStartTest, EveryReplyToStartUnitHasItsLineAndResult) {
    struct Row {
        ScriptedSystemd::Answer answer;
        bool result;
        const char* line;
    };
    const std::array<Row, 5> rows{{
        {ScriptedSystemd::Answer::JobPath, true,
         "Message send success, replay objectPath(/org/freedesktop/systemd1/job/7)"},
        {ScriptedSystemd::Answer::ErrorWithText, false,
         "Argument is string not object path, errMsg(Unit is masked.)"},
        {ScriptedSystemd::Answer::ErrorWithoutText, false, "Message has no arguments"},
        {ScriptedSystemd::Answer::Number, false, "Expected argument as object path, argumentType(105)"},
        {ScriptedSystemd::Answer::Nothing, false, "Message has no arguments"},
    }};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        auto manager = bornIn(STATE_UNDEFINED);
        systemd->answerWith(row.answer);

        EXPECT_EQ(manager->Notify(kStart, TSNotifyData()), row.result);

        EXPECT_EQ(FakeDlog::count(kError, row.line), 1U);
    }
}

// The old process

namespace {

constexpr int kOldPid = 4711;

}  // namespace

TEST_F(ZelDaemonStateManagerStartTest, AnOldProcessIsProbedTwoHundredTimesThenTheStartProceeds) {
    auto manager = bornIn(STATE_RUNNING);
    FakeControl::terminateData.pid = kOldPid;
    ASSERT_TRUE(requestTerminate(*manager).result);
    forget();
    oldProcess.isScripted = true;
    oldProcess.aliveProbes = 1'000'000;

    EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));

    ASSERT_EQ(oldProcess.calls.size(), 400U);
    for (std::size_t i = 0; i < oldProcess.calls.size(); i += 2) {
        EXPECT_EQ(oldProcess.calls[i], "kill 4711 0");
        EXPECT_EQ(oldProcess.calls[i + 1], "usleep 100000");
    }
    EXPECT_EQ(FakeDlog::count(kError, "zel-daemon is alive, pid(4711)"), 200U);
    EXPECT_EQ(FakeDlog::count(kInfo, "m_previousZELDaemonPID(4711)"), 1U);
    EXPECT_EQ(systemd->takeCalls().size(), 1U);
}

TEST_F(ZelDaemonStateManagerStartTest, TheWaitEndsAtAnyErrorOfTheProbe) {
    for (const int error : {ESRCH, EPERM, EINVAL}) {
        auto manager = bornIn(STATE_RUNNING);
        FakeControl::terminateData.pid = kOldPid;
        ASSERT_TRUE(requestTerminate(*manager).result);
        forget();
        oldProcess = {};
        oldProcess.isScripted = true;
        oldProcess.aliveProbes = 3;
        oldProcess.lastError = error;

        EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));

        EXPECT_EQ(oldProcess.calls.size(), 7U);
        EXPECT_EQ(FakeDlog::count(kError, "zel-daemon is alive, pid(4711)"), 3U);
        oldProcess = {};
    }
}

TEST_F(ZelDaemonStateManagerStartTest, TheOldPidIsForgottenEvenIfTheStartFails) {
    auto manager = bornIn(STATE_RUNNING);
    FakeControl::terminateData.pid = kOldPid;
    ASSERT_TRUE(requestTerminate(*manager).result);
    oldProcess.isScripted = true;
    systemd->answerWith(ScriptedSystemd::Answer::ErrorWithText);
    ASSERT_FALSE(manager->Notify(kStart, TSNotifyData()));
    systemd->answerWith(ScriptedSystemd::Answer::JobPath);
    forget();
    oldProcess.calls.clear();

    EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));

    EXPECT_THAT(oldProcess.calls, IsEmpty());
    EXPECT_EQ(FakeDlog::count(kInfo, "m_previousZELDaemonPID(-1)"), 1U);
}

TEST_F(ZelDaemonStateManagerStartTest, AnOldProcessIsLoggedBetweenItsProbeAndTheSleep) {
    auto manager = bornIn(STATE_RUNNING);
    FakeControl::terminateData.pid = kOldPid;
    ASSERT_TRUE(requestTerminate(*manager).result);
    forget();
    oldProcess.isScripted = true;
    oldProcess.aliveProbes = 2;
    FakeDlog::recordActions();

    manager->Notify(kStart, TSNotifyData());

    EXPECT_THAT(
        firstOf(actions(), 11),
        ElementsAre("log Notify: ZEL Daemon Notify, startZEL(1), sendNotifyCall(1), "
                    "informListeners(1), m_zelState(3), trigger(1)",
                    "log Notify: Starting ZEL", "log m_StartZelDaemonService: m_previousZELDaemonPID(4711)",
                    "kill 4711 0", "log m_StartZelDaemonService: zel-daemon is alive, pid(4711)",
                    "usleep 100000", "kill 4711 0",
                    "log m_StartZelDaemonService: zel-daemon is alive, pid(4711)", "usleep 100000",
                    "kill 4711 0", "log m_StartZelDaemonService: Dbus message send"));
}

TEST_F(ZelDaemonStateManagerStartTest, EveryPidButMinusOneIsProbed) {
    struct Row {
        int pid;
        std::vector<std::string> calls;
    };
    const std::vector<Row> rows{
        {0, {"kill 0 0"}},
        {1, {"kill 1 0"}},
        {-1, {}},
        {-2, {"kill -2 0"}},
        {2147483647, {"kill 2147483647 0"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.pid);
        auto manager = bornIn(STATE_RUNNING);
        FakeControl::terminateData.pid = row.pid;
        ASSERT_TRUE(requestTerminate(*manager).result);
        forget();
        oldProcess = {};
        oldProcess.isScripted = true;

        EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));

        EXPECT_EQ(oldProcess.calls, row.calls);
        EXPECT_EQ(FakeDlog::count(kInfo, "m_previousZELDaemonPID(" + std::to_string(row.pid) + ")"), 1U);
    }
}

namespace {

/** Sends a trigger when the service has terminated. */
class Restarter : public NamedListener {
public:
    explicit Restarter(TCZelDaemonStateManager& manager) : NamedListener("restarter"), m_manager(manager) {}
    void OnTerminateSuccess(const TSZelData& data) override {
        NamedListener::OnTerminateSuccess(data);
        m_manager.Notify(static_cast<ETriggerType>(1), TSNotifyData());
    }

private:
    TCZelDaemonStateManager& m_manager;
};

}  // namespace

TEST_F(ZelDaemonStateManagerStartTest, AStartOutOfATerminationsCallbackWaitsForTheTerminatedProcess) {
    auto manager = bornIn(STATE_UNDEFINED);
    Restarter restarter(*manager);
    manager->RegisterListener(&restarter);
    FakeControl::terminateData.pid = kOldPid;
    oldProcess.isScripted = true;

    EXPECT_TRUE(requestTerminate(*manager).result);

    EXPECT_THAT(actions(),
                ElementsAre("CreateZelControl", "restarter OnTerminate", "Terminate", "DestroyZelControl",
                            "restarter OnTerminateSuccess 4711 0", "kill 4711 0", "CreateZelControl",
                            "Notify 1 0 0 0", "restarter OnStart"));
}

TEST_F(ZelDaemonStateManagerStartTest, OnlyAProcessThatAgreedToTerminateIsWaitedFor) {
    auto manager = bornIn(STATE_RUNNING);
    FakeControl::terminateData.pid = kOldPid;
    FakeControl::terminateResult = 0;
    ASSERT_FALSE(requestTerminate(*manager).result);
    FakeControl::terminateResult = -1;
    oldProcess.isScripted = true;

    EXPECT_FALSE(requestTerminate(*manager).result);

    EXPECT_THAT(oldProcess.calls, IsEmpty());
    EXPECT_EQ(FakeDlog::count(kInfo, "m_previousZELDaemonPID(-1)"), 1U);
}

// SPDX-License-Identifier: Apache-2.0
// A trigger: the start of the service, the forwarded trigger, the calls to the listeners, and the markers.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <string>
#include <vector>

#include "ZelDaemonStateManager.h"
#include "fakes/FakeControl.h"
#include "fakes/FakeDlog.h"
#include "fakes/FakeLite.h"
#include "fakes/FakePrctl.h"
#include "support/Files.h"
#include "support/Plant.h"
#include "support/StateManagerOnBus.h"

using fakes::Actions;
using fakes::FakeControl;
using fakes::FakeDlog;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

using ZelDaemonStateManagerNotifyTest = StateManagerOnBus;

namespace {

TSNotifyData someData() {
    TSNotifyData data;
    data.source = 11;
    data.sourcePlugState = 12;
    data.value = 13;
    return data;
}

}  // namespace

namespace {

struct NotifyCell {
    EZelState state;
    int trigger;
    bool starts;
    bool forwards;
    bool informs;
};

// Written out cell by cell: what each trigger does in each state.
constexpr std::array<NotifyCell, 30> kCells{{
    {STATE_UNDEFINED, 0, true, true, true},
    {STATE_UNDEFINED, 1, true, true, true},
    {STATE_UNDEFINED, 2, true, true, true},
    {STATE_UNDEFINED, 3, true, true, true},
    {STATE_UNDEFINED, 4, true, true, true},
    {STATE_UNDEFINED, 5, true, true, true},
    {STATE_RUNNING, 0, false, true, false},
    {STATE_RUNNING, 1, false, false, false},
    {STATE_RUNNING, 2, false, true, false},
    {STATE_RUNNING, 3, false, true, false},
    {STATE_RUNNING, 4, false, true, false},
    {STATE_RUNNING, 5, false, true, false},
    {STATE_RUNNING_UNINITIALIZED, 0, false, true, true},
    {STATE_RUNNING_UNINITIALIZED, 1, false, false, true},
    {STATE_RUNNING_UNINITIALIZED, 2, false, true, true},
    {STATE_RUNNING_UNINITIALIZED, 3, false, true, true},
    {STATE_RUNNING_UNINITIALIZED, 4, false, true, true},
    {STATE_RUNNING_UNINITIALIZED, 5, false, true, true},
    {STATE_TERMINATED, 0, true, true, true},
    {STATE_TERMINATED, 1, true, true, true},
    {STATE_TERMINATED, 2, true, true, true},
    {STATE_TERMINATED, 3, true, true, true},
    {STATE_TERMINATED, 4, true, true, true},
    {STATE_TERMINATED, 5, true, true, true},
    {STATE_UNDEFINED_AFTER_TERMINATE, 0, true, true, true},
    {STATE_UNDEFINED_AFTER_TERMINATE, 1, true, true, true},
    {STATE_UNDEFINED_AFTER_TERMINATE, 2, true, true, true},
    {STATE_UNDEFINED_AFTER_TERMINATE, 3, true, true, true},
    {STATE_UNDEFINED_AFTER_TERMINATE, 4, true, true, true},
    {STATE_UNDEFINED_AFTER_TERMINATE, 5, true, true, true},
}};

}  // namespace

TEST_F(ZelDaemonStateManagerNotifyTest, EveryTriggerInEveryStateDoesWhatItsCellSays) {
    for (const NotifyCell& cell : kCells) {
        SCOPED_TRACE("state " + std::to_string(cell.state) + ", trigger " + std::to_string(cell.trigger));
        auto manager = bornIn(cell.state);
        NamedListener listener("A");
        manager->RegisterListener(&listener);
        systemd->takeCalls();
        unlink(kIsRunning);

        EXPECT_TRUE(manager->Notify(trigger(cell.trigger), someData()));

        std::vector<std::string> expected;
        if (cell.forwards) {
            expected = {"CreateZelControl", "Notify " + std::to_string(cell.trigger) + " 11 12 13"};
        }
        if (cell.informs) {
            expected.emplace_back("A OnStart");
        }
        EXPECT_EQ(systemd->takeCalls().size(), cell.starts ? 1U : 0U);
        EXPECT_EQ(actions(), expected);
        EXPECT_EQ(FakeDlog::messages(kInfo).front(),
                  "ZEL Daemon Notify, startZEL(" + std::to_string(static_cast<int>(cell.starts)) +
                      "), sendNotifyCall(" + std::to_string(static_cast<int>(cell.forwards)) +
                      "), informListeners(" + std::to_string(static_cast<int>(cell.informs)) +
                      "), m_zelState(" + std::to_string(cell.state) + "), trigger(" +
                      std::to_string(cell.trigger) + ")");
        EXPECT_TRUE(exists("/tmp/zel_lite_zel_daemon_is_running"));
        EXPECT_EQ(stateOf(*manager), 1);
    }
}

TEST_F(ZelDaemonStateManagerNotifyTest, ATriggerWhileRunningOnlyRefreshesTheMarker) {
    auto manager = bornIn(STATE_RUNNING);
    writeFile(kIsRunning, "old content");

    EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));

    EXPECT_THAT(actions(), IsEmpty());
    EXPECT_THAT(FakeDlog::messages(kError), IsEmpty());
    EXPECT_EQ(readFile("/tmp/zel_lite_zel_daemon_is_running"), "");
    EXPECT_TRUE(exists("/tmp/zel_lite_zel_daemon_is_running"));
}

TEST_F(ZelDaemonStateManagerNotifyTest, AStartAsksSystemdForTheUnitAndLogsItsWay) {
    auto manager = bornIn(STATE_TERMINATED);
    FakeDlog::clear();

    EXPECT_TRUE(manager->Notify(trigger(5), TSNotifyData()));

    EXPECT_THAT(systemd->takeCalls(),
                ElementsAre("/org/freedesktop/systemd1 org.freedesktop.systemd1.Manager.StartUnit ss "
                            "zel_deamon.service replace"));
    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("Starting ZEL",
                            "Message send success, replay objectPath(/org/freedesktop/systemd1/job/7)"));
    EXPECT_THAT(
        FakeDlog::messages(kInfo),
        ElementsAre("ZEL Daemon Notify, startZEL(1), sendNotifyCall(1), informListeners(1), m_zelState(3), "
                    "trigger(5)",
                    "m_previousZELDaemonPID(-1)", "Dbus message send"));
    EXPECT_FALSE(exists("/tmp/zel_restart"));
}

TEST_F(ZelDaemonStateManagerNotifyTest, TheStartsLinesCarryTheFunctionsTheyBelongTo) {
    auto manager = bornIn(STATE_UNDEFINED);

    manager->Notify(kStart, TSNotifyData());

    std::vector<std::string> functions;
    for (const fakes::LogLine& line : FakeDlog::lines()) {
        functions.push_back(line.function());
    }
    EXPECT_THAT(functions, ElementsAre("Notify", "Notify", "m_StartZelDaemonService",
                                       "m_StartZelDaemonService", "m_StartZelDaemonService"));
}

TEST_F(ZelDaemonStateManagerNotifyTest, AStartEmitsItsBootMarkersInOrder) {
    auto manager = bornIn(STATE_UNDEFINED);

    manager->Notify(trigger(5), TSNotifyData());

    EXPECT_THAT(
        Actions::take(),
        ElementsAre("marker TCZelDaemonStateManager::Notify: executing m_StartZelDaemonService()",
                    "marker TCZelDaemonStateManager::Notify: m_StartZelDaemonService() completed, result [1]",
                    "CreateZelControl", "marker TCZelDaemonStateManager::Notify(trigger [5])",
                    "Notify 5 0 0 0",
                    "marker TCZelDaemonStateManager::Notify(trigger [5]) completed, result [1]."));
    for (const fakes::BootMark& mark : fakes::takeBootMarks()) {
        EXPECT_EQ(mark.length, mark.text.size());
    }
}

TEST_F(ZelDaemonStateManagerNotifyTest, AFailedStartLeavesTheStateAndCallsNobody) {
    for (const EZelState state : {STATE_UNDEFINED, STATE_TERMINATED, STATE_UNDEFINED_AFTER_TERMINATE}) {
        auto manager = bornIn(state);
        NamedListener listener("A");
        manager->RegisterListener(&listener);
        unlink(kIsRunning);
        systemd->answerWith(ScriptedSystemd::Answer::ErrorWithText);

        EXPECT_FALSE(manager->Notify(kStart, TSNotifyData()));

        EXPECT_THAT(
            Actions::take(),
            ElementsAre("marker TCZelDaemonStateManager::Notify: executing m_StartZelDaemonService()",
                        "marker TCZelDaemonStateManager::Notify: m_StartZelDaemonService() completed, "
                        "result [0]"));
        EXPECT_EQ(FakeDlog::messages(kError).back(), "Starting ZEL Failed");
        EXPECT_FALSE(exists(kIsRunning));
        systemd->answerWith(ScriptedSystemd::Answer::JobPath);
        EXPECT_EQ(stateOf(*manager), state);
    }
}

TEST_F(ZelDaemonStateManagerNotifyTest, NoControlIsLoggedAndLeavesTheState) {
    auto manager = bornIn(STATE_RUNNING_UNINITIALIZED);
    NamedListener listener("A");
    manager->RegisterListener(&listener);
    FakeControl::available = false;

    EXPECT_FALSE(manager->Notify(trigger(0), TSNotifyData()));

    EXPECT_THAT(actions(), ElementsAre("CreateZelControl"));
    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("pZelControl == nullptr"));
    EXPECT_EQ(FakeDlog::lines().back().function(), "Notify");
    EXPECT_FALSE(exists(kIsRunning));
    EXPECT_EQ(stateOf(*manager), 2);
}

TEST_F(ZelDaemonStateManagerNotifyTest, AFailedNotifyDestroysTheControlAndLeavesTheState) {
    auto manager = bornIn(STATE_RUNNING_UNINITIALIZED);
    NamedListener listener("A");
    manager->RegisterListener(&listener);
    FakeControl::notifyResult = -1;

    EXPECT_FALSE(manager->Notify(trigger(4), TSNotifyData()));

    EXPECT_THAT(actions(), ElementsAre("CreateZelControl", "Notify 4 0 0 0", "DestroyZelControl"));
    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("Failed to notify ZEL, m_zelState(running uninitialized), retNotify(-1)"));
    EXPECT_FALSE(exists(kIsRunning));
    EXPECT_EQ(stateOf(*manager), 2);
}

TEST_F(ZelDaemonStateManagerNotifyTest, AFailedNotifyIsLoggedAfterTheControlIsDestroyed) {
    auto manager = bornIn(STATE_RUNNING);
    FakeControl::notifyResult = -2147483647;
    FakeDlog::recordActions();

    manager->Notify(trigger(5), TSNotifyData());

    EXPECT_THAT(Actions::take(),
                ElementsAre("log Notify: ZEL Daemon Notify, startZEL(0), sendNotifyCall(1), "
                            "informListeners(0), m_zelState(1), trigger(5)",
                            "CreateZelControl", "marker TCZelDaemonStateManager::Notify(trigger [5])",
                            "Notify 5 0 0 0",
                            "marker TCZelDaemonStateManager::Notify(trigger [5]) completed, result "
                            "[-2147483647].",
                            "DestroyZelControl",
                            "log Notify: Failed to notify ZEL, m_zelState(running), retNotify(-2147483647)"));
}

TEST_F(ZelDaemonStateManagerNotifyTest, AnAnswerWithoutSuccessIsInTheBootMarker) {
    for (const int result : {0, 2}) {
        auto manager = bornIn(STATE_RUNNING);
        FakeControl::notifyResult = result;

        manager->Notify(trigger(2), TSNotifyData());

        EXPECT_THAT(Actions::take(),
                    Contains("marker TCZelDaemonStateManager::Notify(trigger [2]) completed, result [" +
                             std::to_string(result) + "]."));
    }
}

TEST_F(ZelDaemonStateManagerNotifyTest, ARunningServiceWithoutSuccessKeepsItsControlAndTheResultIsFalse) {
    struct Row {
        EZelState state;
        std::vector<std::string> actions;
    };
    const std::vector<Row> rows{
        {STATE_RUNNING, {"CreateZelControl", "Notify 3 0 0 0"}},
        {STATE_RUNNING_UNINITIALIZED, {"CreateZelControl", "Notify 3 0 0 0", "A OnStart"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.state);
        auto manager = bornIn(row.state);
        NamedListener listener("A");
        manager->RegisterListener(&listener);
        unlink(kIsRunning);
        FakeControl::notifyResult = 0;

        EXPECT_FALSE(manager->Notify(trigger(3), TSNotifyData()));

        EXPECT_EQ(actions(), row.actions);
        EXPECT_THAT(FakeDlog::messages(kError), IsEmpty());
        EXPECT_TRUE(exists("/tmp/zel_lite_zel_daemon_is_running"));
        FakeControl::reset();
        EXPECT_EQ(stateOf(*manager), 1);
    }
}

TEST_F(ZelDaemonStateManagerNotifyTest, AServiceWithoutSuccessRunsAllTheSameButTheResultIsFalse) {
    for (const int result : {0, 2, 2147483647}) {
        auto manager = bornIn(STATE_TERMINATED);
        NamedListener listener("A");
        manager->RegisterListener(&listener);
        unlink(kIsRunning);
        FakeControl::notifyResult = result;

        EXPECT_FALSE(manager->Notify(kStart, TSNotifyData()));

        EXPECT_THAT(actions(), ElementsAre("CreateZelControl", "Notify 1 0 0 0", "A OnStart"));
        EXPECT_TRUE(exists(kIsRunning));
        EXPECT_TRUE(exists(kRestart)) << "the restart marker goes only with success";
        FakeControl::reset();
        EXPECT_EQ(stateOf(*manager), 1);
        unlink(kRestart);
    }
}

TEST_F(ZelDaemonStateManagerNotifyTest, ATriggerToARunningServiceLeavesTheRestartMarker) {
    auto manager = bornIn(STATE_RUNNING);
    writeFile(kRestart, "");

    EXPECT_TRUE(manager->Notify(trigger(5), TSNotifyData()));

    EXPECT_TRUE(exists("/tmp/zel_restart"));
}

TEST_F(ZelDaemonStateManagerNotifyTest, TheRestartMarkerGoesAfterTheListenersWereTold) {
    auto manager = bornIn(STATE_TERMINATED);
    Watcher watcher("/tmp/zel_restart");
    manager->RegisterListener(&watcher);

    manager->Notify(kStart, TSNotifyData());

    EXPECT_THAT(actions(), Contains("OnStart: there"));
    EXPECT_FALSE(exists("/tmp/zel_restart"));
}

TEST_F(ZelDaemonStateManagerNotifyTest, AStartIsToldBeforeTheStateIsRunning) {
    auto manager = bornIn(STATE_TERMINATED);
    Asker asker(*manager);
    manager->RegisterListener(&asker);

    manager->Notify(kStart, TSNotifyData());

    EXPECT_THAT(actions(), Contains("OnStart: terminated"));
    EXPECT_FALSE(manager->IsZelTerminated());
}

TEST_F(ZelDaemonStateManagerNotifyTest, ARestartMarkerThatIsMissingIsNoFault) {
    auto manager = bornIn(STATE_UNDEFINED);

    EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));

    EXPECT_THAT(actions(), Not(Contains(testing::StartsWith("assert"))));
}

TEST_F(ZelDaemonStateManagerNotifyTest, ARestartMarkerThatCannotBeRemovedIsAssertedAndTheStartGoesOn) {
    auto manager = bornIn(STATE_UNDEFINED);
    std::filesystem::create_directories("/tmp/zel_restart/full");
    testing::internal::CaptureStdout();

    EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));

    EXPECT_EQ(fakes::FakeLite::printedBeforeAssertion, 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "ASSERT!!! - function Notify, line 158");
    EXPECT_THAT(actions(), Contains("assert (*__errno_location ()) == 2 " + std::string(kSource) + " 158"));
    EXPECT_TRUE(exists(kIsRunning));
    std::filesystem::remove_all("/tmp/zel_restart");
    EXPECT_EQ(stateOf(*manager), 1);
}

TEST_F(ZelDaemonStateManagerNotifyTest, APlantedRunningMarkerFailsTheNotifyThoughTheServiceRuns) {
    auto manager = bornIn(STATE_UNDEFINED);
    NamedListener listener("A");
    manager->RegisterListener(&listener);
    writeFile("/tmp/victim", "precious");
    ASSERT_EQ(symlink("/tmp/victim", kIsRunning), 0);
    testing::internal::CaptureStdout();

    EXPECT_FALSE(manager->Notify(kStart, TSNotifyData()));

    EXPECT_EQ(fakes::FakeLite::printedBeforeAssertion, 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "ASSERT!!! - function Notify, line 167");
    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("Starting ZEL",
                            "Message send success, replay objectPath(/org/freedesktop/systemd1/job/7)"))
        << "the link itself has no line";
    EXPECT_THAT(actions(), ElementsAre("CreateZelControl", "Notify 1 0 0 0", "A OnStart",
                                       "assert 0 " + std::string(kSource) + " 167"));
    EXPECT_EQ(readFile("/tmp/victim"), "precious");
    EXPECT_EQ(stateOf(*manager), 1);
}

TEST_F(ZelDaemonStateManagerNotifyTest, ALinkAtTheRunningMarkerCostsOneTriggerAndIsTakenAway) {
    auto manager = bornIn(STATE_RUNNING);
    unlink(kIsRunning);
    ASSERT_EQ(symlink("/nowhere", kIsRunning), 0);
    EXPECT_FALSE(manager->Notify(kStart, TSNotifyData()));

    EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));

    EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(kIsRunning)));
}

TEST_F(ZelDaemonStateManagerNotifyTest, ALinkPlantedAfterTheLookAtTheRunningMarkerIsNotFollowed) {
    auto manager = bornIn(STATE_RUNNING);
    unlink(kIsRunning);
    writeFile("/tmp/victim", "precious");
    plantAtOpen(kIsRunning, [] { EXPECT_EQ(symlink("/tmp/victim", kIsRunning), 0); });

    EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));

    EXPECT_TRUE(wasPlanted());
    EXPECT_EQ(readFile("/tmp/victim"), "precious");
}

TEST_F(ZelDaemonStateManagerNotifyTest, AFifoAtTheRunningMarkerGivesWay) {
    auto manager = bornIn(STATE_RUNNING);
    unlink(kIsRunning);
    ASSERT_EQ(mkfifo(kIsRunning, 0600), 0);

    EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));

    EXPECT_TRUE(std::filesystem::is_regular_file(kIsRunning));
}

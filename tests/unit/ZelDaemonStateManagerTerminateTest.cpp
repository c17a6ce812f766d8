// SPDX-License-Identifier: Apache-2.0
// The request to terminate: the calls to the listeners, the markers, and each answer of the service.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <vector>

#include "ZelDaemonStateManager.h"
#include "fakes/FakeControl.h"
#include "fakes/FakeDlog.h"
#include "fakes/FakeLite.h"
#include "support/Files.h"
#include "support/Plant.h"
#include "support/StateManagerOnBus.h"

using fakes::Actions;
using fakes::FakeControl;
using fakes::FakeDlog;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

using ZelDaemonStateManagerTerminateTest = StateManagerOnBus;

namespace {

std::vector<ETerminateErrorType> errors(std::initializer_list<int> numbers) {
    std::vector<ETerminateErrorType> list;
    for (const int number : numbers) {
        list.push_back(static_cast<ETerminateErrorType>(number));
    }
    return list;
}

bool statsAreBroken = false;

}  // namespace

extern "C" int __real_lstat(const char* path, struct stat* status);
extern "C" int __wrap_lstat(const char* path, struct stat* status);
extern "C" int __wrap_lstat(const char* path, struct stat* status) {
    if (!statsAreBroken) {
        return __real_lstat(path, status);
    }
    errno = EIO;
    return -1;
}

TEST_F(ZelDaemonStateManagerTerminateTest, ASuccessfulTerminationTellsMarksAndRemembers) {
    auto manager = bornIn(STATE_RUNNING);
    NamedListener first("A");
    NamedListener second("B");
    manager->RegisterListener(&first);
    manager->RegisterListener(&second);
    FakeControl::terminateData.pid = 99;
    FakeControl::terminateData.needStandbyHandling = true;

    const TerminateOutcome outcome = requestTerminate(*manager);

    EXPECT_TRUE(outcome.result);
    EXPECT_EQ(outcome.data.pid, 99);
    EXPECT_THAT(Actions::take(),
                ElementsAre("CreateZelControl", "A OnTerminate", "B OnTerminate",
                            "marker TCZelDaemonStateManager::RequestTerminate()", "Terminate",
                            "marker TCZelDaemonStateManager::RequestTerminate() completed, result [1]",
                            "DestroyZelControl", "A OnTerminateSuccess 99 1", "B OnTerminateSuccess 99 1"));
    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("Succeeded to terminate ZEL", "Create ZEL_RESTART_MODE file!"));
    EXPECT_TRUE(exists("/tmp/zel_restart"));
    EXPECT_FALSE(exists("/tmp/zel_lite_zel_daemon_is_running"));
    EXPECT_EQ(stateOf(*manager), 3);
}

TEST_F(ZelDaemonStateManagerTerminateTest, ASuccessIsLoggedBeforeTheMarkerIsMadeAndTheListenersAreCalled) {
    auto manager = bornIn(STATE_RUNNING);
    NamedListener listener("A");
    manager->RegisterListener(&listener);
    FakeControl::terminateData.pid = 99;
    plantAtOpen(kRestart, [] { Actions::add("restart marker opened"); });
    FakeDlog::recordActions();

    requestTerminate(*manager);

    EXPECT_THAT(actions(), ElementsAre("CreateZelControl", "A OnTerminate", "Terminate", "DestroyZelControl",
                                       "log RequestTerminate: Succeeded to terminate ZEL",
                                       "log m_CreateRestartFile: Create ZEL_RESTART_MODE file!",
                                       "restart marker opened", "A OnTerminateSuccess 99 0"));
}

TEST_F(ZelDaemonStateManagerTerminateTest, AnEmptyRestartMarkerIsThereWhenSuccessIsTold) {
    auto manager = bornIn(STATE_RUNNING);
    Watcher watcher("/tmp/zel_restart");
    manager->RegisterListener(&watcher);

    requestTerminate(*manager);

    EXPECT_THAT(actions(), Contains("OnTerminateSuccess: there"));
    EXPECT_EQ(readFile("/tmp/zel_restart"), "");
}

TEST_F(ZelDaemonStateManagerTerminateTest, SuccessIsToldBeforeTheStateIsTerminated) {
    auto manager = bornIn(STATE_RUNNING);
    Asker asker(*manager);
    manager->RegisterListener(&asker);

    requestTerminate(*manager);

    EXPECT_THAT(actions(), Contains("OnTerminateSuccess: not terminated"));
    EXPECT_TRUE(manager->IsZelTerminated());
}

TEST_F(ZelDaemonStateManagerTerminateTest, ATerminatedServiceIsNotAskedAgain) {
    auto manager = bornIn(STATE_TERMINATED);
    NamedListener listener("A");
    manager->RegisterListener(&listener);
    writeFile(kIsRunning, "untouched");
    writeFile(kRestart, "untouched");

    EXPECT_TRUE(requestTerminate(*manager).result);

    EXPECT_THAT(FakeDlog::messages(kInfo), ElementsAre("zel-daemon already terminated"));
    EXPECT_THAT(Actions::take(), IsEmpty());
    EXPECT_EQ(readFile(kIsRunning), "untouched");
    EXPECT_EQ(readFile(kRestart), "untouched");
}

TEST_F(ZelDaemonStateManagerTerminateTest, AnAlreadyTerminatedServiceLeavesTheCallersErrorsAndData) {
    auto manager = bornIn(STATE_TERMINATED);
    std::vector<ETerminateErrorType> reasons = errors({7});
    TSZelData data;
    data.pid = 5;
    data.needStandbyHandling = true;

    EXPECT_TRUE(manager->RequestTerminate(reasons, data));

    EXPECT_EQ(reasons, errors({7}));
    EXPECT_EQ(data.pid, 5);
    EXPECT_TRUE(data.needStandbyHandling);
}

TEST_F(ZelDaemonStateManagerTerminateTest, TerminationIsAskedInEveryStateButTerminated) {
    for (const EZelState state :
         {STATE_UNDEFINED, STATE_RUNNING, STATE_RUNNING_UNINITIALIZED, STATE_UNDEFINED_AFTER_TERMINATE}) {
        auto manager = bornIn(state);

        EXPECT_TRUE(requestTerminate(*manager).result);

        EXPECT_THAT(actions(), Contains("Terminate"));
    }
}

TEST_F(ZelDaemonStateManagerTerminateTest, WithoutAControlNothingIsTouchedByATermination) {
    auto manager = bornIn(STATE_RUNNING);
    NamedListener listener("A");
    manager->RegisterListener(&listener);
    FakeControl::available = false;

    EXPECT_FALSE(requestTerminate(*manager).result);

    EXPECT_THAT(Actions::take(), ElementsAre("CreateZelControl"));
    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("pZelControl == nullptr"));
    EXPECT_EQ(FakeDlog::lines().back().function(), "RequestTerminate");
    EXPECT_TRUE(exists(kIsRunning));
    EXPECT_FALSE(exists(kRestart));
    EXPECT_EQ(stateOf(*manager), 1);
}

TEST_F(ZelDaemonStateManagerTerminateTest, AMissingRunningMarkerIsLoggedAndTheRequestGoesOn) {
    auto manager = bornIn(STATE_RUNNING);
    unlink(kIsRunning);

    EXPECT_TRUE(requestTerminate(*manager).result);

    EXPECT_EQ(
        FakeDlog::count(kError, "Removing failed, removeRet(-1), file(/tmp/zel_lite_zel_daemon_is_running)"),
        1U);
}

TEST_F(ZelDaemonStateManagerTerminateTest, ARefusalLogsEachErrorAndTheServiceRuns) {
    auto manager = bornIn(STATE_RUNNING_UNINITIALIZED);
    NamedListener listener("A");
    manager->RegisterListener(&listener);
    FakeControl::terminateResult = 0;
    FakeControl::terminateErrors = errors({3, -1, 12});
    writeFile(kIsRunning, "old");

    const TerminateOutcome outcome = requestTerminate(*manager);

    EXPECT_FALSE(outcome.result);
    EXPECT_EQ(outcome.errors, errors({3, -1, 12}));
    EXPECT_THAT(actions(), ElementsAre("CreateZelControl", "A OnTerminate", "Terminate", "DestroyZelControl",
                                       "A OnStart"));
    EXPECT_THAT(
        FakeDlog::messages(kError),
        ElementsAre("Failed to terminate ZEL, m_zelState(running uninitialized), ret(0), error size 3",
                    "error: 3", "error: -1", "error: 12"));
    EXPECT_EQ(readFile(kIsRunning), "");
    EXPECT_TRUE(exists(kIsRunning));
    EXPECT_FALSE(exists(kRestart));
    EXPECT_EQ(stateOf(*manager), 1);
}

TEST_F(ZelDaemonStateManagerTerminateTest, ARefusalIsLoggedBeforeTheListenersAreCalled) {
    auto manager = bornIn(STATE_RUNNING);
    NamedListener listener("A");
    manager->RegisterListener(&listener);
    FakeControl::terminateResult = 2;
    FakeControl::terminateErrors = errors({3, 4});
    unlink(kIsRunning);
    FakeDlog::recordActions();

    requestTerminate(*manager);

    EXPECT_THAT(
        Actions::take(),
        ElementsAre(
            "CreateZelControl", "A OnTerminate",
            "log RequestTerminate: Removing failed, removeRet(-1), "
            "file(/tmp/zel_lite_zel_daemon_is_running)",
            "marker TCZelDaemonStateManager::RequestTerminate()", "Terminate",
            "marker TCZelDaemonStateManager::RequestTerminate() completed, result [2]", "DestroyZelControl",
            "log RequestTerminate: Failed to terminate ZEL, m_zelState(running), ret(2), error size 2",
            "log RequestTerminate: error: 3", "log RequestTerminate: error: 4", "A OnStart"));
}

TEST_F(ZelDaemonStateManagerTerminateTest, ARunningMarkerThatCannotComeBackAfterARefusalIsIgnored) {
    auto manager = bornIn(STATE_RUNNING_UNINITIALIZED);
    failCreating(kIsRunning, EROFS);
    FakeControl::terminateResult = 0;

    EXPECT_FALSE(requestTerminate(*manager).result);

    stopPlanting();
    EXPECT_THAT(
        FakeDlog::messages(kError),
        ElementsAre("Removing failed, removeRet(-1), file(/tmp/zel_lite_zel_daemon_is_running)",
                    "Failed to terminate ZEL, m_zelState(running uninitialized), ret(0), error size 0"));
    EXPECT_THAT(actions(), ElementsAre("CreateZelControl", "Terminate", "DestroyZelControl"));
    EXPECT_EQ(stateOf(*manager), 1);
}

TEST_F(ZelDaemonStateManagerTerminateTest, ARefusalsMarkerIsBackOnlyAfterTheListenersWereTold) {
    auto manager = bornIn(STATE_RUNNING);
    Watcher watcher(kIsRunning);
    manager->RegisterListener(&watcher);
    FakeControl::terminateResult = 2;

    requestTerminate(*manager);

    EXPECT_THAT(actions(), Contains("OnStart: gone"));
    EXPECT_TRUE(exists(kIsRunning));
}

TEST_F(ZelDaemonStateManagerTerminateTest,
       TheRunningMarkerGoesAfterTheListenersWereToldAndBeforeTheServiceIsAsked) {
    auto manager = bornIn(STATE_RUNNING);
    Watcher watcher(kIsRunning);
    manager->RegisterListener(&watcher);
    FakeControl::duringTerminate = [&watcher] { watcher.look("asked"); };

    requestTerminate(*manager);

    EXPECT_THAT(actions(), ElementsAre("CreateZelControl", "OnTerminate: there", "Terminate", "asked: gone",
                                       "DestroyZelControl", "OnTerminateSuccess: gone"));
}

namespace {

/** Plants a link at the running marker when the service is said to run on. */
class Planter : public NamedListener {
public:
    Planter() : NamedListener("planter") {}
    void OnStart() override {
        NamedListener::OnStart();
        EXPECT_EQ(symlink("/tmp/victim", kIsRunning), 0);
    }
};

}  // namespace

TEST_F(ZelDaemonStateManagerTerminateTest, ALinkPlantedBeforeARefusalsMarkerIsAssertedAndLeavesTheState) {
    auto manager = bornIn(STATE_RUNNING_UNINITIALIZED);
    Planter planter;
    manager->RegisterListener(&planter);
    writeFile("/tmp/victim", "precious");
    FakeControl::terminateResult = 0;
    testing::internal::CaptureStdout();

    EXPECT_FALSE(requestTerminate(*manager).result);

    EXPECT_EQ(fakes::FakeLite::printedBeforeAssertion, 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "ASSERT!!! - function RequestTerminate, line 234");
    EXPECT_EQ(FakeDlog::messages(kError).back(),
              "Failed to terminate ZEL, m_zelState(running uninitialized), ret(0), error size 0")
        << "the link itself has no line";
    EXPECT_THAT(actions(),
                ElementsAre("CreateZelControl", "planter OnTerminate", "Terminate", "DestroyZelControl",
                            "planter OnStart", "assert 0 " + std::string(kSource) + " 234"));
    EXPECT_EQ(readFile("/tmp/victim"), "precious");
    manager->UnregisterListener(&planter);
    unlink(kIsRunning);
    EXPECT_EQ(stateOf(*manager), 2);
}

TEST_F(ZelDaemonStateManagerTerminateTest, AFailedRequestRestartsTheServiceInTheSameCallAndIsFalse) {
    auto manager = bornIn(STATE_RUNNING);
    NamedListener listener("A");
    manager->RegisterListener(&listener);
    FakeControl::terminateResult = -1;

    EXPECT_FALSE(requestTerminate(*manager).result);

    EXPECT_THAT(actions(), ElementsAre("CreateZelControl", "A OnTerminate", "Terminate", "DestroyZelControl",
                                       "CreateZelControl", "Notify 1 0 0 0", "A OnStart"));
    EXPECT_EQ(systemd->takeCalls().size(), 1U);
    EXPECT_EQ(FakeDlog::messages(kError).front(), "Communication failed, m_zelState(running), ret(-1)");
    EXPECT_TRUE(exists(kIsRunning));
    EXPECT_FALSE(exists(kRestart));
    EXPECT_EQ(stateOf(*manager), 1);
}

TEST_F(ZelDaemonStateManagerTerminateTest, AFailedRequestIsLoggedBeforeTheServiceIsStartedAgain) {
    auto manager = bornIn(STATE_RUNNING);
    FakeControl::terminateResult = -3;
    FakeDlog::recordActions();

    requestTerminate(*manager);

    EXPECT_THAT(
        firstOf(Actions::take(), 7),
        ElementsAre("CreateZelControl", "marker TCZelDaemonStateManager::RequestTerminate()", "Terminate",
                    "marker TCZelDaemonStateManager::RequestTerminate() completed, result [-3]",
                    "DestroyZelControl",
                    "log RequestTerminate: Communication failed, m_zelState(running), ret(-3)",
                    "log Notify: ZEL Daemon Notify, startZEL(1), sendNotifyCall(1), informListeners(1), "
                    "m_zelState(4), trigger(1)"));
}

TEST_F(ZelDaemonStateManagerTerminateTest, AFailedRequestWhoseRestartFailsIsUndefinedAfterTerminate) {
    auto manager = bornIn(STATE_RUNNING);
    FakeControl::terminateResult = -7;
    systemd->answerWith(ScriptedSystemd::Answer::ErrorWithText);

    EXPECT_FALSE(requestTerminate(*manager).result);

    EXPECT_FALSE(exists(kIsRunning));
    systemd->answerWith(ScriptedSystemd::Answer::JobPath);
    EXPECT_EQ(stateOf(*manager), 4);
}

TEST_F(ZelDaemonStateManagerTerminateTest, ALinkAtTheRestartMarkerIsLeftUntouched) {
    auto manager = bornIn(STATE_RUNNING);
    writeFile("/tmp/victim", "precious");
    ASSERT_EQ(symlink("/tmp/victim", kRestart), 0);

    EXPECT_TRUE(requestTerminate(*manager).result);

    EXPECT_THAT(
        FakeDlog::messages(kError),
        ElementsAre("Succeeded to terminate ZEL", "Create ZEL_RESTART_MODE file!",
                    "File /tmp/zel_restart is symlink!", "File /tmp/zel_restart is symlink! Do nothing!"));
    EXPECT_EQ(readFile("/tmp/victim"), "precious");
    EXPECT_TRUE(std::filesystem::is_symlink("/tmp/zel_restart"));
    EXPECT_THAT(actions(), ElementsAre("CreateZelControl", "Terminate", "DestroyZelControl"))
        << "a link is no failure to create the marker";
}

TEST_F(ZelDaemonStateManagerTerminateTest, ARestartMarkerWhoseStatsCannotBeReadIsLoggedAndCreated) {
    auto manager = bornIn(STATE_RUNNING);
    statsAreBroken = true;

    EXPECT_TRUE(requestTerminate(*manager).result);

    statsAreBroken = false;
    EXPECT_EQ(FakeDlog::count(kError, "Cannot read file /tmp/zel_restart stats!"), 1U);
    EXPECT_EQ(FakeDlog::lines().back().function(), "m_CheckFileIsLink");
    EXPECT_TRUE(exists("/tmp/zel_restart"));
}

TEST_F(ZelDaemonStateManagerTerminateTest, AMissingRestartMarkerIsNoReadError) {
    auto manager = bornIn(STATE_RUNNING);

    EXPECT_TRUE(requestTerminate(*manager).result);

    EXPECT_EQ(FakeDlog::count(kError, "Cannot read file /tmp/zel_restart stats!"), 0U);
}

TEST_F(ZelDaemonStateManagerTerminateTest, ARestartMarkerThatCannotBeCreatedIsAssertedWithoutItsLine) {
    auto manager = bornIn(STATE_RUNNING);
    failCreating(kRestart, EROFS);
    testing::internal::CaptureStdout();

    EXPECT_TRUE(requestTerminate(*manager).result);

    stopPlanting();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_THAT(actions(),
                Contains(testing::StartsWith("assert pFile != nullptr " + std::string(kSource) + " ")));
}

TEST_F(ZelDaemonStateManagerTerminateTest, ALinkPlantedAfterTheLookAtTheRestartMarkerIsNotFollowed) {
    auto manager = bornIn(STATE_RUNNING);
    writeFile("/tmp/victim", "precious");
    plantAtOpen(kRestart, [] { EXPECT_EQ(symlink("/tmp/victim", kRestart), 0); });

    EXPECT_TRUE(requestTerminate(*manager).result);

    EXPECT_TRUE(wasPlanted());
    EXPECT_EQ(readFile("/tmp/victim"), "precious");
}

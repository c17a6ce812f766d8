// SPDX-License-Identifier: Apache-2.0
// The supervision of the service, against a scripted system manager on a real bus and a scripted service.
#include "ZelDaemonStateManager.h"

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "fakes/FakeControl.h"
#include "fakes/FakeDlog.h"
#include "fakes/FakeLite.h"
#include "fakes/FakePrctl.h"
#include "support/Files.h"
#include "support/Plant.h"
#include "support/PrivateBus.h"
#include "support/ScriptedSystemd.h"
#include "support/StateManagerWorld.h"
#include "support/Wait.h"

using fakes::Actions;
using fakes::FakeControl;
using fakes::FakeDlog;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr int kDebug = 3;
constexpr int kInfo = 4;
constexpr int kError = 6;
constexpr const char* kSource = "/usr/src/zel-lite/src/ZelDaemonStateManager.cpp";

// How often the probed process is alive still, and what the probe then fails with; the real kill otherwise.
struct {
    bool scripted = false;
    int aliveProbes = 0;
    int lastError = ESRCH;
    std::vector<std::string> calls;
} probe;

class ZelDaemonStateManagerTest : public StateManagerWorld {
protected:
    static void SetUpTestSuite() {
        bus = std::make_unique<PrivateBus>();
        systemd = std::make_unique<ScriptedSystemd>(bus->address());
    }
    static void TearDownTestSuite() {
        systemd.reset();
        bus.reset();
    }

    ZelDaemonStateManagerTest() {
        systemd->answerWith(ScriptedSystemd::Answer::JobPath);
        systemd->takeCalls();
        probe = {};
    }

    static std::unique_ptr<PrivateBus> bus;
    static std::unique_ptr<ScriptedSystemd> systemd;
};

std::unique_ptr<PrivateBus> ZelDaemonStateManagerTest::bus;
std::unique_ptr<ScriptedSystemd> ZelDaemonStateManagerTest::systemd;

TSNotifyData someData() {
    TSNotifyData data;
    data.source = 11;
    data.sourcePlugState = 12;
    data.value = 13;
    return data;
}

ETriggerType trigger(int number) {
    return static_cast<ETriggerType>(number);
}

std::vector<ETerminateErrorType> errors(std::initializer_list<int> numbers) {
    std::vector<ETerminateErrorType> list;
    for (const int number : numbers) {
        list.push_back(static_cast<ETerminateErrorType>(number));
    }
    return list;
}

struct TerminateOutcome {
    bool result;
    std::vector<ETerminateErrorType> errors;
    TSZelData data;
};

TerminateOutcome requestTerminate(TCZelDaemonStateManager& manager) {
    TerminateOutcome outcome{};
    outcome.result = manager.RequestTerminate(outcome.errors, outcome.data);
    return outcome;
}

}  // namespace

extern "C" int __real_kill(pid_t pid, int signal);
extern "C" int __wrap_kill(pid_t pid, int signal);
extern "C" int __wrap_kill(pid_t pid, int signal) {
    if (!probe.scripted) {
        return __real_kill(pid, signal);
    }
    probe.calls.push_back("kill " + std::to_string(pid) + " " + std::to_string(signal));
    if (probe.aliveProbes-- > 0) {
        return 0;
    }
    errno = probe.lastError;
    return -1;
}

extern "C" int __wrap_usleep(useconds_t microseconds);
extern "C" int __wrap_usleep(useconds_t microseconds) {
    probe.calls.push_back("usleep " + std::to_string(microseconds));
    return 0;
}

namespace {

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

// Construction

TEST_F(ZelDaemonStateManagerTest, AFreshBootIsLoggedMarkedAndRunningUninitialized) {
    TCZelDaemonStateManager manager;

    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("First boot up"));
    EXPECT_EQ(FakeDlog::lines().front().function(), "TCZelDaemonStateManager");
    EXPECT_EQ(FakeDlog::lines().front().file(), "ZelDaemonStateManager.cpp");
    EXPECT_TRUE(exists("/tmp/zel_lite_subsequent_start"));
    EXPECT_FALSE(exists("/tmp/zel_lite_zel_daemon_is_running"));
    EXPECT_EQ(stateOf(manager), 2);
}

TEST_F(ZelDaemonStateManagerTest, ARestartWhileTheServiceRanIsRunningUninitialized) {
    writeFile(kSubsequentStart, "");
    writeFile(kIsRunning, "");

    TCZelDaemonStateManager manager;

    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("ZEL was running before"));
    EXPECT_EQ(stateOf(manager), 2);
}

TEST_F(ZelDaemonStateManagerTest, ARestartWithoutTheRunningMarkerIsUndefined) {
    writeFile(kSubsequentStart, "");

    TCZelDaemonStateManager manager;

    EXPECT_THAT(FakeDlog::messages(kError), IsEmpty());
    EXPECT_EQ(stateOf(manager), 0);
}

TEST_F(ZelDaemonStateManagerTest, AFirstBootIgnoresAnOldRunningMarker) {
    writeFile(kIsRunning, "");

    TCZelDaemonStateManager manager;

    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("First boot up"));
}

TEST_F(ZelDaemonStateManagerTest, AMarkerThatCannotBeCreatedIsIgnored) {
    ASSERT_EQ(symlink("/nowhere/at/all", kSubsequentStart), 0);

    TCZelDaemonStateManager manager;

    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("First boot up"));
    EXPECT_EQ(stateOf(manager), 2);
}

TEST_F(ZelDaemonStateManagerTest, ALinkPlantedAtTheFirstMarkerIsNotFollowed) {
    writeFile("/tmp/victim", "precious");
    plantAtOpen(kSubsequentStart, [] { EXPECT_EQ(symlink("/tmp/victim", kSubsequentStart), 0); });

    TCZelDaemonStateManager manager;

    EXPECT_TRUE(wasPlanted());
    EXPECT_EQ(readFile("/tmp/victim"), "precious");
}

// Words for states

TEST_F(ZelDaemonStateManagerTest, EachStateHasItsWord) {
    EXPECT_EQ(TCZelDaemonStateManager::m_ToString(static_cast<EZelState>(0)), "undefined");
    EXPECT_EQ(TCZelDaemonStateManager::m_ToString(static_cast<EZelState>(1)), "running");
    EXPECT_EQ(TCZelDaemonStateManager::m_ToString(static_cast<EZelState>(2)), "running uninitialized");
    EXPECT_EQ(TCZelDaemonStateManager::m_ToString(static_cast<EZelState>(3)), "terminated");
    EXPECT_EQ(TCZelDaemonStateManager::m_ToString(static_cast<EZelState>(4)), "undefined after terminate");
}

TEST_F(ZelDaemonStateManagerTest, ANumberThatIsNoStateIsUndefined) {
    EXPECT_EQ(TCZelDaemonStateManager::m_ToString(static_cast<EZelState>(7)), "undefined");
}

// Listeners

TEST_F(ZelDaemonStateManagerTest, AListenerRegisteredTwiceIsHeldOnceAndLogged) {
    auto manager = bornIn(STATE_RUNNING_UNINITIALIZED);
    NamedListener listener("A");
    manager->RegisterListener(&listener);

    manager->RegisterListener(&listener);

    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("Listener already registred"));
    manager->Notify(kStart, TSNotifyData());
    EXPECT_THAT(actions(), ElementsAre("A OnStart"));
}

TEST_F(ZelDaemonStateManagerTest, RemovingAnUnknownListenerIsLogged) {
    auto manager = bornIn(STATE_RUNNING_UNINITIALIZED);
    NamedListener listener("A");

    manager->UnregisterListener(&listener);

    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("Listener not registred"));
}

TEST_F(ZelDaemonStateManagerTest, ListenersAreCalledInOrderOfRegistrationAlsoAfterARemoval) {
    auto manager = bornIn(STATE_RUNNING_UNINITIALIZED);
    NamedListener first("A");
    NamedListener second("B");
    NamedListener third("C");
    for (NamedListener* listener : {&first, &second, &third}) {
        manager->RegisterListener(listener);
    }

    manager->UnregisterListener(&second);
    manager->Notify(kStart, TSNotifyData());

    EXPECT_THAT(actions(), ElementsAre("A OnStart", "C OnStart"));
}

namespace {

/** Unregisters another listener, and itself, when it is called. */
class Remover : public NamedListener {
public:
    Remover(TCZelDaemonStateManager& manager, IZelDaemonStateListener& other)
        : NamedListener("remover"), m_manager(manager), m_other(other) {}

    void OnStart() override {
        NamedListener::OnStart();
        m_manager.UnregisterListener(&m_other);
        m_manager.UnregisterListener(this);
    }

private:
    TCZelDaemonStateManager& m_manager;
    IZelDaemonStateListener& m_other;
};

}  // namespace

TEST_F(ZelDaemonStateManagerTest, AListenerRemovedInsideACallbackIsNotCalledAfterwards) {
    auto manager = bornIn(STATE_RUNNING_UNINITIALIZED);
    NamedListener doomed("doomed");
    NamedListener last("last");
    Remover remover(*manager, doomed);
    manager->RegisterListener(&remover);
    manager->RegisterListener(&doomed);
    manager->RegisterListener(&last);

    manager->Notify(kStart, TSNotifyData());

    EXPECT_THAT(actions(), ElementsAre("remover OnStart", "last OnStart"));
}

// What the service understands

TEST_F(ZelDaemonStateManagerTest, TheTriggersHaveTheNumbersThatTheServiceKnows) {
    EXPECT_EQ(TRIGGER_TYPE_SOURCE_PLUG, 0);
    EXPECT_EQ(TRIGGER_TYPE_START_ZEL_MAIN, 1);
    EXPECT_EQ(TRIGGER_TYPE_NETWORK_TIME, 2);
    EXPECT_EQ(TRIGGER_TYPE_CLOCK_MODE, 3);
    EXPECT_EQ(TRIGGER_TYPE_SYNC_TIME, 4);
    EXPECT_EQ(TRIGGER_TYPE_STOLEN_TV, 5);
}

// Notify: state x trigger

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

TEST_F(ZelDaemonStateManagerTest, EveryTriggerInEveryStateDoesWhatItsCellSays) {
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

TEST_F(ZelDaemonStateManagerTest, ATriggerWhileRunningOnlyRefreshesTheMarker) {
    auto manager = bornIn(STATE_RUNNING);
    writeFile(kIsRunning, "old content");

    EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));

    EXPECT_THAT(actions(), IsEmpty());
    EXPECT_THAT(FakeDlog::messages(kError), IsEmpty());
    EXPECT_EQ(readFile("/tmp/zel_lite_zel_daemon_is_running"), "");
    EXPECT_TRUE(exists("/tmp/zel_lite_zel_daemon_is_running"));
}

TEST_F(ZelDaemonStateManagerTest, AStartAsksSystemdForTheUnitAndLogsItsWay) {
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

TEST_F(ZelDaemonStateManagerTest, TheStartsLinesCarryTheFunctionsTheyBelongTo) {
    auto manager = bornIn(STATE_UNDEFINED);

    manager->Notify(kStart, TSNotifyData());

    std::vector<std::string> functions;
    for (const fakes::LogLine& line : FakeDlog::lines()) {
        functions.push_back(line.function());
    }
    EXPECT_THAT(functions, ElementsAre("Notify", "Notify", "m_StartZelDaemonService",
                                       "m_StartZelDaemonService", "m_StartZelDaemonService"));
}

TEST_F(ZelDaemonStateManagerTest, AStartEmitsItsBootMarkersInOrder) {
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

TEST_F(ZelDaemonStateManagerTest, AFailedStartLeavesTheStateAndCallsNobody) {
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

TEST_F(ZelDaemonStateManagerTest, NoControlIsLoggedAndLeavesTheState) {
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

TEST_F(ZelDaemonStateManagerTest, AFailedNotifyDestroysTheControlAndLeavesTheState) {
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

TEST_F(ZelDaemonStateManagerTest, AServiceWithoutSuccessRunsAllTheSameButTheResultIsFalse) {
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

TEST_F(ZelDaemonStateManagerTest, ATriggerToARunningServiceLeavesTheRestartMarker) {
    auto manager = bornIn(STATE_RUNNING);
    writeFile(kRestart, "");

    EXPECT_TRUE(manager->Notify(trigger(5), TSNotifyData()));

    EXPECT_TRUE(exists("/tmp/zel_restart"));
}

namespace {

/** Its hooks are the actions "HOOK: there" or "HOOK: gone", as a file is there or not. */
class Watcher : public NamedListener {
public:
    explicit Watcher(std::string path) : NamedListener("watcher"), m_path(std::move(path)) {}
    void OnStart() override { look("OnStart"); }
    void OnTerminate() override { look("OnTerminate"); }
    void OnTerminateSuccess(const TSZelData& /*data*/) override { look("OnTerminateSuccess"); }

    void look(const std::string& hook) const { Actions::add(hook + (exists(m_path) ? ": there" : ": gone")); }

private:
    std::string m_path;
};

}  // namespace

TEST_F(ZelDaemonStateManagerTest, TheRestartMarkerGoesAfterTheListenersWereTold) {
    auto manager = bornIn(STATE_TERMINATED);
    Watcher watcher("/tmp/zel_restart");
    manager->RegisterListener(&watcher);

    manager->Notify(kStart, TSNotifyData());

    EXPECT_THAT(actions(), Contains("OnStart: there"));
    EXPECT_FALSE(exists("/tmp/zel_restart"));
}

TEST_F(ZelDaemonStateManagerTest, ARestartMarkerThatIsMissingIsNoFault) {
    auto manager = bornIn(STATE_UNDEFINED);

    EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));

    EXPECT_THAT(actions(), Not(Contains(testing::StartsWith("assert"))));
}

TEST_F(ZelDaemonStateManagerTest, ARestartMarkerThatCannotBeRemovedIsAssertedAndTheStartGoesOn) {
    auto manager = bornIn(STATE_UNDEFINED);
    std::filesystem::create_directories("/tmp/zel_restart/full");
    testing::internal::CaptureStdout();

    EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));

    EXPECT_EQ(testing::internal::GetCapturedStdout(), "ASSERT!!! - function Notify, line 158");
    EXPECT_THAT(actions(), Contains("assert (*__errno_location ()) == 2 " + std::string(kSource) + " 158"));
    EXPECT_TRUE(exists(kIsRunning));
}

TEST_F(ZelDaemonStateManagerTest, APlantedRunningMarkerFailsTheNotifyThoughTheServiceRuns) {
    auto manager = bornIn(STATE_UNDEFINED);
    NamedListener listener("A");
    manager->RegisterListener(&listener);
    writeFile("/tmp/victim", "precious");
    ASSERT_EQ(symlink("/tmp/victim", kIsRunning), 0);
    testing::internal::CaptureStdout();

    EXPECT_FALSE(manager->Notify(kStart, TSNotifyData()));

    EXPECT_EQ(testing::internal::GetCapturedStdout(), "ASSERT!!! - function Notify, line 167");
    EXPECT_THAT(actions(), ElementsAre("CreateZelControl", "Notify 1 0 0 0", "A OnStart",
                                       "assert 0 " + std::string(kSource) + " 167"));
    EXPECT_EQ(readFile("/tmp/victim"), "precious");
    unlink(kIsRunning);
    EXPECT_EQ(stateOf(*manager), 1);
}

TEST_F(ZelDaemonStateManagerTest, ALinkPlantedAfterTheLookAtTheRunningMarkerIsNotFollowed) {
    auto manager = bornIn(STATE_RUNNING);
    unlink(kIsRunning);
    writeFile("/tmp/victim", "precious");
    plantAtOpen(kIsRunning, [] { EXPECT_EQ(symlink("/tmp/victim", kIsRunning), 0); });

    EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));

    EXPECT_TRUE(wasPlanted());
    EXPECT_EQ(readFile("/tmp/victim"), "precious");
}

TEST_F(ZelDaemonStateManagerTest, AFifoAtTheRunningMarkerBlocksNobody) {
    auto manager = bornIn(STATE_RUNNING);
    unlink(kIsRunning);
    ASSERT_EQ(mkfifo(kIsRunning, 0600), 0);

    EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));
}

TEST_F(ZelDaemonStateManagerTest, TheServiceIsStartedAnewAfterEachTermination) {
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

TEST_F(ZelDaemonStateManagerTest, EveryReplyToStartUnitHasItsLineAndResult) {
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

TEST_F(ZelDaemonStateManagerTest, AnOldProcessIsProbedTwoHundredTimesThenTheStartProceeds) {
    auto manager = bornIn(STATE_RUNNING);
    FakeControl::terminateData.pid = kOldPid;
    ASSERT_TRUE(requestTerminate(*manager).result);
    forget();
    probe.scripted = true;
    probe.aliveProbes = 1'000'000;

    EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));

    ASSERT_EQ(probe.calls.size(), 400U);
    for (std::size_t i = 0; i < probe.calls.size(); i += 2) {
        EXPECT_EQ(probe.calls[i], "kill 4711 0");
        EXPECT_EQ(probe.calls[i + 1], "usleep 100000");
    }
    EXPECT_EQ(FakeDlog::count(kError, "zel-daemon is alive, pid(4711)"), 200U);
    EXPECT_EQ(FakeDlog::count(kInfo, "m_previousZELDaemonPID(4711)"), 1U);
    EXPECT_EQ(systemd->takeCalls().size(), 1U);
}

TEST_F(ZelDaemonStateManagerTest, TheWaitEndsAtAnyErrorOfTheProbe) {
    for (const int error : {ESRCH, EPERM, EINVAL}) {
        auto manager = bornIn(STATE_RUNNING);
        FakeControl::terminateData.pid = kOldPid;
        ASSERT_TRUE(requestTerminate(*manager).result);
        forget();
        probe = {};
        probe.scripted = true;
        probe.aliveProbes = 3;
        probe.lastError = error;

        EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));

        EXPECT_EQ(probe.calls.size(), 7U);
        EXPECT_EQ(FakeDlog::count(kError, "zel-daemon is alive, pid(4711)"), 3U);
        probe = {};
    }
}

TEST_F(ZelDaemonStateManagerTest, TheOldPidIsForgottenEvenIfTheStartFails) {
    auto manager = bornIn(STATE_RUNNING);
    FakeControl::terminateData.pid = kOldPid;
    ASSERT_TRUE(requestTerminate(*manager).result);
    probe.scripted = true;
    systemd->answerWith(ScriptedSystemd::Answer::ErrorWithText);
    ASSERT_FALSE(manager->Notify(kStart, TSNotifyData()));
    systemd->answerWith(ScriptedSystemd::Answer::JobPath);
    forget();
    probe.calls.clear();

    EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));

    EXPECT_THAT(probe.calls, IsEmpty());
    EXPECT_EQ(FakeDlog::count(kInfo, "m_previousZELDaemonPID(-1)"), 1U);
}

// Termination

TEST_F(ZelDaemonStateManagerTest, ASuccessfulTerminationTellsMarksAndRemembers) {
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

TEST_F(ZelDaemonStateManagerTest, AnEmptyRestartMarkerIsThereWhenSuccessIsTold) {
    auto manager = bornIn(STATE_RUNNING);
    Watcher watcher("/tmp/zel_restart");
    manager->RegisterListener(&watcher);

    requestTerminate(*manager);

    EXPECT_THAT(actions(), Contains("OnTerminateSuccess: there"));
    EXPECT_EQ(readFile("/tmp/zel_restart"), "");
}

namespace {

/** Asks in its hook whether the service is terminated. */
class Asker : public NamedListener {
public:
    explicit Asker(TCZelDaemonStateManager& manager) : NamedListener("asker"), m_manager(manager) {}
    void OnStart() override { ask("OnStart"); }
    void OnTerminateSuccess(const TSZelData& /*data*/) override { ask("OnTerminateSuccess"); }

private:
    void ask(const std::string& hook) {
        Actions::add(hook + (m_manager.IsZelTerminated() ? ": terminated" : ": not terminated"));
    }

    TCZelDaemonStateManager& m_manager;
};

}  // namespace

TEST_F(ZelDaemonStateManagerTest, SuccessIsToldBeforeTheStateIsTerminated) {
    auto manager = bornIn(STATE_RUNNING);
    Asker asker(*manager);
    manager->RegisterListener(&asker);

    requestTerminate(*manager);

    EXPECT_THAT(actions(), Contains("OnTerminateSuccess: not terminated"));
    EXPECT_TRUE(manager->IsZelTerminated());
}

TEST_F(ZelDaemonStateManagerTest, AStartIsToldBeforeTheStateIsRunning) {
    auto manager = bornIn(STATE_TERMINATED);
    Asker asker(*manager);
    manager->RegisterListener(&asker);

    manager->Notify(kStart, TSNotifyData());

    EXPECT_THAT(actions(), Contains("OnStart: terminated"));
    EXPECT_FALSE(manager->IsZelTerminated());
}

TEST_F(ZelDaemonStateManagerTest, ATerminatedServiceIsNotAskedAgain) {
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

TEST_F(ZelDaemonStateManagerTest, TerminationIsAskedInEveryStateButTerminated) {
    for (const EZelState state :
         {STATE_UNDEFINED, STATE_RUNNING, STATE_RUNNING_UNINITIALIZED, STATE_UNDEFINED_AFTER_TERMINATE}) {
        auto manager = bornIn(state);

        EXPECT_TRUE(requestTerminate(*manager).result);

        EXPECT_THAT(actions(), Contains("Terminate"));
    }
}

TEST_F(ZelDaemonStateManagerTest, WithoutAControlNothingIsTouchedByATermination) {
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

TEST_F(ZelDaemonStateManagerTest, AMissingRunningMarkerIsLoggedAndTheRequestGoesOn) {
    auto manager = bornIn(STATE_RUNNING);
    unlink(kIsRunning);

    EXPECT_TRUE(requestTerminate(*manager).result);

    EXPECT_EQ(
        FakeDlog::count(kError, "Removing failed, removeRet(-1), file(/tmp/zel_lite_zel_daemon_is_running)"),
        1U);
}

TEST_F(ZelDaemonStateManagerTest, ARefusalLogsEachErrorAndTheServiceRuns) {
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

TEST_F(ZelDaemonStateManagerTest, ARefusalsMarkerIsBackOnlyAfterTheListenersWereTold) {
    auto manager = bornIn(STATE_RUNNING);
    Watcher watcher(kIsRunning);
    manager->RegisterListener(&watcher);
    FakeControl::terminateResult = 2;

    requestTerminate(*manager);

    EXPECT_THAT(actions(), Contains("OnStart: gone"));
    EXPECT_TRUE(exists(kIsRunning));
}

TEST_F(ZelDaemonStateManagerTest, TheRunningMarkerGoesAfterTheListenersWereToldAndBeforeTheServiceIsAsked) {
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

TEST_F(ZelDaemonStateManagerTest, ALinkPlantedBeforeARefusalsMarkerIsAssertedAndLeavesTheState) {
    auto manager = bornIn(STATE_RUNNING_UNINITIALIZED);
    Planter planter;
    manager->RegisterListener(&planter);
    writeFile("/tmp/victim", "precious");
    FakeControl::terminateResult = 0;
    testing::internal::CaptureStdout();

    EXPECT_FALSE(requestTerminate(*manager).result);

    EXPECT_EQ(testing::internal::GetCapturedStdout(), "ASSERT!!! - function RequestTerminate, line 234");
    EXPECT_THAT(actions(),
                ElementsAre("CreateZelControl", "planter OnTerminate", "Terminate", "DestroyZelControl",
                            "planter OnStart", "assert 0 " + std::string(kSource) + " 234"));
    EXPECT_EQ(readFile("/tmp/victim"), "precious");
    manager->UnregisterListener(&planter);
    unlink(kIsRunning);
    EXPECT_EQ(stateOf(*manager), 2);
}

TEST_F(ZelDaemonStateManagerTest, AFailedRequestRestartsTheServiceInTheSameCallAndIsFalse) {
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

TEST_F(ZelDaemonStateManagerTest, AFailedRequestWhoseRestartFailsIsUndefinedAfterTerminate) {
    auto manager = bornIn(STATE_RUNNING);
    FakeControl::terminateResult = -7;
    systemd->answerWith(ScriptedSystemd::Answer::ErrorWithText);

    EXPECT_FALSE(requestTerminate(*manager).result);

    EXPECT_FALSE(exists(kIsRunning));
    systemd->answerWith(ScriptedSystemd::Answer::JobPath);
    EXPECT_EQ(stateOf(*manager), 4);
}

TEST_F(ZelDaemonStateManagerTest, ALinkAtTheRestartMarkerIsLeftUntouched) {
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
}

TEST_F(ZelDaemonStateManagerTest, ARestartMarkerWhoseStatsCannotBeReadIsLoggedAndCreated) {
    auto manager = bornIn(STATE_RUNNING);
    statsAreBroken = true;

    EXPECT_TRUE(requestTerminate(*manager).result);

    statsAreBroken = false;
    EXPECT_EQ(FakeDlog::count(kError, "Cannot read file /tmp/zel_restart stats!"), 1U);
    EXPECT_EQ(FakeDlog::lines().back().function(), "m_CheckFileIsLink");
    EXPECT_TRUE(exists("/tmp/zel_restart"));
}

TEST_F(ZelDaemonStateManagerTest, AMissingRestartMarkerIsNoReadError) {
    auto manager = bornIn(STATE_RUNNING);

    EXPECT_TRUE(requestTerminate(*manager).result);

    EXPECT_EQ(FakeDlog::count(kError, "Cannot read file /tmp/zel_restart stats!"), 0U);
}

TEST_F(ZelDaemonStateManagerTest, ARestartMarkerThatCannotBeCreatedIsAssertedWithoutItsLine) {
    auto manager = bornIn(STATE_RUNNING);
    ASSERT_EQ(mkdir(kRestart, 0755), 0);
    testing::internal::CaptureStdout();

    EXPECT_TRUE(requestTerminate(*manager).result);

    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_THAT(actions(),
                Contains(testing::StartsWith("assert pFile != nullptr " + std::string(kSource) + " ")));
}

TEST_F(ZelDaemonStateManagerTest, ALinkPlantedAfterTheLookAtTheRestartMarkerIsNotFollowed) {
    auto manager = bornIn(STATE_RUNNING);
    writeFile("/tmp/victim", "precious");
    plantAtOpen(kRestart, [] { EXPECT_EQ(symlink("/tmp/victim", kRestart), 0); });

    EXPECT_TRUE(requestTerminate(*manager).result);

    EXPECT_TRUE(wasPlanted());
    EXPECT_EQ(readFile("/tmp/victim"), "precious");
}

// The companion application

namespace {

constexpr const char* kLauncherPath = "/usr/apps/zel-lite-app/bin/zel-lite-app-launch";
constexpr const char* kLaunched = "/tmp/launched";

// A launcher that writes down how it was called, in one piece.
void installLauncher() {
    std::filesystem::create_directories("/usr/apps/zel-lite-app/bin");
    writeFile(kLauncherPath,
              "#!/bin/sh\necho \"$0 $# [$1]\" > /tmp/launched.part\nmv /tmp/launched.part /tmp/launched\n");
    chmod(kLauncherPath, 0755);
    unlink(kLaunched);
}

// The test has a process namespace of its own, so every process that runs this program is seen.
std::size_t processesOfThisProgram() {
    const auto program = std::filesystem::read_symlink("/proc/self/exe");
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        std::error_code error;
        const bool isProcess = std::isdigit(entry.path().filename().string().front()) != 0;
        count += isProcess && std::filesystem::read_symlink(entry.path() / "exe", error) == program ? 1U : 0U;
    }
    return count;
}

class LauncherTest : public ZelDaemonStateManagerTest {
protected:
    LauncherTest() { installLauncher(); }
    ~LauncherTest() override {
        unlink(kLauncherPath);
        signal(SIGCHLD, SIG_DFL);
    }
};

}  // namespace

TEST_F(LauncherTest, ARefreshIsPassedAsAnOption) {
    auto manager = bornIn(STATE_RUNNING);

    EXPECT_TRUE(manager->LaunchZelLiteApp(true));

    EXPECT_EQ(waitForLine(kLaunched), "/usr/apps/zel-lite-app/bin/zel-lite-app-launch 1 [-r]\n");
    EXPECT_THAT(FakeDlog::messages(kDebug), Contains("Launching zel-lite-app-launch refresh(1)"));
    EXPECT_THAT(readFile(FakeDlog::kFile), testing::HasSubstr("Launched zel-lite-app-launch\n"));
}

TEST_F(LauncherTest, WithoutRefreshTheSecondArgumentIsEmptyNotAbsent) {
    auto manager = bornIn(STATE_RUNNING);

    EXPECT_TRUE(manager->LaunchZelLiteApp(false));

    EXPECT_EQ(waitForLine(kLaunched), "/usr/apps/zel-lite-app/bin/zel-lite-app-launch 1 []\n");
    EXPECT_THAT(FakeDlog::messages(kDebug), Contains("Launching zel-lite-app-launch refresh(0)"));
}

TEST_F(LauncherTest, TheLauncherIsReapedByTheKernel) {
    auto manager = bornIn(STATE_RUNNING);

    ASSERT_TRUE(manager->LaunchZelLiteApp(false));

    struct sigaction action {};
    sigaction(SIGCHLD, nullptr, &action);
    EXPECT_EQ(action.sa_handler, SIG_IGN);
    waitForLine(kLaunched);
}

TEST_F(LauncherTest, AMissingLauncherEndsTheChildWithoutATrace) {
    auto manager = bornIn(STATE_RUNNING);
    unlink(kLauncherPath);
    unlink("/tmp/exit-handler-ran");
    std::atexit([] { writeFile("/tmp/exit-handler-ran", "x"); });

    EXPECT_TRUE(manager->LaunchZelLiteApp(false));

    EXPECT_TRUE(becomesTrue([] { return processesOfThisProgram() == 1; }));
    EXPECT_FALSE(exists("/tmp/exit-handler-ran"));
    EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));
}

TEST_F(LauncherTest, OnADebugSetEachStartBringsUpTheApplicationWithRefresh) {
    fakes::FakeLite::isDebug = true;
    auto manager = bornIn(STATE_UNDEFINED);
    FakeDlog::recordActions();

    EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));

    const auto order = actions();
    const auto launched = std::find(order.begin(), order.end(), "log Notify: LaunchZelLiteApp");
    const auto forwarded = std::find(order.begin(), order.end(), "CreateZelControl");
    ASSERT_NE(forwarded, order.end());
    EXPECT_LT(launched, forwarded) << "the application comes up while the service is told";
    EXPECT_EQ(FakeDlog::count(kInfo, "LaunchZelLiteApp"), 1U);
    EXPECT_EQ(waitForLine(kLaunched), "/usr/apps/zel-lite-app/bin/zel-lite-app-launch 1 [-r]\n");
}

TEST_F(LauncherTest, OnADebugSetATriggerWithoutStartLaunchesNothing) {
    fakes::FakeLite::isDebug = true;
    auto manager = bornIn(STATE_RUNNING);

    EXPECT_TRUE(manager->Notify(trigger(5), TSNotifyData()));

    EXPECT_EQ(FakeDlog::count(kDebug, "Launching zel-lite-app-launch refresh(1)"), 0U);
}

TEST_F(LauncherTest, OnAnOrdinarySetAStartLaunchesNothing) {
    auto manager = bornIn(STATE_UNDEFINED);

    EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));

    EXPECT_EQ(FakeDlog::count(kInfo, "LaunchZelLiteApp"), 0U);
}

// Threads

TEST_F(ZelDaemonStateManagerTest, TriggersFromManyThreadsStartTheServiceOnce) {
    auto manager = bornIn(STATE_UNDEFINED);
    std::vector<std::thread> threads;
    threads.reserve(5);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&manager] {
            for (int round = 0; round < 20; ++round) {
                EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));
                EXPECT_FALSE(manager->IsZelTerminated());
            }
        });
    }

    threads.emplace_back([&manager] {
        NamedListener passing("passing");
        for (int round = 0; round < 20; ++round) {
            manager->RegisterListener(&passing);
            manager->UnregisterListener(&passing);
        }
    });

    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(systemd->takeCalls().size(), 1U);
    EXPECT_EQ(FakeDlog::count(kError, "Listener not registred"), 0U);
}

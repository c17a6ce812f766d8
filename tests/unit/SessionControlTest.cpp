// SPDX-License-Identifier: Apache-2.0
// The table of sessions and the clock, above a state manager that starts nothing.
#include "SessionControl.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <limits>
#include <thread>

#include "ZelDaemonStateManager.h"
#include "fakes/Actions.h"
#include "fakes/FakeDlog.h"
#include "fakes/FakeStateManager.h"
#include "support/Files.h"
#include "support/StateFileWorld.h"

using fakes::Actions;
using fakes::FakeDlog;
using fakes::FakeStateManager;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int kInfo = 4;
constexpr int kError = 6;

using SessionControlTest = StateFileWorld;

}  // namespace

// Construction

TEST_F(SessionControlTest, TheTableIsLoadedBeforeTheSwitchesAreRead) {
    writeFile(kState, "x");
    FakeDlog::recordActions();

    TCSessionControl control(m_manager);

    EXPECT_THAT(Actions::take(), ElementsAre("log m_loadState: Error read, contentSize(1)",
                                             "log TCSessionControl: Can not load session state", "IsDebug",
                                             "mkpath zel-lite/zel_lite_disable_tracing",
                                             "mkpath zel-lite/zel_lite_aggressive_terminate",
                                             "vconf_notify_key_changed memory/tv-viewer/viewer_state"));
}

TEST_F(SessionControlTest, ADaemonWithoutAStateFileBeginsWithACleanTable) {
    TCSessionControl control(m_manager);

    EXPECT_THAT(FakeDlog::messages(kInfo), ElementsAre("State file does not exist. Clean session."));
    EXPECT_THAT(FakeDlog::messages(kError), IsEmpty());
    EXPECT_FALSE(control.IsAnySessionActive());
}

// Open and close

TEST_F(SessionControlTest, OpeningASessionSendsTheStartTriggerAndSaves) {
    TCSessionControl control(m_manager);
    forget();

    EXPECT_TRUE(control.Open(":1.5", "player", "42"));

    EXPECT_THAT(Actions::take(), ElementsAre("StateManager::Notify 1 0 0 0"));
    EXPECT_THAT(FakeDlog::messages(kInfo),
                ElementsAre("call Notify(TRIGGER_TYPE_START_ZEL_MAIN, TSNotifyData()), sessionId(:1.5), "
                            "progName(player), pid(42), terminated(0)"));
    EXPECT_EQ(FakeDlog::lines().back().function(), "m_Open");
    EXPECT_TRUE(control.IsAnySessionActive());
    EXPECT_EQ(readFile(kState), number(1) + session(":1.5", "player", "42"));
}

TEST_F(SessionControlTest, OpeningLogsWhetherTheServiceWasTerminatedBeforeTheTrigger) {
    TCSessionControl control(m_manager);
    FakeStateManager::terminated = true;
    FakeStateManager::duringNotify = [] { FakeStateManager::terminated = false; };
    forget();
    FakeDlog::recordActions();

    control.Open(":1.5", "player", "42");

    EXPECT_THAT(Actions::take(),
                ElementsAre("log m_Open: call Notify(TRIGGER_TYPE_START_ZEL_MAIN, TSNotifyData()), "
                            "sessionId(:1.5), progName(player), pid(42), terminated(1)",
                            "StateManager::Notify 1 0 0 0"));
}

TEST_F(SessionControlTest, OpeningTwiceIsRefusedAndKeepsTheFirstRecord) {
    TCSessionControl control(m_manager);
    ASSERT_TRUE(control.Open(":1.5", "first", "1"));
    forget();

    EXPECT_FALSE(control.Open(":1.5", "second", "2"));

    EXPECT_THAT(
        FakeDlog::messages(kError),
        ElementsAre("Try to open already connected session: sessionId(:1.5), progName(second), pid(2)"));
    EXPECT_THAT(Actions::take(), IsEmpty());
    EXPECT_EQ(readFile(kState), number(1) + session(":1.5", "first", "1"));
    ASSERT_TRUE(control.Open("~", "", "")) << "the next save shows the table";
    EXPECT_EQ(readFile(kState), number(2) + session(":1.5", "first", "1") + session("~", "", ""));
}

TEST_F(SessionControlTest, AFailedStartKeepsTheSessionUnsaved) {
    TCSessionControl control(m_manager);
    FakeStateManager::notifyResult = false;
    forget();

    EXPECT_FALSE(control.Open(":1.5", "player", "42"));

    EXPECT_THAT(
        FakeDlog::messages(kError),
        ElementsAre("ERROR: FAILED to start ZEL when Opening session, sessionId(:1.5), progName(player), "
                    "pid(42)"));
    EXPECT_TRUE(control.IsAnySessionActive());
    EXPECT_FALSE(exists(kState));
    EXPECT_FALSE(control.Open(":1.5", "player", "42")) << "it is open already";
    EXPECT_TRUE(control.Close(":1.5"));
    EXPECT_FALSE(control.IsAnySessionActive());
}

TEST_F(SessionControlTest, ClosingAnUnknownSessionIsRefused) {
    TCSessionControl control(m_manager);
    forget();

    EXPECT_FALSE(control.Close(":1.5"));

    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("There is no session to close: sessionId(:1.5)"));
    EXPECT_EQ(FakeDlog::lines().back().function(), "m_Close");
}

TEST_F(SessionControlTest, ClosingTheLastSessionRemovesTheStateFile) {
    TCSessionControl control(m_manager);
    control.Open(":1.5", "player", "42");
    forget();

    EXPECT_TRUE(control.Close(":1.5"));

    EXPECT_FALSE(exists(kState));
    EXPECT_THAT(FakeDlog::messages(kInfo), ElementsAre("State file removed, removed(1), exists(0)"));
}

TEST_F(SessionControlTest, ClosingTheLastSessionSucceedsWithoutAStateFile) {
    TCSessionControl control(m_manager);
    control.Open(":1.5", "player", "42");
    unlink(kState);
    forget();

    EXPECT_TRUE(control.Close(":1.5"));

    EXPECT_THAT(FakeDlog::messages(kInfo), ElementsAre("State file removed, removed(0), exists(0)"));
    EXPECT_THAT(Actions::take(), IsEmpty());
}

TEST_F(SessionControlTest, ClosingOneOfTwoSavesTheOther) {
    TCSessionControl control(m_manager);
    control.Open("b", "bee", "2");
    control.Open("a", "ant", "1");
    EXPECT_EQ(readFile(kState), number(2) + session("a", "ant", "1") + session("b", "bee", "2"));

    EXPECT_TRUE(control.Close("a"));

    EXPECT_EQ(readFile(kState), number(1) + session("b", "bee", "2"));
}

TEST_F(SessionControlTest, AnOwnerThatHasGoneLosesItsSession) {
    TCSessionControl control(m_manager);
    control.Open(":1.5", "player", "42");

    control.CloseOnCrash(":1.5");

    EXPECT_FALSE(control.IsAnySessionActive());
    EXPECT_FALSE(exists(kState));
}

TEST_F(SessionControlTest, AnOwnerWithoutSessionIsPassedOverInSilence) {
    TCSessionControl control(m_manager);
    control.Open(":1.5", "player", "42");
    forget();

    control.CloseOnCrash(":1.6");

    EXPECT_THAT(FakeDlog::lines(), IsEmpty());
    EXPECT_TRUE(control.IsAnySessionActive());
}

TEST_F(SessionControlTest, SessionsAreOpenedAndClosedFromManyThreads) {
    TCSessionControl control(m_manager);
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&control, id = std::to_string(i)] {
            for (int round = 0; round < 25; ++round) {
                EXPECT_TRUE(control.Open(id, "p", "1"));
                control.IsAnySessionActive();
                round % 2 == 0 ? static_cast<void>(control.Close(id)) : control.CloseOnCrash(id);
            }
        });
    }

    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_FALSE(control.IsAnySessionActive());
    EXPECT_FALSE(exists(kState));
}

// The clock

namespace {

// Scripted for the thread of the test only.
thread_local timespec clockReading{};
thread_local int clockResult = 0;
thread_local bool clockScripted = false;

}  // namespace

extern "C" int __real_clock_gettime(clockid_t clock, timespec* time);
extern "C" int __wrap_clock_gettime(clockid_t clock, timespec* time);
extern "C" int __wrap_clock_gettime(clockid_t clock, timespec* time) {
    if (!clockScripted || clock != CLOCK_MONOTONIC) {
        return __real_clock_gettime(clock, time);
    }
    *time = clockReading;
    return clockResult;
}

namespace {

class Clock : public TCSessionControl {
public:
    using TCSessionControl::t_getTimeMs;
    using TCSessionControl::TCSessionControl;
};

class ClockTest : public StateFileWorld {
protected:
    ~ClockTest() override { clockScripted = false; }

    std::int64_t at(time_t seconds, long nanoseconds) {
        clockScripted = true;
        clockResult = 0;
        clockReading = {seconds, nanoseconds};
        return m_clock.t_getTimeMs();
    }

    Clock m_clock{m_manager};
};

}  // namespace

TEST_F(ClockTest, TimeIsSecondsAndWholeMilliseconds) {
    EXPECT_EQ(at(0, 0), 0);
    EXPECT_EQ(at(0, 999'999), 0);
    EXPECT_EQ(at(1, 500'000'000), 1500);
    EXPECT_EQ(at(12, 999'999'999), 12'999);
}

TEST_F(ClockTest, TheLastMillisecondsBeforeTheWrapAreExact) {
    EXPECT_EQ(at(2'147'483, 647'000'000), 2'147'483'647);
}

TEST_F(ClockTest, OnlyTheProductOfTheSecondsIsNarrow) {
    // The milliseconds are added in 64 bits: this second still passes 2^31.
    EXPECT_EQ(at(2'147'483, 648'000'000), 2'147'483'648);
    EXPECT_EQ(at(2'147'483, 999'000'000), 2'147'483'999);
}

TEST_F(ClockTest, BeyondTheWrapTimeIsNegativeThenComesRoundAgain) {
    EXPECT_EQ(at(2'147'484, 0), -2'147'483'296);
    EXPECT_EQ(at(4'294'967, 295'000'000), -1);
    EXPECT_EQ(at(4'294'968, 0), 704);
    EXPECT_EQ(at(std::numeric_limits<std::int32_t>::max(), 5'000'000), -995);
}

TEST_F(ClockTest, WithoutAClockTimeIsMinusTwo) {
    clockScripted = true;
    clockResult = -1;
    forget();

    EXPECT_EQ(m_clock.t_getTimeMs(), -2);

    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("clock_gettime failed"));
    EXPECT_EQ(FakeDlog::lines().back().function(), "t_getTimeMs");
}

// SPDX-License-Identifier: Apache-2.0
// Power states and wake-up timers, above settings and a time that the test sets.
#include "util/PowerManager.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <optional>

#include "ZelDaemonStateManager.h"
#include "fakes/Actions.h"
#include "fakes/FakeDlog.h"
#include "fakes/FakePower.h"
#include "fakes/FakeStateManager.h"
#include "fakes/FakeTime.h"
#include "fakes/FakeVconf.h"

using fakes::Actions;
using fakes::FakeDlog;
using fakes::FakePower;
using fakes::FakeStateManager;
using fakes::FakeTime;
using fakes::FakeVconf;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int kDebug = 3;
constexpr int kError = 6;

const char* const kWakeTime = "db/menu/broadcasting/autotune-wakeuptimer";
const char* const kTimerId = "db/menu/broadcasting/autotune-wakeuptimer-timer_id";

// Noon is far from any day's end, in any time zone.
constexpr std::time_t kNoon20261121 = 1795262400;
constexpr std::time_t k0500 = kNoon20261121 - 25200;
constexpr std::time_t k050617 = k0500 + 377;

TSZelData agreed(bool needStandbyHandling) {
    TSZelData data;
    data.needStandbyHandling = needStandbyHandling;
    return data;
}

class PowerManagerTest : public testing::Test {
protected:
    PowerManagerTest() {
        // Whoever used local time would be found out.
        setenv("TZ", "FAR-13:45", 1);
        FakeVconf::reset();
        FakeStateManager::reset();
        FakePower::reset();
        FakeTime::reset();
        FakeTime::now = kNoon20261121;
        FakeVconf::setInt(kTimerId, -1);
        FakeVconf::setInt(kWakeTime, 1);
        m_power.emplace(m_stateManager);
        m_made = Actions::take();
        FakeDlog::clear();
    }

    // The service has terminated and wants standby to be watched.
    void terminate() {
        m_power->OnTerminate();
        m_power->OnTerminateSuccess(agreed(true));
        Actions::take();
        FakeDlog::clear();
    }

    // The date for which standby arms a timer at a time, as the fake writes it; the test's failure otherwise.
    static std::string dateOfStandby(int wakeTimeValue, std::time_t now) {
        FakeVconf::setInt(kWakeTime, wakeTimeValue);
        FakeTime::now = now;
        EXPECT_EQ(FakePower::standby(), 0);
        const std::vector<std::string> actions = Actions::take();
        EXPECT_EQ(actions.size(), 1U);
        return actions.empty() ? "" : actions.front();
    }

    TCZelDaemonStateManager m_stateManager;
    std::optional<TCPowerManager> m_power;
    std::vector<std::string> m_made;
};

}  // namespace

TEST_F(PowerManagerTest, ConstructionRegistersAndSubscribesToNothing) {
    EXPECT_THAT(m_made, ElementsAre("StateManager made", "StateManager::RegisterListener"));
}

TEST_F(PowerManagerTest, TerminationIsFollowedByEarlyWakeUpsAndSuccessByStandby) {
    m_power->OnTerminate();
    EXPECT_THAT(Actions::take(), ElementsAre("subscribe early_wakeup with data"));

    m_power->OnTerminateSuccess(agreed(true));
    EXPECT_THAT(Actions::take(), ElementsAre("subscribe standby"));
}

TEST_F(PowerManagerTest, EarlyWakeUpsHaveTheManagerAsTheirUserData) {
    m_power->OnTerminate();

    EXPECT_EQ(FakePower::earlyWakeUpData(), &*m_power);
    EXPECT_EQ(FakeStateManager::lastListener, &*m_power);
}

// The flag that each call has, whether it changes anything or not.
TEST_F(PowerManagerTest, EveryCallLogsItsFlagBeforeItDoesAnything) {
    FakeDlog::recordActions();

    for (const bool flag : {false, true, true, false, false}) {
        m_power->HandleStandby(flag);
    }
    EXPECT_THAT(Actions::take(),
                ElementsAre("log HandleStandby: flag: [false]", "log HandleStandby: flag: [true]",
                            "subscribe standby", "log HandleStandby: flag: [true]",
                            "log HandleStandby: flag: [false]", "unsubscribe standby",
                            "log HandleStandby: flag: [false]"));

    for (const bool flag : {false, true, true, false, false}) {
        m_power->HandleWakeUp(flag);
    }
    EXPECT_THAT(Actions::take(),
                ElementsAre("log HandleWakeUp: flag: [false]", "log HandleWakeUp: flag: [true]",
                            "subscribe early_wakeup with data", "log HandleWakeUp: flag: [true]",
                            "log HandleWakeUp: flag: [false]", "unsubscribe early_wakeup",
                            "log HandleWakeUp: flag: [false]"));
}

TEST_F(PowerManagerTest, AServiceThatNeedsNoStandbyHandlingGetsNone) {
    m_power->OnTerminate();
    Actions::take();

    m_power->OnTerminateSuccess(agreed(false));

    EXPECT_THAT(Actions::take(), IsEmpty());
}

TEST_F(PowerManagerTest, SuccessWithoutTheFlagDropsStandby) {
    m_power->OnTerminateSuccess(agreed(true));
    Actions::take();

    m_power->OnTerminateSuccess(agreed(false));

    EXPECT_THAT(Actions::take(), ElementsAre("unsubscribe standby"));
}

TEST_F(PowerManagerTest, AStartedServiceDropsBothEarlyWakeUpsFirst) {
    terminate();

    m_power->OnStart();

    EXPECT_THAT(Actions::take(), ElementsAre("unsubscribe early_wakeup", "unsubscribe standby"));
    EXPECT_THAT(FakeDlog::messages(kDebug), ElementsAre("flag: [false]", "flag: [false]"));
}

TEST_F(PowerManagerTest, TerminationTwiceInARowSubscribesOnce) {
    m_power->OnTerminate();
    m_power->OnTerminate();

    EXPECT_THAT(Actions::take(), ElementsAre("subscribe early_wakeup with data"));
    EXPECT_THAT(FakeDlog::messages(kDebug), ElementsAre("flag: [true]", "flag: [true]"));
}

// All sequences of the three hooks, success with and without the flag, up to six of them.
TEST_F(PowerManagerTest, EachSubscriptionIsTakenAndDroppedOncePerChangeInEveryOrderOfTheHooks) {
    constexpr int kHooks = 4;
    for (int length = 1, sequences = kHooks; length <= 6; ++length, sequences *= kHooks) {
        for (int sequence = 0; sequence < sequences; ++sequence) {
            bool isWakeUp = false;
            bool isStandby = false;
            std::vector<std::string> expected;
            const auto want = [&](bool& is, bool wanted, const char* name) {
                if (is != wanted) {
                    const bool withData = wanted && &is == &isWakeUp;
                    expected.push_back((wanted ? "subscribe " : "unsubscribe ") + std::string(name) +
                                       (withData ? " with data" : ""));
                    is = wanted;
                }
            };
            std::string hooks;
            for (int rest = sequence, i = 0; i < length; ++i, rest /= kHooks) {
                switch (rest % kHooks) {
                    case 0:
                        hooks += " OnStart";
                        m_power->OnStart();
                        want(isWakeUp, false, "early_wakeup");
                        want(isStandby, false, "standby");
                        break;
                    case 1:
                        hooks += " OnTerminate";
                        m_power->OnTerminate();
                        want(isWakeUp, true, "early_wakeup");
                        break;
                    case 2:
                        hooks += " OnTerminateSuccess(true)";
                        m_power->OnTerminateSuccess(agreed(true));
                        want(isStandby, true, "standby");
                        break;
                    default:
                        hooks += " OnTerminateSuccess(false)";
                        m_power->OnTerminateSuccess(agreed(false));
                        want(isStandby, false, "standby");
                        break;
                }
            }

            ASSERT_EQ(Actions::take(), expected) << hooks;
            ASSERT_EQ(FakePower::earlyWakeUpSubscribers(), isWakeUp ? 1U : 0U) << hooks;
            ASSERT_EQ(FakePower::standbySubscribers(), isStandby ? 1U : 0U) << hooks;
            m_power->OnStart();
            Actions::take();
            FakeDlog::clear();
        }
    }
}

TEST_F(PowerManagerTest, ASubscriptionThatFailsCountsAsOneUntilItIsDropped) {
    FakePower::subscribeResult = -1;
    m_power->OnTerminate();
    m_power->OnTerminateSuccess(agreed(true));
    Actions::take();

    m_power->OnTerminate();
    m_power->OnTerminateSuccess(agreed(true));
    EXPECT_THAT(Actions::take(), IsEmpty());

    m_power->OnStart();
    EXPECT_THAT(Actions::take(), ElementsAre("unsubscribe early_wakeup", "unsubscribe standby"));
}

TEST_F(PowerManagerTest, AnEarlyWakeUpStartsTheServiceAndItsFailureIsIgnored) {
    for (const bool result : {true, false}) {
        terminate();
        FakeStateManager::notifyResult = result;

        EXPECT_EQ(FakePower::earlyWakeUp(), 0);

        EXPECT_THAT(Actions::take(), ElementsAre("StateManager::Notify 1 0 0 0"));
        EXPECT_THAT(FakeDlog::lines(), IsEmpty());
    }
}

TEST_F(PowerManagerTest, AnEarlyWakeUpWhileTheServiceRunsReachesNobody) {
    terminate();
    m_power->OnStart();

    EXPECT_EQ(FakePower::earlyWakeUp(), -100);
}

TEST_F(PowerManagerTest, StandbyArmsAWakeUpTimerOnEveryDayOfTheWeek) {
    terminate();

    EXPECT_EQ(FakePower::standby(), 0);

    EXPECT_THAT(Actions::take(), ElementsAre("schedule 6 2026-11-21 13:00:00 dst=0 127 0"));
    EXPECT_THAT(FakeDlog::messages(kError), IsEmpty());
}

TEST_F(PowerManagerTest, EveryWakeTimeHasItsDateInUtc) {
    terminate();

    EXPECT_EQ(dateOfStandby(1, k0500), "schedule 6 2026-11-21 06:00:00 dst=0 127 0");
    EXPECT_EQ(dateOfStandby(2, k0500), "schedule 6 2026-11-21 07:00:00 dst=0 127 0");
    EXPECT_EQ(dateOfStandby(3, k0500), "schedule 6 2026-11-21 02:00:00 dst=0 127 0");
    EXPECT_EQ(dateOfStandby(4, k0500), "schedule 6 2026-11-21 12:00:00 dst=0 127 0");
    EXPECT_EQ(dateOfStandby(5, k0500), "schedule 6 2026-11-21 14:00:00 dst=0 127 0");
    EXPECT_EQ(dateOfStandby(6, k0500), "schedule 6 2026-11-21 00:00:00 dst=0 127 0");
}

TEST_F(PowerManagerTest, HoursFromNowKeepMinutesAndSecondsAndHoursOfTodayHaveNone) {
    terminate();

    EXPECT_EQ(dateOfStandby(1, k050617), "schedule 6 2026-11-21 06:06:17 dst=0 127 0");
    EXPECT_EQ(dateOfStandby(3, k050617), "schedule 6 2026-11-21 02:00:00 dst=0 127 0");
}

TEST_F(PowerManagerTest, HoursFromNowCrossMidnightAndTheEndsOfMonthsAndYears) {
    terminate();

    // 2026-11-21 23:30:00, 2026-11-30 22:59:59, 2026-12-31 23:59:59, 2028-02-28 23:00:00.
    EXPECT_EQ(dateOfStandby(1, 1795303800), "schedule 6 2026-11-22 00:30:00 dst=0 127 0");
    EXPECT_EQ(dateOfStandby(2, 1796079599), "schedule 6 2026-12-01 00:59:59 dst=0 127 0");
    EXPECT_EQ(dateOfStandby(1, 1798761599), "schedule 6 2027-01-01 00:59:59 dst=0 127 0");
    EXPECT_EQ(dateOfStandby(1, 1835391600), "schedule 6 2028-02-29 00:00:00 dst=0 127 0");
}

TEST_F(PowerManagerTest, EveryHourOfTodayIsTodayInTheLastSecondOfTheDay) {
    terminate();

    // 2026-11-21 23:59:59.
    EXPECT_EQ(dateOfStandby(3, 1795305599), "schedule 6 2026-11-21 02:00:00 dst=0 127 0");
    EXPECT_EQ(dateOfStandby(4, 1795305599), "schedule 6 2026-11-21 12:00:00 dst=0 127 0");
    EXPECT_EQ(dateOfStandby(5, 1795305599), "schedule 6 2026-11-21 14:00:00 dst=0 127 0");
    EXPECT_EQ(dateOfStandby(6, 1795305599), "schedule 6 2026-11-21 00:00:00 dst=0 127 0");
}

TEST_F(PowerManagerTest, HoursOfTodayStayTodayAtTheEndsOfDaysMonthsAndYears) {
    terminate();

    // 2026-12-31 23:59:59, 2027-01-01 00:00:00, 2028-02-29 23:59:59.
    EXPECT_EQ(dateOfStandby(6, 1798761599), "schedule 6 2026-12-31 00:00:00 dst=0 127 0");
    EXPECT_EQ(dateOfStandby(6, 1798761600), "schedule 6 2027-01-01 00:00:00 dst=0 127 0");
    EXPECT_EQ(dateOfStandby(5, 1835481599), "schedule 6 2028-02-29 14:00:00 dst=0 127 0");
}

TEST_F(PowerManagerTest, AnUnknownWakeTimeIsLoggedAndArmsNothing) {
    terminate();
    for (const int value : {0, -1, 7, 8, 2147483647}) {
        FakeVconf::setInt(kWakeTime, value);

        EXPECT_EQ(FakePower::standby(), 1);

        EXPECT_THAT(Actions::take(), IsEmpty());
        EXPECT_THAT(
            FakeDlog::messages(kError),
            ElementsAre("Unknown value of wakeTimeValue! wakeTimeValue: [" + std::to_string(value) + "]"));
        FakeDlog::clear();
    }
}

TEST_F(PowerManagerTest, AWakeTimeThatCannotBeReadIsLoggedAndArmsNothing) {
    terminate();
    for (const int result : {-2, -1, 1}) {
        FakeVconf::breakInt(kWakeTime, 1, result);

        EXPECT_EQ(FakePower::standby(), 1);

        EXPECT_THAT(Actions::take(), IsEmpty()) << result;
        EXPECT_THAT(FakeDlog::messages(kError),
                    ElementsAre("Failed reading vconf key [db/menu/broadcasting/autotune-wakeuptimer]!"));
        FakeDlog::clear();
    }
}

TEST_F(PowerManagerTest, ThePreviousTimerIsCancelledBeforeTheNewOneIsArmed) {
    terminate();
    FakeVconf::setInt(kTimerId, 4711);

    EXPECT_EQ(FakePower::standby(), 0);

    EXPECT_THAT(Actions::take(), ElementsAre("cancel 4711", "schedule 6 2026-11-21 13:00:00 dst=0 127 0"));
}

TEST_F(PowerManagerTest, ThePreviousTimerIsCancelledAlsoWhenNoNewOneComesAndItsNumberStays) {
    terminate();
    for (const int id : {0, -2, 4711}) {
        FakeVconf::setInt(kTimerId, id);
        FakeVconf::setInt(kWakeTime, 0);
        EXPECT_EQ(FakePower::standby(), 1);
        FakeVconf::remove(kWakeTime);
        EXPECT_EQ(FakePower::standby(), 1);

        const std::string cancel = "cancel " + std::to_string(id);
        EXPECT_THAT(Actions::take(), ElementsAre(cancel, cancel));
    }
}

TEST_F(PowerManagerTest, ThePreviousTimerIsSeenToBeforeTheNewDateIsChosen) {
    terminate();
    FakeDlog::recordActions();
    FakeVconf::setInt(kTimerId, 4711);
    FakeVconf::setInt(kWakeTime, 7);
    FakePower::standby();
    EXPECT_THAT(
        Actions::take(),
        ElementsAre("cancel 4711", "log OnStandbyOff: Unknown value of wakeTimeValue! wakeTimeValue: [7]"));

    FakeVconf::remove(kTimerId);
    FakeVconf::remove(kWakeTime);
    FakePower::standby();
    EXPECT_THAT(
        Actions::take(),
        ElementsAre(
            "log OnStandbyOff: Failed reading vconf key "
            "[db/menu/broadcasting/autotune-wakeuptimer-timer_id]!",
            "log OnStandbyOff: Failed reading vconf key [db/menu/broadcasting/autotune-wakeuptimer]!"));
}

TEST_F(PowerManagerTest, ATimerNumberThatCannotBeReadIsLoggedAndTheNewTimerArmed) {
    terminate();
    for (const int result : {-2, -1, 1}) {
        FakeVconf::breakInt(kTimerId, 4711, result);

        EXPECT_EQ(FakePower::standby(), 0);

        EXPECT_THAT(Actions::take(), ElementsAre("schedule 6 2026-11-21 13:00:00 dst=0 127 0")) << result;
        EXPECT_THAT(
            FakeDlog::messages(kError),
            ElementsAre("Failed reading vconf key [db/menu/broadcasting/autotune-wakeuptimer-timer_id]!"));
        FakeDlog::clear();
    }
}

TEST_F(PowerManagerTest, AFailedSchedulingIsLogged) {
    terminate();
    for (const int result : {-22, 1}) {
        FakePower::scheduleResult = result;

        EXPECT_EQ(FakePower::standby(), 1) << result;

        EXPECT_THAT(FakeDlog::messages(kError),
                    ElementsAre("Scheduling standby timer failed! Error: [" + std::to_string(result) + "]"));
        FakeDlog::clear();
    }
}

TEST_F(PowerManagerTest, TheNumberOfAnArmedTimerIsKeptAndItsRecordReleased) {
    terminate();
    FakePower::standby();
    Actions::take();

    FakePower::armed(4712);

    EXPECT_THAT(Actions::take(),
                ElementsAre("vconf_set_int db/menu/broadcasting/autotune-wakeuptimer-timer_id 4712", "free"));
    EXPECT_THAT(FakeDlog::lines(), IsEmpty());
}

TEST_F(PowerManagerTest, ATimerWithoutANumberIsKeptAsNone) {
    terminate();
    FakePower::standby();
    Actions::take();

    FakePower::armedWithoutId();

    EXPECT_THAT(Actions::take(),
                ElementsAre("vconf_set_int db/menu/broadcasting/autotune-wakeuptimer-timer_id -1", "free"));
}

TEST_F(PowerManagerTest, ANumberThatCannotBeKeptIsLoggedAndTheRecordReleasedAllTheSame) {
    terminate();
    for (const int result : {-1, 1}) {
        FakePower::standby();
        Actions::take();
        FakeVconf::setResult = result;

        FakePower::armed(4712);

        EXPECT_THAT(
            Actions::take(),
            ElementsAre("vconf_set_int db/menu/broadcasting/autotune-wakeuptimer-timer_id 4712", "free"));
        EXPECT_THAT(
            FakeDlog::messages(kError),
            ElementsAre("Failed setting vconf key: [db/menu/broadcasting/autotune-wakeuptimer-timer_id]!"))
            << result;
        FakeDlog::clear();
    }
}

TEST_F(PowerManagerTest, ATimerThatWasNotSetIsLoggedAndNothingKept) {
    terminate();
    FakePower::standby();
    Actions::take();

    FakePower::notArmed();

    EXPECT_THAT(Actions::take(), IsEmpty());
    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("Timer not set!"));
}

TEST_F(PowerManagerTest, DestructionUnregistersAndLeavesTheSubscriptions) {
    terminate();

    m_power.reset();

    EXPECT_THAT(Actions::take(), ElementsAre("StateManager::UnregisterListener"));
    EXPECT_EQ(FakePower::standbySubscribers(), 1U);
    EXPECT_EQ(FakePower::earlyWakeUpSubscribers(), 1U);
}

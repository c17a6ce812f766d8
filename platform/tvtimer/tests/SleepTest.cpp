// SPDX-License-Identifier: Apache-2.0
// The machine does not sleep before a timer that was asked for on its way to standby is set.
#include <dd-power.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tvtimer.h>

#include <atomic>
#include <string>

#include "PowerWorld.h"
#include "TimerSystemd.h"
#include "support/FreshProcess.h"

namespace {

using ::testing::ElementsAre;

tm someDate() {
    tm date{};
    date.tm_year = 130;
    date.tm_mday = 1;
    return date;
}

// On standby asks for a timer, and keeps how many holds there were when it was told of it.
struct Sleeper {
    ScriptedLogind* logind;
    std::atomic<int> heldWhenTold{-1};
    std::atomic<bool> isSet{false};
};

void onTimer(tvtimer_info_s* info, void* userData) {
    auto* sleeper = static_cast<Sleeper*>(userData);
    sleeper->isSet = info != nullptr;
    sleeper->heldWhenTold = sleeper->logind->held();
    tvtimer_free(info);
}

int onStandby(int /*number*/, void* userData) {
    tvtimer_cancel_timer_by_id_async(5);
    return tvtimer_schedule_timer_at_date_async(6, someDate(), 127, 0, onTimer, userData);
}

class SleepyWorld {
public:
    SleepyWorld() {
        device_power_subscribe_standby(onStandby, &sleeper);
        if (!power.holds(1)) {
            throw std::runtime_error("SleepyWorld: there is no hold");
        }
    }

    /** Announces sleep, and returns when systemd was asked for a timer and the callbacks have returned. */
    void beginSleep(const std::deque<Start>& outcomes) {
        systemd.nextStarts(outcomes);
        power.logind().prepareForSleep(true);
        EXPECT_TRUE(runUntil([this] { return systemd.starts().size() == 1; }));
    }

    PowerWorld power;
    TimerSystemd systemd;
    Sleeper sleeper{&power.logind()};
};

TEST(SleepTest, SleepWaitsUntilTheTimerIsSetAndTold) {
    inFreshProcess([] {
        SleepyWorld world;
        world.beginSleep({Start::kQueued});
        EXPECT_EQ(world.power.logind().held(), 1);

        world.systemd.endJob(world.systemd.lastJob(), "done");

        EXPECT_TRUE(world.power.holds(0));
        EXPECT_TRUE(world.sleeper.isSet);
        EXPECT_EQ(world.sleeper.heldWhenTold, 1);
    });
}

TEST(SleepTest, SleepDoesNotWaitForATimerThatCannotBeSet) {
    inFreshProcess([] {
        SleepyWorld world;
        world.beginSleep({Start::kQueued, Start::kFailed});

        world.systemd.endJob(world.systemd.lastJob(), "failed");

        EXPECT_TRUE(world.power.holds(0));
        EXPECT_FALSE(world.sleeper.isSet);
        EXPECT_EQ(world.sleeper.heldWhenTold, 1);
    });
}

TEST(SleepTest, ATimerThatIsStillBeingSetAfterSleepDoesNotKeepTheNextHold) {
    inFreshProcess([] {
        SleepyWorld world;
        world.beginSleep({Start::kQueued});

        world.power.logind().prepareForSleep(false);
        EXPECT_TRUE(world.power.holds(2));
        world.systemd.endJob(world.systemd.lastJob(), "done");

        EXPECT_TRUE(world.power.holds(1));
        EXPECT_EQ(world.power.logind().requests().size(), 2U);
    });
}

TEST(SleepTest, ATimerAskedForWhenTheMachineDoesNotSleepLeavesTheHold) {
    inFreshProcess([] {
        SleepyWorld world;
        onStandby(0, &world.sleeper);
        EXPECT_TRUE(becomesTrue([&world] { return world.sleeper.isSet.load(); }));

        EXPECT_EQ(world.power.logind().held(), 1);
        EXPECT_THAT(world.power.logind().requests(), ElementsAre("sleep delay"));
    });
}

}  // namespace

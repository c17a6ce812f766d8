// SPDX-License-Identifier: Apache-2.0
// Keeping the machine awake until standby has been told.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>

#include "PowerWorld.h"
#include "support/FreshProcess.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

TEST(PowerHoldTest, WhoSubscribesToStandbyHoldsSleepUp) {
    inFreshProcess([] {
        PowerWorld world;

        device_power_subscribe_standby(hear<0>, &world.standby);

        EXPECT_TRUE(world.holds(1));
        EXPECT_THAT(world.logind().requests(), ElementsAre("sleep delay"));
        EXPECT_THAT(world.logind().reason(), StartsWith(program_invocation_short_name));
    });
}

TEST(PowerHoldTest, EarlyWakeUpHoldsNothingUp) {
    inFreshProcess([] {
        PowerWorld world;

        device_power_subscribe_early_wakeup(hear<0>, &world.wakeUp);
        world.sleepAndWake();

        EXPECT_THAT(world.logind().requests(), IsEmpty());
    });
}

TEST(PowerHoldTest, SeveralSubscribersShareOneHold) {
    inFreshProcess([] {
        PowerWorld world;
        world.watchStandby();

        device_power_subscribe_standby(hear<1>, &world.other);
        device_power_unsubscribe_standby(hear<0>);
        world.sleepAndWake();
        EXPECT_TRUE(world.holds(1));

        EXPECT_THAT(world.logind().requests(), ElementsAre("sleep delay", "sleep delay"));
        device_power_unsubscribe_standby(hear<1>);
        EXPECT_TRUE(world.holds(0));
    });
}

TEST(PowerHoldTest, SleepWaitsUntilAllCallbacksHaveReturned) {
    inFreshProcess([] {
        PowerWorld world;
        world.watchStandby();
        device_power_subscribe_standby(hear<1>, &world.other);
        std::vector<int> held;
        world.standby.inside = [&] { held.push_back(world.logind().held()); };
        world.other.inside = world.standby.inside;

        world.logind().prepareForSleep(true);
        EXPECT_TRUE(PowerWorld::somethingIsQueued());
        held.push_back(world.logind().held());
        EXPECT_TRUE(world.isTold(2));

        EXPECT_TRUE(world.holds(0));
        EXPECT_THAT(held, ElementsAre(1, 1, 1));
    });
}

TEST(PowerHoldTest, TheHoldIsTakenAgainWhenTheMachineRunsAgain) {
    inFreshProcess([] {
        PowerWorld world;
        world.watchStandby();
        world.logind().prepareForSleep(true);
        EXPECT_TRUE(world.isTold(1));
        EXPECT_TRUE(world.holds(0));
        EXPECT_EQ(world.logind().requests().size(), 1U);

        world.logind().prepareForSleep(false);

        EXPECT_TRUE(world.holds(1));
        EXPECT_EQ(world.logind().requests().size(), 2U);
    });
}

TEST(PowerHoldTest, TheHoldEndsWithTheLastSubscription) {
    inFreshProcess([] {
        PowerWorld world;
        world.watchStandby();

        device_power_unsubscribe_standby(hear<0>);

        EXPECT_TRUE(world.holds(0));
        world.sleepAndWake();
        EXPECT_EQ(world.logind().requests().size(), 1U);
    });
}

TEST(PowerHoldTest, TheHoldEndsWhenNobodyIsLeftToBeTold) {
    inFreshProcess([] {
        PowerWorld world;
        world.watchStandby();
        world.logind().prepareForSleep(true);
        EXPECT_TRUE(PowerWorld::somethingIsQueued());
        EXPECT_TRUE(world.holds(1));

        device_power_unsubscribe_standby(hear<0>);

        EXPECT_TRUE(world.holds(0));
    });
}

TEST(PowerHoldTest, TheHoldOutlivesASubscriptionWhoseCallbackIsRunning) {
    inFreshProcess([] {
        PowerWorld world;
        world.watchStandby();
        int held = -1;
        world.standby.inside = [&] {
            device_power_unsubscribe_standby(hear<0>);
            held = world.logind().held();
        };

        world.logind().prepareForSleep(true);
        EXPECT_TRUE(world.isTold(1));

        EXPECT_EQ(held, 1);
        EXPECT_TRUE(world.holds(0));
    });
}

TEST(PowerHoldTest, WithoutAHoldStandbyIsToldAllTheSame) {
    inFreshProcess([] {
        LogindScript script;
        script.grant = Grant::kError;
        PowerWorld world(script);
        StderrPackets packets;

        device_power_subscribe_standby(hear<0>, &world.standby);

        EXPECT_TRUE(isLogged(packets, "Not now."));
        world.sleepAndWake();
        EXPECT_THAT(world.told, ElementsAre("standby 0"));
    });
}

TEST(PowerHoldTest, AHoldThatWasRefusedIsAskedForAgainAfterSleep) {
    inFreshProcess([] {
        LogindScript script;
        script.grant = Grant::kError;
        PowerWorld world(script);
        device_power_subscribe_standby(hear<0>, &world.standby);
        ASSERT_TRUE(becomesTrue([&world] { return !world.logind().requests().empty(); }));

        world.logind().grant(Grant::kDescriptor);
        world.sleepAndWake();

        EXPECT_TRUE(world.holds(1));
    });
}

TEST(PowerHoldTest, AHoldThatWasRefusedIsAskedForAgainWhenSomebodySubscribes) {
    inFreshProcess([] {
        LogindScript script;
        script.grant = Grant::kError;
        PowerWorld world(script);
        device_power_subscribe_standby(hear<0>, &world.standby);
        ASSERT_TRUE(becomesTrue([&world] { return !world.logind().requests().empty(); }));

        world.logind().grant(Grant::kDescriptor);
        device_power_subscribe_standby(hear<1>, &world.other);

        EXPECT_TRUE(world.holds(1));
    });
}

void expectLoggedAndCountedAsNone(Grant grant) {
    LogindScript script;
    script.grant = grant;
    PowerWorld world(script);
    StderrPackets packets;

    device_power_subscribe_standby(hear<0>, &world.standby);

    EXPECT_TRUE(isLogged(packets, "the answer has no descriptor"));
    world.sleepAndWake();
    EXPECT_THAT(world.told, ElementsAre("standby 0"));
}

TEST(PowerHoldTest, AGrantThatIsAnythingElseThanADescriptorIsLoggedAndCountsAsNone) {
    inFreshProcess([] { expectLoggedAndCountedAsNone(Grant::kText); });
}

TEST(PowerHoldTest, AGrantOfNothingIsLoggedAndCountsAsNone) {
    inFreshProcess([] { expectLoggedAndCountedAsNone(Grant::kNothing); });
}

TEST(PowerHoldTest, ALogindThatDoesNotAnswerHoldsNobodyUp) {
    inFreshProcess([] {
        LogindScript script;
        script.grant = Grant::kSilence;
        PowerWorld world(script);
        device_power_subscribe_standby(hear<0>, &world.standby);
        ASSERT_TRUE(becomesTrue([&world] { return !world.logind().requests().empty(); }));

        // It now waits for the answer.
        EXPECT_EQ(device_power_subscribe_standby(hear<1>, &world.other), 0);
        EXPECT_EQ(device_power_unsubscribe_standby(hear<1>), 0);
        EXPECT_EQ(device_power_unsubscribe_standby(hear<0>), 0);
    });
}

std::set<std::string> inheritedDescriptors() {
    std::set<std::string> inherited;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const std::string number = entry.path().filename();
        const int flags = fcntl(std::stoi(number), F_GETFD);
        if (flags >= 0 && (flags & FD_CLOEXEC) == 0) {
            inherited.insert(number);
        }
    }
    return inherited;
}

TEST(PowerHoldTest, NoDescriptorIsInheritedByOtherPrograms) {
    inFreshProcess([] {
        const std::set<std::string> before = inheritedDescriptors();
        PowerWorld world;

        world.watchStandby();

        EXPECT_EQ(inheritedDescriptors(), before);
    });
}

}  // namespace

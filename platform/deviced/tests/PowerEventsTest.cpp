// SPDX-License-Identifier: Apache-2.0
// Being told of standby and early wake-up.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "PowerWorld.h"
#include "support/Contended.h"
#include "support/FreshProcess.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(PowerEventsTest, StandbyIsToldBeforeSleep) {
    inFreshProcess([] {
        PowerWorld world;
        EXPECT_EQ(device_power_subscribe_standby(hear<0>, &world.standby), 0);

        world.logind().prepareForSleep(true);

        EXPECT_TRUE(world.isTold(1));
        EXPECT_THAT(world.told, ElementsAre("standby 0"));
    });
}

TEST(PowerEventsTest, EarlyWakeUpIsToldAfterSleep) {
    inFreshProcess([] {
        PowerWorld world;
        EXPECT_EQ(device_power_subscribe_early_wakeup(hear<0>, &world.wakeUp), 0);

        world.sleepAndWake();

        EXPECT_THAT(world.told, ElementsAre("wake-up 0"));
    });
}

TEST(PowerEventsTest, EachSleepIsToldAnew) {
    inFreshProcess([] {
        PowerWorld world;
        device_power_subscribe_standby(hear<0>, &world.standby);
        device_power_subscribe_early_wakeup(hear<0>, &world.wakeUp);

        world.sleepAndWake();
        world.sleepAndWake();

        EXPECT_THAT(world.told, ElementsAre("standby 0", "wake-up 0", "standby 0", "wake-up 0"));
    });
}

TEST(PowerEventsTest, ARepeatedValueIsOneEvent) {
    inFreshProcess([] {
        PowerWorld world;
        device_power_subscribe_standby(hear<0>, &world.standby);
        device_power_subscribe_early_wakeup(hear<0>, &world.wakeUp);

        world.logind().prepareForSleep(false);
        world.logind().prepareForSleep(true);
        world.logind().prepareForSleep(true);
        world.wake();
        world.logind().prepareForSleep(false);
        world.sleepAndWake();

        EXPECT_THAT(world.told, ElementsAre("standby 0", "wake-up 0", "standby 0", "wake-up 0"));
    });
}

TEST(PowerEventsTest, CallbacksAreToldInTheOrderOfSubscribing) {
    inFreshProcess([] {
        PowerWorld world;
        device_power_subscribe_standby(hear<1>, &world.other);
        device_power_subscribe_standby(hear<0>, &world.standby);

        world.sleepAndWake();

        EXPECT_THAT(world.told, ElementsAre("other 0", "standby 0"));
    });
}

TEST(PowerEventsTest, CallbacksRunOnTheThreadThatRunsTheContextWhoeverSubscribed) {
    inFreshProcess([] {
        PowerWorld world;
        std::thread::id caller;
        world.standby.inside = [&caller] { caller = std::this_thread::get_id(); };
        std::thread([&world] { device_power_subscribe_standby(hear<0>, &world.standby); }).join();

        world.sleepAndWake();

        EXPECT_EQ(caller, std::this_thread::get_id());
    });
}

TEST(PowerEventsTest, NothingIsToldWhileNobodyRunsTheContext) {
    inFreshProcess([] {
        PowerWorld world;
        device_power_subscribe_standby(hear<0>, &world.standby);

        world.logind().prepareForSleep(true);

        EXPECT_TRUE(PowerWorld::somethingIsQueued());
        EXPECT_THAT(world.told, IsEmpty());
    });
}

TEST(PowerEventsTest, NoCallbackIsRefused) {
    EXPECT_EQ(device_power_subscribe_standby(nullptr, nullptr), -1);
    EXPECT_EQ(device_power_subscribe_early_wakeup(nullptr, nullptr), -1);
    EXPECT_EQ(device_power_unsubscribe_standby(nullptr), -1);
    EXPECT_EQ(device_power_unsubscribe_early_wakeup(nullptr), -1);
}

TEST(PowerEventsTest, TheSameCallbackForTheSameEventIsRefusedWhateverItsUserData) {
    inFreshProcess([] {
        PowerWorld world;
        device_power_subscribe_standby(hear<0>, &world.standby);
        device_power_subscribe_early_wakeup(hear<0>, &world.wakeUp);

        EXPECT_EQ(device_power_subscribe_standby(hear<0>, &world.standby), -1);
        EXPECT_EQ(device_power_subscribe_standby(hear<0>, &world.other), -1);
        EXPECT_EQ(device_power_subscribe_early_wakeup(hear<0>, &world.other), -1);

        world.sleepAndWake();
        EXPECT_THAT(world.told, ElementsAre("standby 0", "wake-up 0"));
    });
}

TEST(PowerEventsTest, OnlyWhatIsSubscribedCanBeUnsubscribed) {
    inFreshProcess([] {
        PowerWorld world;
        device_power_subscribe_standby(hear<0>, &world.standby);
        device_power_subscribe_early_wakeup(hear<1>, &world.wakeUp);

        EXPECT_EQ(device_power_unsubscribe_standby(hear<1>), -1);
        EXPECT_EQ(device_power_unsubscribe_early_wakeup(hear<0>), -1);
        EXPECT_EQ(device_power_unsubscribe_standby(hear<0>), 0);
        EXPECT_EQ(device_power_unsubscribe_standby(hear<0>), -1);
        EXPECT_EQ(device_power_unsubscribe_early_wakeup(hear<1>), 0);
        EXPECT_EQ(device_power_unsubscribe_early_wakeup(hear<1>), -1);
    });
}

TEST(PowerEventsTest, AnUnsubscribedCallbackIsNotTold) {
    inFreshProcess([] {
        PowerWorld world;
        device_power_subscribe_standby(hear<0>, &world.standby);
        device_power_subscribe_standby(hear<1>, &world.other);
        device_power_subscribe_early_wakeup(hear<0>, &world.wakeUp);

        device_power_unsubscribe_standby(hear<0>);
        device_power_unsubscribe_early_wakeup(hear<0>);
        world.sleepAndWake();

        EXPECT_THAT(world.told, ElementsAre("other 0"));
    });
}

TEST(PowerEventsTest, UnsubscribingDropsWhatIsQueued) {
    inFreshProcess([] {
        PowerWorld world;
        device_power_subscribe_standby(hear<0>, &world.standby);
        device_power_subscribe_standby(hear<1>, &world.other);
        world.logind().prepareForSleep(true);
        ASSERT_TRUE(PowerWorld::somethingIsQueued());

        device_power_unsubscribe_standby(hear<0>);
        world.wake();

        EXPECT_THAT(world.told, ElementsAre("other 0"));
    });
}

TEST(PowerEventsTest, WhoSubscribesAnewIsNotToldWhatWasQueuedBefore) {
    inFreshProcess([] {
        PowerWorld world;
        device_power_subscribe_standby(hear<0>, &world.standby);
        world.logind().prepareForSleep(true);
        ASSERT_TRUE(PowerWorld::somethingIsQueued());

        device_power_unsubscribe_standby(hear<0>);
        device_power_subscribe_standby(hear<0>, &world.standby);
        world.wake();
        EXPECT_THAT(world.told, IsEmpty());
        world.sleepAndWake();

        EXPECT_THAT(world.told, ElementsAre("standby 0"));
    });
}

TEST(PowerEventsTest, ACallbackMayUnsubscribeItself) {
    inFreshProcess([] {
        PowerWorld world;
        int result = 99;
        world.standby.inside = [&result] { result = device_power_unsubscribe_standby(hear<0>); };
        device_power_subscribe_standby(hear<0>, &world.standby);

        world.sleepAndWake();
        world.sleepAndWake();

        EXPECT_EQ(result, 0);
        EXPECT_THAT(world.told, ElementsAre("standby 0"));
    });
}

TEST(PowerEventsTest, ACallbackMayUnsubscribeTheNextOneOfTheSameEvent) {
    inFreshProcess([] {
        PowerWorld world;
        world.standby.inside = [] { device_power_unsubscribe_standby(hear<1>); };
        device_power_subscribe_standby(hear<0>, &world.standby);
        device_power_subscribe_standby(hear<1>, &world.other);

        world.sleepAndWake();

        EXPECT_THAT(world.told, ElementsAre("standby 0"));
    });
}

TEST(PowerEventsTest, ACallbackMaySubscribeAnotherWhichIsToldFromTheNextEventOn) {
    inFreshProcess([] {
        PowerWorld world;
        world.standby.inside = [&world] { device_power_subscribe_standby(hear<1>, &world.other); };
        device_power_subscribe_standby(hear<0>, &world.standby);

        world.sleepAndWake();
        EXPECT_THAT(world.told, ElementsAre("standby 0"));
        world.sleepAndWake();

        EXPECT_THAT(world.told, ElementsAre("standby 0", "standby 0", "other 0"));
    });
}

TEST(PowerEventsTest, ACallbackMayRunTheContextItself) {
    inFreshProcess([] {
        PowerWorld world;
        device_power_subscribe_early_wakeup(hear<0>, &world.wakeUp);
        world.standby.inside = [&world] {
            world.wake();
            world.told.emplace_back("standby ends");
        };
        device_power_subscribe_standby(hear<0>, &world.standby);

        world.logind().prepareForSleep(true);

        EXPECT_TRUE(world.isTold(3));
        EXPECT_THAT(world.told, ElementsAre("standby 0", "wake-up 0", "standby ends"));
    });
}

int visit(int /*number*/, void* userData) {
    static_cast<Contended*>(userData)->visit();
    return 0;
}

TEST(PowerEventsTest, SubscribingAndUnsubscribingNeverWaitForARunningCallback) {
    inFreshProcess([] {
        constexpr int kRounds = 200;
        PowerWorld world;
        Contended contended;
        device_power_subscribe_standby(visit, &contended);
        device_power_subscribe_early_wakeup(visit, &contended);
        int rounds = 0;
        std::atomic<bool> finished{false};

        std::thread thread([&] {
            bool good = true;
            for (; good && rounds < kRounds; ++rounds) {
                good = contended.changeDuringVisit(
                    [&] { world.logind().prepareForSleep(rounds % 2 == 0); },
                    [&contended] {
                        EXPECT_EQ(device_power_unsubscribe_standby(visit), 0);
                        EXPECT_EQ(device_power_unsubscribe_early_wakeup(visit), 0);
                        EXPECT_EQ(device_power_subscribe_standby(visit, &contended), 0);
                        EXPECT_EQ(device_power_subscribe_early_wakeup(visit, &contended), 0);
                    });
            }
            EXPECT_TRUE(good) << "in round " << rounds;
            finished = true;
        });
        while (!finished) {
            runUntil([&finished] { return finished.load(); });
        }
        thread.join();
    });
}

TEST(PowerEventsTest, ThreadsMaySubscribeAndUnsubscribeAtTheSameTime) {
    inFreshProcess([] {
        constexpr int kRounds = 500;
        PowerWorld world;
        std::atomic<int> failures{0};
        std::atomic<int> finished{0};
        const auto churn = [&](auto callback, Listener& listener) {
            for (int round = 0; round < kRounds; ++round) {
                failures += device_power_subscribe_standby(callback, &listener) == 0 ? 0 : 1;
                failures += device_power_subscribe_early_wakeup(callback, &listener) == 0 ? 0 : 1;
                failures += device_power_unsubscribe_standby(callback) == 0 ? 0 : 1;
                failures += device_power_unsubscribe_early_wakeup(callback) == 0 ? 0 : 1;
            }
            ++finished;
        };

        std::thread one(churn, hear<0>, std::ref(world.standby));
        std::thread two(churn, hear<1>, std::ref(world.other));
        for (bool preparing = true; finished < 2; preparing = !preparing) {
            world.logind().prepareForSleep(preparing);
            g_main_context_iteration(nullptr, FALSE);
        }
        one.join();
        two.join();

        EXPECT_EQ(failures, 0);
    });
}

// Somebody on the bus who says what only logind may say.
class Stranger {
public:
    Stranger() : m_object(sdbus::createObject(*m_connection, "/org/freedesktop/login1")) {}

    /** Says it to everybody, or to one; returns when the bus has it. */
    void prepareForSleep(const std::string& destination) {
        sdbus::Signal signal = m_object->createSignal("org.freedesktop.login1.Manager", "PrepareForSleep");
        signal << true;
        send(signal, destination);
    }

    void ownLogind(const std::string& destination) {
        const auto object = sdbus::createObject(*m_connection, "/org/freedesktop/DBus");
        sdbus::Signal signal = object->createSignal("org.freedesktop.DBus", "NameOwnerChanged");
        signal << "org.freedesktop.login1"
               << "" << m_connection->getUniqueName();
        send(signal, destination);
    }

private:
    void send(sdbus::Signal& signal, const std::string& destination) {
        if (!destination.empty()) {
            signal.setDestination(destination);
        }
        signal.send();
        std::string id;
        sdbus::createProxy(*m_connection, "org.freedesktop.DBus", "/org/freedesktop/DBus")
            ->callMethod("GetId")
            .onInterface("org.freedesktop.DBus")
            .storeResultsTo(id);
    }

    std::unique_ptr<sdbus::IConnection> m_connection = sdbus::createSystemBusConnection();
    std::unique_ptr<sdbus::IObject> m_object;
};

TEST(PowerEventsTest, OnlyLogindIsBelieved) {
    inFreshProcess([] {
        PowerWorld world;
        world.watchStandby();
        Stranger stranger;

        stranger.prepareForSleep("");
        stranger.prepareForSleep(world.logind().client());
        // Another logind is found after all that has come before.
        world.replaceLogind();
        while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
        }
        EXPECT_THAT(world.told, IsEmpty());

        world.sleepAndWake();
        EXPECT_THAT(world.told, ElementsAre("standby 0"));
    });
}

TEST(PowerEventsTest, OnlyTheBusIsBelievedAboutWhoLogindIs) {
    inFreshProcess([] {
        PowerWorld world;
        world.watchStandby();
        Stranger stranger;

        stranger.ownLogind(world.logind().client());
        stranger.prepareForSleep(world.logind().client());
        world.sleepAndWake();
        stranger.prepareForSleep(world.logind().client());
        world.sleepAndWake();

        EXPECT_THAT(world.told, ElementsAre("standby 0", "standby 0"));
    });
}

TEST(PowerEventsTest, ASignalThatIsNoBooleanIsLoggedAndIgnored) {
    inFreshProcess([] {
        PowerWorld world;
        device_power_subscribe_standby(hear<0>, &world.standby);
        StderrPackets packets;

        world.logind().prepareForMaybe();

        EXPECT_TRUE(isLogged(packets, "PrepareForSleep could not be read"));
        world.sleepAndWake();
        EXPECT_THAT(world.told, ElementsAre("standby 0"));
    });
}

TEST(PowerEventsTest, WhereTheMachineIsAlreadyGoingToSleepOnlyItsWakeUpIsTold) {
    inFreshProcess([] {
        LogindScript preparing;
        preparing.preparing = true;
        PrivateBus bus;
        ScriptedLogind logind(preparing);
        std::vector<std::string> told;
        Listener standby{"standby", &told, nullptr};
        Listener wakeUp{"wake-up", &told, nullptr};
        device_power_subscribe_standby(hear<0>, &standby);
        device_power_subscribe_early_wakeup(hear<0>, &wakeUp);
        ASSERT_TRUE(becomesTrue([&logind] { return logind.reads() > 0; }));

        logind.prepareForSleep(true);
        logind.prepareForSleep(false);

        EXPECT_TRUE(runUntil([&told] { return !told.empty(); }));
        EXPECT_THAT(told, ElementsAre("wake-up 0"));
    });
}

}  // namespace

// SPDX-License-Identifier: Apache-2.0
// Power while logind or the bus comes and goes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "PowerWorld.h"
#include "support/FreshProcess.h"

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

LogindScript preparing() {
    LogindScript script;
    script.preparing = true;
    return script;
}

TEST(PowerOutageTest, ALogindThatComesLaterIsFound) {
    inFreshProcess([] {
        PrivateBus bus;
        std::vector<std::string> told;
        Listener standby{"standby", &told, nullptr};
        StderrPackets packets;
        ASSERT_EQ(device_power_subscribe_standby(hear<0>, &standby), 0);
        ASSERT_TRUE(isLogged(packets, "logind is not there"));

        ScriptedLogind logind;
        EXPECT_TRUE(becomesTrue([&logind] { return logind.held() == 1; }));
        logind.prepareForSleep(true);

        EXPECT_TRUE(runUntil([&told] { return !told.empty(); }));
        EXPECT_TRUE(becomesTrue([&logind] { return logind.held() == 0; }));
        EXPECT_THAT(told, ElementsAre("standby 0"));
    });
}

TEST(PowerOutageTest, ALogindThatComesLaterAndAlreadyPreparesIsStandby) {
    inFreshProcess([] {
        PrivateBus bus;
        std::vector<std::string> told;
        Listener standby{"standby", &told, nullptr};
        StderrPackets packets;
        device_power_subscribe_standby(hear<0>, &standby);
        ASSERT_TRUE(isLogged(packets, "logind is not there"));

        const ScriptedLogind logind(preparing());

        EXPECT_TRUE(runUntil([&told] { return !told.empty(); }));
        EXPECT_THAT(told, ElementsAre("standby 0"));
    });
}

TEST(PowerOutageTest, ANewLogindIsAskedForAHoldAndBelieved) {
    inFreshProcess([] {
        PowerWorld world;
        world.watchStandby();
        device_power_subscribe_early_wakeup(hear<0>, &world.wakeUp);

        world.replaceLogind();

        EXPECT_TRUE(world.holds(1));
        EXPECT_THAT(world.told, IsEmpty());
        world.sleepAndWake();
        EXPECT_THAT(world.told, ElementsAre("standby 0", "wake-up 0"));
    });
}

TEST(PowerOutageTest, AWakeUpThatLogindMissedIsToldWhenItIsBack) {
    inFreshProcess([] {
        PowerWorld world;
        device_power_subscribe_standby(hear<0>, &world.standby);
        device_power_subscribe_early_wakeup(hear<0>, &world.wakeUp);
        world.logind().prepareForSleep(true);
        EXPECT_TRUE(world.isTold(1));

        world.replaceLogind();

        EXPECT_TRUE(world.isTold(2));
        EXPECT_THAT(world.told, ElementsAre("standby 0", "wake-up 0"));
        world.sleepAndWake();
        EXPECT_THAT(world.told, ElementsAre("standby 0", "wake-up 0", "standby 0", "wake-up 0"));
    });
}

TEST(PowerOutageTest, AStandbyThatWasMissedIsToldWhenLogindIsBack) {
    inFreshProcess([] {
        PowerWorld world;
        world.watchStandby();

        world.replaceLogind(preparing());

        EXPECT_TRUE(world.isTold(1));
        EXPECT_THAT(world.told, ElementsAre("standby 0"));
    });
}

TEST(PowerOutageTest, ALogindThatIsBackAndStillPreparesTellsNothingNew) {
    inFreshProcess([] {
        PowerWorld world;
        device_power_subscribe_standby(hear<0>, &world.standby);
        device_power_subscribe_early_wakeup(hear<0>, &world.wakeUp);
        world.logind().prepareForSleep(true);
        EXPECT_TRUE(world.isTold(1));

        world.replaceLogind(preparing());
        world.wake();

        EXPECT_THAT(world.told, ElementsAre("standby 0", "wake-up 0"));
    });
}

TEST(PowerOutageTest, ALogindThatDoesNotSayWhetherItPreparesIsLoggedAndTakenForAwake) {
    inFreshProcess([] {
        PowerWorld world;
        world.watchStandby();
        StderrPackets packets;
        world.removeLogind();
        ASSERT_TRUE(isLogged(packets, "logind is not there"));

        LogindScript script;
        script.saysMaybe = true;
        world.replaceLogind(script);

        EXPECT_TRUE(isLogged(packets, "does not say"));
        EXPECT_TRUE(world.holds(1));
        world.sleepAndWake();
        EXPECT_THAT(world.told, ElementsAre("standby 0"));
    });
}

TEST(PowerOutageTest, ABusThatComesLaterIsFound) {
    inFreshProcess([] {
        PrivateBus bus(false);
        std::vector<std::string> told;
        Listener standby{"standby", &told, nullptr};
        StderrPackets packets;
        ASSERT_EQ(device_power_subscribe_standby(hear<0>, &standby), 0);
        ASSERT_TRUE(isLogged(packets, "there is no bus"));

        bus.start();
        ScriptedLogind logind;
        EXPECT_TRUE(isLogged(packets, "the bus is there again"));
        ASSERT_TRUE(becomesTrue([&logind] { return logind.held() == 1; }));
        logind.prepareForSleep(true);

        EXPECT_TRUE(runUntil([&told] { return !told.empty(); }));
        EXPECT_THAT(told, ElementsAre("standby 0"));
    });
}

// The connections that own a name or wait for it, in order.
std::vector<std::string> ownersOf(sdbus::IConnection& connection, const char* name) {
    std::vector<std::string> owners;
    sdbus::createProxy(connection, "org.freedesktop.DBus", "/org/freedesktop/DBus")
        ->callMethod("ListQueuedOwners")
        .onInterface("org.freedesktop.DBus")
        .withArguments(name)
        .storeResultsTo(owners);
    return owners;
}

TEST(PowerOutageTest, TheConnectionOwnsThePowersNameAlsoOnABusThatCameAgain) {
    inFreshProcess([] {
        PowerWorld world;
        world.watchStandby();
        const std::string first = world.logind().client();
        EXPECT_THAT(ownersOf(*sdbus::createSystemBusConnection(), "com.brenlow.ZELLite.Power"),
                    ElementsAre(first));
        StderrPackets packets;
        world.removeLogind();
        ASSERT_TRUE(isLogged(packets, "logind is not there"));
        world.bus().stop();
        ASSERT_TRUE(isLogged(packets, "there is no bus"));
        world.bus().start();

        world.replaceLogind();

        ASSERT_TRUE(world.holds(1));
        EXPECT_THAT(ownersOf(*sdbus::createSystemBusConnection(), "com.brenlow.ZELLite.Power"),
                    ElementsAre(world.logind().client()));
    });
}

TEST(PowerOutageTest, ANameThatAnotherHasIsWaitedForAndSleepIsToldMeanwhile) {
    inFreshProcess([] {
        PrivateBus bus;
        const auto other = sdbus::createSystemBusConnection("com.brenlow.ZELLite.Power");
        ScriptedLogind logind;
        std::vector<std::string> told;
        Listener standby{"standby", &told, nullptr};
        device_power_subscribe_standby(hear<0>, &standby);
        ASSERT_TRUE(becomesTrue([&logind] { return logind.held() == 1; }));
        logind.prepareForSleep(true);

        EXPECT_TRUE(runUntil([&told] { return !told.empty(); }));

        EXPECT_THAT(ownersOf(*other, "com.brenlow.ZELLite.Power"),
                    ElementsAre(other->getUniqueName(), logind.client()));
    });
}

// Something that accepts connections where the bus should, and hangs up.
class DeadBus {
public:
    DeadBus() : m_socket(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        if (bind(m_socket, reinterpret_cast<const sockaddr*>(&kAddress), sizeof kAddress) != 0 ||
            listen(m_socket, 1) != 0) {
            throw std::runtime_error("DeadBus: no socket");
        }
    }
    ~DeadBus() {
        close(m_socket);
        unlink(kAddress.sun_path);
    }
    DeadBus(const DeadBus&) = delete;
    DeadBus& operator=(const DeadBus&) = delete;

    /** Waits for somebody who connects. */
    void hangUp() const { close(accept4(m_socket, nullptr, nullptr, SOCK_CLOEXEC)); }

private:
    static constexpr sockaddr_un kAddress{AF_UNIX, "/tmp/private-bus/socket"};

    int m_socket;
};

TEST(PowerOutageTest, ABusThatIsLostIsLoggedOnceAndFoundAgain) {
    inFreshProcess([] {
        PowerWorld world;
        world.watchStandby();
        StderrPackets packets;
        world.removeLogind();
        ASSERT_TRUE(isLogged(packets, "logind is not there"));

        world.bus().stop();
        ASSERT_TRUE(isLogged(packets, "there is no bus"));
        {
            const DeadBus dead;
            dead.hangUp();
            dead.hangUp();
        }
        world.bus().start();
        world.replaceLogind();

        const std::vector<std::string> lines = linesUntil(packets, "the bus is there again");
        EXPECT_THAT(lines, Contains(HasSubstr("the bus is there again")));
        EXPECT_THAT(lines, Not(Contains(HasSubstr("there is no bus"))));
        EXPECT_TRUE(world.holds(1));
        world.sleepAndWake();
        EXPECT_THAT(world.told, ElementsAre("standby 0"));
    });
}

}  // namespace

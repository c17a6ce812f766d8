// SPDX-License-Identifier: Apache-2.0
// The IPC server: taking the name, waiting to be started, and the end of the process.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <thread>

#include "IpcWorld.h"
#include "support/FreshProcess.h"
#include "support/PrivateBus.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class DefaultContextConfiguration : public ZelApiLite::IpcConfiguration {
public:
    DefaultContextConfiguration() : IpcConfiguration("com.brenlow.Test.Wire", "/com/brenlow/Test/Object") {}
    bool ProcessMethodCallInDefaultContext() const override { return true; }
};

class TwoInterfacesConfiguration : public ZelApiLite::IpcConfiguration {
public:
    TwoInterfacesConfiguration() : IpcConfiguration("com.brenlow.Test.Wire", "/com/brenlow/Test/Object") {}
    std::string MethodBusName() const override { return "com.brenlow.Elsewhere"; }
    std::vector<std::string> InterfaceBusNameList() const override {
        return {"com.brenlow.Test.WireA", "com.brenlow.Test.WireB"};
    }
};

// Numbers of the methods that a connection has called, in the order in which they were served.
std::vector<std::string> callsFrom(const std::string& name) {
    std::vector<std::string> methods;
    for (const std::string& event : record().eventsWith("call ")) {
        std::istringstream words(event);
        std::string call;
        std::string method;
        std::string from;
        std::string sender;
        words >> call >> method >> from >> sender;
        if (sender == name) {
            methods.push_back(method);
        }
    }
    return methods;
}

// How many sockets this process has.
std::size_t openSockets() {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        const std::string target = std::filesystem::read_symlink(entry.path(), error);
        count += target.rfind("socket:", 0) == 0 ? 1U : 0U;
    }
    return count;
}

// How many connections the bus has.
std::size_t connectionsOn(Client& client) {
    std::size_t count = 0;
    for (const std::string& name : client.names()) {
        count += name.rfind(':', 0) == 0 ? 1U : 0U;
    }
    return count;
}

}  // namespace

TEST(IpcSetupTest, SetupTakesTheBusName) {
    inFreshProcess([] {
        const PrivateBus bus;
        Client client;

        const bool done = setUpIpc();

        EXPECT_TRUE(done);
        EXPECT_NE(client.owner("com.brenlow.ZELLite"), "");
    });
}

TEST(IpcSetupTest, NameObjectAndInterfacesAreThoseOfTheConfiguration) {
    inFreshProcess([] {
        const PrivateBus bus;
        Client client;
        ASSERT_TRUE(ZelServiceAPIManager::Setup(std::make_unique<TwoInterfacesConfiguration>()));
        startIpc();

        for (const char* interface : {"com.brenlow.Test.WireA", "com.brenlow.Test.WireB"}) {
            std::vector<std::uint8_t> reply;
            sdbus::createProxy(client.connection(), "com.brenlow.Elsewhere", "/com/brenlow/Test/Object")
                ->callMethod("Call")
                .onInterface(interface)
                .withArguments("com.brenlow.ITest", std::int32_t{0}, std::vector<std::uint8_t>{7})
                .storeResultsTo(reply);
            EXPECT_THAT(reply, ElementsAre(7));
        }
    });
}

TEST(IpcSetupTest, SetupWithoutABusFailsAndMayBeTriedAgain) {
    inFreshProcess([] {
        PrivateBus bus(false);

        const bool without = setUpIpc();
        bus.start();
        const bool with = setUpIpc();
        startIpc();

        EXPECT_FALSE(without);
        EXPECT_TRUE(with);
        EXPECT_EQ(Client().call(0, "x"), "x");
    });
}

TEST(IpcSetupTest, SetupFailsWithoutQueueingWhileAnotherOwnsTheNameAndLeavesNothingOnTheBus) {
    inFreshProcess([] {
        const PrivateBus bus;
        Client holder;
        holder.connection().requestName("com.brenlow.ZELLite");
        const std::size_t connections = connectionsOn(holder);

        const bool done = setUpIpc();

        EXPECT_FALSE(done);
        EXPECT_EQ(holder.owner("com.brenlow.ZELLite"), holder.name());
        EXPECT_EQ(connectionsOn(holder), connections);
        holder.connection().releaseName("com.brenlow.ZELLite");
        EXPECT_EQ(holder.owner("com.brenlow.ZELLite"), "");
        EXPECT_TRUE(setUpIpc());
    });
}

TEST(IpcSetupTest, ASecondSetupFailsAndTheFirstKeepsServing) {
    inFreshProcess([] {
        const PrivateBus bus;
        ASSERT_TRUE(setUpIpc());
        Client client;
        const std::string owner = client.owner("com.brenlow.ZELLite");

        const bool again = setUpIpc();
        startIpc();

        EXPECT_FALSE(again);
        EXPECT_EQ(client.owner("com.brenlow.ZELLite"), owner);
        EXPECT_EQ(client.call(0, "x"), "x");
    });
}

TEST(IpcSetupTest, CallsMadeBeforeTheStartAreServedAfterwardsInTheirOrder) {
    inFreshProcess([] {
        const PrivateBus bus;
        ASSERT_TRUE(setUpIpc());
        Client first;
        Client second;

        first.send(1, "");
        second.send(2, "");
        first.send(3, "");
        second.send(4, "");
        const std::vector<std::string> before = record().events();
        startIpc();
        first.call(5, "");
        second.call(6, "");

        EXPECT_THAT(before, IsEmpty());
        EXPECT_THAT(callsFrom(first.name()), ElementsAre("1", "3", "5"));
        EXPECT_THAT(callsFrom(second.name()), ElementsAre("2", "4", "6"));
    });
}

TEST(IpcSetupTest, TheInterfaceNameIsAskedForOnceByTheStart) {
    inFreshProcess([] {
        const PrivateBus bus;
        ASSERT_TRUE(setUpIpc());

        startIpc();
        const std::vector<std::string> atStart = record().eventsWith("interface");
        Client client;
        client.call(0, "");
        client.call(0, "");

        EXPECT_THAT(atStart, SizeIs(1));
        EXPECT_THAT(record().eventsWith("interface"), SizeIs(1));
    });
}

TEST(IpcSetupTest, WithoutASetupTheListenerIsKeptAndNeverCalled) {
    inFreshProcess([] {
        const PrivateBus bus;

        startIpc();

        EXPECT_THAT(record().events(), IsEmpty());
        EXPECT_NE(Client().errorOf(0, ""), "");
        EXPECT_THAT(record().events(), IsEmpty());
    });
}

TEST(IpcSetupTest, AStartAfterALaterSetupServes) {
    inFreshProcess([] {
        const PrivateBus bus;
        startIpc();
        ASSERT_TRUE(setUpIpc());

        startIpc();

        EXPECT_EQ(Client().call(0, "x"), "x");
    });
}

TEST(IpcSetupTest, ASecondStartKeepsTheFirstListener) {
    inFreshProcess([] {
        const PrivateBus bus;
        ASSERT_TRUE(setUpIpc());
        startIpc();

        startIpc([](int, TCMessageBuffer&, TCMessageBuffer&) { return false; });

        EXPECT_EQ(Client().call(0, "x"), "x");
    });
}

TEST(IpcSetupTest, ThereIsOneManager) {
    inFreshProcess([] {
        ZelServiceAPIManager& one = ZelServiceAPIManager::GetInstance("com.brenlow.A", "/a");
        ZelServiceAPIManager& other = ZelServiceAPIManager::GetInstance("com.brenlow.B", "/b");

        EXPECT_EQ(&one, &other);
    });
}

TEST(IpcSetupTest, DispatchingInTheDefaultContextIsNotModelledAndAborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");

    EXPECT_DEATH(ZelServiceAPIManager::Setup(std::make_unique<DefaultContextConfiguration>()),
                 "ZelServiceAPIManager::Setup: .* is not modelled on Linux");
}

TEST(IpcSetupTest, TheProcessEndsOnlyWhenTheCallBeingServedIsDone) {
    inFreshProcess([] {
        busUntilExit();
        // What is registered before the manager exists runs after it has gone.
        std::atexit([] {
            record().add("manager gone");
            if (record().eventsWith("call done").empty()) {
                std::cerr << "the call was not waited for" << std::endl;
                busUntilExit().stop();
                std::_Exit(3);
            }
        });
        ASSERT_TRUE(setUpIpc());
        std::atexit([] { record().add("exit begun"); });
        startIpc([](int, TCMessageBuffer&, TCMessageBuffer&) {
            record().waitFor("exit begun");
            // Never happens while this call runs, unless the end doesn't wait for it.
            record().waitFor("manager gone", std::chrono::seconds(1));
            record().add("call done");
            return true;
        });
        Client client;

        client.send(0, "");

        EXPECT_TRUE(record().waitFor("call 0 from " + client.name()));
    });
}

TEST(IpcSetupTest, ACallMayEndTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto run = [] {
        busUntilExit();
        setUpIpc();
        startIpc([](int, TCMessageBuffer&, TCMessageBuffer&) -> bool { std::exit(7); });
        Client client;
        client.send(0, "");
        // The other thread ends the process.
        record().waitFor("never");
    };

    EXPECT_EXIT(run(), testing::ExitedWithCode(7), "");
}

TEST(IpcSetupTest, TheProcessEndsWhileTheBusIsLost) {
    inFreshProcess([] {
        PrivateBus bus;
        ASSERT_TRUE(setUpIpc());
        startIpc();
        const std::size_t sockets = openSockets();

        bus.stop();

        EXPECT_TRUE(eventually([sockets] { return openSockets() < sockets; })) << "it has noticed the loss";
    });
}

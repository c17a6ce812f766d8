// SPDX-License-Identifier: Apache-2.0
// The IPC server: who calls, who has left, and what happens when the bus itself leaves.
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <filesystem>
#include <sstream>

#include "IpcWorld.h"
#include "support/BusCallSpy.h"
#include "support/FreshProcess.h"
#include "support/PrivateBus.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

std::atomic<int> g_lookups{0};
std::atomic<int> g_connects{0};
std::atomic<int> g_nameRequests{0};

template <typename Function>
Function next(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// These stand before functions of libsystemd, whoever calls them in this process, and count.
extern "C" {

int sd_bus_call_async(sd_bus* bus, sd_bus_slot** slot, sd_bus_message* call,
                      sd_bus_message_handler_t callback, void* data, std::uint64_t limit) {
    g_lookups += sd_bus_message_is_method_call(call, nullptr, "GetConnectionCredentials") > 0 ? 1 : 0;
    return next<decltype(&sd_bus_call_async)>("sd_bus_call_async")(bus, slot, call, callback, data, limit);
}

int sd_bus_start(sd_bus* bus) {
    ++g_connects;
    return next<decltype(&sd_bus_start)>("sd_bus_start")(bus);
}

int sd_bus_request_name(sd_bus* bus, const char* name, std::uint64_t flags) {
    const int result = next<decltype(&sd_bus_request_name)>("sd_bus_request_name")(bus, name, flags);
    ++g_nameRequests;
    return result;
}
}

namespace {

std::string ownPid() {
    return std::to_string(getpid());
}

std::string ownProgram() {
    return std::filesystem::read_symlink("/proc/self/exe").filename();
}

int linesWith(const std::string& text, const std::string& word) {
    int count = 0;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        count += line.find(word) == std::string::npos ? 0 : 1;
    }
    return count;
}

// A bus with an observed server on it.
struct Observed {
    Observed() {
        observe(std::make_unique<RecordingObserver>("only"));
        EXPECT_TRUE(setUpIpc());
        startIpc();
    }
    PrivateBus bus;
};

// Runs dbus-send, or a copy of it, which calls the server and waits for the answer.
pid_t spawnCaller(const std::string& program) {
    std::array<std::string, 8> words{program,
                                     "--system",
                                     "--print-reply=literal",
                                     "--dest=com.brenlow.ZELLite",
                                     "/com/brenlow/Test/Object",
                                     "com.brenlow.Test.Wire.Call",
                                     "string:com.brenlow.ITest",
                                     "int32:9"};
    std::string request = "array:byte:1";
    std::array<char*, 10> arguments{};
    for (std::size_t i = 0; i < words.size(); ++i) {
        arguments[i] = words[i].data();
    }
    arguments[8] = request.data();
    pid_t pid = 0;
    EXPECT_EQ(posix_spawn(&pid, program.c_str(), nullptr, nullptr, arguments.data(), environ), 0);
    return pid;
}

int exitStatusOf(pid_t pid) {
    int status = 0;
    waitpid(pid, &status, 0);
    return status;
}

// A process named "departing" that calls and exits at once, while its connection is kept by another.
struct DepartedCaller {
    DepartedCaller() {
        std::array<int, 2> life{};
        EXPECT_EQ(pipe2(life.data(), O_CLOEXEC), 0);
        m_keeperLife = life[1];
        m_pid = fork();
        if (m_pid == 0) {
            close(life[1]);
            prctl(PR_SET_NAME, "departing");
            Client client;
            client.send(0, "");
            if (fork() == 0) {
                char byte = 0;
                (void)!read(life[0], &byte, 1);
            }
            _exit(0);
        }
        close(life[0]);
        siginfo_t info{};
        waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOWAIT);
    }
    ~DepartedCaller() { close(m_keeperLife); }
    DepartedCaller(const DepartedCaller&) = delete;
    DepartedCaller& operator=(const DepartedCaller&) = delete;

    pid_t pid() const { return m_pid; }

private:
    int m_keeperLife = -1;
    pid_t m_pid = -1;
};

}  // namespace

TEST(IpcConnectionsTest, TheProgramNameIsTheBaseNameOfTheCallersExecutable) {
    inFreshProcess([] {
        const Observed observed;

        const pid_t caller = spawnCaller("/usr/bin/dbus-send");

        EXPECT_EQ(exitStatusOf(caller), 0);
        EXPECT_THAT(record().eventsWith("only set"),
                    ElementsAre("only set dbus-send " + std::to_string(caller)));
    });
}

TEST(IpcConnectionsTest, AnExecutableThatHasBeenRemovedStillNamesItsProgram) {
    inFreshProcess([] {
        const PrivateBus bus;
        observe(std::make_unique<RecordingObserver>("only"));
        ASSERT_TRUE(setUpIpc());
        Client watcher;
        const std::size_t before = watcher.names().size();
        std::filesystem::copy_file("/usr/bin/dbus-send", "/tmp/my caller");

        const pid_t caller = spawnCaller("/tmp/my caller");
        ASSERT_TRUE(eventually([&] { return watcher.names().size() > before; }));
        std::filesystem::remove("/tmp/my caller");
        startIpc();

        EXPECT_EQ(exitStatusOf(caller), 0);
        EXPECT_THAT(record().eventsWith("only set"),
                    ElementsAre("only set my caller " + std::to_string(caller)));
    });
}

TEST(IpcConnectionsTest, WithoutAnExecutableTheProgramNameIsTheCommandName) {
    inFreshProcess([] {
        const PrivateBus bus;
        observe(std::make_unique<RecordingObserver>("only"));
        ASSERT_TRUE(setUpIpc());

        const DepartedCaller caller;
        startIpc();

        const std::string event = "only set departing " + std::to_string(caller.pid());
        EXPECT_TRUE(record().waitFor(event));
        waitpid(caller.pid(), nullptr, 0);
    });
}

TEST(IpcConnectionsTest, OfAProcessThatHasGoneTheProgramNameIsEmpty) {
    inFreshProcess([] {
        const PrivateBus bus;
        observe(std::make_unique<RecordingObserver>("only"));
        ASSERT_TRUE(setUpIpc());

        const DepartedCaller caller;
        waitpid(caller.pid(), nullptr, 0);
        startIpc();

        const std::string event = "only set  " + std::to_string(caller.pid());
        EXPECT_TRUE(record().waitFor(event));
    });
}

TEST(IpcConnectionsTest, PropertiesAreLookedUpOncePerConnection) {
    inFreshProcess([] {
        const Observed observed;
        Client first;
        Client second;

        first.call(0, "");
        first.call(0, "");
        second.call(0, "");
        first.call(0, "");

        EXPECT_EQ(g_lookups, 2);
        EXPECT_THAT(record().eventsWith("only set"), SizeIs(4));
    });
}

TEST(IpcConnectionsTest, ACallerThatLeavesIsReportedWithItsPid) {
    inFreshProcess([] {
        const Observed observed;
        auto client = std::make_unique<Client>();
        const std::string name = client->name();
        client->call(0, "");

        client.reset();

        EXPECT_TRUE(record().waitFor("only removed " + name + " " + ownPid()));
    });
}

TEST(IpcConnectionsTest, EveryObserverIsToldInTheOrderAdded) {
    inFreshProcess([] {
        observe(std::make_unique<RecordingObserver>("first"));
        const Observed observed;
        auto client = std::make_unique<Client>();
        const std::string leaving = " removed " + client->name() + " " + ownPid();
        client->call(0, "");

        client.reset();

        ASSERT_TRUE(record().waitFor("only" + leaving));
        const std::vector<std::string> events = record().events();
        EXPECT_EQ(events[events.size() - 2], "first" + leaving);
        EXPECT_EQ(events.back(), "only" + leaving);
    });
}

TEST(IpcConnectionsTest, ACallerIsReportedAfterItsLastCall) {
    inFreshProcess([] {
        const Observed observed;
        for (int round = 0; round < 20; ++round) {
            auto client = std::make_unique<Client>();
            const std::string name = client->name();
            client->call(1, "");
            client->send(2, "");

            client.reset();

            ASSERT_TRUE(record().waitFor("only removed " + name + " " + ownPid()));
            const std::vector<std::string> events = record().events();
            EXPECT_EQ(events[events.size() - 2], "only clear") << "no call is being served";
        }
    });
}

TEST(IpcConnectionsTest, ACallerThatLeavesWhileItIsServedIsReportedAfterThatCall) {
    inFreshProcess([] {
        const PrivateBus bus;
        observe(std::make_unique<RecordingObserver>("only"));
        ASSERT_TRUE(setUpIpc());
        auto client = std::make_unique<Client>();
        const std::string name = client->name();
        startIpc([&](int, TCMessageBuffer&, TCMessageBuffer&) {
            client.reset();
            Client watcher;
            record().add(eventually([&] { return watcher.owner(name).empty(); }) ? "left" : "stays");
            return true;
        });

        client->send(1, "");

        ASSERT_TRUE(record().waitFor("only removed " + name + " " + ownPid()));
        EXPECT_THAT(record().eventsWith("only"),
                    ElementsAre("only set " + ownProgram() + " " + ownPid(), "only clear",
                                "only removed " + name + " " + ownPid()));
    });
}

TEST(IpcConnectionsTest, ACallerThatLeftBeforeItWasServedIsNotServedAndIsReported) {
    inFreshProcess([] {
        const PrivateBus bus;
        observe(std::make_unique<RecordingObserver>("only"));
        ASSERT_TRUE(setUpIpc());
        auto client = std::make_unique<Client>();
        const std::string name = client->name();
        client->send(1, "");

        client.reset();
        ASSERT_TRUE(eventually(
            [watcher = std::make_shared<Client>(), &name] { return watcher->owner(name).empty(); }));
        startIpc();

        ASSERT_TRUE(record().waitFor("only removed " + name + " 0"));
        EXPECT_THAT(record().events(), ElementsAre("interface name asked", "only removed " + name + " 0"));
    });
}

TEST(IpcConnectionsTest, AConnectionThatWasThereBeforeIsReportedAlsoWhenItNeverCalled) {
    inFreshProcess([] {
        PrivateBus bus;
        auto present = std::make_unique<Client>();
        const std::string name = present->name();
        observe(std::make_unique<RecordingObserver>("only"));
        ASSERT_TRUE(setUpIpc());
        startIpc();

        present.reset();

        EXPECT_TRUE(record().waitFor("only removed " + name + " 0"));
    });
}

TEST(IpcConnectionsTest, AConnectionThatWasThereBeforeAndCallsIsReportedOnceWithItsPid) {
    inFreshProcess([] {
        PrivateBus bus;
        auto present = std::make_unique<Client>();
        const std::string name = present->name();
        ASSERT_TRUE(setUpIpc());
        observe(std::make_unique<RecordingObserver>("only"));
        startIpc();
        present->call(0, "");

        present.reset();

        ASSERT_TRUE(record().waitFor("only removed " + name + " " + ownPid()));
        Client().call(0, "");
        EXPECT_THAT(record().eventsWith("only removed " + name), SizeIs(1));
    });
}

TEST(IpcConnectionsTest, AConnectionThatLeavesBetweenSetupAndStartIsReported) {
    inFreshProcess([] {
        PrivateBus bus;
        auto present = std::make_unique<Client>();
        const std::string name = present->name();
        ASSERT_TRUE(setUpIpc());
        present.reset();

        observe(std::make_unique<RecordingObserver>("only"));
        startIpc();

        EXPECT_TRUE(record().waitFor("only removed " + name + " 0"));
    });
}

TEST(IpcConnectionsTest, AConnectionThatComesDuringSetupIsKnownUntilItLeaves) {
    inFreshProcess([] {
        const PrivateBus bus;
        observe(std::make_unique<RecordingObserver>("only"));
        std::unique_ptr<Client> newcomer;
        BusCallSpy::set([&](BusCallSpy::Call& call) {
            if (call.member == "ListNames" && newcomer == nullptr) {
                newcomer = std::make_unique<Client>();
            }
        });
        ASSERT_TRUE(setUpIpc());
        startIpc();
        Client client;
        client.call(0, "");
        const std::vector<std::string> before = record().eventsWith("only removed");
        const std::string name = newcomer->name();

        newcomer.reset();

        EXPECT_TRUE(record().waitFor("only removed " + name + " 0"));
        EXPECT_THAT(before, IsEmpty());
    });
}

TEST(IpcConnectionsTest, StrangersComingAndGoingAreNotReported) {
    inFreshProcess([] {
        const Observed observed;
        std::make_unique<Client>().reset();
        auto stranger = std::make_unique<Client>();
        auto caller = std::make_unique<Client>();
        const std::string callersLeaving = "only removed " + caller->name() + " " + ownPid();
        caller->call(0, "");

        stranger.reset();
        caller.reset();

        ASSERT_TRUE(record().waitFor(callersLeaving));
        // Who left before this call has been dealt with when it is served.
        Client last;
        last.call(0, "");
        EXPECT_THAT(record().eventsWith("only removed"), ElementsAre(callersLeaving));
    });
}

TEST(IpcConnectionsTest, NamesThatAreNotUniqueAreNotReported) {
    inFreshProcess([] {
        PrivateBus bus;
        Client caller;
        caller.connection().requestName("com.brenlow.Something");
        observe(std::make_unique<RecordingObserver>("only"));
        ASSERT_TRUE(setUpIpc());
        startIpc();
        caller.call(0, "");

        caller.connection().releaseName("com.brenlow.Something");
        caller.call(0, "");

        EXPECT_THAT(record().eventsWith("only removed"), IsEmpty());
    });
}

TEST(IpcConnectionsTest, AForgedDepartureIsIgnored) {
    inFreshProcess([] {
        const Observed observed;
        Client victim;
        victim.call(0, "");
        Client forger;
        const auto object = sdbus::createObject(forger.connection(), "/org/freedesktop/DBus");

        sdbus::Signal signal = object->createSignal("org.freedesktop.DBus", "NameOwnerChanged");
        signal << victim.name() << victim.name() << "";
        signal.setDestination(forger.owner("com.brenlow.ZELLite"));
        signal.send();
        // On the same connection, so served after the signal.
        forger.call(0, "");

        EXPECT_THAT(record().eventsWith("only removed"), IsEmpty());
    });
}

TEST(IpcConnectionsTest, WhenAnotherBusComesEverybodyKnownIsReportedAndNobodyElse) {
    inFreshProcess([] {
        PrivateBus bus;
        const Client present;
        observe(std::make_unique<RecordingObserver>("only"));
        ASSERT_TRUE(setUpIpc());
        startIpc();
        Client caller;
        caller.call(0, "");
        const Client stranger;
        auto departed = std::make_unique<Client>();
        const std::string departure = "only removed " + departed->name() + " " + ownPid();
        departed->call(0, "");
        departed.reset();
        ASSERT_TRUE(record().waitFor(departure));

        const std::string names[] = {present.name(), caller.name()};
        bus.stop();
        bus.start();

        EXPECT_TRUE(record().waitFor("only removed " + names[0] + " 0"));
        EXPECT_TRUE(record().waitFor("only removed " + names[1] + " " + ownPid()));
        Client watcher;
        ASSERT_TRUE(watcher.waitForServer());
        EXPECT_THAT(record().eventsWith("only removed"), SizeIs(3));
    });
}

TEST(IpcConnectionsTest, WhenTheBusIsBackTheSameListenerServesAndDeparturesAreReported) {
    inFreshProcess([] {
        Observed observed;
        {
            Client client;
            client.call(0, "");
            observed.bus.stop();
        }
        observed.bus.start();
        auto caller = std::make_unique<Client>();
        ASSERT_TRUE(caller->waitForServer());

        const std::string reply = caller->call(0, "again");
        const std::string leaving = "only removed " + caller->name() + " " + ownPid();
        caller.reset();

        EXPECT_EQ(reply, "again");
        EXPECT_TRUE(record().waitFor(leaving));
        EXPECT_THAT(record().eventsWith("interface name asked"), SizeIs(1));
        EXPECT_THAT(record().eventsWith("listener gone"), IsEmpty());
    });
}

TEST(IpcConnectionsTest, LossAndRecoveryAreLoggedOnceAndAttemptsAreNot) {
    inFreshProcess([] {
        testing::internal::CaptureStderr();
        Observed observed;
        const int connects = g_connects;
        observed.bus.stop();

        ASSERT_TRUE(eventually([&] { return g_connects >= connects + 2; }));
        observed.bus.start();
        Client watcher;
        ASSERT_TRUE(watcher.waitForServer());
        EXPECT_EQ(Client().call(0, "x"), "x");

        const std::string log = testing::internal::GetCapturedStderr();
        EXPECT_EQ(linesWith(log, "ZEL_API"), 2) << log;
        EXPECT_THAT(log,
                    testing::ContainsRegex("E/ZEL_API .*the bus is lost.*\n.*I/ZEL_API .*the bus is back"));
    });
}

TEST(IpcConnectionsTest, ANameTakenByAnotherAfterALossIsTriedAgainUntilItIsFree) {
    inFreshProcess([] {
        Observed observed;
        observed.bus.stop();
        observed.bus.start();
        auto holder = std::make_unique<Client>();
        holder->connection().requestName("com.brenlow.ZELLite");
        const std::string holderName = holder->name();
        const int requests = g_nameRequests;
        Client client;
        ASSERT_TRUE(eventually([&] { return g_nameRequests > requests; }));
        const std::string meanwhile = client.owner("com.brenlow.ZELLite");

        holder.reset();

        EXPECT_EQ(meanwhile, holderName);
        // The bus may not have seen the holder go yet.
        ASSERT_TRUE(eventually([&] { return client.owner("com.brenlow.ZELLite") != holderName; }));
        ASSERT_TRUE(client.waitForServer());
        EXPECT_EQ(client.call(0, "x"), "x");
    });
}

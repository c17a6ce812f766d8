// SPDX-License-Identifier: Apache-2.0
// The IPC server beside callers that want the others not to be served, and over losses of news.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <future>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "IpcWorld.h"
#include "support/Files.h"
#include "support/FreshProcess.h"
#include "support/PrivateBus.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

// The clock of the library and of the tests, which a test can put forward.
std::chrono::steady_clock::time_point realNow() asm("__real__ZNSt6chrono3_V212steady_clock3nowEv");
std::chrono::steady_clock::time_point shiftedNow() asm("__wrap__ZNSt6chrono3_V212steady_clock3nowEv");

namespace {

std::atomic<int> g_shiftSeconds{0};
std::atomic<bool> g_ignoresDepartures{false};
// How often the server has waited.
std::atomic<int> g_waits{0};

std::string ownPid() {
    return std::to_string(getpid());
}

// A bus with an observed server on it.
struct Observed {
    explicit Observed(ScriptedListener::Script script = echo) {
        observe(std::make_unique<RecordingObserver>("only"));
        EXPECT_TRUE(setUpIpc());
        startIpc(std::move(script));
    }
    PrivateBus bus;
};

// Lets a call of the listener wait for the test.
class Gate {
public:
    void open() { m_promise.set_value(); }
    bool pass() {
        record().add("waits");
        return m_future.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
    }

private:
    std::promise<void> m_promise;
    std::shared_future<void> m_future = m_promise.get_future().share();
};

// A listener whose method 1 waits. It shares the gate, because that call may still be on its way out when a
// test ends.
ScriptedListener::Script waitsInMethodOne(const std::shared_ptr<Gate>& gate) {
    return [gate](int method, TCMessageBuffer&, TCMessageBuffer&) { return method != 1 || gate->pass(); };
}

// The sockets of this process: what the kernel calls them, and their descriptors.
std::map<std::string, int> openSockets() {
    std::map<std::string, int> sockets;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        const std::string target = std::filesystem::read_symlink(entry.path(), error);
        if (target.rfind("socket:", 0) == 0) {
            sockets[target] = std::stoi(entry.path().filename());
        }
    }
    return sockets;
}

// Sets the server up and gives its socket.
std::pair<std::string, int> setUpAndFindSocket() {
    const auto before = openSockets();
    EXPECT_TRUE(setUpIpc());
    for (const auto& socket : openSockets()) {
        if (before.count(socket.first) == 0) {
            return socket;
        }
    }
    return {"", -1};
}

// The id of the bus, as every connection is told.
std::string busId() {
    sd_bus* bus = nullptr;
    EXPECT_GE(sd_bus_open_system(&bus), 0);
    sd_id128_t id{};
    EXPECT_EQ(sd_bus_get_bus_id(bus, &id), 0);
    sd_bus_close_unref(bus);
    std::array<char, SD_ID128_STRING_MAX> text{};
    return sd_id128_to_string(id, text.data());
}

void remember(const std::string& busId, const std::string& callers) {
    std::filesystem::create_directories("/run/zel-platform");
    writeFile(kCallersFile, "bus " + busId + "\n" + callers);
}

}  // namespace

std::chrono::steady_clock::time_point shiftedNow() {
    return realNow() + std::chrono::seconds(g_shiftSeconds.load());
}

extern "C" int __real_sd_bus_add_match(sd_bus* bus, sd_bus_slot** slot, const char* match,
                                       sd_bus_message_handler_t callback, void* data);
extern "C" int __wrap_sd_bus_add_match(sd_bus* bus, sd_bus_slot** slot, const char* match,
                                       sd_bus_message_handler_t callback, void* data);
extern "C" int __wrap_sd_bus_add_match(sd_bus* bus, sd_bus_slot** slot, const char* match,
                                       sd_bus_message_handler_t callback, void* data) {
    return g_ignoresDepartures ? 0 : __real_sd_bus_add_match(bus, slot, match, callback, data);
}

extern "C" int __real_poll(pollfd* polled, nfds_t count, int milliseconds);
extern "C" int __wrap_poll(pollfd* polled, nfds_t count, int milliseconds);
extern "C" int __wrap_poll(pollfd* polled, nfds_t count, int milliseconds) {
    ++g_waits;
    return __real_poll(polled, count, milliseconds);
}

TEST(IpcHostileTest, AMessageWithDescriptorsIsRefusedByTheBus) {
    inFreshProcess([] {
        const Observed observed;
        Client client;
        sdbus::MethodCall call = client.server()->createMethodCall("com.brenlow.Test.Wire", "Call");
        call << sdbus::UnixFd(STDERR_FILENO);

        std::string error;
        try {
            client.server()->callMethod(call);
        } catch (const sdbus::Error& failure) {
            error = failure.getName();
        }

        EXPECT_EQ(error, "org.freedesktop.DBus.Error.NotSupported");
        EXPECT_EQ(client.call(0, "x"), "x");
    });
}

TEST(IpcHostileTest, WhileACallIsServedTheBusIsRead) {
    inFreshProcess([] {
        const auto gate = std::make_shared<Gate>();
        const Observed observed(waitsInMethodOne(gate));
        Client client;
        client.send(1, "");
        ASSERT_TRUE(record().waitFor("waits"));

        // Refused by the thread that reads.
        const std::string error = client.errorOf("com.brenlow.IOther", 0, "");

        EXPECT_THAT(error, HasSubstr("UnknownInterface"));
        gate->open();
    });
}

TEST(IpcHostileTest, ACallerWith256CallsWaitingIsRefusedTheNext) {
    inFreshProcess([] {
        const auto gate = std::make_shared<Gate>();
        const Observed observed(waitsInMethodOne(gate));
        Client client;
        client.send(1, "");
        ASSERT_TRUE(record().waitFor("waits"));

        for (int call = 0; call < 256; ++call) {
            client.send(2, "");
        }
        const std::string error = client.errorOf(2, "");

        EXPECT_EQ(error, "org.freedesktop.DBus.Error.LimitsExceeded: too many calls wait to be served");
        gate->open();
        EXPECT_EQ(Client().errorOf(2, ""), "");
    });
}

TEST(IpcHostileTest, WaitingCallsOfACallerThatLeavesAreSkipped) {
    inFreshProcess([] {
        const auto gate = std::make_shared<Gate>();
        const Observed observed(waitsInMethodOne(gate));
        Client blocking;
        blocking.send(1, "");
        ASSERT_TRUE(record().waitFor("waits"));
        auto leaving = std::make_unique<Client>();
        const std::string name = leaving->name();
        leaving->send(2, "");
        leaving->send(3, "");
        // Refused by the thread that reads, which has asked the bus about the caller by then.
        EXPECT_NE(leaving->errorOf("com.brenlow.IOther", 0, ""), "");

        leaving.reset();
        ASSERT_TRUE(eventually([&blocking, &name] { return blocking.owner(name).empty(); }));
        // The server has read the news when it refuses a later call.
        EXPECT_NE(blocking.errorOf("com.brenlow.IOther", 0, ""), "");
        gate->open();

        EXPECT_TRUE(record().waitFor("only removed " + name + " " + ownPid()));
        EXPECT_THAT(record().eventsWith("call"), ElementsAre("call 1 from " + blocking.name()));
    });
}

TEST(IpcHostileTest, ADepartureWhoseNewsWasLostIsFoundByComparison) {
    inFreshProcess([] {
        g_ignoresDepartures = true;
        const Observed observed;
        Client staying;
        staying.call(0, "");
        auto leaving = std::make_unique<Client>();
        const std::string name = leaving->name();
        leaving->call(0, "");
        leaving.reset();
        ASSERT_TRUE(eventually([&staying, &name] { return staying.owner(name).empty(); }));

        g_shiftSeconds = 11;
        staying.call(0, "");

        EXPECT_TRUE(record().waitFor("only removed " + name + " " + ownPid()));
        EXPECT_THAT(record().eventsWith("only removed"), SizeIs(1));
    });
}

TEST(IpcHostileTest, AfterTheLossOfTheConnectionOnlyThoseWhoLeftAreReported) {
    inFreshProcess([] {
        const PrivateBus bus;
        observe(std::make_unique<RecordingObserver>("only"));
        const int socket = setUpAndFindSocket().second;
        startIpc();
        Client staying;
        staying.call(0, "");
        auto leaving = std::make_unique<Client>();
        const std::string name = leaving->name();
        leaving->call(0, "");
        const std::string owner = staying.owner("com.brenlow.ZELLite");

        shutdown(socket, SHUT_RDWR);
        leaving.reset();

        EXPECT_TRUE(record().waitFor("only removed " + name + " " + ownPid()));
        ASSERT_TRUE(eventually([&] {
            const std::string now = staying.owner("com.brenlow.ZELLite");
            return !now.empty() && now != owner;
        }));
        EXPECT_EQ(staying.call(0, "still"), "still");
        EXPECT_THAT(record().eventsWith("only removed"), SizeIs(1));
    });
}

TEST(IpcHostileTest, CallsThatWaitAreDroppedWithTheirConnection) {
    inFreshProcess([] {
        const auto gate = std::make_shared<Gate>();
        const PrivateBus bus;
        observe(std::make_unique<RecordingObserver>("only"));
        const int socket = setUpAndFindSocket().second;
        startIpc(waitsInMethodOne(gate));
        Client client;
        client.send(1, "");
        ASSERT_TRUE(record().waitFor("waits"));
        client.send(2, "");
        EXPECT_NE(client.errorOf("com.brenlow.IOther", 0, ""), "");
        const std::string owner = client.owner("com.brenlow.ZELLite");

        shutdown(socket, SHUT_RDWR);
        ASSERT_TRUE(eventually([&client, &owner] {
            const std::string now = client.owner("com.brenlow.ZELLite");
            return !now.empty() && now != owner;
        }));
        gate->open();
        client.call(3, "");

        EXPECT_THAT(record().eventsWith("call"),
                    ElementsAre("call 1 from " + client.name(), "call 3 from " + client.name()));
    });
}

TEST(IpcHostileTest, ABusThatTakesNothingForFiveSecondsCountsAsLost) {
    inFreshProcess([] {
        testing::internal::CaptureStderr();
        const PrivateBus bus;
        const std::string socket = setUpAndFindSocket().first;
        const auto gate = std::make_shared<Gate>();
        startIpc([gate](int method, TCMessageBuffer&, TCMessageBuffer& reply) {
            // More than the kernel takes for the bus.
            reply.Resize(method == 1 ? 30U * 1024 * 1024 : 0);
            return method != 1 || gate->pass();
        });
        Client client;
        client.send(0, "");
        auto proxy = client.server();
        sdbus::MethodCall call = proxy->createMethodCall("com.brenlow.Test.Wire", "Call");
        call << "com.brenlow.ITest" << std::int32_t{1} << std::vector<std::uint8_t>();
        const auto answer = std::async(std::launch::async, [&proxy, &call] {
            try {
                proxy->callMethod(call, std::chrono::seconds(60));
            } catch (const sdbus::Error&) {
                // The bus answers for the connection that was given up.
            }
        });
        ASSERT_TRUE(record().waitFor("waits"));
        bus.pause();

        gate->open();

        ASSERT_TRUE(eventually([&socket] { return openSockets().count(socket) == 0; }));
        EXPECT_LT(g_waits, 1000) << "it slept meanwhile";
        bus.goOn();
        Client watcher;
        EXPECT_TRUE(watcher.waitForServer());
        EXPECT_THAT(testing::internal::GetCapturedStderr(),
                    HasSubstr("the bus is lost: it has taken no message for 5 s"));
    });
}

TEST(IpcHostileTest, ACallerThatLeftWhileNobodyWatchedIsReportedASecondAfterTheStart) {
    inFreshProcess([] {
        const PrivateBus bus;
        Client present;
        remember(busId(), "+ :1.4711 4242\n+ " + present.name() + " " + ownPid() + "\n");

        observe(std::make_unique<RecordingObserver>("only"));
        const auto start = std::chrono::steady_clock::now();
        ASSERT_TRUE(setUpIpc());
        startIpc();

        EXPECT_TRUE(record().waitFor("only removed :1.4711 4242"));
        EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(1))
            << "who restores sessions looks first which of them have ended";
        EXPECT_EQ(present.call(0, "x"), "x");
        EXPECT_THAT(record().eventsWith("only removed"), SizeIs(1));
    });
}

TEST(IpcHostileTest, ARememberedNameThatAnotherProcessHasIsReportedForTheEarlierOne) {
    inFreshProcess([] {
        const PrivateBus bus;
        Client present;
        remember(busId(), "+ " + present.name() + " 4242\n");

        observe(std::make_unique<RecordingObserver>("only"));
        ASSERT_TRUE(setUpIpc());
        startIpc();

        EXPECT_TRUE(record().waitFor("only removed " + present.name() + " 4242"));
    });
}

TEST(IpcHostileTest, OnAnotherBusEverybodyRememberedIsReportedBeforeTheFirstCall) {
    inFreshProcess([] {
        const PrivateBus bus;
        Client present;
        std::string callers = "+ " + present.name() + " " + ownPid() + "\n";
        // So many that the call comes while they are reported.
        constexpr std::size_t kOthers = 20000;
        for (std::size_t other = 0; other < kOthers; ++other) {
            callers += "+ :0." + std::to_string(other) + " 4242\n";
        }
        remember("another", callers);

        observe(std::make_unique<RecordingObserver>("only"));
        ASSERT_TRUE(setUpIpc());
        startIpc();
        present.call(0, "");

        const std::vector<std::string> events = record().eventsWith("only");
        ASSERT_GT(events.size(), kOthers + 1);
        EXPECT_EQ(events[kOthers], "only removed " + present.name() + " " + ownPid());
        EXPECT_THAT(events[kOthers + 1], HasSubstr("only set"));
    });
}

// SPDX-License-Identifier: Apache-2.0
// The IPC server: what becomes of a call.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <stdexcept>
#include <thread>

#include "IpcWorld.h"
#include "support/FreshProcess.h"
#include "support/PrivateBus.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

namespace {

// A bus with the server on it, dispatching to a script.
struct Served {
    explicit Served(ScriptedListener::Script script = echo) {
        EXPECT_TRUE(setUpIpc());
        startIpc(std::move(script));
    }
    PrivateBus bus;
};

std::string patternOf(std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>(i * 7 % 251);
    }
    return bytes;
}

class ThrowingObserver : public TIIPCCallersObserver {
public:
    explicit ThrowingObserver(std::string where) : m_where(std::move(where)) {}
    void SetCurrentCaller(const TSCallerProperties& /*caller*/) override { throwIn("set"); }
    void ClearCurrentCaller() override { throwIn("clear"); }
    void OwnerRemoved(const std::string& /*connectionName*/, std::uint32_t /*pid*/) override {
        throwIn("removed");
    }

private:
    void throwIn(const std::string& where) const {
        if (m_where == where) {
            throw std::runtime_error("observer burst");
        }
    }
    std::string m_where;
};

}  // namespace

TEST(IpcServerTest, ACallReachesTheListenerAndItsReplyReturns) {
    inFreshProcess([] {
        const Served served([](int method, TCMessageBuffer& request, TCMessageBuffer& reply) {
            int number = 0;
            request.ReadInt(&number, 0);
            reply.PushInt(number * method);
            return true;
        });
        Client client;

        const std::string reply = client.call(3, std::string("\x05\0\0\0", 4));

        EXPECT_EQ(reply, std::string("\x0f\0\0\0", 4));
    });
}

TEST(IpcServerTest, TheSenderOfARequestIsTheUniqueNameOfTheCaller) {
    inFreshProcess([] {
        const Served served([](int /*method*/, TCMessageBuffer& request, TCMessageBuffer& reply) {
            return reply.WriteConcatenated(request.m_senderName.size(), request.m_senderName.data(), -1);
        });
        Client first;
        Client second;

        EXPECT_EQ(first.call(0, ""), first.name());
        EXPECT_EQ(second.call(0, ""), second.name());
    });
}

TEST(IpcServerTest, EveryByteValuePassesBothWays) {
    inFreshProcess([] {
        const Served served;
        Client client;
        std::string bytes;
        for (int byte = 0; byte < 256; ++byte) {
            bytes.push_back(static_cast<char>(byte));
        }

        const std::string reply = client.call(0, bytes);

        EXPECT_EQ(reply, bytes);
    });
}

TEST(IpcServerTest, ANegativeMethodNumberPasses) {
    inFreshProcess([] {
        const Served served;
        Client client;

        client.call(-1, "");

        EXPECT_THAT(record().eventsWith("call"), ElementsAre("call -1 from " + client.name()));
    });
}

TEST(IpcServerTest, EmptyRequestAndReplyPass) {
    inFreshProcess([] {
        const Served served;
        Client client;

        EXPECT_EQ(client.call(0, ""), "");
        EXPECT_THAT(record().eventsWith("call"), SizeIs(1));
    });
}

TEST(IpcServerTest, AnInterfaceNobodyServesIsUnknown) {
    inFreshProcess([] {
        const Served served;
        Client client;

        const std::string error = client.errorOf("com.brenlow.IOther", 0, "");

        EXPECT_THAT(error, StartsWith("org.freedesktop.DBus.Error.UnknownInterface: "));
        EXPECT_THAT(error, HasSubstr("com.brenlow.IOther"));
        EXPECT_THAT(record().eventsWith("call"), IsEmpty());
    });
}

TEST(IpcServerTest, AnInterfaceNameThatNoneCanHaveIsNotRepeated) {
    inFreshProcess([] {
        const Served served;
        Client client;

        const std::string error = client.errorOf(std::string(100000, 'x'), 0, "");

        EXPECT_THAT(error, StartsWith("org.freedesktop.DBus.Error.UnknownInterface: "));
        EXPECT_LT(error.size(), 200U);
    });
}

TEST(IpcServerTest, AMethodThatTheListenerRefusesIsUnknownAndItsReplyDropped) {
    inFreshProcess([] {
        const Served served([](int /*method*/, TCMessageBuffer& /*request*/, TCMessageBuffer& reply) {
            reply.PushInt(1);
            return false;
        });
        Client client;

        const std::string error = client.errorOf(17, "");

        EXPECT_THAT(error, StartsWith("org.freedesktop.DBus.Error.UnknownMethod: "));
        EXPECT_THAT(error, HasSubstr("17"));
    });
}

TEST(IpcServerTest, ACallWithOtherArgumentsIsInvalid) {
    inFreshProcess([] {
        const Served served;
        Client client;
        const auto proxy = client.server();
        std::vector<std::string> errors;

        const auto attempt = [&](const std::function<void(sdbus::MethodCall&)>& fill) {
            sdbus::MethodCall call = proxy->createMethodCall("com.brenlow.Test.Wire", "Call");
            fill(call);
            try {
                (void)proxy->callMethod(call);
            } catch (const sdbus::Error& error) {
                errors.push_back(error.getName());
                EXPECT_FALSE(error.getMessage().empty());
            }
        };
        attempt([](sdbus::MethodCall&) {});
        attempt([](sdbus::MethodCall& call) { call << "com.brenlow.ITest" << std::int32_t{0}; });
        attempt([](sdbus::MethodCall& call) { call << "com.brenlow.ITest" << std::uint32_t{0} << "text"; });
        attempt([](sdbus::MethodCall& call) {
            call << "com.brenlow.ITest" << std::int32_t{0} << std::vector<std::uint8_t>{} << std::int32_t{0};
        });

        const std::string invalid = "org.freedesktop.DBus.Error.InvalidArgs";
        EXPECT_THAT(errors, ElementsAre(invalid, invalid, invalid, invalid));
        EXPECT_THAT(record().eventsWith("call"), IsEmpty());
    });
}

TEST(IpcServerTest, ARequestOfOneMebibytePasses) {
    inFreshProcess([] {
        const Served served;
        Client client;
        const std::string bytes = patternOf(1048576);

        const std::string reply = client.call(0, bytes);

        EXPECT_TRUE(reply == bytes);
    });
}

TEST(IpcServerTest, ARequestOverOneMebibyteExceedsTheLimitsAndNeverReachesTheListener) {
    inFreshProcess([] {
        const Served served;
        Client client;

        const std::string error = client.errorOf(0, patternOf(1048577));

        EXPECT_THAT(error, StartsWith("org.freedesktop.DBus.Error.LimitsExceeded: "));
        EXPECT_THAT(error, HasSubstr("request"));
        EXPECT_THAT(record().eventsWith("call"), IsEmpty());
        EXPECT_EQ(client.call(0, "next"), "next");
    });
}

TEST(IpcServerTest, AReplyThatTheBusWouldNotCarryExceedsTheLimits) {
    inFreshProcess([] {
        const Served served([](int method, TCMessageBuffer& /*request*/, TCMessageBuffer& reply) {
            reply.Resize(static_cast<unsigned int>(method));
            return true;
        });
        Client client;

        const std::string error = client.errorOf(33554432, "");

        EXPECT_THAT(error, StartsWith("org.freedesktop.DBus.Error.LimitsExceeded: "));
        EXPECT_THAT(error, HasSubstr("reply"));
        EXPECT_EQ(client.call(2, ""), std::string(2, '\0'));
    });
}

TEST(IpcServerTest, TheLargestReplyThatIsNotRefusedArrives) {
    inFreshProcess([] {
        const Served served([](int method, TCMessageBuffer& /*request*/, TCMessageBuffer& reply) {
            reply.Resize(static_cast<unsigned int>(method));
            return true;
        });
        Client client;

        const std::string refused = client.errorOf(33550337, "");
        const auto proxy = client.server();
        sdbus::MethodCall call = proxy->createMethodCall("com.brenlow.Test.Wire", "Call");
        call << "com.brenlow.ITest" << std::int32_t{33550336} << std::vector<std::uint8_t>{};
        const sdbus::MethodReply reply = proxy->callMethod(call, std::chrono::seconds(120));

        EXPECT_THAT(refused, StartsWith("org.freedesktop.DBus.Error.LimitsExceeded: "));
        EXPECT_FALSE(reply.isEmpty());
    });
}

TEST(IpcServerTest, AListenerThatThrowsFailsTheCallAndServesTheNext) {
    inFreshProcess([] {
        const Served served([](int method, TCMessageBuffer& request, TCMessageBuffer& reply) {
            if (method == 1) {
                throw std::runtime_error("listener burst");
            }
            if (method == 2) {
                throw sdbus::Error("com.brenlow.Error.Odd", "listener burst");
            }
            return echo(method, request, reply);
        });
        Client client;

        EXPECT_EQ(client.errorOf(1, ""), "org.freedesktop.DBus.Error.Failed: listener burst");
        EXPECT_THAT(client.errorOf(2, ""), StartsWith("org.freedesktop.DBus.Error.Failed: "));
        EXPECT_EQ(client.call(0, "next"), "next");
    });
}

TEST(IpcServerTest, ObserversAreToldOfTheCallerBeforeAndAfterEachCallInTheOrderAdded) {
    inFreshProcess([] {
        observe(std::make_unique<RecordingObserver>("first"));
        observe(std::make_unique<RecordingObserver>("second"));
        const Served served;
        Client client;

        client.call(0, "");

        const std::string caller = std::filesystem::read_symlink("/proc/self/exe").filename().string() + " " +
                                   std::to_string(getpid());
        EXPECT_THAT(record().events(),
                    ElementsAre("interface name asked", "first set " + caller, "second set " + caller,
                                "call 0 from " + client.name(), "first clear", "second clear"));
    });
}

TEST(IpcServerTest, AnObserverThatWasRemovedHearsNothingMore) {
    inFreshProcess([] {
        RecordingObserver passing("passing");
        TCIpcProperties::Instance().AddCallersObserver(passing);
        const Served served;
        Client client;
        client.call(0, "");
        const std::size_t heard = record().events().size();

        TCIpcProperties::Instance().RemoveCallersObserver(passing);
        TCIpcProperties::Instance().RemoveCallersObserver(passing);
        client.call(1, "");

        const auto events = record().events();
        EXPECT_EQ(heard, 4U);
        EXPECT_EQ(std::vector<std::string>(events.begin() + static_cast<std::ptrdiff_t>(heard), events.end()),
                  std::vector<std::string>{"call 1 from " + client.name()});
    });
}

namespace {

/** Removes another observer when a call comes. */
class RemovingObserver : public RecordingObserver {
public:
    explicit RemovingObserver(TIIPCCallersObserver& other) : RecordingObserver("remover"), m_other(other) {}

    void SetCurrentCaller(const TSCallerProperties& caller) override {
        RecordingObserver::SetCurrentCaller(caller);
        TCIpcProperties::Instance().RemoveCallersObserver(m_other);
    }

private:
    TIIPCCallersObserver& m_other;
};

}  // namespace

TEST(IpcServerTest, AnObserverRemovedByTheOneBeforeItIsNotToldOfThatCall) {
    inFreshProcess([] {
        RecordingObserver doomed("doomed");
        observe(std::make_unique<RemovingObserver>(doomed));
        TCIpcProperties::Instance().AddCallersObserver(doomed);
        const Served served;
        Client client;

        client.call(0, "");

        EXPECT_THAT(record().events(), testing::Each(testing::Not(testing::StartsWith("doomed"))));
    });
}

TEST(IpcServerTest, TheCallerIsClearedAlsoWhenTheListenerRefusesOrThrows) {
    inFreshProcess([] {
        observe(std::make_unique<RecordingObserver>("only"));
        const Served served([](int method, TCMessageBuffer&, TCMessageBuffer&) -> bool {
            if (method == 1) {
                throw std::runtime_error("listener burst");
            }
            return false;
        });
        Client client;

        client.errorOf(0, "");
        client.errorOf(1, "");

        EXPECT_THAT(record().eventsWith("only clear"), SizeIs(2));
    });
}

TEST(IpcServerTest, AnObserverThatThrowsInSetFailsTheCallBeforeTheListener) {
    inFreshProcess([] {
        observe(std::make_unique<RecordingObserver>("good"));
        observe(std::make_unique<ThrowingObserver>("set"));
        const Served served;
        Client client;

        const std::string error = client.errorOf(0, "");

        EXPECT_EQ(error, "org.freedesktop.DBus.Error.Failed: observer burst");
        EXPECT_THAT(record().eventsWith("call"), IsEmpty());
        EXPECT_THAT(record().eventsWith("good clear"), SizeIs(1));
    });
}

TEST(IpcServerTest, AnObserverThatThrowsInClearOrRemovedHarmsNobody) {
    inFreshProcess([] {
        observe(std::make_unique<ThrowingObserver>("clear"));
        observe(std::make_unique<ThrowingObserver>("removed"));
        observe(std::make_unique<RecordingObserver>("good"));
        const Served served;
        auto client = std::make_unique<Client>();
        const std::string name = client->name();

        const std::string reply = client->call(0, "kept");
        client.reset();

        EXPECT_EQ(reply, "kept");
        EXPECT_THAT(record().eventsWith("good clear"), SizeIs(1));
        EXPECT_TRUE(record().waitFor("good removed " + name + " " + std::to_string(getpid())));
        EXPECT_EQ(Client().call(0, "next"), "next");
    });
}

TEST(IpcServerTest, CallsComeOneAtATimeOnOneThreadOfTheLibrary) {
    inFreshProcess([] {
        struct {
            std::atomic<int> inside{0};
            std::atomic<int> most{0};
        } calls;
        const std::thread::id mainThread = std::this_thread::get_id();
        const Served served([&](int method, TCMessageBuffer& request, TCMessageBuffer& reply) {
            calls.most = std::max(calls.most.load(), ++calls.inside);
            std::this_thread::yield();
            --calls.inside;
            return std::this_thread::get_id() != mainThread && echo(method, request, reply);
        });
        std::vector<std::thread> callers;
        callers.reserve(4);
        for (int i = 0; i < 4; ++i) {
            callers.emplace_back([] {
                Client client;
                for (int j = 0; j < 25; ++j) {
                    EXPECT_EQ(client.call(0, "x"), "x");
                }
            });
        }

        for (std::thread& caller : callers) {
            caller.join();
        }

        EXPECT_THAT(record().eventsWith("call"), SizeIs(100));
        EXPECT_EQ(calls.most, 1);
    });
}

TEST(IpcServerTest, EveryDescriptorIsCloseOnExec) {
    inFreshProcess([] {
        const auto inheritable = [] {
            std::vector<std::string> found;
            for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
                const int descriptor = std::stoi(entry.path().filename());
                const int flags = fcntl(descriptor, F_GETFD);
                if (flags >= 0 && (flags & FD_CLOEXEC) == 0) {
                    found.push_back(std::to_string(descriptor));
                }
            }
            return found;
        };
        const std::vector<std::string> before = inheritable();

        const Served served;
        Client().call(0, "");

        EXPECT_EQ(inheritable(), before);
    });
}

// SPDX-License-Identifier: Apache-2.0
// The control of the service: when it is given, what it carries, and what goes wrong.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <optional>
#include <sstream>
#include <thread>

#include "ControlWorld.h"
#include "ZelServiceAPI.h"
#include "support/BusCallSpy.h"
#include "support/PrivateBus.h"

using testing::ElementsAre;
using testing::Le;
using testing::SizeIs;
using testing::UnorderedElementsAreArray;

// Stands before the clock of the library and of this file: a test may let time pass at once.
std::chrono::steady_clock::time_point realNow() asm("__real__ZNSt6chrono3_V212steady_clock3nowEv");
std::chrono::steady_clock::time_point advancedNow() asm("__wrap__ZNSt6chrono3_V212steady_clock3nowEv");

namespace {

std::atomic<int> g_secondsAhead{0};

}  // namespace

std::chrono::steady_clock::time_point advancedNow() {
    return realNow() + std::chrono::seconds(g_secondsAhead);
}

namespace {

class ControlTest : public testing::Test {
protected:
    ~ControlTest() override {
        ZelServiceAPI::DestroyZelControl();
        BusCallSpy::set(nullptr);
        g_secondsAhead = 0;
    }

    static IZelControl* create() {
        IZelControl* control = nullptr;
        ZelServiceAPI::CreateZelControl(&control);
        return control;
    }

    // Delivers a trigger without more.
    static int notify(IZelControl* control) {
        return control == nullptr ? -4711 : control->Notify(static_cast<ETriggerType>(1), TSNotifyData());
    }

    PrivateBus m_bus;
};

using ControlWaitTest = ControlTest;

const Unit kActive{"active", 0};

std::size_t errorLines(const std::string& log) {
    std::size_t count = 0;
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        count += line.find("E/ZEL_API") == std::string::npos ? 0U : 1U;
    }
    return count;
}

// Runs something and gives the number of error lines that it logged.
template <typename Action>
std::size_t errorLinesOf(Action action) {
    testing::internal::CaptureStderr();
    action();
    return errorLines(testing::internal::GetCapturedStderr());
}

void answerTerminate(sdbus::MethodCall& call, std::int32_t result, const std::vector<std::int32_t>& errors,
                     std::int32_t pid, bool standby) {
    auto reply = call.createReply();
    reply << result << errors << pid << standby;
    reply.send();
}

}  // namespace

TEST_F(ControlTest, NotifyCarriesTriggerAndDataAndReturnsTheResult) {
    const FakeSystemd systemd(kActive);
    std::vector<std::int32_t> got(4);
    const FakeService service([&](sdbus::MethodCall& call) {
        call >> got[0] >> got[1] >> got[2] >> got[3];
        auto reply = call.createReply();
        reply << std::int32_t{1};
        reply.send();
    });
    IZelControl* control = create();
    ASSERT_NE(control, nullptr);
    TSNotifyData data;
    data.source = 11;
    data.sourcePlugState = -22;
    data.value = 2147483647;

    const int result = control->Notify(static_cast<ETriggerType>(5), data);

    EXPECT_EQ(result, 1);
    EXPECT_THAT(got, ElementsAre(5, 11, -22, 2147483647));
}

TEST_F(ControlTest, EveryResultOfNotifyIsPassedOn) {
    const FakeSystemd systemd(kActive);
    for (const std::int32_t given : {0, 1, 2, 77, -5}) {
        const FakeService service(given);
        EXPECT_EQ(notify(create()), given);
    }
}

TEST_F(ControlTest, TerminateReturnsResultReasonsAndData) {
    const FakeSystemd systemd(kActive);
    const FakeService service([](sdbus::MethodCall& call) { answerTerminate(call, 1, {}, 4321, true); });
    IZelControl* control = create();
    ASSERT_NE(control, nullptr);
    std::vector<ETerminateErrorType> errors;
    TSZelData data;

    const int result = control->Terminate(errors, data);

    EXPECT_EQ(result, 1);
    EXPECT_THAT(errors, SizeIs(0));
    EXPECT_EQ(data.pid, 4321);
    EXPECT_TRUE(data.needStandbyHandling);
}

TEST_F(ControlTest, TheReasonsOfARefusalTakeThePlaceOfWhatWasThere) {
    const FakeSystemd systemd(kActive);
    const FakeService service([](sdbus::MethodCall& call) {
        answerTerminate(call, 0, {3, -1, 900}, 7, false);
    });
    IZelControl* control = create();
    ASSERT_NE(control, nullptr);
    std::vector<ETerminateErrorType> errors{static_cast<ETerminateErrorType>(55)};
    TSZelData data;

    const int result = control->Terminate(errors, data);

    EXPECT_EQ(result, 0);
    EXPECT_THAT(errors, ElementsAre(static_cast<ETerminateErrorType>(3), static_cast<ETerminateErrorType>(-1),
                                    static_cast<ETerminateErrorType>(900)));
}

TEST_F(ControlTest, ManyReasonsArrive) {
    const FakeSystemd systemd(kActive);
    const std::vector<std::int32_t> many(100000, 6);
    const FakeService service([&many](sdbus::MethodCall& call) { answerTerminate(call, 0, many, 7, false); });
    IZelControl* control = create();
    ASSERT_NE(control, nullptr);
    std::vector<ETerminateErrorType> errors;
    TSZelData data;

    const int result = control->Terminate(errors, data);

    EXPECT_EQ(result, 0);
    EXPECT_THAT(errors, SizeIs(100000));
}

TEST_F(ControlTest, AnErrorOfTheServiceIsNegativeAndLoggedOnceAndLeavesTheDestinations) {
    const FakeSystemd systemd(kActive);
    const FakeService service(
        [](sdbus::MethodCall&) { throw sdbus::Error("com.brenlow.Error.Unwilling", "not today"); });
    IZelControl* control = create();
    ASSERT_NE(control, nullptr);
    std::vector<ETerminateErrorType> errors{static_cast<ETerminateErrorType>(55)};
    TSZelData data;

    int notified = 0;
    int terminated = 0;
    const std::size_t notifyLines = errorLinesOf([&] { notified = notify(control); });
    const std::size_t terminateLines = errorLinesOf([&] { terminated = control->Terminate(errors, data); });

    EXPECT_LT(notified, 0);
    EXPECT_LT(terminated, 0);
    EXPECT_EQ(notifyLines, 1U);
    EXPECT_EQ(terminateLines, 1U);
    EXPECT_THAT(errors, ElementsAre(static_cast<ETerminateErrorType>(55)));
    EXPECT_EQ(data.pid, -1);
    EXPECT_FALSE(data.needStandbyHandling);
}

TEST_F(ControlTest, AnAnswerOfAnotherShapeIsNegativeAndLeavesTheDestinations) {
    const FakeSystemd systemd(kActive);
    const FakeService service(
        [](sdbus::MethodCall& call) {
            auto reply = call.createReply();
            if (call.getMemberName() == "Notify") {
                reply << "fine";
            } else {
                reply << std::int32_t{1} << std::vector<std::int32_t>{4} << std::int32_t{99};
            }
            reply.send();
        },
        "s", "iaii");
    IZelControl* control = create();
    ASSERT_NE(control, nullptr);
    std::vector<ETerminateErrorType> errors;
    TSZelData data;

    EXPECT_LT(notify(control), 0);
    EXPECT_LT(control->Terminate(errors, data), 0);
    EXPECT_THAT(errors, SizeIs(0));
    EXPECT_EQ(data.pid, -1);
}

TEST_F(ControlTest, AServiceThatHasLeftIsNegative) {
    const FakeSystemd systemd(kActive);
    std::optional<FakeService> service(1);
    IZelControl* control = create();
    ASSERT_NE(control, nullptr);

    service.reset();

    EXPECT_LT(notify(control), 0);
}

TEST_F(ControlTest, AServiceThatLeavesBeforeItAnswersIsNegativeAtOnce) {
    const FakeSystemd systemd(kActive);
    std::unique_ptr<FakeService> service;
    service = std::make_unique<FakeService>([&](sdbus::MethodCall&) { service->leave(); });
    IZelControl* control = create();
    ASSERT_NE(control, nullptr);
    const auto begin = std::chrono::steady_clock::now();

    const int result = notify(control);

    EXPECT_LT(result, 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
}

TEST_F(ControlTest, AServiceThatDoesNotAnswerIsNegativeAfterTwentyFiveSeconds) {
    const FakeSystemd systemd(kActive);
    const FakeService service([](sdbus::MethodCall&) {});
    IZelControl* control = create();
    ASSERT_NE(control, nullptr);
    std::vector<std::uint64_t> limits;
    BusCallSpy::set([&](BusCallSpy::Call& call) {
        if (call.member == "Notify" || call.member == "Terminate") {
            limits.push_back(call.microseconds);
            call.microseconds = 100000;
        }
    });
    std::vector<ETerminateErrorType> errors;
    TSZelData data;

    const int notified = notify(control);
    const int terminated = control->Terminate(errors, data);

    EXPECT_LT(notified, 0);
    EXPECT_LT(terminated, 0);
    const auto almost25s = testing::AllOf(testing::Gt(20000000U), Le(25000000U));
    EXPECT_THAT(limits, ElementsAre(almost25s, almost25s));
}

TEST_F(ControlTest, CallsGoToTheOwnerOfTheNameSoThatNothingIsStartedByThem) {
    const FakeSystemd systemd(kActive);
    const FakeService service(1);
    IZelControl* control = create();
    std::vector<std::string> destinations;
    BusCallSpy::set([&](BusCallSpy::Call& call) {
        if (call.member == "Notify") {
            destinations.push_back(call.destination);
        }
    });

    notify(control);

    EXPECT_THAT(destinations, ElementsAre(service.name()));
}

TEST_F(ControlTest, AControlReachesTheInstanceThatTookOverTheName) {
    const FakeSystemd systemd(kActive);
    std::optional<FakeService> service(1);
    IZelControl* control = create();
    ASSERT_NE(control, nullptr);

    service.reset();
    service.emplace(8);

    EXPECT_EQ(notify(control), 8);
}

TEST_F(ControlTest, AControlStaysValidWhenAnotherIsCreated) {
    const FakeSystemd systemd(kActive);
    const FakeService service(1);

    IZelControl* first = create();
    IZelControl* second = create();

    EXPECT_EQ(notify(first), 1);
    EXPECT_EQ(notify(second), 1);
}

TEST_F(ControlTest, AControlStaysValidWhenTheNextCreationFails) {
    std::optional<FakeSystemd> systemd(kActive);
    const FakeService service(1);
    IZelControl* control = create();
    systemd.reset();
    systemd.emplace(Unit{"deactivating", 0});

    IZelControl* none = create();

    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(notify(control), 1);
}

TEST_F(ControlTest, AConnectionThatBrokeIsReplaced) {
    std::optional<FakeSystemd> systemd(kActive);
    std::optional<FakeService> service(1);
    IZelControl* before = create();
    m_bus.stop();
    const int broken = notify(before);
    systemd.reset();
    service.reset();
    m_bus.start();
    systemd.emplace(kActive);
    service.emplace(2);

    IZelControl* after = create();

    EXPECT_LT(broken, 0);
    EXPECT_EQ(notify(after), 2);
    EXPECT_EQ(notify(before), 2);
}

TEST_F(ControlTest, DestroyingWithoutAControlIsFine) {
    ZelServiceAPI::DestroyZelControl();
    ZelServiceAPI::DestroyZelControl();

    const FakeSystemd systemd(kActive);
    const FakeService service(1);
    EXPECT_EQ(notify(create()), 1);
}

TEST_F(ControlTest, AControlMayBeCreatedAgainAfterItWasDestroyed) {
    const FakeSystemd systemd(kActive);
    const FakeService service(1);
    create();

    ZelServiceAPI::DestroyZelControl();

    EXPECT_EQ(notify(create()), 1);
}

namespace {

// A method of the bus, called with texts over a connection of the caller's, and its result.
template <typename Result, typename... Arguments>
Result askBus(const char* method, Arguments... arguments) {
    Result result{};
    const auto connection = sdbus::createSystemBusConnection();
    sdbus::createProxy(*connection, "org.freedesktop.DBus", "/org/freedesktop/DBus")
        ->callMethod(method)
        .onInterface("org.freedesktop.DBus")
        .withArguments(arguments...)
        .storeResultsTo(result);
    return result;
}

std::size_t connections() {
    const auto names = askBus<std::vector<std::string>>("ListNames");
    return static_cast<std::size_t>(
        std::count_if(names.begin(), names.end(), [](const std::string& name) { return name[0] == ':'; }));
}

// Sends a call that carries a descriptor. Returns the name of the error that it is answered with.
std::string sendDescriptor(const std::string& destination) {
    const auto connection = sdbus::createSystemBusConnection();
    const auto proxy = sdbus::createProxy(*connection, destination, "/");
    sdbus::MethodCall call = proxy->createMethodCall("org.example.Stranger", "Take");
    call << sdbus::UnixFd(STDIN_FILENO);
    try {
        proxy->callMethod(call, std::chrono::seconds(10));
    } catch (const sdbus::Error& error) {
        return error.getName();
    }
    return "none";
}

}  // namespace

TEST_F(ControlTest, BetweenCallsThereIsNoConnection) {
    const FakeSystemd systemd(kActive);
    const FakeService service(1);
    const std::size_t before = connections();

    IZelControl* control = create();
    const std::size_t created = connections();
    const int result = notify(control);

    EXPECT_EQ(created, before);
    EXPECT_EQ(result, 1);
    EXPECT_EQ(connections(), before);
}

TEST_F(ControlTest, AConnectionOwnsTheControlsNameWhileItWaitsForTheService) {
    std::string owner;
    const FakeService service(1);
    const FakeSystemd systemd([&](int) {
        owner = askBus<std::string>("GetNameOwner", "com.brenlow.ZELLite.Control");
        return kActive;
    });
    const std::size_t before = connections();

    create();

    EXPECT_EQ(owner[0], ':');
    EXPECT_EQ(connections(), before);
}

TEST_F(ControlTest, TheCallersConnectionOwnsTheControlsName) {
    const FakeSystemd systemd(kActive);
    std::string owner;
    std::string sender;
    const FakeService service([&](sdbus::MethodCall& call) {
        sender = call.getSender();
        owner = askBus<std::string>("GetNameOwner", "com.brenlow.ZELLite.Control");
        auto reply = call.createReply();
        reply << std::int32_t{1};
        reply.send();
    });

    notify(create());

    EXPECT_EQ(owner, sender);
}

// The policy of the bus covers those that wait for the name, too.
TEST_F(ControlTest, OfTwoCallsAtOnceOneWaitsForTheName) {
    const FakeSystemd systemd(kActive);
    std::vector<sdbus::MethodCall> waiting;
    std::vector<std::string> callers;
    std::vector<std::string> queued;
    const FakeService service([&](sdbus::MethodCall& call) {
        waiting.push_back(call);
        callers.push_back(call.getSender());
        if (waiting.size() < 2) {
            return;
        }
        queued = askBus<std::vector<std::string>>("ListQueuedOwners", "com.brenlow.ZELLite.Control");
        for (const sdbus::MethodCall& answered : waiting) {
            auto reply = answered.createReply();
            reply << std::int32_t{1};
            reply.send();
        }
        // They may not outlive the connection that they came over.
        waiting.clear();
    });
    IZelControl* control = create();

    std::thread other([control] { EXPECT_EQ(notify(control), 1); });
    EXPECT_EQ(notify(control), 1);

    other.join();
    EXPECT_THAT(callers, SizeIs(2));
    EXPECT_THAT(queued, UnorderedElementsAreArray(callers));
}

TEST_F(ControlTest, TheBusKeepsDescriptorsFromTheConnection) {
    const FakeSystemd systemd(kActive);
    std::string error;
    const FakeService service([&](sdbus::MethodCall& call) {
        error = sendDescriptor(call.getSender());
        auto reply = call.createReply();
        reply << std::int32_t{1};
        reply.send();
    });

    EXPECT_EQ(notify(create()), 1);

    EXPECT_EQ(error, "org.freedesktop.DBus.Error.NotSupported");
}

TEST_F(ControlTest, WithTheNameTakenTheControlWorks) {
    const FakeSystemd systemd(kActive);
    const FakeService service(1);
    const auto other = sdbus::createSystemBusConnection("com.brenlow.ZELLite.Control");

    EXPECT_EQ(notify(create()), 1);
}

TEST_F(ControlTest, SeveralThreadsMayCreateAndNotify) {
    const FakeSystemd systemd(kActive);
    const FakeService service(1);
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int j = 0; j < 10; ++j) {
                EXPECT_EQ(notify(create()), 1);
            }
        });
    }

    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST_F(ControlTest, EveryDescriptorIsCloseOnExec) {
    const FakeSystemd systemd(kActive);
    const FakeService service(1);
    const auto inheritable = [] {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            const int flags = fcntl(std::stoi(entry.path().filename()), F_GETFD);
            if (flags >= 0 && (flags & FD_CLOEXEC) == 0) {
                found.push_back(entry.path().filename());
            }
        }
        return found;
    };
    const std::vector<std::string> before = inheritable();

    EXPECT_EQ(notify(create()), 1);

    EXPECT_EQ(inheritable(), before);
}

TEST_F(ControlWaitTest, ARunningServiceIsGivenAtTheFirstLook) {
    const FakeSystemd systemd(kActive);
    const FakeService service(1);

    EXPECT_EQ(notify(create()), 1);
    EXPECT_EQ(systemd.looks(), 1);
}

TEST_F(ControlWaitTest, AServiceThatRunsOutsideItsUnitIsGiven) {
    const FakeSystemd systemd(Unit{"inactive", 0});
    const FakeService service(1);

    EXPECT_EQ(notify(create()), 1);
}

TEST_F(ControlWaitTest, AUnitThatNothingStartsIsGivenUpAtTheFirstLook) {
    for (const char* state : {"inactive", "failed", "deactivating", "maintenance"}) {
        const FakeSystemd systemd(Unit{state, 0});

        EXPECT_EQ(create(), nullptr) << state;
        EXPECT_EQ(systemd.looks(), 1) << state;
    }
}

TEST_F(ControlWaitTest, NoControlMeansNull) {
    const FakeSystemd systemd(Unit{"failed", 0});
    class : public IZelControl {
        int Terminate(std::vector<ETerminateErrorType>&, TSZelData&) override { return 0; }
        int Notify(ETriggerType, const TSNotifyData&) override { return 0; }
    } before;
    IZelControl* control = &before;

    ZelServiceAPI::CreateZelControl(&control);

    EXPECT_EQ(control, nullptr);
}

TEST_F(ControlWaitTest, AStartThatIsQueuedBehindAnotherJobIsWaitedFor) {
    std::optional<FakeService> service;
    const FakeSystemd systemd([&](int look) -> Unit {
        if (look <= 2) {
            return {"inactive", 7};
        }
        if (look <= 4) {
            return {"activating", 7};
        }
        if (look == 6) {
            service.emplace(1);
        }
        return {"active", 0};
    });

    EXPECT_EQ(notify(create()), 1);
    EXPECT_EQ(systemd.looks(), 6);
}

TEST_F(ControlWaitTest, AFailedUnitWithAStartQueuedIsWaitedFor) {
    std::optional<FakeService> service;
    const FakeSystemd systemd([&](int look) -> Unit {
        if (look == 1) {
            return {"failed", 7};
        }
        service.emplace(1);
        return {"active", 0};
    });

    EXPECT_EQ(notify(create()), 1);
}

TEST_F(ControlWaitTest, ASlowStartWithoutAJobIsWaitedFor) {
    std::optional<FakeService> service;
    const FakeSystemd systemd([&](int look) -> Unit {
        if (look == 5) {
            service.emplace(1);
        }
        return {"activating", 0};
    });

    EXPECT_EQ(notify(create()), 1);
    EXPECT_EQ(systemd.looks(), 5);
}

TEST_F(ControlWaitTest, AJobThatEndsWhileTheUnitIsLookedAtIsNotTakenForNone) {
    std::optional<FakeService> service;
    const FakeSystemd systemd(
        [&](int look) -> Unit {
            if (look == 3) {
                service.emplace(1);
            }
            return look == 1 ? Unit{"inactive", 7} : Unit{"active", 0};
        },
        []() -> Unit {
            return {"active", 0};
        });

    EXPECT_EQ(notify(create()), 1);
}

TEST_F(ControlWaitTest, AnInstanceThatDiesWhileTheUnitIsLookedAtIsNotGiven) {
    std::optional<FakeService> service(1);
    bool dead = false;
    const FakeSystemd systemd(
        [&](int look) -> Unit {
            if (look == 3) {
                service.emplace(2);
            }
            return look == 1 ? Unit{"deactivating", 9} : Unit{"activating", 9};
        },
        [&]() -> Unit {
            if (!dead) {
                dead = true;
                service.reset();
            }
            return {"activating", 9};
        });

    EXPECT_EQ(notify(create()), 2);
}

TEST_F(ControlWaitTest, ADyingInstanceThatStillOwnsTheNameIsNotGiven) {
    const FakeSystemd systemd(Unit{"deactivating", 0});
    const FakeService dying(1);

    EXPECT_EQ(create(), nullptr);
}

TEST_F(ControlWaitTest, TheInstanceAfterADyingOneIsGivenWhenItOwnsTheName) {
    std::optional<FakeService> service(1);
    const FakeSystemd systemd([&](int look) -> Unit {
        if (look <= 3) {
            return {"deactivating", 9};
        }
        if (look == 4) {
            service.reset();
            return {"activating", 9};
        }
        if (look == 6) {
            service.emplace(2);
        }
        return {"activating", 9};
    });

    EXPECT_EQ(notify(create()), 2);
    EXPECT_EQ(systemd.looks(), 6);
}

TEST_F(ControlWaitTest, AStopJobIsWaitedForAndThenGivenUp) {
    std::optional<FakeService> dying(1);
    const FakeSystemd systemd([&](int look) -> Unit {
        if (look <= 3) {
            return {"deactivating", 9};
        }
        dying.reset();
        return {"inactive", 0};
    });

    EXPECT_EQ(create(), nullptr);
    EXPECT_EQ(systemd.looks(), 4);
}

TEST_F(ControlWaitTest, AStartThatFailsIsGivenUpAtOnce) {
    const FakeSystemd systemd([](int look) -> Unit {
        return look <= 3 ? Unit{"activating", 9} : Unit{"failed", 0};
    });

    EXPECT_EQ(create(), nullptr);
    EXPECT_EQ(systemd.looks(), 4);
}

TEST_F(ControlWaitTest, AUnitThatCouldNotBeReadIsLookedAtAgain) {
    const FakeService service(1);
    const FakeSystemd systemd([](int look) -> Unit {
        if (look == 1) {
            throw sdbus::Error("org.freedesktop.DBus.Error.Failed", "starting anew");
        }
        return kActive;
    });

    EXPECT_EQ(notify(create()), 1);
    EXPECT_EQ(systemd.looks(), 2);
}

TEST_F(ControlWaitTest, AServiceThatDoesNotComeIsGivenUpAfterTenSeconds) {
    const FakeSystemd systemd([](int look) -> Unit {
        g_secondsAhead = look * 3;
        return {"activating", 7};
    });

    IZelControl* control = create();

    EXPECT_EQ(control, nullptr);
    // At 3, 6, 9 and 12 seconds.
    EXPECT_EQ(systemd.looks(), 4);
}

TEST_F(ControlWaitTest, NoCallToTheBusMayLastLongerThanWhatIsLeftOfTheTenSeconds) {
    std::atomic<int> look{0};
    std::vector<std::uint64_t> limits;
    const FakeSystemd systemd([&](int now) -> Unit {
        look = now;
        g_secondsAhead = now * 4;
        return {"activating", 7};
    });
    const std::thread::id self = std::this_thread::get_id();
    BusCallSpy::set([&](BusCallSpy::Call& call) {
        if (std::this_thread::get_id() == self) {
            EXPECT_GT(call.microseconds, 0U) << call.member;
            EXPECT_LE(call.microseconds,
                      (10U - 4U * static_cast<unsigned int>(std::min(look.load(), 2))) * 1000000U)
                << call.member << " at look " << look;
            limits.push_back(call.microseconds);
        }
    });

    create();

    EXPECT_GT(limits.size(), 6U);
}

TEST_F(ControlWaitTest, WithoutSystemdTheNameAloneDecides) {
    const FakeService service(1);

    EXPECT_EQ(notify(create()), 1);
}

TEST_F(ControlWaitTest, WithoutSystemdTheNameIsWaitedFor) {
    std::optional<FakeService> service;
    int asked = 0;
    BusCallSpy::set([&](BusCallSpy::Call& call) {
        if (call.member == "NameHasOwner" && ++asked == 7) {
            service.emplace(1);
        }
    });

    EXPECT_EQ(notify(create()), 1);
    EXPECT_GE(asked, 7);
}

TEST_F(ControlWaitTest, WithoutSystemdAndServiceItGivesUpAfterTenSeconds) {
    int asked = 0;
    BusCallSpy::set([&](BusCallSpy::Call& call) {
        if (call.member == "NameHasOwner") {
            g_secondsAhead = ++asked;
        }
    });

    IZelControl* control = create();

    EXPECT_EQ(control, nullptr);
    EXPECT_EQ(asked, 10);
}

TEST_F(ControlWaitTest, WithoutABusThereIsNoControl) {
    m_bus.stop();
    IZelControl* control = nullptr;

    const std::size_t lines = errorLinesOf([&] { control = create(); });

    EXPECT_EQ(control, nullptr);
    EXPECT_EQ(lines, 1U);
}

TEST_F(ControlWaitTest, ABusThatIsLostMeanwhileEndsTheWait) {
    const FakeSystemd systemd([&](int look) -> Unit {
        if (look == 2) {
            m_bus.stop();
        }
        return {"activating", 7};
    });

    EXPECT_EQ(create(), nullptr);
    EXPECT_EQ(systemd.looks(), 2);
}

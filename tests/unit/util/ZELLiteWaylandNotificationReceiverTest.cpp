// SPDX-License-Identifier: Apache-2.0
// The connection to the window manager and its event source, against a real Wayland server in this process.
#include "util/ZELLiteWaylandNotificationReceiver.h"

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "fakes/Actions.h"
#include "fakes/FakeDlog.h"
#include "fakes/FakeStateManager.h"
#include "support/Compositor.h"
#include "support/Files.h"
#include "support/FreshProcess.h"
#include "support/ReceiverWorld.h"
#include "support/WaylandCalls.h"

using fakes::Actions;
using fakes::FakeDlog;
using fakes::FakeStateManager;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int kInfo = 4;
constexpr int kError = 6;

// A notifier that is left to itself, so that the leak sanitizer knows of it.
wl_proxy* leftBehind = nullptr;

using ReceiverTest = ReceiverWorld;
using ReceiverDeathTest = ReceiverWorld;

}  // namespace

// Connection

TEST_F(ReceiverTest, AReceiverThatIsMadeDoesNothingYet) {
    const CZELLiteWaylandNotificationReceiver another(m_stateManager, m_sessionControl);

    EXPECT_THAT(Actions::take(), IsEmpty());
    EXPECT_THAT(FakeDlog::lines(), IsEmpty());
}

TEST_F(ReceiverTest, AStartRegistersConnectsBindsAndAttaches) {
    m_compositor = std::make_unique<Compositor>();
    FakeDlog::recordActions();

    m_receiver->Start(nullptr);

    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("Creating Wayland Notification Receiver", "called", "Initialization OK"));
    EXPECT_THAT(
        Actions::take(),
        ElementsAre("StateManager::RegisterListener", "log Start: Creating Wayland Notification Receiver",
                    "log NewWaylandEventSource: called", "attached to the default context",
                    "log Start: Initialization OK"));
    EXPECT_EQ(FakeStateManager::lastListener, m_receiver.get());
    EXPECT_EQ(m_compositor->boundVersion(), 1);
}

// The earlier tests of this process have destroyed receivers, which counts as not launched.
TEST_F(ReceiverDeathTest, TheFirstStartOfAProcessConnects) {
    inFreshProcess([this] {
        m_compositor = std::make_unique<Compositor>();

        m_receiver->Start(nullptr);

        EXPECT_THAT(FakeDlog::messages(kError),
                    ElementsAre("Creating Wayland Notification Receiver", "called", "Initialization OK"));
        WaylandCalls::detach();
        m_receiver.reset();
        m_compositor.reset();
    });
}

TEST_F(ReceiverTest, TheSourceBelongsToTheDefaultContextWhateverTheLoop) {
    GMainContext* const other = g_main_context_new();
    GMainLoop* const loop = g_main_loop_new(other, FALSE);
    g_main_context_push_thread_default(other);
    m_compositor = std::make_unique<Compositor>();

    m_receiver->Start(loop);

    EXPECT_EQ(g_source_get_context(WaylandCalls::source), g_main_context_default());
    EXPECT_FALSE(g_main_loop_is_running(loop));
    g_main_context_pop_thread_default(other);
    g_main_loop_unref(loop);
    g_main_context_unref(other);
}

TEST_F(ReceiverTest, ASecondStartOnlySaysSo) {
    startOn();

    m_receiver->Start(nullptr);

    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("Already launched!"));
    EXPECT_THAT(Actions::take(), IsEmpty());
}

TEST_F(ReceiverTest, WithoutAReadyWindowManagerALaterStartConnects) {
    m_compositor = std::make_unique<Compositor>();
    unlink(kReady);
    m_receiver->Start(nullptr);
    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("Creating Wayland Notification Receiver", "WM hasn't been created!"));
    EXPECT_THAT(Actions::take(), ElementsAre("StateManager::RegisterListener"));
    writeFile(kReady, "");
    forget();

    m_receiver->Start(nullptr);

    EXPECT_THAT(FakeDlog::messages(kError), Contains("Initialization OK"));
    EXPECT_THAT(Actions::take(), Contains("StateManager::RegisterListener"))
        << "it registers at each such call";
}

TEST_F(ReceiverTest, WithoutACompositorEveryLaterStartIsAlreadyLaunched) {
    m_receiver->Start(nullptr);
    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("Creating Wayland Notification Receiver", "Error connecting display. Exiting"));
    m_compositor = std::make_unique<Compositor>();
    forget();

    m_receiver->Start(nullptr);

    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("Already launched!"));
    EXPECT_THAT(Actions::take(), IsEmpty());
}

TEST_F(ReceiverTest, WithoutARegistryItDisconnectsAndStaysLaunched) {
    m_compositor = std::make_unique<Compositor>();
    WaylandCalls::registryFails = true;
    FakeDlog::recordActions();
    m_receiver->Start(nullptr);
    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("Creating Wayland Notification Receiver",
                                                        "Adding a listener is impossible. Exiting"));
    EXPECT_THAT(
        Actions::take(),
        ElementsAre("StateManager::RegisterListener", "log Start: Creating Wayland Notification Receiver",
                    "disconnected", "log Start: Adding a listener is impossible. Exiting"));
    WaylandCalls::registryFails = false;
    forget();

    m_receiver->Start(nullptr);

    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("Already launched!"));
    EXPECT_THAT(Actions::take(), IsEmpty());
}

TEST_F(ReceiverTest, AFailedFirstRoundtripStaysLaunched) {
    Compositor::Manners manners;
    manners.throwsOutAtConnection = true;
    m_compositor = std::make_unique<Compositor>(manners);
    FakeDlog::recordActions();
    m_receiver->Start(nullptr);
    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("Creating Wayland Notification Receiver", "Sync call failed. Exiting"));
    EXPECT_THAT(
        Actions::take(),
        ElementsAre("StateManager::RegisterListener", "log Start: Creating Wayland Notification Receiver",
                    "log Start: Sync call failed. Exiting", "destroyed wl_registry", "disconnected"));
    forget();

    m_receiver->Start(nullptr);

    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("Already launched!"));
}

TEST_F(ReceiverTest, ANotifierThatWasBoundBeforeTheFirstRoundtripFailedIsNotTouchedAgain) {
    m_compositor = std::make_unique<Compositor>();
    WaylandCalls::roundtripResults = {-1};
    m_receiver->Start(nullptr);
    leftBehind = WaylandCalls::notifier;
    EXPECT_NE(leftBehind, nullptr);
    EXPECT_THAT(Actions::take(),
                ElementsAre("StateManager::RegisterListener", "destroyed wl_registry", "disconnected"));
    forget();

    m_receiver.reset();

    EXPECT_THAT(Actions::take(), ElementsAre("StateManager::UnregisterListener"));
    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("Stopped"));
}

TEST_F(ReceiverTest, AFailedSecondRoundtripMayBeTriedAgain) {
    Compositor::Manners manners;
    manners.throwsOutAtBind = true;
    m_compositor = std::make_unique<Compositor>(manners);
    FakeDlog::recordActions();
    m_receiver->Start(nullptr);
    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("Creating Wayland Notification Receiver", "Sync call failed. Exiting"));
    EXPECT_THAT(
        Actions::take(),
        ElementsAre("StateManager::RegisterListener", "log Start: Creating Wayland Notification Receiver",
                    "log Start: Sync call failed. Exiting", "destroyed tizen_zel_notifier",
                    "destroyed wl_registry", "disconnected"));
    m_compositor.reset();
    m_compositor = std::make_unique<Compositor>();
    forget();

    m_receiver->Start(nullptr);

    EXPECT_THAT(FakeDlog::messages(kError), Contains("Initialization OK"));
    EXPECT_THAT(Actions::take(), Contains("StateManager::RegisterListener"));
}

TEST_F(ReceiverTest, AFailedSecondRoundtripWithoutNotifierDestroysWhatThereIs) {
    Compositor::Manners manners;
    manners.notifierVersion = 0;
    m_compositor = std::make_unique<Compositor>(manners);
    WaylandCalls::roundtripResults = {0, -1};

    m_receiver->Start(nullptr);

    EXPECT_THAT(Actions::take(),
                ElementsAre("StateManager::RegisterListener", "destroyed wl_registry", "disconnected"));
    m_receiver.reset();
    EXPECT_THAT(Actions::take(), ElementsAre("StateManager::UnregisterListener"));
    EXPECT_EQ(FakeDlog::count(kError, "Stopped"), 0U) << "it counts as never launched";
}

TEST_F(ReceiverTest, ARoundtripThatDispatchedNothingIsNoFailure) {
    m_compositor = std::make_unique<Compositor>();
    WaylandCalls::roundtripResults = {0, 0};

    m_receiver->Start(nullptr);

    EXPECT_THAT(FakeDlog::messages(kError), Contains("Initialization OK"));
}

TEST_F(ReceiverTest, WithoutASourceTheStartGoesOn) {
    m_compositor = std::make_unique<Compositor>();
    WaylandCalls::sourceFails = true;

    m_receiver->Start(nullptr);

    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("Creating Wayland Notification Receiver", "called", "Initialization OK"));
    EXPECT_THAT(Actions::take(), ElementsAre("StateManager::RegisterListener", "attached nothing"));
}

TEST_F(ReceiverTest, ACompositorWithoutNotifierGivesARunningSourceAndNoNotifier) {
    Compositor::Manners manners;
    manners.notifierVersion = 0;
    m_compositor = std::make_unique<Compositor>(manners);

    m_receiver->Start(nullptr);

    EXPECT_THAT(FakeDlog::messages(kError), Contains("Initialization OK"));
    EXPECT_EQ(m_compositor->boundVersion(), 0);
    EXPECT_NE(WaylandCalls::source, nullptr);
}

TEST_F(ReceiverTest, ANotifierOfALaterVersionIsBoundAsTheFirst) {
    Compositor::Manners manners;
    manners.notifierVersion = 3;
    startOn(manners);

    EXPECT_EQ(m_compositor->boundVersion(), 1);
}

TEST_F(ReceiverTest, OnlyTheNotifiersExactNameIsBound) {
    startOn();
    const wl_proxy* const bound = WaylandCalls::notifier;

    for (const char* const interface :
         {"", "tizen_zel_notifie", "tizen_zel_notifier2", "TIZEN_ZEL_NOTIFIER", "wl_seat"}) {
        CZELLiteWaylandNotificationReceiver::RegistryHandler(m_receiver.get(), nullptr, 1, interface, 1);
    }

    EXPECT_EQ(WaylandCalls::notifier, bound);
    EXPECT_THAT(FakeDlog::lines(), IsEmpty());
}

TEST_F(ReceiverTest, AGlobalThatGoesIsOnlyLoggedWithItsNumber) {
    startOn();

    for (const std::uint32_t name : {0U, 1U, 17U, 2147483647U}) {
        CZELLiteWaylandNotificationReceiver::RegistryRemover(m_receiver.get(), nullptr, name);

        EXPECT_THAT(FakeDlog::messages(kInfo),
                    ElementsAre("Global interface removed: " + std::to_string(name)));
        EXPECT_EQ(FakeDlog::lines().size(), 1U);
        EXPECT_THAT(Actions::take(), IsEmpty());
        forget();
    }
}

TEST_F(ReceiverTest, TheEndUnregistersAndDisconnects) {
    startOn();
    const IZelDaemonStateListener* const listener = m_receiver.get();
    FakeStateManager::lastListener = nullptr;
    FakeDlog::recordActions();

    m_receiver.reset();

    EXPECT_THAT(Actions::take(),
                ElementsAre("StateManager::UnregisterListener", "destroyed tizen_zel_notifier",
                            "destroyed wl_registry", "disconnected",
                            "log ~CZELLiteWaylandNotificationReceiver: Stopped"));
    EXPECT_EQ(FakeStateManager::lastListener, listener);
    EXPECT_FALSE(g_source_is_destroyed(WaylandCalls::source)) << "the source stays attached";
    EXPECT_EQ(g_source_get_context(WaylandCalls::source), g_main_context_default());
    WaylandCalls::detach();
    make();
    m_receiver->Start(nullptr);
    EXPECT_THAT(FakeDlog::messages(kError), Contains("Initialization OK")) << "it may be launched again";
}

TEST_F(ReceiverTest, TheEndOfOneThatWasNeverLaunchedOnlyUnregisters) {
    m_receiver.reset();

    EXPECT_THAT(Actions::take(), ElementsAre("StateManager::UnregisterListener"));
    EXPECT_THAT(FakeDlog::messages(kError), IsEmpty());
}

TEST_F(ReceiverTest, TheEndOfOneThatIsNotConnectedOnlyUnregistersAndSaysSo) {
    m_receiver->Start(nullptr);
    forget();

    m_receiver.reset();

    EXPECT_THAT(Actions::take(), ElementsAre("StateManager::UnregisterListener"));
    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("Stopped"));
}

TEST_F(ReceiverTest, TheServicesComingsAndGoingsAreLogged) {
    m_receiver->OnStart();
    m_receiver->OnTerminate();
    m_receiver->OnTerminateSuccess(TSZelData());

    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("zel-daemon has started!", "zel-daemon succesfully terminated!"));
    EXPECT_THAT(FakeDlog::messages(kInfo), ElementsAre("Terminating zel-daemon..."));
}

// The source, called as the main loop would

namespace {

class SourceTest : public ReceiverWorld {
protected:
    SourceTest() {
        startOn();
        WaylandCalls::onSleep = [this](const timespec& asked, timespec& /*left*/) {
            m_sleeps.push_back(std::int64_t{asked.tv_sec} * 1'000'000'000 + asked.tv_nsec);
            return 0;
        };
    }

    static const GSourceFuncs& funcs() { return *WaylandCalls::source->source_funcs; }
    static GPollFD& pollFd() { return *static_cast<GPollFD*>(WaylandCalls::source->poll_fds->data); }

    // What the check makes of the events that a poll returned.
    static gboolean check(gushort events) {
        pollFd().revents = events;
        return funcs().check(WaylandCalls::source);
    }

    static gboolean dispatch(gushort events) {
        pollFd().revents = events;
        return funcs().dispatch(WaylandCalls::source, nullptr, nullptr);
    }

    static void failSilently(int times) {
        for (int i = 0; i < times; ++i) {
            check(G_IO_HUP);
        }
        EXPECT_THAT(FakeDlog::lines(), IsEmpty());
    }

    std::vector<std::int64_t> m_sleeps;
};

}  // namespace

TEST_F(SourceTest, ItPollsTheSocketForDataAndErrors) {
    struct stat status {};

    EXPECT_EQ(pollFd().events, 0x39);
    ASSERT_EQ(fstat(pollFd().fd, &status), 0);
    EXPECT_TRUE(S_ISSOCK(status.st_mode));
    EXPECT_EQ(funcs().finalize, nullptr);
}

TEST_F(SourceTest, PreparingFlushesAndSetsNoTimeOut) {
    const int before = WaylandCalls::flushes;
    gint timeout = 5;

    EXPECT_FALSE(funcs().prepare(WaylandCalls::source, &timeout));

    EXPECT_EQ(timeout, -1);
    EXPECT_EQ(WaylandCalls::flushes, before + 1);
}

TEST_F(SourceTest, NoSourceMeansNothingToDo) {
    const int flushes = WaylandCalls::flushes;
    const int dispatches = WaylandCalls::dispatches;
    gint timeout = 5;

    EXPECT_FALSE(funcs().prepare(nullptr, &timeout));
    EXPECT_FALSE(funcs().check(nullptr));
    EXPECT_TRUE(funcs().dispatch(nullptr, nullptr, nullptr));

    EXPECT_EQ(timeout, -1);
    EXPECT_EQ(WaylandCalls::flushes, flushes);
    EXPECT_EQ(WaylandCalls::dispatches, dispatches);
    EXPECT_THAT(m_sleeps, IsEmpty());
}

TEST_F(SourceTest, EventsWithoutErrorsAreTheChecksResult) {
    for (const gushort events : std::initializer_list<gushort>{0x00, 0x01, 0x02, 0x04, 0x05}) {
        EXPECT_EQ(check(events), events);
        EXPECT_EQ(pollFd().revents, events);
    }

    EXPECT_THAT(m_sleeps, IsEmpty());
}

TEST_F(SourceTest, AnErrorCostsASleepOfTenMillisecondsAndIsNotDispatched) {
    for (const gushort events : std::initializer_list<gushort>{0x08, 0x10, 0x20, 0x38, 0x11, 0x09, 0x21}) {
        m_sleeps.clear();

        EXPECT_FALSE(check(events)) << events;

        EXPECT_EQ(pollFd().revents, 0);
        EXPECT_THAT(m_sleeps, ElementsAre(10'000'000)) << events;
    }
}

TEST_F(SourceTest, Every101stErrorIsLoggedWithItsEvents) {
    for (int round = 0; round < 2; ++round) {
        failSilently(100);

        check(0x38);

        EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("Poll failed! 0x38"));
        forget();
    }
    EXPECT_EQ(m_sleeps.size(), 202U) << "it sleeps after the line too";
}

TEST_F(SourceTest, TheLineOfTheErrorsComesBeforeTheSleep) {
    WaylandCalls::onSleep = [](const timespec& /*asked*/, timespec& /*left*/) {
        Actions::add("sleep");
        return 0;
    };
    failSilently(100);
    Actions::take();
    FakeDlog::recordActions();

    check(G_IO_HUP);

    EXPECT_THAT(Actions::take(), ElementsAre("log WaylandEventSourceCheck: Poll failed! 0x10", "sleep"));
}

TEST_F(SourceTest, DataInBetweenDoesNotResetTheCount) {
    failSilently(100);
    check(G_IO_IN);

    check(G_IO_ERR);

    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("Poll failed! 0x8"));
}

TEST_F(SourceTest, AnInterruptedSleepGoesOnForWhatIsLeft) {
    WaylandCalls::onSleep = [this](const timespec& asked, timespec& left) {
        m_sleeps.push_back(asked.tv_nsec);
        left = {0, asked.tv_nsec - 3'000'000};
        errno = EINTR;
        return m_sleeps.size() < 3 ? -1 : 0;
    };

    check(G_IO_HUP);

    EXPECT_THAT(m_sleeps, ElementsAre(10'000'000, 7'000'000, 4'000'000));
}

TEST_F(SourceTest, ASleepThatFailsOtherwiseIsNotTriedAgain) {
    WaylandCalls::onSleep = [this](const timespec& asked, timespec& /*left*/) {
        m_sleeps.push_back(asked.tv_nsec);
        errno = EINVAL;
        return m_sleeps.size() < 3 ? -1 : 0;
    };

    check(G_IO_HUP);

    EXPECT_THAT(m_sleeps, ElementsAre(10'000'000));
}

TEST_F(SourceTest, WithoutEventsNothingIsDispatched) {
    m_compositor.reset();
    const int before = WaylandCalls::dispatches;

    EXPECT_TRUE(dispatch(0));

    EXPECT_EQ(WaylandCalls::dispatches, before);
}

TEST_F(SourceTest, ADispatchThatFailsLeavesTheSourceAttached) {
    m_compositor.reset();
    const int before = WaylandCalls::dispatches;

    EXPECT_TRUE(dispatch(G_IO_IN));

    EXPECT_EQ(WaylandCalls::dispatches, before + 1);
    EXPECT_EQ(pollFd().revents, 0);
    EXPECT_FALSE(g_source_is_destroyed(WaylandCalls::source));
}

// A dead socket

TEST_F(ReceiverTest, ADeadSocketCostsASleepPerTurnAndALinePer101) {
    startOn();
    m_compositor.reset();
    const auto begin = std::chrono::steady_clock::now();
    rusage before{};
    getrusage(RUSAGE_THREAD, &before);

    int turns = 0;
    while (FakeDlog::messages(kError).empty() && turns < 300) {
        g_main_context_iteration(nullptr, TRUE);
        ++turns;
    }

    rusage after{};
    getrusage(RUSAGE_THREAD, &after);
    const auto micros = [](const timeval& time) { return time.tv_sec * 1'000'000 + time.tv_usec; };
    const auto used =
        micros(after.ru_utime) + micros(after.ru_stime) - micros(before.ru_utime) - micros(before.ru_stime);
    const auto passed =
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - begin);
    EXPECT_EQ(turns, 101);
    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre(testing::MatchesRegex("Poll failed! 0x[0-9a-f]+")));
    EXPECT_GE(passed.count(), 1'010'000);
    EXPECT_LT(used * 100, passed.count() * 3) << "less than 3 % of the processor";
    forget();
    while (FakeDlog::messages(kError).empty() && turns < 600) {
        g_main_context_iteration(nullptr, TRUE);
        ++turns;
    }
    EXPECT_EQ(turns, 202) << "the count starts again";
}

// SPDX-License-Identifier: Apache-2.0
// Windows and sessions, against a real Wayland server in this process.
#include "util/ZELLiteWaylandNotificationReceiver.h"

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <unistd.h>
#include <wayland-extension/tizen-zel-notifier-client-protocol.h>

#include <chrono>
#include <filesystem>
#include <memory>

#include "SessionControl.h"
#include "ZelDaemonStateManager.h"
#include "fakes/Actions.h"
#include "fakes/FakeAul.h"
#include "fakes/FakeDlog.h"
#include "fakes/FakeSessionControl.h"
#include "fakes/FakeStateManager.h"
#include "support/Compositor.h"
#include "support/Files.h"
#include "util/AppIdCache.h"

using fakes::Actions;
using fakes::FakeDlog;
using fakes::FakeSessionControl;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr int kInfo = 4;
constexpr int kError = 6;
constexpr const char* kReady = "/run/.wm_ready";

GSource* attachedSource = nullptr;

}  // namespace

extern "C" guint __real_g_source_attach(GSource* source, GMainContext* context);
extern "C" guint __wrap_g_source_attach(GSource* source, GMainContext* context);
// The receiver never detaches its source: the test does, once the loop is done with it.
extern "C" guint __wrap_g_source_attach(GSource* source, GMainContext* context) {
    attachedSource = source;
    Actions::add(context == g_main_context_default() ? "attached to the default context"
                                                     : "attached elsewhere");
    return __real_g_source_attach(source, context);
}

namespace {

class ReceiverTest : public testing::Test {
protected:
    ReceiverTest() {
        writeFile(kReady, "");
        std::filesystem::remove("/etc/debug");
        fakes::FakeStateManager::reset();
        fakes::FakeAul::reset();
        Compositor::nowhere();
        // It is made, and registered, once in the process.
        TCAppIdCache::Instance();
        make();
    }

    ~ReceiverTest() override {
        // The traces outlive the receiver: they are closed as the window manager would.
        detach();
    }

    void make() {
        m_receiver = std::make_unique<CZELLiteWaylandNotificationReceiver>(m_stateManager, m_sessionControl);
        forget();
    }

    static void forget() {
        FakeDlog::clear();
        Actions::take();
    }

    static void detach() {
        if (attachedSource != nullptr) {
            g_source_destroy(attachedSource);
            g_source_unref(attachedSource);
            attachedSource = nullptr;
        }
    }

    // Starts on a compositor, and forgets what that took.
    void startOn(const Compositor::Manners& manners = {}) {
        m_compositor = std::make_unique<Compositor>(manners);
        m_receiver->Start(nullptr);
        forget();
    }

    // Runs the main loop until so many error lines were logged since the last time.
    static std::vector<std::string> linesAfter(std::size_t count) {
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (FakeDlog::messages(kError).size() < count && std::chrono::steady_clock::now() < limit) {
            g_main_context_iteration(nullptr, FALSE);
        }
        return FakeDlog::messages(kError);
    }

    TCZelDaemonStateManager m_stateManager;
    TCSessionControl m_sessionControl{m_stateManager};
    std::unique_ptr<Compositor> m_compositor;
    std::unique_ptr<CZELLiteWaylandNotificationReceiver> m_receiver;
};

}  // namespace

// Connection

TEST_F(ReceiverTest, AStartConnectsBindsAndAttaches) {
    m_compositor = std::make_unique<Compositor>();

    m_receiver->Start(nullptr);

    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("Creating Wayland Notification Receiver", "called", "Initialization OK"));
    EXPECT_THAT(Actions::take(),
                ElementsAre("StateManager::RegisterListener", "attached to the default context"));
    EXPECT_EQ(m_compositor->boundVersion(), 1);
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

TEST_F(ReceiverTest, AFailedFirstRoundtripStaysLaunched) {
    Compositor::Manners manners;
    manners.throwsOutAtConnection = true;
    m_compositor = std::make_unique<Compositor>(manners);
    m_receiver->Start(nullptr);
    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("Creating Wayland Notification Receiver", "Sync call failed. Exiting"));
    EXPECT_THAT(Actions::take(), ElementsAre("StateManager::RegisterListener"));
    forget();

    m_receiver->Start(nullptr);

    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("Already launched!"));
}

TEST_F(ReceiverTest, AFailedSecondRoundtripMayBeTriedAgain) {
    Compositor::Manners manners;
    manners.throwsOutAtBind = true;
    m_compositor = std::make_unique<Compositor>(manners);
    m_receiver->Start(nullptr);
    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("Creating Wayland Notification Receiver", "Sync call failed. Exiting"));
    m_compositor.reset();
    m_compositor = std::make_unique<Compositor>();
    forget();

    m_receiver->Start(nullptr);

    EXPECT_THAT(FakeDlog::messages(kError), Contains("Initialization OK"));
}

TEST_F(ReceiverTest, ACompositorWithoutNotifierGivesARunningSourceAndNoNotifier) {
    Compositor::Manners manners;
    manners.notifierVersion = 0;
    m_compositor = std::make_unique<Compositor>(manners);

    m_receiver->Start(nullptr);

    EXPECT_THAT(FakeDlog::messages(kError), Contains("Initialization OK"));
    EXPECT_EQ(m_compositor->boundVersion(), 0);
    EXPECT_NE(attachedSource, nullptr);
}

TEST_F(ReceiverTest, ANotifierOfALaterVersionIsBoundAsTheFirst) {
    Compositor::Manners manners;
    manners.notifierVersion = 3;
    startOn(manners);

    EXPECT_EQ(m_compositor->boundVersion(), 1);
}

TEST_F(ReceiverTest, AGlobalThatGoesIsLogged) {
    startOn();
    m_compositor->withdrawNotifier();

    for (int turn = 0; turn < 1000 && FakeDlog::messages(kInfo).empty(); ++turn) {
        g_main_context_iteration(nullptr, FALSE);
        usleep(1000);
    }

    EXPECT_THAT(FakeDlog::messages(kInfo), ElementsAre(testing::StartsWith("Global interface removed: ")));
}

TEST_F(ReceiverTest, TheEndUnregistersAndDisconnects) {
    startOn();

    m_receiver.reset();

    EXPECT_THAT(Actions::take(), ElementsAre("StateManager::UnregisterListener"));
    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("Stopped"));
    detach();
    make();
    m_receiver->Start(nullptr);
    EXPECT_THAT(FakeDlog::messages(kError), Contains("Initialization OK")) << "it may be launched again";
}

TEST_F(ReceiverTest, TheEndOfOneThatWasNeverLaunchedOnlyUnregisters) {
    m_receiver.reset();

    EXPECT_THAT(Actions::take(), ElementsAre("StateManager::UnregisterListener"));
    EXPECT_THAT(FakeDlog::messages(kError), IsEmpty());
}

TEST_F(ReceiverTest, TheServicesComingsAndGoingsAreLogged) {
    m_receiver->OnStart();
    m_receiver->OnTerminate();
    m_receiver->OnTerminateSuccess(TSZelData());

    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("zel-daemon has started!", "zel-daemon succesfully terminated!"));
    EXPECT_THAT(FakeDlog::messages(kInfo), ElementsAre("Terminating zel-daemon..."));
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

// Windows

namespace {

constexpr int kVisibility = 1;
constexpr int kDelete = 2;
constexpr int kHint = 3;
constexpr const char* kSession7 = "##_WM_USE_HINTS_WIN__winID_7";

class WindowTest : public ReceiverTest {
protected:
    WindowTest() { startOn(); }
    ~WindowTest() override {
        for (const int window : {7, -1}) {
            m_receiver->CloseSession("##_WM_USE_HINTS_WIN__winID_" + std::to_string(window), window, 0);
        }
    }

    std::vector<std::string> afterEvent(std::size_t lines, int kind,
                                        const std::vector<std::int32_t>& payload) {
        forget();
        m_compositor->sendClientEvent(kind, payload);
        return linesAfter(lines);
    }

    static std::vector<std::string> sessionActions() { return Actions::take(); }
};

}  // namespace

TEST_F(WindowTest, AVisibleWindowOpensItsSession) {
    EXPECT_THAT(
        afterEvent(3, kVisibility, {7, 77, 0}),
        ElementsAre("Event CLIENT_VISIBILITY_CHANGE resID:7 Visibility[0]:Visible appPid:77 isTerminated:0 ",
                    "Adding client winId:7 app_pid:77", "Open session"));
    EXPECT_THAT(sessionActions(), ElementsAre("SessionControl::Open ##_WM_USE_HINTS_WIN__winID_7  "));
    EXPECT_EQ(m_receiver->GetTraceId(kSession7), 7);
}

TEST_F(WindowTest, VisibleTwiceThenHiddenIsOneSession) {
    afterEvent(3, kVisibility, {7, 77, 0});

    EXPECT_THAT(
        afterEvent(2, kVisibility, {7, 78, 0}),
        ElementsAre("Event CLIENT_VISIBILITY_CHANGE resID:7 Visibility[0]:Visible appPid:78 isTerminated:0 ",
                    "Client already winId:7 app_pid:78"));
    EXPECT_THAT(sessionActions(), IsEmpty());
    EXPECT_THAT(
        afterEvent(4, kVisibility, {7, 77, 2}),
        ElementsAre(
            "Event CLIENT_VISIBILITY_CHANGE resID:7 Visibility[2]:Not visible appPid:77 isTerminated:0 ",
            "Close session", "Removing client winId:7 app_pid:77", "Number of removed items: 1"));
    EXPECT_THAT(sessionActions(), ElementsAre("SessionControl::Close ##_WM_USE_HINTS_WIN__winID_7"));
    EXPECT_EQ(m_receiver->GetTraceId(kSession7), -1);
}

TEST_F(WindowTest, APartlyVisibleOrUnknownVisibilityChangesNothing) {
    afterEvent(3, kVisibility, {7, 77, 0});

    EXPECT_THAT(
        afterEvent(1, kVisibility, {7, 77, 1}),
        ElementsAre("Event CLIENT_VISIBILITY_CHANGE resID:7 Visibility[1]:Partially visible appPid:77 "
                    "isTerminated:0 "));
    EXPECT_THAT(
        afterEvent(1, kVisibility, {7, 77, 3}),
        ElementsAre("Event CLIENT_VISIBILITY_CHANGE resID:7 Visibility[3]: appPid:77 isTerminated:0 "));
    EXPECT_THAT(sessionActions(), IsEmpty());
}

TEST_F(WindowTest, HidingAWindowThatWasNeverVisibleClosesNothing) {
    afterEvent(1, kVisibility, {7, 77, 2});

    EXPECT_THAT(sessionActions(), IsEmpty());
    EXPECT_EQ(FakeDlog::messages(kError).size(), 1U);
}

TEST_F(WindowTest, DeletingAWindowThatWasNeverVisibleClosesAllTheSame) {
    EXPECT_THAT(afterEvent(5, kDelete, {7, 77, 99}),
                ElementsAre("Event CLIENT_DELETE resID:7 appPid:77", "Close session",
                            "Removing client winId:7 app_pid:77", "No such client winId:7 app_pid:77",
                            "Number of removed items: 0"));
    EXPECT_THAT(sessionActions(), ElementsAre("SessionControl::Close ##_WM_USE_HINTS_WIN__winID_7"));
}

TEST_F(WindowTest, ADeletedWindowLosesItsSession) {
    afterEvent(3, kVisibility, {7, 77, 0});

    EXPECT_THAT(afterEvent(4, kDelete, {7, 77, 0}),
                ElementsAre("Event CLIENT_DELETE resID:7 appPid:77", "Close session",
                            "Removing client winId:7 app_pid:77", "Number of removed items: 1"));
}

TEST_F(WindowTest, ATerminatedServiceIsMentioned) {
    fakes::FakeStateManager::terminated = true;

    EXPECT_THAT(afterEvent(1, kVisibility, {7, 77, 1}), Contains(testing::HasSubstr("isTerminated:1 ")));
}

TEST_F(WindowTest, AnAddedHintAsksForTheTopMostWindowThenOpens) {
    EXPECT_THAT(afterEvent(4, kHint, {7, 77, 1}),
                ElementsAre("Event CLIENT_AUX_HINT_CHANGE resID:7 hint[1]:Hint added appPid:77",
                            "Top most clientID: 4242", "Adding client winId:7 app_pid:77", "Open session"));
    EXPECT_EQ(m_compositor->topMostRequests(), 1);
}

TEST_F(WindowTest, AnAddedHintOfAVisibleWindowOpensNoSecondSession) {
    afterEvent(3, kVisibility, {7, 77, 0});

    EXPECT_THAT(afterEvent(3, kHint, {7, 77, 1}),
                ElementsAre("Event CLIENT_AUX_HINT_CHANGE resID:7 hint[1]:Hint added appPid:77",
                            "Top most clientID: 4242", "Client already winId:7 app_pid:77"));
    EXPECT_THAT(sessionActions(), IsEmpty());
    EXPECT_EQ(m_compositor->topMostRequests(), 1);
}

TEST_F(WindowTest, ARemovedHintClosesAndAnUnknownOneChangesNothing) {
    afterEvent(3, kVisibility, {7, 77, 0});

    EXPECT_THAT(
        afterEvent(2, kHint, {7, 77, 3}),
        ElementsAre("Event CLIENT_AUX_HINT_CHANGE resID:7 hint[3]: appPid:77", "Top most clientID: 4242"));
    EXPECT_THAT(sessionActions(), IsEmpty());
    EXPECT_THAT(afterEvent(5, kHint, {7, 77, 2}),
                ElementsAre("Event CLIENT_AUX_HINT_CHANGE resID:7 hint[2]:Hint removed appPid:77",
                            "Top most clientID: 4242", "Close session", "Removing client winId:7 app_pid:77",
                            "Number of removed items: 1"));
}

TEST_F(WindowTest, EventsThatComeWithTheTopMostAnswerAreServedBeforeTheHint) {
    m_compositor->onTopMostRequest([](Compositor& compositor) {
        compositor.onTopMostRequest(nullptr);
        compositor.sendClientEvent(kVisibility, {7, 77, 0});
    });

    EXPECT_THAT(
        afterEvent(6, kHint, {7, 77, 1}),
        ElementsAre("Event CLIENT_AUX_HINT_CHANGE resID:7 hint[1]:Hint added appPid:77",
                    "Event CLIENT_VISIBILITY_CHANGE resID:7 Visibility[0]:Visible appPid:77 isTerminated:0 ",
                    "Adding client winId:7 app_pid:77", "Open session", "Top most clientID: 4242",
                    "Client already winId:7 app_pid:77"));
    EXPECT_THAT(sessionActions(), ElementsAre("SessionControl::Open ##_WM_USE_HINTS_WIN__winID_7  "));
}

TEST_F(WindowTest, WindowMinusOneIsClosedByDeletionOnly) {
    EXPECT_THAT(afterEvent(3, kVisibility, {-1, 77, 0}), Contains("Adding client winId:-1 app_pid:77"));
    EXPECT_THAT(sessionActions(), ElementsAre("SessionControl::Open ##_WM_USE_HINTS_WIN__winID_-1  "));

    afterEvent(1, kVisibility, {-1, 77, 2});
    EXPECT_THAT(sessionActions(), IsEmpty());

    afterEvent(4, kDelete, {-1, 77, 0});
    EXPECT_THAT(sessionActions(), ElementsAre("SessionControl::Close ##_WM_USE_HINTS_WIN__winID_-1"));
}

TEST_F(WindowTest, AnUnknownKindIsSilentWhateverItsPayload) {
    forget();
    for (const int kind : {0, 4, -1}) {
        m_compositor->sendClientEvent(kind, {});
    }

    EXPECT_THAT(afterEvent(1, kVisibility, {7, 77, 1}), testing::SizeIs(1));
}

TEST_F(WindowTest, APayloadShorterThanItsIntegersIsLoggedAndDropped) {
    EXPECT_THAT(afterEvent(1, kVisibility, {7, 77}), ElementsAre("Payload is too short, size(8)"));
    EXPECT_EQ(FakeDlog::lines().back().function(), "ZELClientEventCallback");
    EXPECT_THAT(afterEvent(1, kHint, {}), ElementsAre("Payload is too short, size(0)"));
    EXPECT_THAT(afterEvent(1, kDelete, {7}), ElementsAre("Payload is too short, size(4)"));
    EXPECT_THAT(sessionActions(), IsEmpty());
    EXPECT_THAT(afterEvent(5, kDelete, {7, 77}), Contains("Event CLIENT_DELETE resID:7 appPid:77"))
        << "a deletion needs two";
    forget();
    m_compositor->sendReadyVisibility(0, {7});
    m_compositor->sendAsyncVisibility(0, {});
    EXPECT_THAT(linesAfter(2), ElementsAre("Payload is too short, size(4)", "Payload is too short, size(0)"));
}

TEST_F(WindowTest, WithoutItsReceiverAnEventIsDropped) {
    forget();

    CZELLiteWaylandNotificationReceiver::ZELClientEventCallback(nullptr, nullptr, kVisibility, nullptr);

    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("pObj is nullptr!"));
}

TEST_F(WindowTest, VisibilityChangesOnlyFillTheCache) {
    fakes::FakeAul::know(501, "org.example.player");
    forget();

    m_compositor->sendReadyVisibility(2, {7, 501});
    m_compositor->sendAsyncVisibility(1, {8, 501});

    EXPECT_THAT(
        linesAfter(6),
        ElementsAre(
            "Visibility:2 AppPid:501 clientID:7 aul_app_get_appid_bypid start",
            "aul_app_get_appid_bypid call start!",
            "aul_app_get_appid_bypid returned: 0, appid: org.example.player",
            "Client ready visibility change. Visibility:2 AppName:org.example.player AppPid:501 clientID:7 ",
            "Visibility:1 AppPid:501 clientID:8 aul_app_get_appid_bypid start",
            "Client async visibility change. Visibility:1 AppName:org.example.player AppPid:501 clientID:8"));
    EXPECT_THAT(sessionActions(), ElementsAre("aul 501 511"));
}

TEST_F(WindowTest, OtherReportsAreOnlyLogged) {
    forget();

    m_compositor->sendTopMost(-5);
    m_compositor->sendClientsInfo({1, 2});

    EXPECT_THAT(linesAfter(2), ElementsAre("Top most clientID: -5", "called"));
    EXPECT_THAT(sessionActions(), IsEmpty());
}

TEST_F(WindowTest, OnADebugSetASessionHasATraceWithTheApplicationsId) {
    writeFile("/etc/debug", "");
    fakes::FakeAul::know(502, "org.example.browser");

    EXPECT_THAT(afterEvent(7, kVisibility, {7, 502, 0}), Contains("Pid:502 AppName:org.example.browser"));

    const auto& trace = FakeSessionControl::lastTrace;
    EXPECT_EQ(trace.sessionId, kSession7);
    EXPECT_EQ(trace.traceId, 7);
    EXPECT_EQ(trace.stackTrace, kSession7);
    EXPECT_EQ(trace.processName, "org.example.browser");
    EXPECT_EQ(trace.progName, "org.example.browser");
    EXPECT_EQ(trace.pid, "502");
    EXPECT_EQ(trace.language, 1);
    EXPECT_THAT(afterEvent(5, kDelete, {7, 502, 0}), Contains("Close debug session"));
    EXPECT_THAT(sessionActions(), ElementsAre("SessionControl::Close ##_WM_USE_HINTS_WIN__winID_7",
                                              "SessionControl::CloseDebugTrace"));
}

TEST_F(WindowTest, OnADebugSetAnUnknownApplicationIsNamedByItsSession) {
    writeFile("/etc/debug", "");

    EXPECT_THAT(afterEvent(7, kVisibility, {7, 503, 0}), Contains("Failed to get AppName for PID: 503"));

    EXPECT_EQ(FakeSessionControl::lastTrace.processName, kSession7);
    EXPECT_EQ(FakeSessionControl::lastTrace.progName, kSession7);
}

TEST_F(WindowTest, OnAnOrdinarySetNoTraceIsOpenedAndNobodyIsLookedUp) {
    afterEvent(3, kVisibility, {7, 504, 0});
    afterEvent(4, kDelete, {7, 504, 0});

    EXPECT_THAT(sessionActions(), Not(Contains(testing::HasSubstr("Trace"))));
    EXPECT_EQ(FakeDlog::count(kError, "aul_app_get_appid_bypid call start!"), 0U);
}

TEST_F(WindowTest, AWindowThatHoldsATraceAlreadyKeepsIt) {
    m_receiver->OpenSession(kSession7, 7, 77);
    forget();

    m_receiver->OpenSession(kSession7, 8, 77);

    EXPECT_THAT(FakeDlog::messages(kError),
                Contains("Item already in the map! sessionId:##_WM_USE_HINTS_WIN__winID_7, traceID:8"));
    EXPECT_EQ(m_receiver->GetTraceId(kSession7), 7);
}

TEST_F(WindowTest, TheEndForgetsTheWindowsAndKeepsTheTraces) {
    afterEvent(3, kVisibility, {7, 77, 0});

    m_receiver.reset();
    detach();
    make();

    EXPECT_EQ(m_receiver->GetTraceId(kSession7), 7);
    EXPECT_TRUE(m_receiver->AddToActiveClients(7, 77));
}

// SPDX-License-Identifier: Apache-2.0
// Windows and sessions, against a real Wayland server in this process.
#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "fakes/Actions.h"
#include "fakes/FakeAul.h"
#include "fakes/FakeDlog.h"
#include "fakes/FakeSessionControl.h"
#include "fakes/FakeStateManager.h"
#include "support/Compositor.h"
#include "support/Files.h"
#include "support/ReceiverWorld.h"
#include "support/Wait.h"
#include "support/WaylandCalls.h"
#include "util/AppIdCache.h"
#include "util/ZELLiteWaylandNotificationReceiver.h"

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
constexpr int kVisibility = 1;
constexpr int kDelete = 2;
constexpr int kHint = 3;
constexpr const char* kSession7 = "##_WM_USE_HINTS_WIN__winID_7";
constexpr const char* kSession8 = "##_WM_USE_HINTS_WIN__winID_8";

class WindowTest : public ReceiverWorld {
protected:
    WindowTest() { startOn(); }
    // The traces outlive the receiver: they are closed as the window manager would.
    ~WindowTest() override {
        for (const int window : {7, 8, -1}) {
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
    for (const int visibility : {3, -1}) {
        EXPECT_THAT(afterEvent(1, kVisibility, {7, 77, visibility}),
                    ElementsAre("Event CLIENT_VISIBILITY_CHANGE resID:7 Visibility[" +
                                std::to_string(visibility) + "]: appPid:77 isTerminated:0 "));
        EXPECT_THAT(sessionActions(), IsEmpty());
    }
}

TEST_F(WindowTest, AnUnknownStateOpensNothing) {
    for (const int state : {-1, 3}) {
        EXPECT_THAT(afterEvent(1, kVisibility, {7, 77, state}), testing::SizeIs(1));
        EXPECT_THAT(sessionActions(), IsEmpty());
    }
    for (const int state : {-1, 0, 3}) {
        EXPECT_THAT(
            afterEvent(2, kHint, {7, 77, state}),
            ElementsAre("Event CLIENT_AUX_HINT_CHANGE resID:7 hint[" + std::to_string(state) + "]: appPid:77",
                        "Top most clientID: 4242"));
        EXPECT_THAT(sessionActions(), IsEmpty());
    }
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

    EXPECT_THAT(afterEvent(3, kVisibility, {7, 77, 0}), Contains(testing::HasSubstr("isTerminated:1 ")));
    EXPECT_THAT(sessionActions(), ElementsAre("SessionControl::Open ##_WM_USE_HINTS_WIN__winID_7  "))
        << "and makes no difference";
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

TEST_F(WindowTest, ARemovedHintOfAWindowWithoutSessionClosesNothing) {
    EXPECT_THAT(afterEvent(2, kHint, {7, 77, 2}),
                ElementsAre("Event CLIENT_AUX_HINT_CHANGE resID:7 hint[2]:Hint removed appPid:77",
                            "Top most clientID: 4242"));
    EXPECT_THAT(sessionActions(), IsEmpty());
}

TEST_F(WindowTest, EachWindowHasASessionOfItsOwn) {
    afterEvent(3, kVisibility, {7, 77, 0});

    EXPECT_THAT(
        afterEvent(3, kVisibility, {8, 77, 0}),
        ElementsAre("Event CLIENT_VISIBILITY_CHANGE resID:8 Visibility[0]:Visible appPid:77 isTerminated:0 ",
                    "Adding client winId:8 app_pid:77", "Open session"))
        << "also when both belong to one process";

    EXPECT_THAT(sessionActions(), ElementsAre("SessionControl::Open ##_WM_USE_HINTS_WIN__winID_8  "));
    EXPECT_EQ(m_receiver->GetTraceId(kSession7), 7);
    EXPECT_EQ(m_receiver->GetTraceId(kSession8), 8);
}

// Closes window 7 of two in each of the ways there are. Window 8 is a client still: it is not added again.
TEST_F(WindowTest, ClosingOneWindowKeepsTheOther) {
    struct Row {
        int kind;
        int state;
    };
    for (const auto& [kind, state] : {Row{kVisibility, 2}, Row{kHint, 2}, Row{kDelete, 0}}) {
        SCOPED_TRACE(kind);
        afterEvent(3, kVisibility, {7, 77, 0});
        afterEvent(kind == kHint ? 4 : 3, kind == kHint ? kHint : kVisibility,
                   {8, 88, kind == kHint ? 1 : 0});

        afterEvent(kind == kHint ? 5 : 4, kind, {7, 77, state});
        EXPECT_THAT(sessionActions(), ElementsAre("SessionControl::Close ##_WM_USE_HINTS_WIN__winID_7"));
        EXPECT_EQ(m_receiver->GetTraceId(kSession7), -1);
        EXPECT_EQ(m_receiver->GetTraceId(kSession8), 8);

        EXPECT_THAT(afterEvent(2, kVisibility, {8, 88, 0}), Contains("Client already winId:8 app_pid:88"));
        EXPECT_THAT(sessionActions(), IsEmpty());
        EXPECT_THAT(afterEvent(3, kVisibility, {7, 77, 0}), Contains("Adding client winId:7 app_pid:77"));
        EXPECT_THAT(sessionActions(), ElementsAre("SessionControl::Open ##_WM_USE_HINTS_WIN__winID_7  "));

        for (const int window : {7, 8}) {
            afterEvent(4, kDelete, {window, 77, 0});
        }
    }
}

// The notifier that was bound stays usable: only new clients do not get one.
TEST_F(WindowTest, EventsAreServedThoughTheNotifierWasWithdrawn) {
    const std::string removed = "Global interface removed: " + std::to_string(WaylandCalls::notifierName);
    m_compositor->withdrawNotifier();
    EXPECT_TRUE(becomesTrue([] {
        g_main_context_iteration(nullptr, FALSE);
        return !FakeDlog::messages(kInfo).empty();
    }));
    EXPECT_THAT(FakeDlog::messages(kInfo), ElementsAre(removed));
    EXPECT_EQ(FakeDlog::lines().size(), 1U);
    EXPECT_THAT(sessionActions(), IsEmpty());

    EXPECT_THAT(afterEvent(4, kHint, {7, 77, 1}), Contains("Open session"));
    EXPECT_EQ(m_compositor->topMostRequests(), 1);
    EXPECT_THAT(afterEvent(4, kDelete, {7, 77, 0}), Contains("Close session"));

    m_receiver.reset();
    EXPECT_THAT(Actions::take(), Contains("destroyed tizen_zel_notifier"));
    WaylandCalls::detach();
    make();
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

TEST_F(WindowTest, ARoundtripForAHintThatDispatchedNothingIsNoFailure) {
    WaylandCalls::roundtripResults = {0};

    EXPECT_THAT(afterEvent(4, kHint, {7, 77, 1}),
                ElementsAre("Event CLIENT_AUX_HINT_CHANGE resID:7 hint[1]:Hint added appPid:77",
                            "Top most clientID: 4242", "Adding client winId:7 app_pid:77", "Open session"));
}

TEST_F(WindowTest, AHintIsServedThoughTheRoundtripFailed) {
    WaylandCalls::roundtripResults = {-1};

    EXPECT_THAT(afterEvent(5, kHint, {7, 77, 1}),
                ElementsAre("Event CLIENT_AUX_HINT_CHANGE resID:7 hint[1]:Hint added appPid:77",
                            "Top most clientID: 4242", "wl_display_roundtrip_queue failed",
                            "Adding client winId:7 app_pid:77", "Open session"));
    EXPECT_EQ(m_compositor->topMostRequests(), 1);
}

TEST_F(WindowTest, ABurstOfHintsIsServedLastFirst) {
    m_compositor->onTopMostRequest([](Compositor& compositor) {
        compositor.onTopMostRequest(nullptr);
        for (int i = 0; i < 60; ++i) {
            compositor.sendClientEvent(kHint, {7, 77, i == 59 ? 1 : 3});
        }
    });

    // Two lines for each hint and its answer, two for the opening, three for the closing.
    EXPECT_EQ(afterEvent(127, kHint, {7, 77, 2}).size(), 127U);
    EXPECT_THAT(sessionActions(), ElementsAre("SessionControl::Open ##_WM_USE_HINTS_WIN__winID_7  ",
                                              "SessionControl::Close ##_WM_USE_HINTS_WIN__winID_7"))
        << "the first hint, a removal, is acted upon when all others were";
    EXPECT_EQ(m_compositor->topMostRequests(), 61);
}

TEST_F(WindowTest, WindowMinusOneIsClosedByDeletionOnly) {
    EXPECT_THAT(afterEvent(3, kVisibility, {-1, 77, 0}), Contains("Adding client winId:-1 app_pid:77"));
    EXPECT_THAT(sessionActions(), ElementsAre("SessionControl::Open ##_WM_USE_HINTS_WIN__winID_-1  "));

    afterEvent(1, kVisibility, {-1, 77, 2});
    EXPECT_THAT(sessionActions(), IsEmpty());
    afterEvent(2, kHint, {-1, 77, 2});
    EXPECT_THAT(sessionActions(), IsEmpty());

    afterEvent(4, kDelete, {-1, 77, 0});
    EXPECT_THAT(sessionActions(), ElementsAre("SessionControl::Close ##_WM_USE_HINTS_WIN__winID_-1"));
}

TEST_F(WindowTest, TheTraceOfWindowMinusOneIsMinusOne) {
    writeFile("/etc/debug", "");

    afterEvent(7, kVisibility, {-1, 503, 0});
    EXPECT_EQ(FakeSessionControl::lastTrace.traceId, -1);
    FakeSessionControl::lastTrace = {};

    afterEvent(5, kDelete, {-1, 503, 0});
    EXPECT_EQ(FakeSessionControl::lastTrace.sessionId, "##_WM_USE_HINTS_WIN__winID_-1");
    EXPECT_EQ(FakeSessionControl::lastTrace.traceId, -1);
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

// An array of just these bytes, so that whoever reads on is caught.
class ExactArray {
public:
    explicit ExactArray(std::size_t size) : m_bytes(size, 0), m_array{size, size, m_bytes.data()} {
        const std::array<std::int32_t, 3> integers{7, 505, 1};
        if (size > 0) {
            std::memcpy(m_bytes.data(), integers.data(), std::min(size, sizeof integers));
        }
    }

    wl_array* get() { return &m_array; }

private:
    std::vector<unsigned char> m_bytes;
    wl_array m_array;
};

TEST_F(WindowTest, APayloadOfAnySizeIsReadNoFurtherThanItGoes) {
    using Receiver = CZELLiteWaylandNotificationReceiver;
    for (const std::size_t size : std::initializer_list<std::size_t>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12,
                                                                     13, 14, 15, 16, 4096, 1 << 24}) {
        ExactArray array(size);
        const std::string tooShort = "Payload is too short, size(" + std::to_string(size) + ")";
        for (const int kind : {kVisibility, kDelete, kHint}) {
            forget();
            Receiver::ZELClientEventCallback(m_receiver.get(), nullptr, kind, array.get());
            EXPECT_EQ(FakeDlog::count(kError, tooShort), size < (kind == kDelete ? 8 : 12) ? 1U : 0U)
                << kind << " with " << size;
        }
        for (const auto visibilityChange :
             {Receiver::ZELClientReadyVisibilityChange, Receiver::ZELClientAsyncVisibilityChange}) {
            forget();
            visibilityChange(nullptr, nullptr, 0, array.get());
            EXPECT_EQ(FakeDlog::count(kError, tooShort), size < 8 ? 1U : 0U) << size;
        }
        forget();
        Receiver::ZELClientsInfoCallback(nullptr, nullptr, array.get());
        EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("called"));
    }
}

TEST_F(WindowTest, WhatFollowsTheIntegersIsNotRead) {
    std::vector<std::int32_t> payload(1000, -1);
    payload[0] = 7;
    payload[1] = 77;
    payload[2] = 0;

    EXPECT_THAT(afterEvent(3, kVisibility, payload), Contains("Adding client winId:7 app_pid:77"));
}

TEST_F(WindowTest, TheUserDataOfAVisibilityChangeIsNotLookedAt) {
    ExactArray array(8);
    forget();

    CZELLiteWaylandNotificationReceiver::ZELClientReadyVisibilityChange(nullptr, nullptr, 0, array.get());
    CZELLiteWaylandNotificationReceiver::ZELClientAsyncVisibilityChange(nullptr, nullptr, 0, array.get());

    EXPECT_EQ(FakeDlog::count(kError,
                              "Client async visibility change. Visibility:0 AppName: AppPid:505 clientID:7"),
              1U);
    EXPECT_EQ(FakeDlog::count(kError,
                              "Client ready visibility change. Visibility:0 AppName: AppPid:505 clientID:7 "),
              1U);
}

TEST_F(WindowTest, WithoutItsReceiverAnEventIsDropped) {
    forget();

    CZELLiteWaylandNotificationReceiver::ZELClientEventCallback(nullptr, nullptr, kVisibility, nullptr);

    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("pObj is nullptr!"));
}

TEST_F(WindowTest, VisibilityChangesOnlyFillTheCache) {
    fakes::FakeAul::know(501, "org.example.player");
    // The cache lives as long as the process: a repeated test begins without what it left.
    TCAppIdCache::Instance().OwnerRemoved("", 501);
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

TEST_F(WindowTest, ASessionIsOpenedAndClosedInOrder) {
    writeFile("/etc/debug", "");
    fakes::FakeAul::know(502, "org.example.browser");
    // It is known beforehand, so that no query comes in between.
    m_compositor->sendAsyncVisibility(0, {7, 502});
    linesAfter(2);
    forget();
    FakeDlog::recordActions();

    m_receiver->OpenSession(kSession7, 7, 502);
    EXPECT_THAT(Actions::take(), ElementsAre("log OpenSession: Open session",
                                             "SessionControl::Open ##_WM_USE_HINTS_WIN__winID_7  ",
                                             "log OpenSession: Open debug session",
                                             "log OpenSession: Pid:502 AppName:org.example.browser",
                                             "SessionControl::OpenDebugTrace"));

    m_receiver->CloseSession(kSession7, 7, 502);
    EXPECT_THAT(
        Actions::take(),
        ElementsAre("log CloseSession: Close session", "SessionControl::Close ##_WM_USE_HINTS_WIN__winID_7",
                    "log RemoveFromActiveClients: Removing client winId:7 app_pid:502",
                    "log RemoveFromActiveClients: No such client winId:7 app_pid:502",
                    "log m_RemoveTraceId: Number of removed items: 1",
                    "log CloseSession: Close debug session", "SessionControl::CloseDebugTrace"));
    EXPECT_EQ(FakeSessionControl::lastTrace.sessionId, kSession7);
    EXPECT_EQ(FakeSessionControl::lastTrace.traceId, 7);
}

TEST_F(WindowTest, WhatSessionControlAnswersMakesNoDifference) {
    FakeSessionControl::openResult = false;
    FakeSessionControl::closeResult = false;

    afterEvent(3, kVisibility, {7, 77, 0});
    EXPECT_EQ(m_receiver->GetTraceId(kSession7), 7);

    EXPECT_THAT(afterEvent(4, kVisibility, {7, 77, 2}), Contains("Number of removed items: 1"));
    EXPECT_EQ(m_receiver->GetTraceId(kSession7), -1);
}

TEST_F(WindowTest, AWindowIsForgottenWhoeverItBelongedTo) {
    EXPECT_TRUE(m_receiver->AddToActiveClients(7, 77));
    EXPECT_FALSE(m_receiver->AddToActiveClients(7, 78));

    EXPECT_TRUE(m_receiver->RemoveFromActiveClients(7, 79));
    EXPECT_FALSE(m_receiver->RemoveFromActiveClients(7, 77));

    EXPECT_TRUE(m_receiver->AddToActiveClients(7, 77)) << "it may come again";
}

TEST_F(WindowTest, OnADebugSetAnUnknownApplicationIsNamedByItsSession) {
    writeFile("/etc/debug", "");

    EXPECT_THAT(afterEvent(7, kVisibility, {7, 503, 0}), Contains("Failed to get AppName for PID: 503"));

    EXPECT_EQ(FakeSessionControl::lastTrace.processName, kSession7);
    EXPECT_EQ(FakeSessionControl::lastTrace.progName, kSession7);
}

TEST_F(WindowTest, OnAnOrdinarySetNoTraceIsOpenedAndNobodyIsLookedUp) {
    EXPECT_THAT(afterEvent(3, kVisibility, {7, 504, 0}),
                Not(Contains("aul_app_get_appid_bypid call start!")));
    EXPECT_THAT(sessionActions(), ElementsAre("SessionControl::Open ##_WM_USE_HINTS_WIN__winID_7  "));

    EXPECT_THAT(afterEvent(4, kDelete, {7, 504, 0}), Not(Contains("aul_app_get_appid_bypid call start!")));
    EXPECT_THAT(sessionActions(), ElementsAre("SessionControl::Close ##_WM_USE_HINTS_WIN__winID_7"));
}

TEST_F(WindowTest, OnADebugSetDeletingAWindowThatWasNeverVisibleClosesItsTraceToo) {
    writeFile("/etc/debug", "");
    FakeSessionControl::lastTrace = {};

    EXPECT_THAT(afterEvent(6, kDelete, {7, 77, 0}), Contains("Number of removed items: 0"));

    EXPECT_THAT(sessionActions(), ElementsAre("SessionControl::Close ##_WM_USE_HINTS_WIN__winID_7",
                                              "SessionControl::CloseDebugTrace"));
    EXPECT_EQ(FakeSessionControl::lastTrace.sessionId, kSession7);
    EXPECT_EQ(FakeSessionControl::lastTrace.traceId, 7);
}

TEST_F(WindowTest, AWindowThatHoldsATraceAlreadyKeepsIt) {
    m_receiver->OpenSession(kSession7, 7, 77);
    forget();
    FakeDlog::recordActions();

    m_receiver->OpenSession(kSession7, 8, 77);

    EXPECT_THAT(Actions::take(), ElementsAre("log OpenSession: Open session",
                                             "SessionControl::Open ##_WM_USE_HINTS_WIN__winID_7  ",
                                             "log m_AddTraceId: Item already in the map! "
                                             "sessionId:##_WM_USE_HINTS_WIN__winID_7, traceID:8"));
    EXPECT_EQ(m_receiver->GetTraceId(kSession7), 7);
}

TEST_F(WindowTest, TheEndForgetsTheWindowsAndKeepsTheTraces) {
    afterEvent(3, kVisibility, {7, 77, 0});

    m_receiver.reset();
    WaylandCalls::detach();
    make();

    EXPECT_EQ(m_receiver->GetTraceId(kSession7), 7);
    EXPECT_TRUE(m_receiver->AddToActiveClients(7, 77));
}

TEST_F(WindowTest, AWindowOfAnEarlierReceiverIsClosedWhenItIsHidden) {
    afterEvent(3, kVisibility, {7, 77, 0});
    m_receiver.reset();
    WaylandCalls::detach();
    m_compositor.reset();
    make();
    startOn();

    EXPECT_THAT(
        afterEvent(5, kVisibility, {7, 77, 2}),
        ElementsAre(
            "Event CLIENT_VISIBILITY_CHANGE resID:7 Visibility[2]:Not visible appPid:77 isTerminated:0 ",
            "Close session", "Removing client winId:7 app_pid:77", "No such client winId:7 app_pid:77",
            "Number of removed items: 1"));
    EXPECT_THAT(sessionActions(), ElementsAre("SessionControl::Close ##_WM_USE_HINTS_WIN__winID_7"));
}

// Without a connection

namespace {

using UnconnectedWindowTest = ReceiverWorld;

}  // namespace

TEST_F(UnconnectedWindowTest, AHintIsServedThoughNobodyCanBeAsked) {
    ExactArray array(12);

    CZELLiteWaylandNotificationReceiver::ZELClientEventCallback(m_receiver.get(), nullptr, kHint,
                                                                array.get());

    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("Event CLIENT_AUX_HINT_CHANGE resID:7 hint[1]:Hint added appPid:505",
                            "Display is nullptr", "Adding client winId:7 app_pid:505", "Open session"));
    m_receiver->CloseSession(kSession7, 7, 505);
}

TEST_F(UnconnectedWindowTest, TheEndOfAReceiverThatWasNeverLaunchedForgetsItsWindows) {
    EXPECT_TRUE(m_receiver->AddToActiveClients(7, 77));

    m_receiver.reset();
    make();

    EXPECT_TRUE(m_receiver->AddToActiveClients(7, 77));
}

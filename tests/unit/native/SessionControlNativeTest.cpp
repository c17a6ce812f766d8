// SPDX-License-Identifier: Apache-2.0
// The IPC methods, their callers and the configuration, above a recording session control.
#include "native/SessionControlNative.h"

#include <gmock/gmock.h>

#include "SessionControl.h"
#include "ZelDaemonStateManager.h"
#include "fakes/Actions.h"
#include "fakes/FakeDlog.h"
#include "fakes/FakeSessionControl.h"
#include "fakes/FakeStateManager.h"

using fakes::Actions;
using fakes::FakeDlog;
using fakes::FakeSessionControl;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int kError = 6;

class SessionControlNativeTest : public testing::Test {
protected:
    SessionControlNativeTest() {
        fakes::FakeStateManager::reset();
        FakeSessionControl::openResult = true;
        FakeSessionControl::closeResult = true;
        m_request.m_senderName = ":1.7";
        m_observer.SetCurrentCaller({"player", 4294967295U});
        FakeDlog::clear();
        Actions::take();
    }

    // The integers of the reply.
    std::vector<int> reply() {
        std::vector<int> values;
        int value = 0;
        for (unsigned int offset = 0; m_reply.ReadInt(&value, offset); offset += 4) {
            values.push_back(value);
        }
        EXPECT_EQ(m_reply.GetContentSize(), values.size() * 4);
        return values;
    }

    TCZelDaemonStateManager m_stateManager;
    TCSessionControl m_sessionControl{m_stateManager};
    SessionControlCallersObserver m_observer{m_sessionControl};
    SessionControlNative m_native{m_sessionControl, m_stateManager, m_observer};
    TCMessageBuffer m_request;
    TCMessageBuffer m_reply;
};

}  // namespace

TEST_F(SessionControlNativeTest, ItServesTheSessionInterface) {
    EXPECT_EQ(m_native.GetInterfaceName(), "com.brenlow.ISessionControl");
}

TEST_F(SessionControlNativeTest, CallsAreNotDispatchedOnTheDefaultContext) {
    const IpcConfigurationZelLite configuration("com.brenlow.ZELLite.SignalIFace",
                                                "/com/brenlow/ZELLite/SignalObject");

    EXPECT_FALSE(configuration.ProcessMethodCallInDefaultContext());
    EXPECT_THAT(configuration.InterfaceBusNameList(), ElementsAre("com.brenlow.ZELLite.SignalIFace"));
    EXPECT_EQ(configuration.ObjectPath(), "/com/brenlow/ZELLite/SignalObject");
}

TEST_F(SessionControlNativeTest, OpeningTakesTheSessionFromTheConnectionAndTheCallerFromTheObserver) {
    EXPECT_TRUE(m_native.OnCallReceived(0, m_request, m_reply));

    EXPECT_THAT(Actions::take(), ElementsAre("SessionControl::Open :1.7 player 4294967295"));
    EXPECT_THAT(reply(), ElementsAre(0));
    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("Opened session, ok(1), sessionId(:1.7), progName(player), pid(4294967295)"));
    EXPECT_EQ(FakeDlog::lines().back().function(), "m_Open");
}

TEST_F(SessionControlNativeTest, ARefusedOpenAnswersMinusTwo) {
    FakeSessionControl::openResult = false;

    EXPECT_TRUE(m_native.OnCallReceived(0, m_request, m_reply));

    EXPECT_THAT(reply(), ElementsAre(-2));
    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("Opened session, ok(0), sessionId(:1.7), progName(player), pid(4294967295)"));
}

TEST_F(SessionControlNativeTest, ClosingAnswersZeroOrMinusTwo) {
    EXPECT_TRUE(m_native.OnCallReceived(1, m_request, m_reply));
    FakeSessionControl::closeResult = false;
    EXPECT_TRUE(m_native.OnCallReceived(1, m_request, m_reply));

    EXPECT_THAT(Actions::take(), ElementsAre("SessionControl::Close :1.7", "SessionControl::Close :1.7"));
    EXPECT_THAT(reply(), ElementsAre(0, -2));
    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("Closed session, ok(1), sessionId(:1.7), progName(player), pid(4294967295)",
                            "Closed session, ok(0), sessionId(:1.7), progName(player), pid(4294967295)"));
}

TEST_F(SessionControlNativeTest, AskingAnswersZeroAndWhetherTheServiceWent) {
    EXPECT_TRUE(m_native.OnCallReceived(5, m_request, m_reply));
    fakes::FakeStateManager::terminated = true;
    EXPECT_TRUE(m_native.OnCallReceived(5, m_request, m_reply));

    EXPECT_THAT(reply(), ElementsAre(0, 0, 0, 1));
    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("Is ZEL terminated, isTerminated(0)", "Is ZEL terminated, isTerminated(1)"));
}

TEST_F(SessionControlNativeTest, AnUnknownMethodIsFalseAndWritesNothing) {
    for (const int method : {6, -1, 2, 3, 4, 2147483647, -2147483647 - 1}) {
        EXPECT_FALSE(m_native.OnCallReceived(method, m_request, m_reply)) << method;
    }

    EXPECT_THAT(reply(), IsEmpty());
    EXPECT_THAT(Actions::take(), IsEmpty());
}

TEST_F(SessionControlNativeTest, APayloadWhereNoneIsExpectedIsIgnored) {
    m_request.PushInt(99);

    EXPECT_TRUE(m_native.OnCallReceived(0, m_request, m_reply));

    EXPECT_THAT(reply(), ElementsAre(0));
}

TEST_F(SessionControlNativeTest, TheObserverKnowsTheCallerOnlyDuringItsCall) {
    EXPECT_EQ(m_observer.GetProgName(), "player");
    EXPECT_EQ(m_observer.GetPid(), "4294967295");

    m_observer.ClearCurrentCaller();

    EXPECT_EQ(m_observer.GetProgName(), "");
    EXPECT_EQ(m_observer.GetPid(), "");
}

TEST_F(SessionControlNativeTest, TheSessionOfAnOwnerThatHasGoneIsClosedAsCrashed) {
    m_observer.OwnerRemoved(":1.42", 17);

    EXPECT_THAT(Actions::take(), ElementsAre("SessionControl::CloseOnCrash :1.42"));
}

// SPDX-License-Identifier: Apache-2.0
// The IPC methods, their callers and the configuration, above a recording session control.
#include "native/SessionControlNative.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <optional>

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

// Whether a link's target is as long as readlink was given room for.
bool longLink = false;

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

    std::string replyBytes() {
        std::string content(m_reply.GetContentSize(), '\0');
        m_reply.ReadConcatenated(content.size(), content.data(), 0);
        return content;
    }

    static std::string bytes(std::initializer_list<int> values) {
        std::string content;
        for (const int value : values) {
            content.append(reinterpret_cast<const char*>(&value), sizeof value);
        }
        return content;
    }

    void traceRequest(long long traceId, int length, std::string text, std::optional<int> language) {
        m_request.PushLongLong(traceId);
        m_request.PushInt(length);
        m_request.WriteConcatenated(text.size(), text.data(), -1);
        if (language) {
            m_request.PushInt(*language);
        }
    }

    TCZelDaemonStateManager m_stateManager;
    TCSessionControl m_sessionControl{m_stateManager};
    SessionControlCallersObserver m_observer{m_sessionControl};
    SessionControlNative m_native{m_sessionControl, m_stateManager, m_observer};
    TCMessageBuffer m_request;
    TCMessageBuffer m_reply;
};

}  // namespace

extern "C" ssize_t __real_readlink(const char* path, char* target, size_t size);
extern "C" ssize_t __wrap_readlink(const char* path, char* target, size_t size);
extern "C" ssize_t __wrap_readlink(const char* path, char* target, size_t size) {
    if (!longLink) {
        return __real_readlink(path, target, size);
    }
    std::fill_n(target, size, 'x');
    return static_cast<ssize_t>(size);
}

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
    for (const int method : {6, -1, 2147483647, -2147483647 - 1}) {
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

TEST_F(SessionControlNativeTest, TheReportIsStatusLengthAndText) {
    FakeSessionControl::debugInfo = std::string("{\0}", 3);

    EXPECT_TRUE(m_native.OnCallReceived(2, m_request, m_reply));

    EXPECT_EQ(replyBytes(), bytes({0, 3}) + std::string("{\0}", 3));
    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("Get Sessions Debug Info, jsonSize(3)"));
    EXPECT_EQ(FakeDlog::lines().back().function(), "m_GetSessionsDebugInfo");
}

TEST_F(SessionControlNativeTest, AnEmptyReportStillCarriesStatusAndLength) {
    FakeSessionControl::debugInfo.clear();

    EXPECT_TRUE(m_native.OnCallReceived(2, m_request, m_reply));

    EXPECT_THAT(reply(), ElementsAre(0, 0));
}

TEST_F(SessionControlNativeTest, AStackTraceIsStoredWithOneZeroMore) {
    m_observer.SetCurrentCaller({"player", static_cast<std::uint32_t>(getpid())});
    traceRequest(-9'000'000'000, 5, "trace", 2);

    EXPECT_TRUE(m_native.OnCallReceived(3, m_request, m_reply));

    const auto& trace = FakeSessionControl::lastTrace;
    EXPECT_EQ(trace.sessionId, ":1.7");
    EXPECT_EQ(trace.traceId, -9'000'000'000);
    EXPECT_EQ(trace.stackTrace, std::string("trace\0", 6));
    EXPECT_EQ(trace.processName, std::filesystem::read_symlink("/proc/self/exe"));
    EXPECT_EQ(trace.progName, "player");
    EXPECT_EQ(trace.pid, std::to_string(getpid()));
    EXPECT_EQ(trace.language, 2);
    EXPECT_THAT(reply(), ElementsAre(0));
    EXPECT_THAT(FakeDlog::lines(), IsEmpty()) << "traces are opened without a line";
}

TEST_F(SessionControlNativeTest, AnEmptyTextIsOneZero) {
    traceRequest(1, 0, "", 1);

    m_native.OnCallReceived(3, m_request, m_reply);

    EXPECT_EQ(FakeSessionControl::lastTrace.stackTrace, std::string(1, '\0'));
    EXPECT_EQ(FakeSessionControl::lastTrace.language, 1);
}

TEST_F(SessionControlNativeTest, ATextOfOneByteIsRead) {
    traceRequest(1, 1, "x", 1);

    m_native.OnCallReceived(3, m_request, m_reply);

    EXPECT_EQ(FakeSessionControl::lastTrace.stackTrace, std::string("x\0", 2));
    EXPECT_EQ(FakeSessionControl::lastTrace.language, 1);
}

TEST_F(SessionControlNativeTest, AnEmptyRequestOpensTraceZeroWithoutTextAndLanguage) {
    EXPECT_TRUE(m_native.OnCallReceived(3, m_request, m_reply));

    EXPECT_EQ(FakeSessionControl::lastTrace.traceId, 0);
    EXPECT_EQ(FakeSessionControl::lastTrace.stackTrace, "");
    EXPECT_EQ(FakeSessionControl::lastTrace.language, 0);
    EXPECT_THAT(reply(), ElementsAre(0));
}

TEST_F(SessionControlNativeTest, AMissingLanguageIsZero) {
    traceRequest(1, 3, "abc", std::nullopt);

    m_native.OnCallReceived(3, m_request, m_reply);

    EXPECT_EQ(FakeSessionControl::lastTrace.stackTrace, std::string("abc\0", 4));
    EXPECT_EQ(FakeSessionControl::lastTrace.language, 0);
}

TEST_F(SessionControlNativeTest, WithALengthOfMinusOneTheLanguageIsReadAtOffsetEleven) {
    m_observer.SetCurrentCaller({"player", static_cast<std::uint32_t>(getpid())});
    // Bytes 11 to 14: the last of the length, then three more.
    traceRequest(1, -1, std::string("\x01\x02\x03", 3), std::nullopt);

    m_native.OnCallReceived(3, m_request, m_reply);

    EXPECT_EQ(FakeSessionControl::lastTrace.stackTrace, "");
    EXPECT_EQ(FakeSessionControl::lastTrace.language, 0x030201ff);
    EXPECT_THAT(FakeDlog::lines(), IsEmpty());
}

TEST_F(SessionControlNativeTest, ALengthBeyondTheEndGivesThatManyZerosAndOneAndNoLanguage) {
    m_observer.SetCurrentCaller({"player", static_cast<std::uint32_t>(getpid())});
    // Behind the length lie 7 bytes.
    for (const int length : {8, 9, 100, 1024 * 1024}) {
        SCOPED_TRACE(length);
        m_request.Resize(0);
        traceRequest(1, length, "abc", 2);
        FakeDlog::clear();

        EXPECT_TRUE(m_native.OnCallReceived(3, m_request, m_reply));

        EXPECT_EQ(FakeSessionControl::lastTrace.stackTrace,
                  std::string(static_cast<std::size_t>(length) + 1, '\0'));
        EXPECT_EQ(FakeSessionControl::lastTrace.language, 0);
        EXPECT_THAT(FakeDlog::lines(), IsEmpty());
    }
}

TEST_F(SessionControlNativeTest, ALengthThatNoRequestCanHaveCountsAsZeroAndGivesNoLanguage) {
    m_observer.SetCurrentCaller({"player", static_cast<std::uint32_t>(getpid())});
    for (const int length : {1024 * 1024 + 1, 2147483647, -2, -2147483647 - 1}) {
        SCOPED_TRACE(length);
        m_request.Resize(0);
        traceRequest(1, length, "abcdefgh", 2);
        FakeDlog::clear();

        EXPECT_TRUE(m_native.OnCallReceived(3, m_request, m_reply));

        EXPECT_EQ(FakeSessionControl::lastTrace.stackTrace, std::string(1, '\0'));
        EXPECT_EQ(FakeSessionControl::lastTrace.language, 0);
        EXPECT_THAT(FakeDlog::lines(), IsEmpty());
    }
}

TEST_F(SessionControlNativeTest, ATextThatTakesInTheLanguageLeavesNone) {
    traceRequest(1, 7, "abc", 0x67666564);

    m_native.OnCallReceived(3, m_request, m_reply);

    EXPECT_EQ(FakeSessionControl::lastTrace.stackTrace, std::string("abcdefg\0", 8));
    EXPECT_EQ(FakeSessionControl::lastTrace.language, 0);
}

TEST_F(SessionControlNativeTest, AVanishedProcessHasNoExecutable) {
    traceRequest(1, 0, "", 1);

    m_native.OnCallReceived(3, m_request, m_reply);

    EXPECT_EQ(FakeSessionControl::lastTrace.processName, "");
    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("readlink failed, pid(4294967295)"));
    EXPECT_EQ(FakeDlog::lines().back().function(), "m_getExePath");
}

TEST_F(SessionControlNativeTest, APathOfTheGreatestLengthIsLoggedAndKept) {
    traceRequest(1, 0, "", 1);
    longLink = true;

    m_native.OnCallReceived(3, m_request, m_reply);

    longLink = false;
    EXPECT_EQ(FakeSessionControl::lastTrace.processName, std::string(4096, 'x'));
    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("PATH_MAX reached, pid(4294967295)"));
}

TEST_F(SessionControlNativeTest, ClosingATraceTakesItsIdOrZero) {
    m_request.PushLongLong(8'000'000'000);
    EXPECT_TRUE(m_native.OnCallReceived(4, m_request, m_reply));
    EXPECT_EQ(FakeSessionControl::lastTrace.traceId, 8'000'000'000);
    EXPECT_EQ(FakeSessionControl::lastTrace.sessionId, ":1.7");
    m_request.Resize(7);

    EXPECT_TRUE(m_native.OnCallReceived(4, m_request, m_reply));

    EXPECT_EQ(FakeSessionControl::lastTrace.traceId, 0);
    EXPECT_THAT(reply(), ElementsAre(0, 0));
    EXPECT_THAT(FakeDlog::lines(), IsEmpty());
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

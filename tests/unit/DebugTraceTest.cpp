// SPDX-License-Identifier: Apache-2.0
// Debug traces: opening, closing, limits, revival and ageing.
#include <gmock/gmock.h>

#include <algorithm>
#include <utility>

#include "fakes/FakeDlog.h"
#include "support/Files.h"
#include "support/SessionWorld.h"

using fakes::FakeDlog;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr int kInfo = 4;
constexpr int kError = 6;

class DebugTraceTest : public SessionWorld {
protected:
    bool reports(const std::string& text) {
        return m_control->GetDebugInfo().find(text) != std::string::npos;
    }

    // Opens a trace at one time and closes it at another.
    void traceClosedAt(std::int64_t traceId, std::int64_t time, const std::string& sessionId = ":1.1") {
        openTrace(traceId, "trace" + std::to_string(traceId), sessionId);
        m_control->setTime(time);
        m_control->CloseDebugTrace(sessionId, traceId);
    }

    void ageAt(std::int64_t time) {
        m_control->setTime(time);
        forget();
        m_control->t_removeOldRecords();
    }
};

}  // namespace

TEST_F(DebugTraceTest, TheFiftiethOpenTraceIsTakenTheFiftyFirstIsRefused) {
    for (int i = 0; i < 50; ++i) {
        openTrace(i, "trace" + std::to_string(i) + ".");
    }
    EXPECT_THAT(FakeDlog::messages(kError), IsEmpty());

    openTrace(50, "trace50.");

    EXPECT_THAT(
        FakeDlog::messages(kError),
        ElementsAre(
            "Can not open StackTrace, traces limit reached, pid(77), processTracesNum(50), traceId(50)"));
    EXPECT_EQ(FakeDlog::lines().back().function(), "m_OpenDebugTrace");
    EXPECT_TRUE(reports("trace49."));
    EXPECT_FALSE(reports("trace50."));
}

TEST_F(DebugTraceTest, TheLimitIsThatOfOneSession) {
    for (int i = 0; i < 50; ++i) {
        openTrace(i);
    }

    openTrace(0, "another session's", ":1.2");

    EXPECT_TRUE(reports("another session's"));
}

TEST_F(DebugTraceTest, AClosedTraceMakesRoom) {
    for (int i = 0; i < 50; ++i) {
        openTrace(i);
    }
    m_control->CloseDebugTrace(":1.1", 7);
    forget();

    openTrace(50, "fits");

    EXPECT_THAT(FakeDlog::messages(kError), IsEmpty());
}

TEST_F(DebugTraceTest, ATraceThatIsOpenAlreadyKeepsItsTextAndTime) {
    m_control->setTime(1000);
    openTrace(-5, "first");
    m_control->setTime(2000);

    openTrace(-5, "second");

    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("Can not open StackTrace, traceId already present, pid(77), traceId(-5)"));
    EXPECT_TRUE(reports("first"));
    EXPECT_TRUE(reports("\"CreationTime\" : \"1.000\""));
    EXPECT_FALSE(reports("second"));
}

TEST_F(DebugTraceTest, WhatAnApplicationSaidOfItselfFirstIsKept) {
    m_control->OpenDebugTrace(":1.1", 1, "a", "/first", "first", "1", ESessionControl_ProgLang_Cpp);

    m_control->OpenDebugTrace(":1.1", 2, "b", "/second", "second", "2", ESessionControl_ProgLang_CSharp);

    EXPECT_TRUE(reports("/first"));
    EXPECT_TRUE(reports("\"PID\" : \"1\""));
    EXPECT_TRUE(reports("\"Language\" : \"C/C++\""));
    EXPECT_FALSE(reports("/second"));
    m_control->TryTerminateZel();
    EXPECT_THAT(FakeDlog::messages(kError),
                Contains("Force to close debug trace, sessionId(:1.1), progName(first), pid(1), traceID(2)"));
}

TEST_F(DebugTraceTest, AnUnknownSessionOrTraceIsLoggedAndChangesNothing) {
    openTrace(1, "stays");

    m_control->CloseDebugTrace(":1.9", 1);
    m_control->CloseDebugTrace(":1.1", 8'000'000'000);

    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("Can not close StackTrace, sessionId not present, sessionId(:1.9)",
                            "Can not close StackTrace, traceId not present, traceId(8000000000)"));
    EXPECT_EQ(FakeDlog::lines().back().function(), "m_CloseDebugTrace");
    EXPECT_TRUE(reports("stays"));
    EXPECT_FALSE(reports("DestructionTime"));
}

TEST_F(DebugTraceTest, ClosingTheLastOpenTraceSetsTheRecordsTime) {
    openTrace(1);
    openTrace(2);
    m_control->setTime(5000);
    m_control->CloseDebugTrace(":1.1", 1);
    EXPECT_TRUE(reports("\"TerminationTime\" : \"\""));

    m_control->setTime(6000);
    m_control->CloseDebugTrace(":1.1", 2);

    EXPECT_TRUE(reports("\"TerminationTime\" : \"6.000\""));
}

TEST_F(DebugTraceTest, TheLastTraceAndItsRecordEndAtTheSameTime) {
    openTrace(1);
    std::int64_t now = 5000;
    m_control->setClock([&now] { return now++; });

    m_control->CloseDebugTrace(":1.1", 1);

    EXPECT_TRUE(reports("\"DestructionTime\" : \"5.000\""));
    EXPECT_TRUE(reports("\"TerminationTime\" : \"5.000\""));
}

TEST_F(DebugTraceTest, OpeningRevivesTheRecord) {
    traceClosedAt(1, 5000);

    openTrace(2);

    EXPECT_TRUE(reports("\"TerminationTime\" : \"\""));
}

// Only a record with open traces can be refused one, and such a record is alive already.
TEST_F(DebugTraceTest, ARefusedOpenLeavesTheRecordAlive) {
    openTrace(1);
    openTrace(1);

    ageAt(1'000'000);

    EXPECT_TRUE(reports("\"TerminationTime\" : \"\""));
}

TEST_F(DebugTraceTest, AFullRecordIsFullAlsoForATraceThatItHas) {
    for (int i = 0; i < 50; ++i) {
        openTrace(i);
    }

    m_control->OpenDebugTrace(":1.1", 7, "again", "/usr/bin/other", "other", "88",
                              ESessionControl_ProgLang_Cpp);

    EXPECT_THAT(
        FakeDlog::messages(kError),
        ElementsAre(
            "Can not open StackTrace, traces limit reached, pid(88), processTracesNum(50), traceId(7)"));
}

TEST_F(DebugTraceTest, ARefusalNamesTheProcessThatAsks) {
    openTrace(7);

    m_control->OpenDebugTrace(":1.1", 7, "again", "/usr/bin/other", "other", "88",
                              ESessionControl_ProgLang_Cpp);

    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("Can not open StackTrace, traceId already present, pid(88), traceId(7)"));
}

TEST_F(DebugTraceTest, WrappedTimesAgeLikeOthers) {
    m_control->setTime(-50'000);
    traceClosedAt(1, -50'000);

    ageAt(-50'000 + 19'999);
    EXPECT_TRUE(reports("trace1"));

    ageAt(-30'000);
    EXPECT_TRUE(reports("\"zel-lite\" : null"));
    m_control->CloseDebugTrace(":1.1", 1);
    EXPECT_THAT(FakeDlog::messages(kError), Contains(HasSubstr("sessionId not present")));
}

TEST_F(DebugTraceTest, ARecordWithOpenTracesIsNeverAgedOut) {
    m_control->setTime(1);
    openTrace(1, "eternal");

    ageAt(std::int64_t{1} << 40);

    EXPECT_TRUE(reports("eternal"));
}

TEST_F(DebugTraceTest, ATraceClosedLessThanTwentySecondsAgoStaysAndAnOlderOneGoes) {
    traceClosedAt(1, 10'000);

    ageAt(10'000 + 19'999);
    EXPECT_TRUE(reports("trace1"));
    EXPECT_EQ(FakeDlog::count(kInfo, "Remove recent traces, removedNum(0), elementsLeft(1)"), 1U);

    ageAt(10'000 + 20'000);
    EXPECT_FALSE(reports("trace1"));
    EXPECT_EQ(FakeDlog::count(kInfo, "Remove recent traces, removedNum(1), elementsLeft(0)"), 1U);
}

TEST_F(DebugTraceTest, ARecordIsForgottenAtTheSameMillisecond) {
    traceClosedAt(1, 10'000);

    ageAt(29'999);
    EXPECT_TRUE(reports("\"PID\" : \"77\""));

    ageAt(30'000);
    EXPECT_FALSE(reports("\"PID\" : \"77\""));
    m_control->CloseDebugTrace(":1.1", 1);
    EXPECT_THAT(FakeDlog::messages(kError), Contains(HasSubstr("sessionId not present")));
}

// The clock wraps to negative times after 24.8 days. A list that begins with a trace from before the wrap
// would keep everything behind it until the clock comes round again.
TEST_F(DebugTraceTest, ATraceClosedLaterThanNowIsOld) {
    traceClosedAt(1, 2'147'483'000);
    traceClosedAt(2, -2'147'483'000);

    ageAt(-2'147'470'000);

    EXPECT_FALSE(reports("trace1"));
    EXPECT_TRUE(reports("trace2"));
    EXPECT_EQ(FakeDlog::count(kInfo, "Remove recent traces, removedNum(1), elementsLeft(1)"), 1U);
}

TEST_F(DebugTraceTest, ARecordWhoseLastTraceWasClosedLaterThanNowIsForgotten) {
    traceClosedAt(1, 2'147'483'000);

    ageAt(-2'147'483'000);

    m_control->CloseDebugTrace(":1.1", 1);
    EXPECT_THAT(FakeDlog::messages(kError), Contains(HasSubstr("sessionId not present")));
}

TEST_F(DebugTraceTest, ATraceClosedNowIsYoung) {
    traceClosedAt(1, 10'000);

    ageAt(10'000);

    EXPECT_TRUE(reports("trace1"));
}

TEST_F(DebugTraceTest, OneAgeingHasOneTime) {
    traceClosedAt(1, 10'000, "a");
    traceClosedAt(2, 10'000, "b");
    traceClosedAt(3, 10'000, "b");
    // At the first reading nothing is old, at any other everything.
    std::int64_t now = 29'999;
    m_control->setClock([&now] { return std::exchange(now, 100'000); });
    forget();

    m_control->t_removeOldRecords();

    EXPECT_THAT(FakeDlog::messages(kInfo),
                ElementsAre("Remove old records", "Remove recent traces, removedNum(0), elementsLeft(1)",
                            "Remove recent traces, removedNum(0), elementsLeft(2)"));
    EXPECT_TRUE(reports("trace1"));
    EXPECT_TRUE(reports("trace2"));
}

// A time of 0 means that the record is alive.
TEST_F(DebugTraceTest, ARecordWhoseLastTraceWasClosedAtZeroIsNeverAgedOut) {
    traceClosedAt(1, 0);

    ageAt(1'000'000);

    EXPECT_EQ(FakeDlog::count(kInfo, "Remove recent traces, removedNum(1), elementsLeft(0)"), 1U);
    EXPECT_TRUE(reports("\"PID\" : \"77\""));
    EXPECT_TRUE(reports("\"TerminationTime\" : \"\""));
}

TEST_F(DebugTraceTest, AnEmptiedListIsGoneAtTheNextAgeing) {
    traceClosedAt(1, 10'000);
    ageAt(30'000);

    ageAt(30'001);

    EXPECT_THAT(FakeDlog::messages(kInfo), ElementsAre("Remove old records"));
}

TEST_F(DebugTraceTest, EveryListHasItsSummaryAlsoWhenNothingWasRemoved) {
    traceClosedAt(1, 10'000, "a");
    traceClosedAt(2, 10'001, "b");
    traceClosedAt(3, 15'000, "b");
    traceClosedAt(4, 16'000, "c");

    ageAt(30'000);

    EXPECT_THAT(FakeDlog::messages(kInfo),
                ElementsAre("Remove old records", "Remove recent traces, removedNum(1), elementsLeft(0)",
                            "Remove recent traces, removedNum(0), elementsLeft(2)",
                            "Remove recent traces, removedNum(0), elementsLeft(1)"));
    EXPECT_EQ(FakeDlog::lines().back().function(), "t_removeOldRecords");
    forget();
    ageAt(30'001);
    EXPECT_THAT(FakeDlog::messages(kInfo),
                ElementsAre("Remove old records", "Remove recent traces, removedNum(1), elementsLeft(1)",
                            "Remove recent traces, removedNum(0), elementsLeft(1)"));
}

TEST_F(DebugTraceTest, OnlyTheTracesBeforeTheFirstYoungOneGo) {
    traceClosedAt(1, 10'000);
    traceClosedAt(2, 30'000);
    // The clock ran backwards: an old time behind a young one.
    traceClosedAt(3, 9'000);
    openTrace(4, "keeps the record");

    ageAt(31'000);

    EXPECT_FALSE(reports("trace1"));
    EXPECT_TRUE(reports("trace2"));
    EXPECT_TRUE(reports("trace3"));
}

// Tracing switched off

TEST_F(DebugTraceTest, SwitchedOffNothingIsRecordedAndOnlyOpeningsAreLogged) {
    setSwitch("zel_lite_disable_tracing");
    start();

    openTrace(1, "unseen");

    EXPECT_THAT(FakeDlog::messages(kInfo), ElementsAre("Tracing disabled"));
    EXPECT_EQ(FakeDlog::lines().size(), 1U);
    forget();
    m_control->CloseDebugTrace(":1.1", 1);
    EXPECT_THAT(FakeDlog::lines(), IsEmpty());
    EXPECT_TRUE(reports("\"zel-lite\" : null"));
}

TEST_F(DebugTraceTest, TheSwitchIsReadAtStartOnly) {
    setSwitch("zel_lite_disable_tracing");

    openTrace(1, "seen");

    EXPECT_TRUE(reports("seen"));
}

// The traces of an owner that has gone

TEST_F(DebugTraceTest, OnADebugSetTheTracesOfAVanishedOwnerAreClosedInOrder) {
    startDebug();
    m_control->Open(":1.1", "app", "77");
    openTrace(20, "later");
    openTrace(3, "earlier");
    m_control->setTime(4000);

    m_control->CloseOnCrash(":1.1");

    const std::string report = m_control->GetDebugInfo();
    EXPECT_THAT(report, HasSubstr("\"TerminationTime\" : \"4.000\""));
    EXPECT_LT(report.find("earlier"), report.find("later"));
    EXPECT_EQ(FakeDlog::count(kInfo, "All traces closed, sessionId(:1.1)"), 0U);
}

TEST_F(DebugTraceTest, OnADebugSetAVanishedOwnerWithoutTracesIsLogged) {
    startDebug();
    m_control->Open(":1.1", "app", "77");

    m_control->CloseOnCrash(":1.1");

    EXPECT_EQ(FakeDlog::count(kInfo, "All traces closed, sessionId(:1.1)"), 1U);
}

TEST_F(DebugTraceTest, AVanishedOwnerWhoseTracesAreClosedAlreadyIsNotLogged) {
    startDebug();
    m_control->Open(":1.1", "app", "77");
    openTrace(1);
    m_control->CloseDebugTrace(":1.1", 1);
    forget();

    m_control->CloseOnCrash(":1.1");

    EXPECT_THAT(FakeDlog::messages(kInfo), ElementsAre("State file removed, removed(1), exists(0)"));
    EXPECT_EQ(FakeDlog::lines().size(), 1U);
}

TEST_F(DebugTraceTest, TheSessionOfAVanishedOwnerIsClosedBeforeItsTraces) {
    startDebug();
    m_control->Open(":1.1", "app", "77");
    openTrace(1);
    // The clock is read when the trace is closed, the file is gone when the session is.
    bool wasSessionOpen = true;
    m_control->setClock([&wasSessionOpen] {
        wasSessionOpen = exists("/tmp/zel_lite_sessions_state.txt");
        return 4000;
    });
    ASSERT_TRUE(exists("/tmp/zel_lite_sessions_state.txt"));

    m_control->CloseOnCrash(":1.1");

    EXPECT_TRUE(reports("\"DestructionTime\" : \"4.000\""));
    EXPECT_FALSE(wasSessionOpen);
}

TEST_F(DebugTraceTest, OnAnOrdinarySetTheTracesOfAVanishedOwnerStayOpen) {
    m_control->Open(":1.1", "app", "77");
    openTrace(1, "left open");

    m_control->CloseOnCrash(":1.1");

    EXPECT_FALSE(m_control->IsAnySessionActive());
    EXPECT_TRUE(reports("left open"));
    EXPECT_FALSE(reports("DestructionTime"));
}

TEST_F(DebugTraceTest, TracesWithoutASessionAreNotClosedByACrash) {
    startDebug();
    openTrace(1, "left open");

    m_control->CloseOnCrash(":1.1");

    EXPECT_FALSE(reports("DestructionTime"));
}

// SPDX-License-Identifier: Apache-2.0
// What debug traces may take: 16 MiB in all, with a quarter more than the report shows for working memory,
// and 1 MiB of the report for one session.
#include <gmock/gmock.h>
#include <json/json.h>

#include <memory>
#include <string>

#include "TraceBudget.h"
#include "fakes/FakeDlog.h"
#include "fakes/FakeStateManager.h"
#include "support/SessionWorld.h"

using fakes::FakeDlog;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr int kError = 6;
constexpr std::size_t kMegabyte = 1'000'000;

class DebugBudgetTest : public SessionWorld {
protected:
    // Opens a trace that begins with @p name and has @p size bytes.
    void openLarge(const std::string& sessionId, std::int64_t traceId, const std::string& name,
                   std::size_t size = kMegabyte) {
        openTrace(traceId, name + std::string(size - name.size(), '.'), sessionId);
    }

    // Opens one trace of 1 MB in each of @p count sessions, the first of which is ":2.0".
    void openInSessions(int count) {
        for (int session = 0; session < count; ++session) {
            openLarge(":2." + std::to_string(session), 1, "of" + std::to_string(session) + ".");
        }
    }

    // Leaves about 850,000 bytes of the budget.
    void fillAlmost() {
        openInSessions(12);
        openLarge(":2.12", 1, "of12.", 500'000);
    }

    bool reports(const std::string& text) {
        return m_control->GetDebugInfo().find(text) != std::string::npos;
    }
};

std::size_t sizeInReport(const std::string& text) {
    constexpr std::size_t kQuotationMarks = 2;
    return Json::writeString(Json::StreamWriterBuilder(), Json::Value(text)).size() - kQuotationMarks;
}

}  // namespace

TEST(TraceBudgetTest, APrintableTextCountsItsSizeInTheReport) {
    for (const std::string text : {"", "why", "a \"quoted\" word", "back\\slash", " !~/"}) {
        EXPECT_EQ(TCTraceBudget::SizeOf(text), sizeInReport(text)) << text;
    }
}

TEST(TraceBudgetTest, NoByteCountsLessThanItTakesInTheReport) {
    for (int first = 0; first < 256; ++first) {
        for (int second = 0; second < 256; ++second) {
            std::string text{static_cast<char>(first), static_cast<char>(second)};
            EXPECT_GE(TCTraceBudget::SizeOf(text), sizeInReport(text)) << first << ' ' << second;
            text += "\x80\x80";
            EXPECT_GE(TCTraceBudget::SizeOf(text), sizeInReport(text)) << first << ' ' << second;
        }
    }
}

TEST_F(DebugBudgetTest, OneSessionHoldsAMebibyte) {
    openLarge(":1.1", 1, "first", 500'000);
    openLarge(":1.1", 2, "second", 500'000);
    EXPECT_THAT(FakeDlog::messages(kError), IsEmpty());

    openLarge(":1.1", 3, "third", 50'000);

    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre(HasSubstr("forgottenNum(0), refusedNum(1)")));
    EXPECT_EQ(FakeDlog::lines().back().function(), "OpenDebugTrace");
    EXPECT_TRUE(reports("first"));
    EXPECT_TRUE(reports("second"));
    EXPECT_FALSE(reports("third"));
}

TEST_F(DebugBudgetTest, ATextCountsAsTheReportShowsIt) {
    openTrace(1, std::string(200'000, '\x01'));

    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre(HasSubstr("refusedNum(1)")));
}

TEST_F(DebugBudgetTest, ThirteenSessionsOfAMegabyteAreKeptAndTheNextIsRefused) {
    openInSessions(13);
    EXPECT_THAT(FakeDlog::messages(kError), IsEmpty());

    openLarge(":3.1", 1, "one more");

    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre(HasSubstr("forgottenNum(0), refusedNum(1)")));
    EXPECT_FALSE(reports("one more"));
    for (int session = 0; session < 13; ++session) {
        EXPECT_TRUE(reports("of" + std::to_string(session) + "."));
    }
}

TEST_F(DebugBudgetTest, ARefusedTraceOfANewSessionLeavesNoRecord) {
    openInSessions(13);

    openLarge(":3.1", 1, "one more");

    forget();
    m_control->CloseDebugTrace(":3.1", 1);
    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("Can not close StackTrace, sessionId not present, sessionId(:3.1)"));
}

TEST_F(DebugBudgetTest, ARefusedTraceLeavesTheOthersOfItsSession) {
    openLarge(":1.1", 1, "first");

    openLarge(":1.1", 2, "second");

    EXPECT_TRUE(reports("first"));
    forget();
    m_control->CloseDebugTrace(":1.1", 1);
    EXPECT_THAT(FakeDlog::messages(kError), IsEmpty());
}

TEST_F(DebugBudgetTest, ASessionsOldestClosedTracesMakeRoomForItsNewOnes) {
    for (int trace = 1; trace <= 4; ++trace) {
        openLarge(":1.1", trace, "trace" + std::to_string(trace), 250'000);
    }
    m_control->CloseDebugTrace(":1.1", 3);
    m_control->CloseDebugTrace(":1.1", 2);
    forget();

    openLarge(":1.1", 5, "trace5", 250'000);

    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre(HasSubstr("forgottenNum(1), refusedNum(0)")));
    EXPECT_FALSE(reports("trace3"));
    for (const int kept : {1, 2, 4, 5}) {
        EXPECT_TRUE(reports("trace" + std::to_string(kept))) << kept;
    }
}

TEST_F(DebugBudgetTest, AnOpenTraceOfAnOwnerWhoIsThereIsNeverForgotten) {
    openInSessions(13);
    m_control->CloseDebugTrace(":2.7", 1);

    openLarge(":3.1", 1, "one more");
    openLarge(":3.2", 1, "two more");

    EXPECT_TRUE(reports("one more"));
    EXPECT_FALSE(reports("two more"));
    EXPECT_FALSE(reports("of7."));
    for (const int kept : {0, 6, 8, 12}) {
        EXPECT_TRUE(reports("of" + std::to_string(kept) + ".")) << kept;
    }
}

TEST_F(DebugBudgetTest, TheSessionThatHoldsMostForgetsFirst) {
    fillAlmost();
    openLarge(":1.1", 1, "small", 100'000);
    openLarge(":1.1", 2, "other", 100'000);
    openLarge(":1.2", 1, "large", 300'000);
    openLarge(":1.2", 2, "other", 200'000);
    m_control->CloseDebugTrace(":1.1", 1);
    m_control->CloseDebugTrace(":1.2", 1);
    forget();

    openLarge(":3.1", 1, "one more", 350'000);

    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre(HasSubstr("forgottenNum(1), refusedNum(0)")));
    EXPECT_TRUE(reports("small"));
    EXPECT_FALSE(reports("large"));
    EXPECT_TRUE(reports("one more"));
}

TEST_F(DebugBudgetTest, ClosedTracesGoBeforeOpenOnesOfOwnersWhoLeft) {
    fillAlmost();
    openLarge(":1.1", 1, "closed", 500'000);
    openLarge(":1.1", 2, "open", 10'000);
    m_control->CloseDebugTrace(":1.1", 1);
    m_control->CloseOnCrash(":2.3");

    openLarge(":3.1", 1, "one more", 500'000);

    EXPECT_FALSE(reports("closed"));
    EXPECT_TRUE(reports("of3."));
    EXPECT_TRUE(reports("one more"));
}

TEST_F(DebugBudgetTest, TheOldestOpenTraceOfAnOwnerWhoLeftGoesFirst) {
    fillAlmost();
    m_control->setTime(3000);
    openLarge(":1.1", 1, "younger", 400'000);
    m_control->setTime(2000);
    openLarge(":1.1", 2, "older", 400'000);
    m_control->CloseOnCrash(":1.1");

    openLarge(":3.1", 1, "one more", 300'000);

    EXPECT_TRUE(reports("younger"));
    EXPECT_FALSE(reports("older"));
    EXPECT_TRUE(reports("one more"));
}

TEST_F(DebugBudgetTest, ARecordGoesWithTheLastTraceOfAnOwnerWhoLeft) {
    openInSessions(13);
    m_control->CloseOnCrash(":2.5");

    openLarge(":3.1", 1, "one more");

    forget();
    m_control->CloseDebugTrace(":2.5", 1);
    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("Can not close StackTrace, sessionId not present, sessionId(:2.5)"));
}

TEST_F(DebugBudgetTest, AnOwnerWhoLeftAndOpensATraceIsThereAgain) {
    fillAlmost();
    openLarge(":1.1", 1, "before", 300'000);
    m_control->CloseOnCrash(":1.1");
    openLarge(":1.1", 2, "after", 300'000);

    openLarge(":3.1", 1, "one more");

    EXPECT_TRUE(reports("before"));
    EXPECT_FALSE(reports("one more"));
}

TEST_F(DebugBudgetTest, ManySmallRecordsMakeRoomToo) {
    for (int session = 0; session < 20'000; ++session) {
        const std::string sessionId = ":4." + std::to_string(session);
        openTrace(1, "x", sessionId);
        m_control->CloseDebugTrace(sessionId, 1);
    }

    openLarge(":3.1", 1, "one more");

    EXPECT_TRUE(reports("one more"));
}

TEST_F(DebugBudgetTest, WhatAnAttemptLeavesIsNeverRefused) {
    startDebug();
    openInSessions(13);
    fakes::FakeStateManager::terminateErrors = {static_cast<ETerminateErrorType>(7)};
    fakes::FakeStateManager::terminateResult = false;

    m_control->TryTerminateZel();

    EXPECT_TRUE(reports("Termination error (ETerminateErrorType): 7"));
}

TEST_F(DebugBudgetTest, RoomComesBackWithAgeing) {
    openInSessions(13);
    for (int session = 0; session < 13; ++session) {
        m_control->CloseDebugTrace(":2." + std::to_string(session), 1);
    }
    m_control->setTime(100'000);
    m_control->t_removeOldRecords();
    forget();

    openInSessions(13);

    EXPECT_THAT(FakeDlog::messages(kError), IsEmpty());
}

TEST_F(DebugBudgetTest, RoomComesBackWithAnAttempt) {
    openInSessions(13);
    m_control->TryTerminateZel();
    m_control->TryTerminateZel();
    forget();

    openInSessions(12);

    EXPECT_THAT(FakeDlog::messages(kError), IsEmpty());
}

TEST_F(DebugBudgetTest, OneLineASecondSaysHowManyWereRefused) {
    openInSessions(13);
    for (int i = 0; i < 3; ++i) {
        openLarge(":3.1", 1, "refused");
    }
    m_control->setTime(1999);
    openLarge(":3.1", 1, "refused");
    ASSERT_EQ(FakeDlog::messages(kError).size(), 1U);
    m_control->setTime(2000);

    openLarge(":3.1", 1, "refused");

    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre(HasSubstr("forgottenNum(0), refusedNum(1), heldSize("),
                            HasSubstr("forgottenNum(0), refusedNum(4), heldSize(")));
}

TEST_F(DebugBudgetTest, TheLineComesAlsoAfterTheClocksWrap) {
    openInSessions(13);
    m_control->setTime(2'147'483'000);
    openLarge(":3.1", 1, "refused");
    forget();
    m_control->setTime(-2'147'483'000);

    openLarge(":3.1", 1, "refused");

    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre(HasSubstr("refusedNum(1)")));
}

TEST_F(DebugBudgetTest, TheReportOfAFullBudgetIsValidAndNotLargerThanTheBudget) {
    for (int session = 0; session < 400; ++session) {
        const std::string sessionId = ":5." + std::to_string(session);
        for (int trace = 0; trace < 50; ++trace) {
            openTrace(trace, std::string(static_cast<std::size_t>(trace * 7), static_cast<char>(session)),
                      sessionId);
        }
    }
    ASSERT_THAT(FakeDlog::messages(kError), Contains(HasSubstr("refusedNum(")));

    const std::string document = m_control->GetDebugInfo();

    EXPECT_LE(document.size(), TCTraceBudget::kAll + 4096);
    Json::Value root;
    std::string errors;
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    EXPECT_TRUE(reader->parse(document.data(), document.data() + document.size(), &root, &errors)) << errors;
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "   ";
    EXPECT_EQ(document, Json::writeString(writer, root)) << "it is what JsonCpp makes of it in one piece";
}

TEST_F(DebugBudgetTest, WithoutTracingNothingIsCounted) {
    setSwitch("zel_lite_disable_tracing");
    start();

    openLarge(":1.1", 1, "large", 2 * kMegabyte);

    EXPECT_THAT(FakeDlog::messages(kError), IsEmpty());
}

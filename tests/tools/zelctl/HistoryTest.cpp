// SPDX-License-Identifier: Apache-2.0
#include "History.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace zelctl {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Key;
using ::testing::Pair;

class HistoryTest : public ::testing::Test {
protected:
    void says(EventKind kind, std::vector<std::string> values = {}) {
        m_history.add(Event{kind, std::move(values)}, m_now);
    }
    void after(std::int64_t milliseconds) { m_now += milliseconds; }

    std::int64_t m_now = 1000;
    History m_history;
};

TEST_F(HistoryTest, AScheduledAttemptIsDueUntilItsTimeHasCome) {
    says(EventKind::AttemptScheduled, {"10"});
    after(2000);
    says(EventKind::AttemptScheduled, {"10"});
    EXPECT_THAT(m_history.dueAttempts(), ElementsAre(11'000, 13'000));

    after(8000);
    says(EventKind::AttemptDue);

    EXPECT_THAT(m_history.dueAttempts(), ElementsAre(13'000));
}

TEST_F(HistoryTest, AnAttemptWhoseLineIsLostGoesWithTheNext) {
    says(EventKind::AttemptScheduled, {"10"});
    after(1000);
    says(EventKind::AttemptScheduled, {"10"});
    after(1000);
    says(EventKind::AttemptScheduled, {"10"});
    after(9000);

    says(EventKind::AttemptDue);

    EXPECT_THAT(m_history.dueAttempts(), ElementsAre(13'000));
}

TEST_F(HistoryTest, AWindowThatHasGoneHoldsNothingThatWasNotSaved) {
    says(EventKind::OpenedInVain, {"##_WM_USE_HINTS_WIN__winID_3", "", ""});
    says(EventKind::OpenedInVain, {"##_WM_USE_HINTS_WIN__winID_33", "", ""});

    says(EventKind::WindowGone, {"3", "42"});

    EXPECT_THAT(m_history.unsaved(), ElementsAre(Key("##_WM_USE_HINTS_WIN__winID_33")));
}

TEST_F(HistoryTest, AnAttemptThatSessionsRefuseNamesThem) {
    says(EventKind::Attempt);
    says(EventKind::RefusedForSessions, {"1"});
    says(EventKind::RefusedForSession, {":1.7", "player", "42"});

    ASSERT_TRUE(m_history.lastAttempt());
    EXPECT_EQ(m_history.lastAttempt()->time, 1000);
    EXPECT_EQ(m_history.lastAttempt()->outcome, Outcome::RefusedForSessions);
    EXPECT_THAT(m_history.lastAttempt()->sessions, ElementsAre(Pair(":1.7", Holder{"player", "42"})));
}

TEST_F(HistoryTest, AnAttemptThatTheServiceRefusesHasItsReasons) {
    says(EventKind::Attempt);
    says(EventKind::RefusedByService, {"running", "0", "2"});
    says(EventKind::RefusalReason, {"3"});
    says(EventKind::RefusalReason, {"7"});

    EXPECT_EQ(m_history.lastAttempt()->outcome, Outcome::RefusedByService);
    EXPECT_EQ(m_history.lastAttempt()->result, "0");
    EXPECT_THAT(m_history.lastAttempt()->reasons, ElementsAre("3", "7"));
}

TEST_F(HistoryTest, WhatComesOfAFailedAttemptIsNotItsOutcome) {
    says(EventKind::Attempt);
    says(EventKind::Unreachable, {"running", "-1"});
    says(EventKind::NoControl);

    EXPECT_EQ(m_history.lastAttempt()->outcome, Outcome::Unreachable);
}

TEST_F(HistoryTest, TheNextAttemptTakesThePlaceOfTheLast) {
    says(EventKind::Attempt);
    says(EventKind::RefusedByService, {"running", "0", "1"});
    says(EventKind::RefusalReason, {"3"});
    after(10'000);
    says(EventKind::Attempt);
    says(EventKind::Terminated);

    EXPECT_EQ(m_history.lastAttempt()->time, 11'000);
    EXPECT_EQ(m_history.lastAttempt()->outcome, Outcome::Terminated);
    EXPECT_THAT(m_history.lastAttempt()->reasons, IsEmpty());
}

TEST_F(HistoryTest, ASessionThatWasOpenedInVainIsUnsavedUntilTheTableIsSaved) {
    says(EventKind::OpenedInVain, {":1.7", "player", "42"});
    says(EventKind::Opened, {"0", ":1.7", "player", "42"});
    EXPECT_THAT(m_history.unsaved(), ElementsAre(Pair(":1.7", Holder{"player", "42"})));

    says(EventKind::Opened, {"1", ":1.8", "other", "43"});

    EXPECT_THAT(m_history.unsaved(), IsEmpty());
}

TEST_F(HistoryTest, UnsavedSessionsWhoseOwnerIsGoneAreForgotten) {
    says(EventKind::OpenedInVain, {":1.7", "player", "42"});
    says(EventKind::OpenedInVain, {":1.8", "other", "43"});

    m_history.forgetUnsaved([](const std::string& id) { return id == ":1.7"; });

    EXPECT_THAT(m_history.unsaved(), ElementsAre(Pair(":1.8", Holder{"other", "43"})));
}

TEST_F(HistoryTest, AProblemLastsUntilTheNextTrigger) {
    says(EventKind::Trigger, {"1", "1", "1", "3", "1"});
    says(EventKind::StartFailed);
    ASSERT_TRUE(m_history.problem());
    EXPECT_EQ(m_history.problem()->kind, EventKind::StartFailed);

    says(EventKind::Trigger, {"1", "1", "1", "3", "1"});

    EXPECT_FALSE(m_history.problem());
}

}  // namespace
}  // namespace zelctl

// SPDX-License-Identifier: Apache-2.0
#include "Situation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/json.h>

#include "OrdinarySet.h"

namespace zelctl {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

Json::Value parsed(const std::string& text) {
    Json::Value value;
    Json::Reader().parse(text, value);
    return value;
}

TEST(SituationTest, TheServiceIsWhatItsUnitIs) {
    Situation situation = ordinarySet();

    EXPECT_EQ(serviceState(situation), "running");
    situation.service->active = "deactivating";
    EXPECT_EQ(serviceState(situation), "terminating");
    situation.service->active = "failed";
    EXPECT_EQ(serviceState(situation), "failed");
    situation.service->active = "activating";
    EXPECT_EQ(serviceState(situation), "starting");
}

TEST(SituationTest, AStartAfterATerminationIsARestart) {
    Situation situation = ordinarySet();
    situation.service->active = "activating";
    situation.markers[kRestart].isPresent = true;

    EXPECT_EQ(serviceState(situation), "restarting");
}

TEST(SituationTest, AServiceThatIsDownIsTerminatedOnlyWhenTheDaemonTakesItForThat) {
    Situation situation = ordinarySet();
    situation.service->active = "inactive";

    EXPECT_EQ(serviceState(situation), "stopped");
    situation.isTerminated = true;
    EXPECT_EQ(serviceState(situation), "terminated");
}

TEST(SituationTest, WithoutTheDaemonTheMarkerTellsAnAgreedEnd) {
    Situation situation = ordinarySet();
    situation.service->active = "inactive";
    situation.isTerminated.reset();

    EXPECT_EQ(serviceState(situation), "stopped");
    situation.markers[kRestart].isPresent = true;
    EXPECT_EQ(serviceState(situation), "terminated");
}

TEST(SituationTest, WithoutSystemdTheNameTells) {
    Situation situation = ordinarySet();
    situation.service.reset();

    EXPECT_EQ(serviceState(situation), "running");
    situation.serviceOwner = 0;
    EXPECT_EQ(serviceState(situation), "unknown");
}

TEST(SituationTest, ADaemonThatHasItsNameAndSaysNothingIsSilent) {
    Situation situation = ordinarySet();

    EXPECT_EQ(daemonState(situation), "running");
    situation.isTerminated.reset();
    situation.isDaemonSilent = true;
    EXPECT_EQ(daemonState(situation), "silent");
    situation.daemonOwner = 0;
    EXPECT_EQ(daemonState(situation), "absent");
}

// The bus may have kept the question from it.
TEST(SituationTest, ADaemonThatCouldNotBeAskedIsNotSilent) {
    Situation situation = ordinarySet();
    situation.isTerminated.reset();

    EXPECT_EQ(daemonState(situation), "unknown");
}

TEST(SituationTest, AMarkerThatSomebodyElseHasLeftTellsNoAgreedEnd) {
    Situation situation = ordinarySet();
    situation.service->active = "inactive";
    situation.isTerminated.reset();
    situation.markers[kRestart].isPresent = true;
    situation.markers[kRestart].problem = "owned by user 7, not by root";

    EXPECT_EQ(serviceState(situation), "stopped");
}

TEST(SituationTest, ReasonsOfAnotherAttemptAreNotTold) {
    Situation situation = ordinarySet();
    situation.report->lastAttempt = 40'000;
    situation.history.add({EventKind::Attempt, {}}, 20'000);
    situation.history.add({EventKind::RefusedByService, {"running", "0", "2"}}, 20'001);
    EXPECT_EQ(lastAttemptText(situation), "20.0 s ago, failed");
    EXPECT_TRUE(parsed(statusJson(situation))["lastAttempt"]["outcome"].isNull());

    situation.history.add({EventKind::Attempt, {}}, 50'000);
    EXPECT_EQ(lastAttemptText(situation), "20.0 s ago, failed");
}

TEST(SituationTest, ALastAttemptIsToldWithItsReason) {
    Situation situation = ordinarySet();
    situation.report->lastAttempt = 40'000;
    EXPECT_EQ(lastAttemptText(situation), "20.0 s ago, failed");

    situation.history.add({EventKind::Attempt, {}}, 40'000);
    situation.history.add({EventKind::RefusedByService, {"running", "0", "2"}}, 40'001);
    situation.history.add({EventKind::RefusalReason, {"3"}}, 40'002);
    situation.history.add({EventKind::RefusalReason, {"7"}}, 40'003);
    EXPECT_EQ(lastAttemptText(situation), "20.0 s ago, failed: the service refused, result 0, reasons 3, 7");

    situation.report->lastAttempt.reset();
    EXPECT_EQ(lastAttemptText(situation), "none since the daemon has started");
    situation.report.reset();
    EXPECT_THAT(lastAttemptText(situation), HasSubstr("unknown"));
}

TEST(SituationTest, SessionsThatWereNotSavedAreListedToo) {
    Situation situation = ordinarySet();
    situation.history.add({EventKind::OpenedInVain, {":1.9", "other", "43"}}, 1);

    EXPECT_EQ(sessionsText(situation),
              "SESSION  HELD BY      PROGRAM  PROCESS  SAVED\n"
              ":1.7     application  player   42       yes\n"
              ":1.9     application  other    43       no: the service could not be started\n");
    const Json::Value json = parsed(sessionsJson(situation));
    ASSERT_EQ(json.size(), 2U);
    EXPECT_EQ(json[0]["id"], ":1.7");
    EXPECT_EQ(json[0]["saved"], true);
    EXPECT_EQ(json[1]["program"], "other");
    EXPECT_EQ(json[1]["saved"], false);
}

TEST(SituationTest, NobodyIsToldAsNobody) {
    Situation situation = ordinarySet();
    situation.sessions.clear();

    EXPECT_EQ(sessionsText(situation), "no sessions\n");
    EXPECT_EQ(parsed(sessionsJson(situation)), Json::Value(Json::arrayValue));
}

TEST(SituationTest, StatusTellsEverythingInLines) {
    Situation situation = ordinarySet();
    situation.history.add({EventKind::AttemptScheduled, {"10"}}, 55'000);

    const std::string text = statusText(situation);

    EXPECT_THAT(text, HasSubstr("service         running\n"));
    EXPECT_THAT(text, HasSubstr("unit zel_deamon.service is active (running), process 100, for 50.0 s\n"));
    EXPECT_THAT(text, HasSubstr("daemon          running\n"));
    EXPECT_THAT(text, HasSubstr("sessions        1 session open\n"));
    EXPECT_THAT(text, HasSubstr("                :1.7 (player, process 42)\n"));
    EXPECT_THAT(text, HasSubstr("last attempt    none since the daemon has started\n"));
    EXPECT_THAT(text, HasSubstr("next attempt    in 5.000 s\n"));
    EXPECT_THAT(text, HasSubstr("markers         /tmp/subsequent, /tmp/running\n"));
    EXPECT_THAT(text, HasSubstr("switches        none\n"));
}

TEST(SituationTest, WhatIsNotKnownIsSaidToBeUnknown) {
    Situation situation = ordinarySet();
    situation.sessionsProblem = "it is a symbolic link";
    situation.service.reset();
    situation.logProblem = "the log can't be read";

    const std::string text = statusText(situation);

    EXPECT_THAT(text, HasSubstr("sessions        unknown: it is a symbolic link\n"));
    EXPECT_THAT(text, HasSubstr("systemd could not be asked\n"));
    EXPECT_THAT(text, HasSubstr("next attempt    unknown: the log can't be read\n"));
    const Json::Value json = parsed(statusJson(situation));
    EXPECT_TRUE(json["sessions"].isNull());
    EXPECT_TRUE(json["service"]["active"].isNull());
    EXPECT_TRUE(json["nextAttempts"].isNull());
}

TEST(SituationTest, ProgramsReadTheSameInJson) {
    Situation situation = ordinarySet();
    situation.report->lastAttempt = 40'000;
    situation.history.add({EventKind::Attempt, {}}, 40'000);
    situation.history.add({EventKind::RefusedForSessions, {"1"}}, 40'000);
    situation.history.add({EventKind::AttemptScheduled, {"10"}}, 55'000);

    const Json::Value json = parsed(statusJson(situation));

    EXPECT_EQ(json["service"]["state"], "running");
    EXPECT_EQ(json["service"]["pid"], 100);
    EXPECT_EQ(json["daemon"]["state"], "running");
    EXPECT_EQ(json["daemon"]["takesServiceForTerminated"], false);
    EXPECT_EQ(json["sessions"][0]["id"], ":1.7");
    EXPECT_EQ(json["lastAttempt"]["secondsAgo"], 20.0);
    EXPECT_EQ(json["lastAttempt"]["succeeded"], false);
    EXPECT_EQ(json["lastAttempt"]["outcome"], "refused-for-sessions");
    EXPECT_EQ(json["nextAttempts"][0], 5.0);
    EXPECT_EQ(json["markers"][0]["present"], true);
}

TEST(SituationTest, WhatApplicationsAreCalledDoesNotReachTheTerminal) {
    Situation situation = ordinarySet();
    situation.sessions = {{":1.7\033[2J", {"\033]0;x\007", "4\n2"}}};

    EXPECT_THAT(statusText(situation), Not(HasSubstr("\033")));
    EXPECT_THAT(sessionsText(situation), Not(HasSubstr("\033")));
    EXPECT_THAT(sessionsText(situation), HasSubstr("4\\x0a2"));
    EXPECT_THAT(statusJson(situation), Not(HasSubstr("\033")));
}

}  // namespace
}  // namespace zelctl

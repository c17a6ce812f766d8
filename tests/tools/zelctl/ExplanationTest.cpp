// SPDX-License-Identifier: Apache-2.0
#include "Explanation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrdinarySet.h"

namespace zelctl {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

std::string explained(const Situation& situation) {
    return explanationText(explain(situation));
}

std::string foreseen(const Situation& situation, const std::set<std::string>& ids) {
    return explanationText(foresee(situation, ids));
}

TEST(ExplanationTest, ItSaysWhoHoldsTheServiceAndWhereFrom) {
    const std::string text = explained(ordinarySet());

    EXPECT_THAT(text, HasSubstr("the service is running\n    (unit zel_deamon.service)\n"));
    EXPECT_THAT(text, HasSubstr("the daemon does not take the service for terminated\n    (the daemon)\n"));
    EXPECT_THAT(text, HasSubstr("1 session holds it\n    (/tmp/zel_lite_sessions_state.txt)\n"));
    EXPECT_THAT(text, HasSubstr("held by :1.7 (player, process 42)\n"));
}

TEST(ExplanationTest, ItSaysWhatNobodyCanKnow) {
    EXPECT_THAT(explained(ordinarySet()),
                HasSubstr("whether the service itself has work to do, and what it would answer if asked\n"
                          "    (can't be known from outside)\n"));
}

TEST(ExplanationTest, WithoutTheLogItSaysWhatIsMissing) {
    Situation situation = ordinarySet();
    situation.logProblem = "it can't be read";
    EXPECT_THAT(explained(situation),
                HasSubstr("triggers, refusals and pending attempts are unknown: it can't be read\n"));

    situation.logProblem.clear();
    situation.history.add({EventKind::Trigger, {"0", "1", "0", "1", "5"}}, 1);

    EXPECT_THAT(explained(situation), Not(HasSubstr("are unknown")));
    EXPECT_THAT(
        explained(situation),
        HasSubstr(
            "the last trigger was: trigger 5 (stolen-television changed): the service runs and is told\n"));
}

TEST(ExplanationTest, ItSaysWhatIsInTheWayOfAnAttempt) {
    Situation situation = ordinarySet();
    situation.report->lastAttempt = 58'000;
    situation.history.add({EventKind::Attempt, {}}, 58'000);
    situation.history.add({EventKind::RefusedForSessions, {"1"}}, 58'000);
    situation.history.add({EventKind::RefusedForSession, {":1.7", "player", "42"}}, 58'000);

    EXPECT_THAT(
        explained(situation),
        HasSubstr(
            "the last attempt to terminate it: 2.000 s ago, failed: not asked, because sessions were open: "
            ":1.7 (player, process 42)\n"));
}

TEST(ExplanationTest, APendingAttemptIsTold) {
    Situation situation = ordinarySet();
    situation.history.add({EventKind::AttemptScheduled, {"10"}}, 57'000);

    EXPECT_THAT(explained(situation), HasSubstr("the next attempt is due in 7.000 s\n"));
    EXPECT_THAT(explained(situation), HasSubstr("10 seconds after the last session it is tried"));
}

TEST(ExplanationTest, ASwitchOfAfterTheStartIsNotBelieved) {
    Situation situation = ordinarySet();
    situation.switches[kAggressive].changed = 4'000'000;
    EXPECT_THAT(explained(situation), HasSubstr("nothing is tried after the last session"));

    // It may have been removed then.
    situation.switches[kAggressive].changed = 6'000'000;
    EXPECT_THAT(explained(situation),
                HasSubstr("whether anything is tried after the last session is unknown: the switch may have "
                          "been changed after the daemon started, which reads it once"));

    situation.switches[kAggressive].isPresent = true;
    situation.switches[kAggressive].changed = 4'000'000;
    EXPECT_THAT(explained(situation), HasSubstr("10 seconds after the last session it is tried"));

    situation.switches[kAggressive].changed = 6'000'000;
    EXPECT_THAT(explained(situation),
                HasSubstr("whether anything is tried after the last session is unknown"));
}

TEST(ExplanationTest, AnAttemptThatWasScheduledTellsMoreThanTheSwitch) {
    Situation situation = ordinarySet();
    situation.history.add({EventKind::AttemptScheduled, {"10"}}, 20'000);
    situation.history.add({EventKind::AttemptDue, {}}, 30'000);

    EXPECT_THAT(explained(situation), HasSubstr("10 seconds after the last session it is tried"));
}

TEST(ExplanationTest, WithoutSystemdNoSwitchIsBelieved) {
    Situation situation = ordinarySet();
    situation.daemon.reset();

    EXPECT_THAT(explained(situation),
                HasSubstr("whether anything is tried after the last session is unknown: nobody tells since "
                          "when the daemon has run"));
}

TEST(ExplanationTest, TheOverrideCountsOnASetForDevelopersOnly) {
    Situation situation = ordinarySet();
    situation.switches[kNoSessionsCheck].isPresent = true;
    // It is looked for at each attempt.
    situation.switches[kNoSessionsCheck].changed = 6'000'000;
    EXPECT_THAT(explained(situation), Not(HasSubstr("open sessions")));

    situation.switches[kDebugSet].isPresent = true;
    EXPECT_THAT(explained(situation), HasSubstr("open sessions do not keep the service"));

    situation.switches[kNoSessionsCheck].isPresent = false;
    EXPECT_THAT(explained(situation), Not(HasSubstr("open sessions")));
}

TEST(ExplanationTest, ASetThatBecameOneForDevelopersAfterTheStartIsNotBelieved) {
    Situation situation = ordinarySet();
    situation.switches[kNoSessionsCheck].isPresent = true;
    situation.switches[kDebugSet].changed = 6'000'000;

    for (const bool present : {false, true}) {
        situation.switches[kDebugSet].isPresent = present;

        EXPECT_THAT(explained(situation), HasSubstr("whether open sessions keep the service is unknown"));
    }
}

TEST(ExplanationTest, ASilentDaemonsBeliefIsUnknown) {
    Situation situation = ordinarySet();
    situation.isTerminated.reset();
    situation.daemonProblem = "it did not answer in time";

    EXPECT_THAT(explained(situation),
                HasSubstr("what the daemon takes the service for is unknown: it did not answer in time\n"));
}

TEST(ExplanationTest, AMarkerThatWasPlantedTellsNothing) {
    Situation situation = ordinarySet();
    EXPECT_THAT(explained(situation), HasSubstr("the last trigger reached the service"));

    situation.markers[kRunning].problem = "a symbolic link";

    EXPECT_THAT(
        explained(situation),
        HasSubstr(
            "the marker of a running service tells nothing: it is a symbolic link\n    (/tmp/running)\n"));
    EXPECT_THAT(explained(situation), Not(HasSubstr("the last trigger reached the service")));
}

TEST(ExplanationTest, SessionsThatAreLeftKeepTheService) {
    Situation situation = ordinarySet();
    situation.sessions[":1.9"] = Holder{"other", "43"};

    const std::string text = foreseen(situation, {":1.7"});

    EXPECT_THAT(text,
                HasSubstr("without 1 session, 1 would still hold the service; no attempt would follow\n"));
    EXPECT_THAT(text, HasSubstr("still held by :1.9 (other, process 43)\n"));
}

TEST(ExplanationTest, WithoutTheLastSessionTheSwitchDecides) {
    Situation situation = ordinarySet();
    EXPECT_THAT(foreseen(situation, {":1.7"}), HasSubstr("the service would stay"));

    situation.switches[kAggressive].isPresent = true;
    situation.switches[kAggressive].changed = 6'000'000;
    EXPECT_THAT(foreseen(situation, {":1.7"}),
                HasSubstr("whether the service would then be asked to terminate"));

    situation.switches[kAggressive].changed = 4'000'000;
    EXPECT_THAT(foreseen(situation, {":1.7"}), HasSubstr("the service would be asked to terminate"));
    EXPECT_THAT(foreseen(situation, {":1.7"}), HasSubstr("what the service answers then: it may refuse\n"));

    situation.history.add({EventKind::Attempt, {}}, 1);
    situation.history.add({EventKind::RefusedByService, {"running", "0", "0"}}, 1);
    EXPECT_THAT(foreseen(situation, {":1.7"}), HasSubstr("the last time it refused\n"));
}

TEST(ExplanationTest, AnAttemptThatIsDueIsOffBecauseOfWhoIsLeft) {
    Situation situation = ordinarySet();
    situation.sessions[":1.9"] = Holder{"other", "43"};
    situation.history.add({EventKind::AttemptScheduled, {"10"}}, 57'000);

    EXPECT_THAT(foreseen(situation, {":1.7"}),
                HasSubstr("the attempt that is due in 7.000 s would be off because of them\n"));
    situation.switches[kNoSessionsCheck].isPresent = true;
    situation.switches[kDebugSet].isPresent = true;
    EXPECT_THAT(foreseen(situation, {":1.7"}),
                HasSubstr("the attempt that is due in 7.000 s would ask the service to terminate all the "
                          "same: the override is there\n"));
    situation.switches[kDebugSet].changed = 6'000'000;
    EXPECT_THAT(foreseen(situation, {":1.7"}),
                HasSubstr("whether the attempt that is due in 7.000 s would be off because of them"));
}

TEST(ExplanationTest, AnAttemptThatIsDueIsMadeWhenNobodyIsLeft) {
    Situation situation = ordinarySet();
    situation.history.add({EventKind::AttemptScheduled, {"10"}}, 57'000);

    EXPECT_THAT(foreseen(situation, {":1.7"}),
                HasSubstr("the attempt that is due in 7.000 s would ask the service to terminate, unless"));
}

TEST(ExplanationTest, WithoutTheLogNobodyKnowsWhetherAnAttemptIsDue) {
    Situation situation = ordinarySet();
    EXPECT_THAT(foreseen(situation, {":1.7"}), Not(HasSubstr("is due")));

    situation.logProblem = "it can't be read";

    EXPECT_THAT(foreseen(situation, {":1.7"}),
                HasSubstr("whether an attempt is due already is unknown: it can't be read\n"));
}

TEST(ExplanationTest, AServiceThatIsTakenForTerminatedIsAskedNothing) {
    Situation situation = ordinarySet();
    situation.isTerminated = true;
    situation.history.add({EventKind::AttemptScheduled, {"10"}}, 57'000);

    EXPECT_THAT(foreseen(situation, {":1.7"}), HasSubstr("the service is asked nothing"));
    EXPECT_THAT(foreseen(situation, {":1.7"}), Not(HasSubstr("to terminate")));
}

TEST(ExplanationTest, AnIdThatNobodyHasIsNamed) {
    EXPECT_THAT(unknownIds(ordinarySet(), {":1.7", ":1.8"}), ElementsAre(":1.8"));
    EXPECT_THAT(unknownIds(ordinarySet(), {}), IsEmpty());
}

}  // namespace
}  // namespace zelctl

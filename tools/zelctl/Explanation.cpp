// SPDX-License-Identifier: Apache-2.0
#include "Explanation.h"

#include <algorithm>

#include "Text.h"

namespace zelctl {

namespace {

using Statements = std::vector<Statement>;

constexpr const char* kDaemon = "the daemon";
constexpr const char* kLog = "the daemon's log";
constexpr const char* kJournal = "the journal";
constexpr const char* kStateFile = "/tmp/zel_lite_sessions_state.txt";
constexpr const char* kNobody = "can't be known from outside";

const Marker* switchOf(const Situation& situation, SwitchIndex index) {
    return situation.switches.size() > index ? &situation.switches[index] : nullptr;
}

// Whether a switch was there when the daemon started. A file that has gone changed its folder last.
Certainty wasPresentAtStart(const Situation& situation, SwitchIndex index) {
    const Marker* const marker = switchOf(situation, index);
    if (marker == nullptr || !situation.daemon || situation.daemon->activeSince == 0 ||
        marker->changed > situation.daemon->activeSince) {
        return Certainty::Unknown;
    }
    return marker->isPresent ? Certainty::Yes : Certainty::No;
}

// Read anew at each attempt, but only on a set that was one for developers when the daemon started.
Certainty isSessionsCheckOff(const Situation& situation) {
    const Marker* const check = switchOf(situation, kNoSessionsCheck);
    return check != nullptr && check->isPresent ? wasPresentAtStart(situation, kDebugSet) : Certainty::No;
}

std::string markerText(const Marker& running) {
    if (!running.problem.empty()) {
        return "the marker of a running service tells nothing: it is " + running.problem;
    }
    return running.isPresent ? "the last trigger reached the service, and no termination was agreed since"
                             : "no trigger has reached the service since it was last asked to terminate";
}

void addService(const Situation& situation, Statements& statements) {
    const std::string state = serviceState(situation);
    const std::string unit = situation.service ? "unit " + situation.service->name : std::string(kNobody);
    statements.push_back({"the service is " + state, unit});
    if (situation.isTerminated) {
        statements.push_back({*situation.isTerminated ? "the daemon takes the service for terminated"
                                                      : "the daemon does not take the service for terminated",
                              kDaemon});
        if (*situation.isTerminated && state == "running") {
            statements.push_back(
                {"the service runs all the same: somebody else has started it, or it is just being started",
                 kDaemon});
        }
    } else {
        statements.push_back(
            {"what the daemon takes the service for is unknown: " + situation.daemonProblem, kDaemon});
    }
    if (situation.markers.size() > kRunning) {
        statements.push_back({markerText(situation.markers[kRunning]), situation.markers[kRunning].path});
    }
}

void addTrigger(const Situation& situation, Statements& statements) {
    if (const auto& trigger = situation.history.lastTrigger()) {
        statements.push_back({"the last trigger was: " + eventText(*trigger), kLog});
    }
    if (const auto& problem = situation.history.problem()) {
        statements.push_back({"then " + eventText(*problem), kLog});
    }
    if (!situation.logProblem.empty()) {
        statements.push_back(
            {"triggers, refusals and pending attempts are unknown: " + situation.logProblem, kJournal});
    }
}

void addSessions(const Situation& situation, Statements& statements) {
    if (!situation.sessionsProblem.empty()) {
        statements.push_back({"who holds the service is unknown: " + situation.sessionsProblem, kStateFile});
        return;
    }
    const Sessions sessions = openSessions(situation);
    statements.push_back({sessions.empty() ? "nobody holds the service"
                                           : counted(sessions.size(), "session") +
                                                 (sessions.size() == 1 ? " holds it" : " hold it"),
                          kStateFile});
    for (const auto& [id, holder] : sessions) {
        const bool saved = situation.sessions.count(id) > 0;
        statements.push_back({"held by " + sessionText(id, holder) +
                                  (saved ? "" : ", though the service could not be started for it"),
                              saved ? kStateFile : kLog});
    }
}

std::string pathOf(const Situation& situation, SwitchIndex index) {
    const Marker* const marker = switchOf(situation, index);
    return marker == nullptr ? "" : marker->path;
}

// Why it is unknown whether a switch counts.
std::string doubtText(const Situation& situation) {
    return situation.daemon && situation.daemon->activeSince != 0
               ? "the switch may have been changed after the daemon started, which reads it once"
               : "nobody tells since when the daemon has run, which reads the switch once";
}

void addOverride(const Situation& situation, Statements& statements) {
    const std::string path = pathOf(situation, kNoSessionsCheck);
    switch (isSessionsCheckOff(situation)) {
        case Certainty::Yes:
            statements.push_back(
                {"open sessions do not keep the service: the override is there, on a set for developers",
                 path});
            break;
        case Certainty::Unknown:
            statements.push_back(
                {"whether open sessions keep the service is unknown: the override is there, "
                 "and counts on a set for developers; " +
                     doubtText(situation),
                 pathOf(situation, kDebugSet)});
            break;
        case Certainty::No:
            break;
    }
}

void addSwitches(const Situation& situation, Statements& statements) {
    const std::string path = pathOf(situation, kAggressive);
    switch (isTriedAfterLastSession(situation)) {
        case Certainty::Yes:
            statements.push_back(
                {"10 seconds after the last session it is tried to terminate the service", path});
            break;
        case Certainty::No:
            statements.push_back(
                {"nothing is tried after the last session: the switch is absent, and counts only if it was "
                 "there when the daemon started",
                 path});
            break;
        case Certainty::Unknown:
            statements.push_back(
                {"whether anything is tried after the last session is unknown: " + doubtText(situation),
                 path});
            break;
    }
    addOverride(situation, statements);
}

std::string dueText(const Situation& situation, std::int64_t due) {
    return "due in " + spanText(std::max<std::int64_t>(due - situation.monotonic, 0));
}

void addAttempts(const Situation& situation, Statements& statements) {
    statements.push_back(
        {"the last attempt to terminate it: " + lastAttemptText(situation),
         loggedAttempt(situation) != nullptr ? "the report, the daemon's log" : "the report"});
    for (const std::int64_t due : situation.history.dueAttempts()) {
        statements.push_back({"the next attempt is " + dueText(situation, due), kLog});
    }
}

std::string answerText(const Situation& situation) {
    const auto& attempt = situation.history.lastAttempt();
    if (attempt && attempt->outcome == Outcome::RefusedByService) {
        return "what the service answers then; the last time it refused";
    }
    return "what the service answers then: it may refuse";
}

void addAttemptAfterLast(const Situation& situation, Statements& statements) {
    const std::string path = pathOf(situation, kAggressive);
    switch (isTriedAfterLastSession(situation)) {
        case Certainty::Yes:
            statements.push_back(
                {"10 seconds after the last of them has closed, the service would be asked to terminate, "
                 "unless a session was opened meanwhile",
                 path});
            statements.push_back({answerText(situation), kNobody});
            break;
        case Certainty::No:
            statements.push_back(
                {"the service would stay: nothing asks it to terminate after the last session", path});
            break;
        case Certainty::Unknown:
            statements.push_back(
                {"whether the service would then be asked to terminate: " + doubtText(situation), kNobody});
            break;
    }
}

// What an attempt comes to that is made anyway.
Statement forecast(const Situation& situation, std::int64_t due, bool isHeld) {
    const std::string attempt = "the attempt that is " + dueText(situation, due);
    if (!isHeld) {
        return {attempt + " would ask the service to terminate, unless a session is opened meanwhile", kLog};
    }
    switch (isSessionsCheckOff(situation)) {
        case Certainty::Yes:
            return {attempt + " would ask the service to terminate all the same: the override is there",
                    pathOf(situation, kNoSessionsCheck)};
        case Certainty::Unknown:
            return {"whether " + attempt + " would be off because of them: the override is there; " +
                        doubtText(situation),
                    kNobody};
        case Certainty::No:
            break;
    }
    return {attempt + " would be off because of them", kLog};
}

}  // namespace

std::vector<Statement> explain(const Situation& situation) {
    Statements statements;
    addService(situation, statements);
    addTrigger(situation, statements);
    addSessions(situation, statements);
    addSwitches(situation, statements);
    addAttempts(situation, statements);
    statements.push_back(
        {"whether the service itself has work to do, and what it would answer if asked", kNobody});
    return statements;
}

Certainty isTriedAfterLastSession(const Situation& situation) {
    // That it was done once tells more than the file.
    return situation.history.wasAttemptScheduled() ? Certainty::Yes
                                                   : wasPresentAtStart(situation, kAggressive);
}

std::vector<Statement> foresee(const Situation& situation, const std::set<std::string>& ids) {
    Sessions left = openSessions(situation);
    for (const std::string& id : ids) {
        left.erase(id);
    }
    const std::string without = "without " + counted(ids.size(), "session");
    Statements statements;
    if (left.empty()) {
        statements.push_back({without + " nobody would hold the service", kStateFile});
    } else {
        statements.push_back({without + ", " + std::to_string(left.size()) +
                                  " would still hold the service; no attempt would follow",
                              kStateFile});
    }
    for (const auto& [id, holder] : left) {
        statements.push_back({"still held by " + sessionText(id, holder), kStateFile});
    }
    if (situation.isTerminated.value_or(false)) {
        statements.push_back(
            {"whatever is tried, the service is asked nothing: the daemon takes it for terminated", kDaemon});
        return statements;
    }
    if (left.empty()) {
        addAttemptAfterLast(situation, statements);
    }
    for (const std::int64_t due : situation.history.dueAttempts()) {
        statements.push_back(forecast(situation, due, !left.empty()));
    }
    if (!situation.logProblem.empty()) {
        statements.push_back(
            {"whether an attempt is due already is unknown: " + situation.logProblem, kJournal});
    }
    return statements;
}

std::vector<std::string> unknownIds(const Situation& situation, const std::set<std::string>& ids) {
    const Sessions sessions = openSessions(situation);
    std::vector<std::string> unknown;
    std::copy_if(ids.begin(), ids.end(), std::back_inserter(unknown),
                 [&sessions](const std::string& id) { return sessions.count(id) == 0; });
    return unknown;
}

std::string explanationText(const std::vector<Statement>& statements) {
    std::string text;
    for (const Statement& statement : statements) {
        text += printable(statement.text) + '\n';
        text += "    (" + printable(statement.source) + ")\n";
    }
    return text;
}

}  // namespace zelctl

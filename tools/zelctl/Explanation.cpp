// SPDX-License-Identifier: Apache-2.0
#include "Explanation.h"

#include <algorithm>

#include "Text.h"

namespace zelctl {

namespace {

using Statements = std::vector<Statement>;

constexpr const char* kDaemon = "the daemon";
constexpr const char* kLog = "the daemon's log";
constexpr const char* kStateFile = "/tmp/zel_lite_sessions_state.txt";
constexpr const char* kNobody = "can't be known from outside";

enum class Certainty { Yes, No, Unknown };

const Marker* switchOf(const Situation& situation, SwitchIndex index) {
    return situation.switches.size() > index ? &situation.switches[index] : nullptr;
}

// The daemon reads this switch when it starts and never again; an attempt that it scheduled tells more than
// the file.
Certainty isAggressive(const Situation& situation) {
    if (!situation.history.dueAttempts().empty()) {
        return Certainty::Yes;
    }
    const Marker* const marker = switchOf(situation, kAggressive);
    if (marker == nullptr || !situation.daemon || situation.daemon->activeSince == 0) {
        return Certainty::Unknown;
    }
    if (!marker->isPresent) {
        return Certainty::No;
    }
    return marker->changed <= situation.daemon->activeSince ? Certainty::Yes : Certainty::Unknown;
}

// Read anew at each attempt, but only on a set that was one for developers when the daemon started.
bool isSessionsCheckOff(const Situation& situation) {
    const Marker* const debug = switchOf(situation, kDebugSet);
    const Marker* const check = switchOf(situation, kNoSessionsCheck);
    return debug != nullptr && debug->isPresent && check != nullptr && check->isPresent;
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
            statements.push_back({"somebody else has started the service: the daemon did not", kDaemon});
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
    if (situation.history.isEmpty()) {
        statements.push_back(
            {"the daemon's log can't be read, so triggers, refusals and pending attempts are unknown; "
             "root and members of systemd-journal can read it",
             "the journal"});
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

void addSwitches(const Situation& situation, Statements& statements) {
    const Marker* const aggressive = switchOf(situation, kAggressive);
    const std::string path = aggressive == nullptr ? "" : aggressive->path;
    switch (isAggressive(situation)) {
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
                {"whether anything is tried after the last session is unknown: the switch was changed "
                 "after the daemon started, which reads it once",
                 path});
            break;
    }
    if (isSessionsCheckOff(situation)) {
        statements.push_back(
            {"open sessions do not keep the service: the override is there, on a set for developers",
             switchOf(situation, kNoSessionsCheck)->path});
    }
}

void addAttempts(const Situation& situation, Statements& statements) {
    statements.push_back({"the last attempt to terminate it: " + lastAttemptText(situation),
                          situation.history.lastAttempt() ? "the report, the daemon's log" : "the report"});
    for (const std::int64_t due : situation.history.dueAttempts()) {
        statements.push_back(
            {"the next attempt is due in " + spanText(std::max<std::int64_t>(due - situation.monotonic, 0)),
             kLog});
    }
}

std::string answerText(const Situation& situation) {
    const auto& attempt = situation.history.lastAttempt();
    if (attempt && attempt->outcome == Outcome::RefusedByService) {
        return "what the service answers then; the last time it refused";
    }
    return "what the service answers then: it may refuse";
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

std::vector<Statement> foresee(const Situation& situation, const std::vector<std::string>& ids) {
    Sessions left = openSessions(situation);
    for (const std::string& id : ids) {
        left.erase(id);
    }
    Statements statements;
    if (!left.empty()) {
        statements.push_back({"without " + counted(ids.size(), "session") + ", " +
                                  std::to_string(left.size()) +
                                  " would still hold the service; nothing would be tried",
                              kStateFile});
        for (const auto& [id, holder] : left) {
            statements.push_back({"still held by " + sessionText(id, holder), kStateFile});
        }
        return statements;
    }
    statements.push_back(
        {"without " + counted(ids.size(), "session") + " nobody would hold the service", kStateFile});
    const Marker* const aggressive = switchOf(situation, kAggressive);
    const std::string path = aggressive == nullptr ? "" : aggressive->path;
    switch (isAggressive(situation)) {
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
                {"whether the service would then be asked to terminate: the switch was changed after the "
                 "daemon started, which reads it once",
                 kNobody});
            break;
    }
    return statements;
}

std::vector<std::string> unknownIds(const Situation& situation, const std::vector<std::string>& ids) {
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

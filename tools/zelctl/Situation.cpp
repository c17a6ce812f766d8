// SPDX-License-Identifier: Apache-2.0
#include "Situation.h"

#include <json/json.h>

#include <algorithm>
#include <array>
#include <cstdlib>

#include "Rows.h"
#include "Text.h"

namespace zelctl {

namespace {

struct OutcomeText {
    Outcome outcome;
    const char* word;
    const char* text;
};

constexpr std::array<OutcomeText, 7> kOutcomes{{
    {Outcome::Unknown, "unknown", "the log does not say why"},
    {Outcome::RefusedForSessions, "refused-for-sessions", "not asked, because sessions were open"},
    {Outcome::RefusedByService, "refused-by-service", "the service refused"},
    {Outcome::NoControl, "no-control", "the service could not be reached"},
    {Outcome::Unreachable, "unreachable", "the service did not answer and was started again"},
    {Outcome::Terminated, "terminated", "the service agreed"},
    {Outcome::AlreadyTerminated, "already-terminated", "the service was terminated already"},
}};

static_assert(hasARowForEach(kOutcomes, &OutcomeText::outcome, Outcome::Unknown, Outcome::AlreadyTerminated));

const OutcomeText& textOf(Outcome outcome) {
    return kOutcomes.at(static_cast<std::size_t>(outcome));
}

std::string joined(const std::vector<std::string>& texts) {
    std::string result;
    for (const std::string& text : texts) {
        result += (result.empty() ? "" : ", ") + text;
    }
    return result;
}

std::string unitText(const std::optional<Unit>& unit, std::int64_t monotonic) {
    if (!unit) {
        return "systemd could not be asked";
    }
    std::string text = "unit " + unit->name + " is " + unit->active + " (" + unit->sub + ')';
    if (unit->load != "loaded") {
        text += ", " + unit->load;
    }
    if (unit->pid != 0) {
        text += ", process " + std::to_string(unit->pid);
    }
    if (unit->activeSinceMonotonic != 0) {
        text += ", for " + spanText(monotonic - static_cast<std::int64_t>(unit->activeSinceMonotonic / 1000));
    }
    if (unit->restarts > 0) {
        text += ", restarted " + counted(unit->restarts, "time");
    }
    return text;
}

std::string pendingText(const Situation& situation) {
    std::vector<std::string> texts;
    for (const std::int64_t due : situation.history.dueAttempts()) {
        texts.push_back("in " + spanText(std::max<std::int64_t>(due - situation.monotonic, 0)));
    }
    if (daemonState(situation) == "absent") {
        return "none without the daemon";
    }
    if (texts.empty()) {
        return situation.logProblem.empty() ? "none" : "unknown: " + situation.logProblem;
    }
    return joined(texts);
}

std::string markersText(const std::vector<Marker>& markers) {
    std::vector<std::string> texts;
    for (const Marker& marker : markers) {
        if (!marker.problem.empty()) {
            texts.push_back(marker.path + " (" + marker.problem + ')');
        } else if (marker.isPresent) {
            texts.push_back(marker.path);
        }
    }
    return texts.empty() ? "none" : joined(texts);
}

Json::Value unitJson(const std::optional<Unit>& unit, unsigned int owner) {
    Json::Value json;
    json["unit"] = unit ? Json::Value(unit->name) : Json::Value();
    json["active"] = unit ? Json::Value(unit->active) : Json::Value();
    json["sub"] = unit ? Json::Value(unit->sub) : Json::Value();
    json["pid"] = unit && unit->pid != 0 ? Json::Value(unit->pid) : Json::Value();
    json["restarts"] = unit ? Json::Value(unit->restarts) : Json::Value();
    json["nameOwner"] = owner != 0 ? Json::Value(owner) : Json::Value();
    return json;
}

Json::Value sessionsValue(const Situation& situation) {
    Json::Value json(Json::arrayValue);
    for (const auto& [id, holder] : openSessions(situation)) {
        Json::Value session;
        session["id"] = id;
        session["kind"] = kindOf(id);
        session["program"] = holder.program;
        session["pid"] = holder.pid;
        session["saved"] = situation.sessions.count(id) > 0;
        json.append(session);
    }
    return json;
}

Json::Value markersJson(const std::vector<Marker>& markers) {
    Json::Value json(Json::arrayValue);
    for (const Marker& marker : markers) {
        Json::Value value;
        value["path"] = marker.path;
        value["present"] = marker.isPresent;
        value["problem"] = marker.problem;
        json.append(value);
    }
    return json;
}

Json::Value attemptJson(const Situation& situation) {
    const auto& report = situation.report;
    if (!report || !report->lastAttempt) {
        return {};
    }
    Json::Value json;
    json["secondsAgo"] = static_cast<double>(between(*report->lastAttempt, situation.daemonTime)) / 1000;
    json["succeeded"] = report->lastAttemptSucceeded;
    json["outcome"] = Json::Value();
    json["reasons"] = Json::Value(Json::arrayValue);
    if (const Attempt* const attempt = loggedAttempt(situation)) {
        json["outcome"] = textOf(attempt->outcome).word;
        for (const std::string& reason : attempt->reasons) {
            json["reasons"].append(reason);
        }
    }
    return json;
}

std::string written(const Json::Value& json) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "  ";
    return Json::writeString(builder, json) + '\n';
}

}  // namespace

std::string daemonState(const Situation& situation) {
    if (situation.daemonOwner == 0) {
        return "absent";
    }
    if (situation.isTerminated) {
        return "running";
    }
    return situation.isDaemonSilent ? "silent" : "unknown";
}

// systemd knows what runs; only the daemon, or the marker that it leaves, tells an agreed end from another.
std::string serviceState(const Situation& situation) {
    if (!situation.service) {
        return situation.serviceOwner != 0 ? "running" : "unknown";
    }
    const std::string& active = situation.service->active;
    const bool restart = situation.markers.size() > kRestart && situation.markers[kRestart].isPresent &&
                         situation.markers[kRestart].problem.empty();
    if (active == "activating") {
        return restart ? "restarting" : "starting";
    }
    if (active == "active" || active == "reloading") {
        return "running";
    }
    if (active == "deactivating") {
        return "terminating";
    }
    if (active == "failed") {
        return "failed";
    }
    return situation.isTerminated.value_or(restart) ? "terminated" : "stopped";
}

// The log may be a line behind the report, or ahead of it.
const Attempt* loggedAttempt(const Situation& situation) {
    constexpr std::int64_t kTolerated = 1000;
    const auto& attempt = situation.history.lastAttempt();
    const auto& report = situation.report;
    if (!attempt || !report || !report->lastAttempt) {
        return nullptr;
    }
    const std::int64_t apart = (situation.monotonic - attempt->time) -
                               std::int64_t{between(*report->lastAttempt, situation.daemonTime)};
    return std::abs(apart) <= kTolerated ? &*attempt : nullptr;
}

std::string lastAttemptText(const Situation& situation) {
    const auto& report = situation.report;
    if (!report) {
        return "unknown: the daemon did not tell";
    }
    if (!report->lastAttempt) {
        return "none since the daemon has started";
    }
    std::string text = spanText(between(*report->lastAttempt, situation.daemonTime)) + " ago, " +
                       (report->lastAttemptSucceeded ? "succeeded" : "failed");
    const Attempt* const attempt = loggedAttempt(situation);
    if (attempt == nullptr) {
        return text;
    }
    text += std::string(": ") + textOf(attempt->outcome).text;
    if (!attempt->result.empty()) {
        text += ", result " + attempt->result;
    }
    if (!attempt->reasons.empty()) {
        text += ", reasons " + joined(attempt->reasons);
    }
    for (const auto& [id, holder] : attempt->sessions) {
        text += (id == attempt->sessions.begin()->first ? ": " : ", ") + sessionText(id, holder);
    }
    return text;
}

Sessions openSessions(const Situation& situation) {
    Sessions sessions = situation.sessions;
    sessions.insert(situation.history.unsaved().begin(), situation.history.unsaved().end());
    return sessions;
}

std::string statusText(const Situation& situation) {
    const auto row = [](const char* name, const std::string& value) {
        return std::string(name) + std::string(16 - std::string(name).size(), ' ') + printable(value) + '\n';
    };
    std::string text = row("service", serviceState(situation));
    text += row("", unitText(situation.service, situation.monotonic));
    text += row("daemon", daemonState(situation));
    text += row("", unitText(situation.daemon, situation.monotonic));
    const Sessions sessions = openSessions(situation);
    text += row("sessions", situation.sessionsProblem.empty() ? counted(sessions.size(), "session") + " open"
                                                              : "unknown: " + situation.sessionsProblem);
    for (const auto& [id, holder] : sessions) {
        text += row(
            "", sessionText(id, holder) +
                    (situation.sessions.count(id) > 0 ? "" : "; the service could not be started for it"));
    }
    text += row("last attempt", lastAttemptText(situation));
    text += row("next attempt", pendingText(situation));
    text += row("markers", markersText(situation.markers));
    text += row("switches", markersText(situation.switches));
    return text;
}

std::string statusJson(const Situation& situation) {
    Json::Value json;
    json["service"] = unitJson(situation.service, situation.serviceOwner);
    json["service"]["state"] = serviceState(situation);
    json["daemon"] = unitJson(situation.daemon, situation.daemonOwner);
    json["daemon"]["state"] = daemonState(situation);
    json["daemon"]["takesServiceForTerminated"] =
        situation.isTerminated ? Json::Value(*situation.isTerminated) : Json::Value();
    json["sessions"] = situation.sessionsProblem.empty() ? sessionsValue(situation) : Json::Value();
    json["lastAttempt"] = attemptJson(situation);
    json["nextAttempts"] = !situation.logProblem.empty() ? Json::Value() : Json::Value(Json::arrayValue);
    for (const std::int64_t due : situation.history.dueAttempts()) {
        json["nextAttempts"].append(static_cast<double>(due - situation.monotonic) / 1000);
    }
    json["markers"] = markersJson(situation.markers);
    json["switches"] = markersJson(situation.switches);
    return written(json);
}

std::string sessionsText(const Situation& situation) {
    std::vector<std::vector<std::string>> rows;
    for (const auto& [id, holder] : openSessions(situation)) {
        rows.push_back({id, kindOf(id), holder.program, holder.pid,
                        situation.sessions.count(id) > 0 ? "yes" : "no: the service could not be started"});
    }
    return rows.empty() ? "no sessions\n"
                        : table({"SESSION", "HELD BY", "PROGRAM", "PROCESS", "SAVED"}, rows);
}

std::string sessionsJson(const Situation& situation) {
    return written(sessionsValue(situation));
}

}  // namespace zelctl

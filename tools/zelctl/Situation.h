// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * All that is known of the daemon and the service at one moment, and what it comes to.
 */
#ifndef ZELCTL_SITUATION_H
#define ZELCTL_SITUATION_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "History.h"
#include "Report.h"
#include "Sessions.h"

namespace zelctl {

/** A unit as systemd has it. */
struct Unit {
    std::string name;
    /** "loaded", "not-found", "masked". */
    std::string load;
    /** "active", "inactive", "failed", "activating", "deactivating". */
    std::string active;
    std::string sub;
    unsigned int pid = 0;
    /** When it became active, microseconds of the real and the monotonic clock; 0 when it is not. */
    std::uint64_t activeSince = 0;
    std::uint64_t activeSinceMonotonic = 0;
    /** How often systemd has restarted it by itself. */
    unsigned int restarts = 0;
};

/** A file whose being there means something. */
struct Marker {
    std::string path;
    std::string meaning;
    bool isPresent = false;
    /** What is wrong with it; empty when nothing is. */
    std::string problem;
    /** When it was last changed, microseconds of the real clock; of a switch that is absent, when the folder
     * was that it would be in. */
    std::uint64_t changed = 0;
};

/** The files that the daemon looks for; the order of markers() and switches(). */
enum MarkerIndex : std::size_t { kSubsequentStart, kRunning, kRestart, kMarkerCount };
enum SwitchIndex : std::size_t { kDebugSet, kAggressive, kNoTracing, kNoSessionsCheck, kSwitchCount };

struct Situation {
    /** None when systemd could not be asked. */
    std::optional<Unit> daemon;
    std::optional<Unit> service;
    /** Process ids of the owners of the two bus names; 0 when nobody has them. */
    unsigned int daemonOwner = 0;
    unsigned int serviceOwner = 0;
    /** Whether the daemon takes the service for terminated; none when it did not say. */
    std::optional<bool> isTerminated;
    /** The daemon's report without its traces; none when it did not give it. */
    std::optional<Report> report;
    /** Why the daemon did not say or give something; empty when it did. */
    std::string daemonProblem;
    /** Whether that was because it did not answer. */
    bool isDaemonSilent = false;
    Sessions sessions;
    /** Why the sessions are unknown; empty when they are known. */
    std::string sessionsProblem;
    std::vector<Marker> markers;
    std::vector<Marker> switches;
    /** The log of the running daemon. */
    History history;
    /** Why the log tells nothing; empty when it does. */
    std::string logProblem;
    /** The clocks when this was gathered. */
    DaemonTime daemonTime = 0;
    std::int64_t monotonic = 0;
};

/** One word for the service: running, terminated, restarting, starting, terminating, stopped, failed,
 * unknown.
 */
std::string serviceState(const Situation& situation);

/** One word for the daemon: running, silent (it has its name and does not answer), absent, unknown (it may
 * not be asked, or its answer makes no sense). */
std::string daemonState(const Situation& situation);

/** What the log tells of the last attempt in the report; null when it tells nothing, or of another attempt.
 */
const Attempt* loggedAttempt(const Situation& situation);

/** The last attempt to terminate the service: when, with what result, and why. */
std::string lastAttemptText(const Situation& situation);

/** All sessions that are open as far as is known, saved or not. */
Sessions openSessions(const Situation& situation);

/** The situation for people, and for programs. */
std::string statusText(const Situation& situation);
std::string statusJson(const Situation& situation);
std::string sessionsText(const Situation& situation);
std::string sessionsJson(const Situation& situation);

}  // namespace zelctl

#endif

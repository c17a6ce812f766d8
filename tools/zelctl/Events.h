// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What the lines of the daemon's log tell.
 */
#ifndef ZELCTL_EVENTS_H
#define ZELCTL_EVENTS_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zelctl {

/** What happened. */
enum class EventKind {
    /** The daemon has started, for the first time since boot. */
    FirstStart,
    /** The daemon has started again and found the service running. */
    StartedAgain,
    /** A trigger came. Values: whether the service is started, whether it is told, whether listeners are, the
     * state believed before, the trigger. */
    Trigger,
    /** systemd did not start the service. */
    StartFailed,
    /** The service did not take a trigger. Values: state, result. */
    NotifyFailed,
    /** The service can't be reached at all. */
    NoControl,
    /** An application asked for a session. Values: whether it has got one, session, program, process. */
    Opened,
    /** A session is open but the service could not be started for it. Values: session, program, process. */
    OpenedInVain,
    /** An application gave its session back. Values: whether it had one, session, program, process. */
    Closed,
    /** A window is not on the screen any more, and its session closed. Values: window, process. */
    WindowGone,
    /** The process that held a restored session is gone. Value: process. */
    OwnerGone,
    /** An attempt will be made. Value: in how many seconds. */
    AttemptScheduled,
    /** The time of a scheduled attempt has come. */
    AttemptDue,
    /** An attempt to terminate the service begins. */
    Attempt,
    /** Sessions are open. Value: how many. */
    RefusedForSessions,
    /** One of them. Values: session, program, process. */
    RefusedForSession,
    /** The service did not want to. Values: state, result, number of reasons. */
    RefusedByService,
    /** One of its reasons. Value: number. */
    RefusalReason,
    /** The service did not answer and is started again. Values: state, result. */
    Unreachable,
    /** The service agreed to terminate. */
    Terminated,
    /** The service was terminated already. */
    AlreadyTerminated
};

/** A line of the log that means something. */
struct Event {
    EventKind kind;
    /** What the line says in its places, in order. */
    std::vector<std::string> values;
};

/** The meaning of a line of the daemon's log, "FILE: FUNCTION(LINE) > TEXT"; none when it tells nothing that
 * counts here. */
std::optional<Event> parseEvent(std::string_view message);

/** What a trigger is for: "start", "input plugged"; the number where it is unknown. */
std::string triggerName(const std::string& number);

/** The name of a state of the service by the daemon's number. */
std::string stateName(const std::string& number);

/** One word for the kind, for programs that read. */
const char* wordFor(EventKind kind);

/** A line for people. */
std::string eventText(const Event& event);

}  // namespace zelctl

#endif

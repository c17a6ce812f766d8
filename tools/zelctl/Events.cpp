// SPDX-License-Identifier: Apache-2.0
#include "Events.h"

#include <array>
#include <charconv>

#include "Rows.h"

namespace zelctl {

namespace {

struct Pattern {
    EventKind kind;
    const char* word;
    std::string_view function;
    /** The text, with % for each value. */
    std::string_view text;
    /** What it means, with %1 to %9 for the values. */
    std::string_view meaning;
};

// One row for each line that means something.
constexpr std::array<Pattern, 21> kPatterns{{
    {EventKind::FirstStart, "daemon-first-start", "TCZelDaemonStateManager", "First boot up",
     "the daemon has started, for the first time since boot"},
    {EventKind::StartedAgain, "daemon-started-again", "TCZelDaemonStateManager", "ZEL was running before",
     "the daemon has started again and takes the service for running"},
    {EventKind::Trigger, "trigger", "Notify",
     "ZEL Daemon Notify, startZEL(%), sendNotifyCall(%), informListeners(%), m_zelState(%), trigger(%)", ""},
    {EventKind::StartFailed, "start-failed", "Notify", "Starting ZEL Failed",
     "the service could not be started"},
    {EventKind::NotifyFailed, "notify-failed", "Notify", "Failed to notify ZEL, m_zelState(%), retNotify(%)",
     "the service did not take the trigger, result %2"},
    {EventKind::NoControl, "no-control", "", "pZelControl == nullptr", "the service can't be reached"},
    {EventKind::Opened, "open-call", "m_Open", "Opened session, ok(%), sessionId(%), progName(%), pid(%)",
     ""},
    {EventKind::OpenedInVain, "opened-in-vain", "m_Open",
     "ERROR: FAILED to start ZEL when Opening session, sessionId(%), progName(%), pid(%)",
     "%1 (%2, process %3) holds a session, but the service could not be started for it"},
    {EventKind::Closed, "close-call", "m_Close", "Closed session, ok(%), sessionId(%), progName(%), pid(%)",
     ""},
    {EventKind::WindowGone, "window-gone", "RemoveFromActiveClients", "Removing client winId:% app_pid:%",
     "window %1 has gone"},
    {EventKind::OwnerGone, "owner-gone", "CheckPIDs", "Application not running, pid(%)",
     "process %1, which held a session, is gone"},
    {EventKind::AttemptScheduled, "attempt-scheduled", "m_tryTerminateWithDelay",
     "Will try to terminate ZEL after % seconds", "in %1 seconds the service will be asked to terminate"},
    {EventKind::AttemptDue, "attempt-due", "m_tryTerminateCallback", "Try to terminate ZEL after delay",
     "the time of the attempt has come"},
    {EventKind::Attempt, "attempt", "TryTerminateZel", "Try Terminate ZEL",
     "an attempt to terminate the service"},
    {EventKind::RefusedForSessions, "refused-for-sessions", "TryTerminateZel",
     "Can not terminate zel-daemon. There are sessions open, activeSessionsCount(%)",
     "the attempt is off: open sessions: %1"},
    {EventKind::RefusedForSession, "refused-for-session", "TryTerminateZel",
     "Opened Session, sessionId(%), progName(%), pid(%)", "it is held by %1 (%2, process %3)"},
    {EventKind::RefusedByService, "refused-by-service", "RequestTerminate",
     "Failed to terminate ZEL, m_zelState(%), ret(%), error size %",
     "the service refused to terminate, result %2, reasons: %3"},
    {EventKind::RefusalReason, "refusal-reason", "RequestTerminate", "error: %", "its reason: %1"},
    {EventKind::Unreachable, "unreachable", "RequestTerminate", "Communication failed, m_zelState(%), ret(%)",
     "the service did not answer, result %2, and is started again"},
    {EventKind::Terminated, "terminated", "RequestTerminate", "Succeeded to terminate ZEL",
     "the service agreed to terminate"},
    {EventKind::AlreadyTerminated, "already-terminated", "RequestTerminate", "zel-daemon already terminated",
     "the service was terminated already"},
}};

static_assert(hasARowForEach(kPatterns, &Pattern::kind, EventKind::FirstStart, EventKind::AlreadyTerminated));

constexpr std::array<const char*, 6> kTriggers{
    "input plugged or unplugged", "start",     "network time changed",
    "clock mode changed",         "sync time", "stolen-television changed"};
constexpr std::array<const char*, 5> kStates{"undefined", "running", "running uninitialized", "terminated",
                                             "undefined after terminate"};

template <typename Names>
std::string nameIn(const Names& names, const std::string& number, const char* otherwise) {
    std::size_t index = names.size();
    const char* const end = number.data() + number.size();
    const auto result = std::from_chars(number.data(), end, index);
    return result.ec == std::errc() && result.ptr == end && index < names.size() ? names.at(index)
                                                                                 : otherwise + number;
}

// What stands in the places of a pattern; none when it is another text. The value before the last gap takes
// what it can: it is the name of a program, which may look like anything.
std::optional<std::vector<std::string>> match(std::string_view pattern, std::string_view text) {
    std::vector<std::string> values;
    std::size_t gap = pattern.find('%');
    if (gap == std::string_view::npos) {
        return pattern == text ? std::optional(values) : std::nullopt;
    }
    if (text.substr(0, gap) != pattern.substr(0, gap)) {
        return std::nullopt;
    }
    text.remove_prefix(gap);
    const std::string_view tail = pattern.substr(pattern.rfind('%') + 1);
    if (text.size() < tail.size() || text.substr(text.size() - tail.size()) != tail) {
        return std::nullopt;
    }
    text.remove_suffix(tail.size());
    for (pattern.remove_prefix(gap + 1); (gap = pattern.find('%')) != std::string_view::npos;
         pattern.remove_prefix(gap + 1)) {
        const std::string_view between = pattern.substr(0, gap);
        const bool last = pattern.find('%', gap + 1) == std::string_view::npos;
        const std::size_t end = last ? text.rfind(between) : text.find(between);
        if (end == std::string_view::npos) {
            return std::nullopt;
        }
        values.emplace_back(text.substr(0, end));
        text.remove_prefix(end + between.size());
    }
    values.emplace_back(text);
    return values;
}

const Pattern& patternOf(EventKind kind) {
    return kPatterns.at(static_cast<std::size_t>(kind));
}

std::string filled(std::string_view meaning, const std::vector<std::string>& values) {
    std::string text;
    for (std::size_t i = 0; i < meaning.size(); ++i) {
        if (meaning[i] == '%' && i + 1 < meaning.size()) {
            text += values.at(static_cast<std::size_t>(meaning[++i] - '1'));
        } else {
            text += meaning[i];
        }
    }
    return text;
}

std::string triggerText(const std::vector<std::string>& values) {
    std::string text = "trigger " + values[4] + " (" + triggerName(values[4]) + "): the service ";
    if (values[0] == "1") {
        return text + "was " + stateName(values[3]) + ", is started and told";
    }
    return text + (values[1] == "1" ? "runs and is told" : "runs, nothing to do");
}

// Texts that depend on the values.
std::string openText(const std::vector<std::string>& values) {
    return values[1] + " (" + values[2] + ", process " + values[3] +
           (values[0] == "1" ? ") has opened a session" : ") asked for a session in vain");
}

std::string closeText(const std::vector<std::string>& values) {
    return values[1] + " (" + values[2] + ", process " + values[3] +
           (values[0] == "1" ? ") has closed its session" : ") had no session to close");
}

}  // namespace

std::optional<Event> parseEvent(std::string_view message) {
    const std::size_t colon = message.find(": ");
    const std::size_t mark = message.find(") > ");
    const std::size_t bracket = message.rfind('(', mark);
    if (colon == std::string_view::npos || mark == std::string_view::npos ||
        bracket == std::string_view::npos || bracket < colon + 2) {
        return std::nullopt;
    }
    const std::string_view function = message.substr(colon + 2, bracket - colon - 2);
    const std::string_view text = message.substr(mark + 4);
    for (const Pattern& pattern : kPatterns) {
        if (!pattern.function.empty() && pattern.function != function) {
            continue;
        }
        if (auto values = match(pattern.text, text)) {
            return Event{pattern.kind, std::move(*values)};
        }
    }
    return std::nullopt;
}

std::string triggerName(const std::string& number) {
    return nameIn(kTriggers, number, "unknown trigger ");
}

std::string stateName(const std::string& number) {
    return nameIn(kStates, number, "unknown state ");
}

const char* wordFor(EventKind kind) {
    return patternOf(kind).word;
}

std::string eventText(const Event& event) {
    switch (event.kind) {
        case EventKind::Trigger:
            return triggerText(event.values);
        case EventKind::Opened:
            return openText(event.values);
        case EventKind::Closed:
            return closeText(event.values);
        default:
            return filled(patternOf(event.kind).meaning, event.values);
    }
}

}  // namespace zelctl
